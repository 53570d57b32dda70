// The output of q7, write by write.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <numeric>

#include "checks/harness.h"
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
    EXPECT_THAT(
        writes(STDOUT_FILENO, "netQ7test", board),
        ElementsAre(kStartLine, "no kill avcore\n", "现在测试电口网络\n", "现在测试光口网络\n",
                    "后面板上面的USB口插着的U盘是3.0U盘\n", "后面板下面的USB口插着的U盘是3.0U盘\n",
                    "3.0usb插3.0U盘测试成功,请在10s内将2.0U盘插入3.0usb进行测试\n",
                    "后面板上面的USB口插着的U盘是2.0U盘或者鼠标\n",
                    "后面板下面的USB口插着的U盘是3.0U盘\n", "miniSAS口正常\n"));
    EXPECT_EQ(writes(STDOUT_FILENO, "-h", board).size(), 18u);

    // 111 reports and 17 texts of the whole sequence.
    const std::vector<std::string> sequence = writes(STDOUT_FILENO, "", board);
    EXPECT_EQ(sequence.size(), 128u);
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
