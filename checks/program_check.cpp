// The two programs as a user runs them.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "checks/harness.h"
#include "checks/programs.h"

namespace {

using namespace checks;

Finished q7(const std::string& arguments) { return shell(Q7_BINARIES "/q7 " + arguments); }

TEST(Program, Q7OnAMachineWithoutControlDevice) {
    if (std::ifstream("/dev/zebio")) GTEST_SKIP() << "this machine has a control device";
    const auto expect = [](const char* arguments, testing::Matcher<std::string> out, int status) {
        const Finished got = q7(arguments);
        EXPECT_THAT(got.out, out);
        EXPECT_EQ(got.status, status) << arguments;
    };
    const std::string start = "sysInit 1 Fatal\n";
    expect("-o 2", start + "\xB4\xF2\xBF\xAAhwInfo\xC9\xE8\xB1\xB8\xB3\xF6\xB4\xED!\n", 255);
    expect("-h", StartsWith(start + "q7 ver1.02(2009-4-3)\n"), 0);
    expect("-x 1", start + "\xB2\xCE\xCA\xFD\xB7\xC7\xB7\xA8\n", 0);
    expect("netQ7test",
           start + "\xB4\xF2\xBF\xAA\xC3\xFC\xC3\xFB\xB9\xDC\xB5\xC0\xB3\xF6\xB4\xED\n", 0);
}

// As in a pipe to a program that has died.
TEST(Program, Q7EndsWhenNobodyReadsItsConsole) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    const pid_t q7 = ::fork();
    ASSERT_GE(q7, 0);
    if (q7 == 0) {
        ::signal(SIGPIPE, SIG_DFL);
        ::dup2(ends[1], STDOUT_FILENO);
        ::close(ends[1]);
        ::execl(Q7_BINARIES "/q7", "q7", "-h", nullptr);
        ::_exit(127);
    }
    ::close(ends[1]);
    int status = 0;
    ASSERT_EQ(::waitpid(q7, &status, 0), q7);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << status;
}

TEST(Program, SimulatorsReportsHaveTheReaderOfARealFifo) {
    const std::string fifo = scratch("real.fifo"), board = scratch("leaves.toml");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const auto read_by = [&](const std::string& reader, const std::string& options) {
        return shell("sh -c '(sleep 0.2; timeout 10 " + reader + " " + fifo
                     + " >/dev/null) & timeout 10 " + Q7_BINARIES "/q7-sim --fifo " + fifo + " "
                     + options + " netQ7test; s=$?; " + "wait; exit $s'");
    };
    Finished got = read_by("cat", "");
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.err, "q7-sim: waiting for a reader of " + fifo + "\n");
    EXPECT_THAT(got.out, testing::Not(HasSubstr("write error")));
    got = read_by("head -c 100", "--pace 100");  // the reader leaves, and q7 goes on
    EXPECT_EQ(got.status, 0);
    EXPECT_THAT(got.out, HasSubstr("write error file = q7 ,line"));
    std::ofstream(board) << "base = 'healthy'\n[[changes]]\nat = 5\nfifo.reader = false\n";
    got = q7_sim("--board " + board + " --fifo " + fifo + " netQ7test");
    EXPECT_EQ(got.status, 2);
    EXPECT_THAT(got.err, HasSubstr("is a FIFO with a reader of its own"));
    std::remove(fifo.c_str());
}

}  // namespace
