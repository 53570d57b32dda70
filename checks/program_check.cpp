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

TEST(Program, SimulatorEndsWithTheStatusOrSignalOfQ7) {
    const std::string scenario = scratch("board.toml");
    const auto run_on = [&](const char* board) {
        std::ofstream(scenario) << board;
        return q7_sim("--board " + scenario + " -o 2 5");
    };
    EXPECT_EQ(run_on("base = \"healthy\"").status, 0);
    EXPECT_EQ(run_on("").status, 255);
    EXPECT_EQ(run_on("base = \"healthy\"\noperator.interrupts = [2.5]").signal, 2);
    const Finished got = run_on("base = \"healthy\"\nend = 4.0");
    EXPECT_EQ(got.status, 120);
    EXPECT_THAT(got.err, StartsWith("q7-sim: stopped at "));
}

TEST(Program, SimulatorSaysWhichFaultsNeverCame) {
    const std::string scenario = scratch("faults.toml");
    std::ofstream(scenario) << "base = 'healthy'\n[[faults]]\nrequest = 0x04\n"
                               "[[faults]]\ncall = 'open'\npath = '/dev/zebo'\nnth = 2\n";
    const std::string said =
        "q7-sim: " + scenario + ":4: this fault never came: 0 calls matched, it waits for 2\n";
    Finished got = q7_sim("--board " + scenario + " -o 9");
    EXPECT_THAT(got.err, StartsWith(said));
    EXPECT_EQ(got.status, 0);
    got = q7_sim("--strict --board " + scenario + " -o 2");
    EXPECT_EQ(got.err, said);
    EXPECT_EQ(got.status, 121);
    EXPECT_EQ(q7_sim("--strict -o 2").status, 0);
}

TEST(Program, SimulatorExplainsBadArgumentsAndScenarios) {
    const std::string scenario = scratch("bad.toml");
    std::ofstream(scenario) << "[hardware]\nmodle = 1\n";
    const auto expect = [](const std::string& arguments, const std::string& error) {
        const Finished got = q7_sim(arguments);
        EXPECT_EQ(got.status, 2) << arguments;
        EXPECT_THAT(got.err, StartsWith("q7-sim: " + error));
        EXPECT_EQ(got.out, "");
    };
    expect("--board", "--board: 1 required FILE missing");
    expect("--board /nowhere.toml", "/nowhere.toml: no such file");
    expect("--board " + scenario, scenario + ":2: unknown key \"modle\"");
    expect("--pace 0", "--pace: Value 0 not in range");
    expect("--pace fast", "--pace: Value fast not in range");
    expect("--trace /nowhere/x", "/nowhere/x: cannot be written");
    expect("--fifo /nowhere/x netQ7test", "/nowhere/x: cannot be written");
    expect("-o 5 --board alarm-input-dead", "--board is an option of q7-sim: it belongs before -o");
    expect("-o 5 --pace=3", "--pace is an option of q7-sim: it belongs before -o");
    expect("--boards x -o 5", "--boards is no option of q7-sim (see --help)");
}

TEST(Program, SimulatorShowsTheConsoleAndMarksTheRecords) {
    Finished got = q7_sim("netQ7test");
    EXPECT_THAT(got.err, StartsWith("[record] 第1步:蜂鸣器测试\n[record] \\n\n"));
    EXPECT_THAT(got.err, EndsWith("[record] 测试结束\\n\n[record] Q7TESTEND\n"));
    EXPECT_THAT(got.out, EndsWith("miniSAS口正常\n"));

    const std::string fifo = scratch("fifo");
    got = q7_sim("--gbk --fifo " + fifo + " netQ7test");
    EXPECT_EQ(got.err, "");
    EXPECT_THAT(content_of(fifo), EndsWith(std::string("\0\0\0\0\x09\0\0\0Q7TESTEND", 17)));
    EXPECT_THAT(got.out, EndsWith("miniSAS\xBF\xDA\xD5\xFD\xB3\xA3\n"));
}

