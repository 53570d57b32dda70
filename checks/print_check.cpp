// The output of q7, write by write.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <numeric>

#include "checks/harness.h"
#include "driver/test_table.h"
#include "platform/print.h"
#include "sim/program/text.h"

namespace {

using namespace checks;

// The writes of a run on this descriptor, through a pipe in packet mode, where each write is a
// separate read.
std::vector<std::string> writes(int fd, const std::string& argument, const Board& board,
                                const std::function<void()>& before = {}) {
    int ends[2];
    if (::pipe2(ends, O_DIRECT | O_NONBLOCK) != 0 || ::fcntl(ends[1], F_SETPIPE_SZ, 1 << 20) < 0) {
        ADD_FAILURE() << "no pipe in packet mode";
        return {};
    }
    std::istringstream words(argument);
    run_with(board, {std::istream_iterator<std::string>(words), {}}, [&] {
        ::dup2(ends[1], fd);
        if (before) before();
    });
    ::close(ends[1]);
    std::vector<std::string> packets;
    char packet[4096];
    for (ssize_t size; (size = ::read(ends[0], packet, sizeof packet)) > 0;)
        packets.push_back(sim::gbk_to_utf8({packet, static_cast<std::size_t>(size)}));
    ::close(ends[0]);
    return packets;
}

TEST(Print, EachCallIsOneWrite) {
    const Board board = healthy();
    // In net mode each text is a line: two of the start, two of the network and six at the end.
    const std::vector<std::string> lines = writes(STDOUT_FILENO, "netQ7test", board);
    EXPECT_EQ(lines.size(), 10u);
    for (const std::string& line : lines)
        EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(writes(STDOUT_FILENO, "-h", board).size(), numbered_tests().size() + 7);
    // Two texts of the start; the number of ports, six texts a disk.
    EXPECT_EQ(writes(STDOUT_FILENO, "-o 8", board).size(), 2 + 1 + 5 * 6u);
    const std::vector<std::string> sequence = writes(STDOUT_FILENO, "", board);
    EXPECT_EQ(std::accumulate(sequence.begin(), sequence.end(), std::string()),
              run(board, "").console);
}

TEST(Print, SystemErrorsAreOneWriteOnStandardError) {
    const Board board = healthy("faults = [{call = 'opendir', errno = 'EMFILE'}]\n");
    EXPECT_THAT(writes(STDERR_FILENO, "-o 7", board), ElementsAre("/dev: Too many open files\n"));
    const Board sas = healthy("hardware.minisas = 1\nfaults = [{call = 'opendir'}]");
    EXPECT_THAT(writes(STDERR_FILENO, "-o 8", sas),
                ElementsAre("scandir fail, errno = 5(Input/output error)\n"));
}

TEST(Print, LongestTextIsWholeAndALongerOneIsCut) {
    const std::string longest(1022, 'x');
    const auto printed = writes(STDOUT_FILENO, "-h", healthy(), [&] {
        print_line(longest.c_str());
        print("%s", (longest + "123").c_str());
        print("%s", "");
    });
    EXPECT_EQ(printed[0], longest + "\n");
    EXPECT_EQ(printed[1], longest + "1");
    EXPECT_EQ(printed[2], kStartLine);
}

}  // namespace
