// The two programs as a user runs them.
#include <gmock/gmock.h>

#include <fstream>
#include <string>

#include "checks/programs.h"
#include "sim/text.h"

namespace {

using namespace checks;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

Finished q7(const std::string& arguments) { return shell(Q7_BINARIES "/q7 " + arguments); }

TEST(Program, Q7OnAMachineWithoutControlDevice) {
    if (std::ifstream("/dev/zebio")) GTEST_SKIP() << "this machine has a control device";
    Finished got = q7("-o 2");
    EXPECT_EQ(got.out,
              "sysInit 1 Fatal\n\xB4\xF2\xBF\xAAhwInfo\xC9\xE8\xB1\xB8\xB3\xF6\xB4\xED!\n");
    EXPECT_EQ(got.status, 255);
    got = q7("-h");
    EXPECT_THAT(got.out, StartsWith("sysInit 1 Fatal\nq7 ver1.02(2009-4-3)\n"));
    EXPECT_EQ(got.status, 0);
    got = q7("-x 1");
    EXPECT_EQ(sim::gbk_to_utf8(got.out), "sysInit 1 Fatal\n参数非法\n");
    EXPECT_EQ(got.status, 0);
    got = q7("netQ7test");
    EXPECT_EQ(sim::gbk_to_utf8(got.out), "sysInit 1 Fatal\n打开命名管道出错\n");
    EXPECT_EQ(got.status, 0);
}

TEST(Program, SimulatorEndsWithTheStatusOrSignalOfQ7) {
    EXPECT_EQ(q7_sim("-o 2").status, 0);
    const std::string scenario = scratch("board.toml");
    std::ofstream(scenario) << "base = \"healthy\"\n[operator]\ninterrupts = [2.5]\n";
    Finished got = q7_sim("--board " + scenario + " -o 2 5");
    EXPECT_EQ(got.signal, 2);
    std::ofstream(scenario) << "";
    EXPECT_EQ(q7_sim("--board " + scenario + " -o 2").status, 255);
    std::ofstream(scenario) << "base = \"healthy\"\nend = 4.0";
    got = q7_sim("--board " + scenario + " -o 2 5");
    EXPECT_EQ(got.status, 120);
    EXPECT_THAT(got.err, StartsWith("q7-sim: stopped at "));
}

TEST(Program, SimulatorExplainsBadArgumentsAndScenarios) {
    const std::string scenario = scratch("bad.toml");
    std::ofstream(scenario) << "[hardware]\nmodle = 1\n";
    const struct {
        std::string arguments, error;
    } rows[] = {
        {"--board", "q7-sim: --board: 1 required FILE missing"},
        {"--board /nowhere.toml", "q7-sim: /nowhere.toml: no such file"},
        {"--board " + scenario, "q7-sim: " + scenario + ":2: unknown key \"modle\""},
        {"--pace 0", "q7-sim: --pace: Value 0 not in range"},
        {"--pace fast", "q7-sim: --pace: Value fast not in range"},
        {"--trace /nowhere/x", "q7-sim: /nowhere/x: cannot be written"},
        {"--fifo /nowhere/x netQ7test", "q7-sim: /nowhere/x: cannot be written"},
    };
    for (const auto& row : rows) {
        const Finished got = q7_sim(row.arguments);
        EXPECT_EQ(got.status, 2) << row.arguments;
        EXPECT_THAT(got.err, StartsWith(row.error));
        EXPECT_EQ(got.out, "");
    }
}

TEST(Program, SimulatorShowsTheConsoleAndMarksTheRecords) {
    Finished got = q7_sim("netQ7test");
    EXPECT_THAT(got.err, StartsWith("[record] 第1步:蜂鸣器测试\n[record] \\n\n"));
    EXPECT_THAT(got.err, EndsWith("[record] 测试结束\\n\n[record] Q7TESTEND\n"));
    EXPECT_THAT(got.out, EndsWith("miniSAS口正常\n"));

    const std::string fifo = scratch("fifo");
    got = q7_sim("--gbk --fifo " + fifo + " netQ7test");
    EXPECT_EQ(got.err, "");
    using namespace std::string_literals;
    EXPECT_THAT(content_of(fifo), EndsWith("\0\0\0\0\x09\0\0\0Q7TESTEND"s));
    EXPECT_THAT(got.out, EndsWith("miniSAS\xBF\xDA\xD5\xFD\xB3\xA3\n"));
}

TEST(Program, SimulatorWritesTheEventLog) {
    const std::string trace = scratch("trace");
    const Finished got = q7_sim("--trace " + trace + " -o 9");
    EXPECT_THAT(content_of(trace),
                HasSubstr("{\"at\":2.1,\"actor\":\"main\",\"call\":\"ioctl\",\"fd\":5,"
                          "\"path\":\"/dev/zebio\",\"request\":\"0x20\",\"argument\":5,"
                          "\"printed\":166,\"result\":0}\n"));
    EXPECT_THAT(content_of(trace), HasSubstr("{\"at\":2.1,\"device\":\"watchdog\","
                                             "\"state\":\"5 s\"}\n"));
    EXPECT_EQ(got.err, "q7-sim: the watchdog restarts the board at 7.100000 s\n");
}

TEST(Program, SimulatorAnswersQuestionsAboutItself) {
    EXPECT_THAT(q7_sim("--help").out, HasSubstr("--board FILE "));
    EXPECT_EQ(q7_sim("--version").out, "q7-sim 1.02\n");
    EXPECT_THAT(q7_sim("--list").out, HasSubstr("healthy "));
    EXPECT_THAT(q7_sim("--keys").out, HasSubstr("| `sata_layout` |"));
    EXPECT_THAT(q7_sim("-h").out, HasSubstr("q7 ver1.02"));
    EXPECT_THAT(q7_sim("-- --help").out, HasSubstr("q7 ver1.02"));
}

}  // namespace
