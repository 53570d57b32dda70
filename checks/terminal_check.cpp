// q7-sim as a person uses it: on a terminal, in paced time.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "checks/harness.h"
#include "checks/programs.h"

namespace {

using namespace checks;

struct Typed {
    std::string after;  // what has to be on the screen
    std::string keys;
};

struct Session {
    std::string screen;
    int status = 0;
    bool restored = false;  // the terminal echoes again
};

Session at_terminal(std::vector<std::string> options, const std::vector<Typed>& typing) {
    Session session;
    int terminal = -1;
    const winsize size{25, 80, 0, 0};
    std::vector<char*> words{const_cast<char*>(Q7_BINARIES "/q7-sim")};
    for (std::string& option : options)
        words.push_back(option.data());
    words.push_back(nullptr);
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, &size);
    if (child < 0) throw std::system_error(errno, std::generic_category(), "forkpty");
    if (child == 0) {
        ::execv(words[0], words.data());
        ::_exit(127);
    }
    const int own_end = ::dup(terminal);
    auto next = typing.begin();
    for (char buffer[4096];;) {
        pollfd file{terminal, POLLIN, 0};
        // The child has not been reaped, so its pid cannot be reused.
        if (::poll(&file, 1, 20'000) <= 0) ::kill(child, SIGKILL);
        const ssize_t count = ::read(terminal, buffer, sizeof buffer);
        if (count <= 0) break;
        session.screen.append(buffer, static_cast<std::size_t>(count));
        while (next != typing.end() && session.screen.find(next->after) != std::string::npos) {
            EXPECT_GT(::write(terminal, next->keys.data(), next->keys.size()), 0);
            ++next;
        }
    }
    EXPECT_TRUE(next == typing.end()) << session.screen;
    termios attributes{};
    session.restored =
        ::tcgetattr(own_end, &attributes) == 0 && (attributes.c_lflag & (ECHO | ICANON)) != 0;
    EXPECT_EQ(::waitpid(child, &session.status, 0), child);
    ::close(own_end);
    ::close(terminal);
    return session;
}

// Skips each of its cases, by name, where the machine has no pseudo-terminals.
class Terminal : public testing::Test {
  protected:
    void SetUp() override {
        const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
        const bool usable = terminal >= 0 && ::grantpt(terminal) == 0 && ::unlockpt(terminal) == 0
                            && ::ptsname(terminal) != nullptr
                            && ::access(::ptsname(terminal), R_OK | W_OK) == 0;
        if (terminal >= 0) ::close(terminal);
        if (!usable) GTEST_SKIP() << "no pseudo-terminal can be opened here";
    }
};

// The bytes that the panel sent, in hexadecimal.
std::string read_from_panel(const std::string& log) {
    std::ifstream file(log);
    std::string bytes;
    for (std::string line; std::getline(file, line);) {
        const std::size_t got = line.find("\"got\":\"");
        if (line.find("/dev/ttyS2") == std::string::npos || got == std::string::npos) continue;
        bytes += line.substr(got + 7, line.find('"', got + 7) - got - 7);
    }
    return bytes;
}

// The scenario presses no keys while a person does.
TEST_F(Terminal, EveryKeyOfThePanelCanBeTypedAndLedsAreShown) {
    const std::string log = scratch("terminal.jsonl");
    const Session session =
        at_terminal({"--pace", "5", "--trace", log, "-o", "3"},
                    {{"record  ○●○●○●○● ○●○●○●○●", "u"},
                     {"record  ●●●●●●●● ●●●●●●●●   function ●●●●○○●○", "\x1B[D"},
                     {"network ●●●●●●●● ●●●●●●●●", "0123456789mtavpcni#udlrABCDEFGeofgx"}});
    EXPECT_EQ(session.status, 0) << session.screen;
    EXPECT_EQ(session.screen.find("unknow key"), std::string::npos);
    EXPECT_TRUE(session.restored);
    std::string expected;
    const auto press = [&](int code) {
        char frame[16];
        std::snprintf(frame, sizeof frame, "ff0620%02x01%02x", code, (0x126 + code) & 0xFF);
        expected += frame;
    };
    for (const int code : {20, 22})
        press(code);
    for (int code = 0; code < 38; ++code)
        if (code != 11 && code != 31 && code != 32 && code != 33) press(code);
    press(11);
    EXPECT_EQ(read_from_panel(log), expected);
}

TEST_F(Terminal, KeyOfAChangeIsNoPanelKey) {
    const std::string board = scratch("terminal.toml");
    std::ofstream(board) << "base = 'healthy'\n[[changes]]\nkey = 'u'\npanel.connected = false\n";
    const Session session =
        at_terminal({"--pace", "10", "--board", board, "-o", "3"}, {{"ESC退出测试", "ue"}});
    EXPECT_EQ(session.status, 0);
    EXPECT_THAT(session.screen, testing::Not(HasSubstr("●●●●")));
    EXPECT_THAT(session.screen, testing::Not(HasSubstr("never came")));
}

TEST_F(Terminal, ScenarioPressesItsKeysWhenAsked) {
    const Session session = at_terminal({"--pace", "50", "--script", "-o", "3"}, {});
    EXPECT_THAT(session.screen, HasSubstr("record  ●●●●●●●● ●●●●●●●●   function ●●●●○○●○"));
}

TEST_F(Terminal, CtrlCEndsTheRunAndNothingWrittenIsLost) {
    const std::string log = scratch("terminal.jsonl");
    const Session session =
        at_terminal({"--pace", "10", "--trace", log, "-o", "3"}, {{"ESC退出测试", "\x03"}});
    EXPECT_TRUE(WIFSIGNALED(session.status) && WTERMSIG(session.status) == SIGINT)
        << session.screen;
    EXPECT_NE(session.screen.find("receive 0:0 replies"), std::string::npos) << session.screen;
    EXPECT_TRUE(session.restored);
    std::ifstream file(log);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    EXPECT_NE(text.find("{\"at\":0.0,"), std::string::npos);
    EXPECT_NE(text.find("\"device\":\"operator\",\"state\":\"interrupt\""), std::string::npos);
}

TEST_F(Terminal, EnterAnswersTheConsoleAndTheSummaryStaysInSight) {
    const Session session = at_terminal({"--pace", "20", "--script"}, {{"10s", "\n"}});
    EXPECT_EQ(session.status, 0);
    EXPECT_THAT(session.screen, HasSubstr("buzzer   sounds"));
    EXPECT_THAT(session.screen, HasSubstr("测试结果:  OK!"));
    const std::string end = session.screen.substr(session.screen.find("Q7测试结果如下"));
    EXPECT_LT(std::count(end.begin(), end.end(), '\n'), 22);
}

}  // namespace