TEST(Program, SimulatorWritesLedsAndBuzzerAsLinesIntoAPipe) {
    EXPECT_THAT(q7_sim("--pace 200 -o 3 </dev/null").err, HasSubstr("[LEDs] record FFFF FFFF"));
    EXPECT_THAT(q7_sim("--pace 200 -o 2 </dev/null").err, HasSubstr("[buzzer] on\n[buzzer] off\n"));
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

TEST(Program, SimulatorSaysWhichScenariosKeepTheirPromises) {
    const std::string good = scratch("good.toml"), bad = scratch("bad.toml"),
                      none = scratch("none.toml"), wrong = scratch("wrong.toml");
    std::ofstream(good) << "base = 'rtc-stopped'\n[expect]\narguments = ['-o', '6']\nstatus = 0\n"
                           "verdicts = 'rtc'\ntexts = ['时钟时间']\nno_texts = '1900'\n";
    std::ofstream(bad) << "base = 'rs485-corrupt'\n[expect]\narguments = ['-o', '4']\n"
                          "status = 1\nverdicts = []\ntexts = ['x']\nno_texts = ['失败']\n";
    std::ofstream(none) << "base = 'healthy'\n";
    std::ofstream(wrong) << "[expect]\nverdicts = 'usb'\n";
    const Finished got = q7_sim("--check " + good + " " + bad + " " + none + " " + wrong);
    EXPECT_EQ(got.out, "holds " + good + "\nFAILS " + bad
                           + ": status 0; rs485 shows a fault; no \"x\"; \"失败\"\nFAILS " + none
                           + ": it has no [expect]\nFAILS " + wrong + ": " + wrong
                           + ":2: verdicts takes alarm, minisas, network, rs485, rtc, sata and not "
                             "\"usb\"\n1 of 4 hold\n");
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(q7_sim("--check " + good).status, 0);
}

TEST(Program, SimulatorShowsARunAsJson) {
    const std::string board = scratch("summary.toml");
    std::ofstream(board) << "base = 'rtc-stopped'\nfaults = [{request = 0x80247009, nth = 9}]\n"
                            "[[changes]]\nat = 3\npanel.connected = false\n";
    const Finished got = q7_sim("--summary json --board " + board + " -o 6");
    EXPECT_THAT(got.out, StartsWith(R"({"arguments":["-o","6"],"status":0,"signal":null,)"
                                    R"("stopped":null,"seconds":)"));
    EXPECT_THAT(got.out, HasSubstr(R"("verdicts":{"alarm":0,"minisas":0,"network":0,"rs485":0,)"
                                   R"("rtc":1,"sata":0})"));
    EXPECT_THAT(got.out, HasSubstr(R"("faults":[{"place":")" + board
                                   + R"(:2","came":false}],)"
                                     R"("changes":[{"place":")"
                                   + board + R"(:3","came":1}])"));
    EXPECT_THAT(got.out, HasSubstr("时钟时间"));
    EXPECT_EQ(got.err, "");
}

TEST(Program, SimulatorWritesTheEventLog) {
    const std::string trace = scratch("trace");
    const Finished got = q7_sim("--trace " + trace + " -o 9");
    EXPECT_THAT(content_of(trace),
                HasSubstr(R"({"at":2.1,"actor":"main","call":"ioctl","fd":5,"path":"/dev/zebio",)"
                          R"("request":"0x20","argument":5,"printed":166,"result":0})"
                          "\n"));
    EXPECT_THAT(content_of(trace), HasSubstr(R"({"at":2.1,"device":"watchdog","state":"5 s"})"));
    EXPECT_EQ(got.err, "q7-sim: the watchdog restarts the board at 7.100000 s\n");
}

TEST(Program, SimulatorAnswersQuestionsAboutItself) {
    EXPECT_THAT(q7_sim("--help").out, HasSubstr("--board FILE "));
    EXPECT_EQ(q7_sim("--version").out, "q7-sim 1.02\n");
    EXPECT_THAT(q7_sim("--list").out, HasSubstr("healthy "));
    EXPECT_THAT(q7_sim("--keys").out, HasSubstr("| `sata_layout` |"));
    EXPECT_THAT(q7_sim("-h").out, HasSubstr("q7 ver1.02"));
    EXPECT_THAT(q7_sim("-- --help").out, HasSubstr("q7 ver1.02"));
    EXPECT_THAT(q7_sim("-- -o 5 --board x").out, HasSubstr("测试结果:  OK!"));
}

}  // namespace
