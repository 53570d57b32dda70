#include "checks/harness.h"

namespace {

using namespace checks;

constexpr char kHint[] = "请选择测试序号(1~11)\n";
constexpr char kWrongNumber[] = "请输入正确的测试序号.(1~11)";
constexpr char kIllegal[] = "参数非法\n";
constexpr char kPrepared[] = "no kill avcore\n";
constexpr char kUsage[] =
    "q7 ver1.02(2009-4-3)\n"
    "this program will excute the follow test\n"
    "No.1 : \t\t\tShow board Info\n"
    "No.2 : \t\t\tBuzzer test\n"
    "No.3 : \t\t\tFront-board test\n"
    "No.4 : \t\t\t485 com test\n"
    "No.5 : \t\t\tIop test\n"
    "No.6 : \t\t\tRTC test\n"
    "No.7: \t\t\tUSB port test\n"
    "No.8: \t\t\tSATA test\n"
    "No.9: \t\t\tWatchdog test,Restart system\n\n"
    "No.10: \t\t\tpmp test,Restart system\n\n"
    "No.11 : \t\t\tNetwork moudel configure show\n"
    "q7 -h or q7 --help for help information\n"
    "If you want to do all the tests, please run q7 \n"
    "If you want to do only one test of them ,please run q7 -o  <No.> \n"
    "        eg. q7 -o 4   then only test 485 port\n";

std::string printed_after_start(const Outcome& got) {
    EXPECT_THAT(got.console, StartsWith(kStartLine));
    return got.console.substr(std::min(got.console.size(), sizeof kStartLine - 1));
}

TEST(CommandLine, EachFormHasItsOutputAndStatus) {
    const std::string hint = kHint;
    const struct {
        std::vector<std::string> arguments;
        std::string printed;
        int beeps = 0;
    } rows[] = {
        {{"-h"}, kUsage},
        {{"--help"}, kUsage},
        {{"-x", "1"}, kIllegal},
        {{"-oo", "2"}, kIllegal},
        {{"-h", "2", "3"}, kIllegal},
        {{"netQ7test", "2"}, kIllegal},
        {{"-o", "2"}, kPrepared, 3},
        {{"-O", "2"}, kPrepared, 3},
        {{"-o", "02"}, kPrepared, 3},
        {{"-o", "025"}, hint + kPrepared, 3},  // the third character is not looked at
        {{"-o", "2", "1"}, kPrepared, 3},
        {{"-o", "2", "2"}, std::string(kPrepared) + "\n第1次测试\n\n第2次测试\n", 6},
        {{"-o", "2", "+1x"}, kPrepared, 3},  // a count ends where its digits end
        {{"-o", "2", "0"}, kPrepared},
        {{"-o", "2", "many"}, kPrepared},
        {{"-o", "2", ""}, kPrepared},
        {{"-o", ""}, kWrongNumber},
        {{"-o", "0"}, kWrongNumber},
        {{"-o", "12"}, kWrongNumber},
        {{"-o", "129"}, hint + kWrongNumber},
        {{"-o", "x"}, kHint},
        {{"-o", "5x"}, kHint},
        {{"-o", "5xy"}, hint + kHint},  // too long, and then no number
        {{"-o", "-1"}, kHint},
        {{"-o", "xyz", "3"}, hint + kHint},
    };
    for (const auto& row : rows) {
        const Outcome got = run_with(healthy(), row.arguments);
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        EXPECT_EQ(printed_after_start(got), row.printed);
        EXPECT_EQ(got.status, 0);
        EXPECT_EQ(got.changes("line", "4=0").size(), static_cast<std::size_t>(row.beeps));
        const bool prepared = row.printed.find(kPrepared) != std::string::npos;
        EXPECT_EQ(got.changes("watchdog", "7 s").size(), prepared ? 1u : 0u);
        EXPECT_TRUE(got.records.empty());
    }
}

TEST(CommandLine, OtherFormsRunTheFullSequence) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {}, {"foo"}, {"-o"}, {"-help"}, {"-o", "2", "1", "0"}, {"-h", "", "", "", ""}}) {
        const Outcome got = run_with(healthy(), arguments);
        EXPECT_THAT(got.console, HasSubstr("Q7测试结果如下:\n"));
        EXPECT_TRUE(got.records.empty());
    }
    const Outcome net = run(healthy(), "netQ7test -o 2 1");
    EXPECT_EQ(net.records.back(), "Q7TESTEND");
}

TEST(CommandLine, CountIsThatOfA32BitLongOnEveryBuild) {
    // Each count is too large to finish; the run is stopped after four repetitions of 1.2 s.
    for (const char* count : {"-1", "4294967296", "99999999999999999999"}) {
        Board board = healthy();
        board.end = 7;
        const Outcome got = run_with(board, {"-o", "2", count});
        EXPECT_THAT(got.console, HasSubstr("\n第4次测试\n")) << count;
        EXPECT_THAT(got.stopped, HasSubstr("passed its end"));
    }
}

TEST(CommandLine, SuperUserFailureIsSaidAndTheRunGoesOn) {
    Board board = healthy();
    board.root = false;
    const Outcome got = run(board, "-o 2");
    EXPECT_EQ(got.console, "切换到超级用户失败，可能会对Q7的某些项测试有影响\n"
                               + std::string(kStartLine) + kPrepared);
    EXPECT_EQ(got.status, 0);
}

TEST(Preparation, AsksTheControlDeviceInThisOrderAndThenWaits) {
    const Outcome got = run(healthy(), "-o 9");
    EXPECT_EQ(got.calls("/dev/zebio"),
              "0.000 open(2)\n0.000 ioctl 0x4(0)\n"  // stays open
              "0.100 open(2)\n0.100 ioctl 0x20(7)\n0.100 ioctl 0x22(0)\n0.100 close(4)\n"
              "2.100 open(2)\n2.100 ioctl 0x20(5)\n2.100 close(5)\n");
    EXPECT_EQ(got.world->control.watchdog_expires, sim::from_seconds(7.1));
}

// The exit status of a refused time-out is the descriptor's number: the lowest that is free.
TEST(Preparation, FailuresEndTheRunWithTheirStatus) {
    Board missing = healthy();
    missing.control.present = false;
    Board refused = healthy();
    refused.faults = {failing_request(0x20)};
    Board undescribed = refused;
    undescribed.hardware.at("presence") = 0xFFFF;
    const struct {
        const Board& board;
        std::vector<std::string> arguments;
        std::string end;
        int status;
    } rows[] = {
        {missing, {"-o", "2"}, "sysInit 1 Fatal\n打开hwInfo设备出错!\n", 255},
        {missing, {}, "sysInit 1 Fatal\n打开hwInfo设备出错!\n", 255},
        {missing, {"netQ7test"}, "sysInit 1 Fatal\n打开hwInfo设备出错!\n", 255},
        {missing, {"-x", "1"}, "sysInit 1 Fatal\n参数非法\n", 0},
        {refused, {"-o", "2"}, "]\n初始化看门狗失败!\n", 4},
        {refused, {}, "]\n初始化看门狗失败!\n", 4},
        {refused, {"netQ7test"}, "]\n初始化看门狗失败!\n", 5},
        {undescribed, {"-o", "2"}, "初始化看门狗失败!\n", 3},
        {undescribed, {"netQ7test"}, "初始化看门狗失败!\n", 4},
    };
    for (const auto& row : rows) {
        const Outcome got = run_with(row.board, row.arguments);
        EXPECT_THAT(got.console, EndsWith(row.end)) << testing::PrintToString(row.arguments);
        EXPECT_EQ(got.status, row.status) << row.end;
        EXPECT_LE(got.end_s, 0.1);
    }
}

TEST(Watchdog, RestartSaysWhatFailsAndStillExitsWell) {
    Board vanished = healthy();
    vanished.faults = {failing("open", "/dev/zebio", 3)};
    EXPECT_THAT(run(vanished, "-o 9").console,
                EndsWith("avcore\nfailed to open watchdog\nset watchdog timeout failed\n"));
    Board refused = healthy();
    refused.faults = {failing_request(0x20, 2)};
    const Outcome got = run(refused, "-o 9");
    EXPECT_THAT(got.console, EndsWith("avcore\nset watchdog timeout failed\n"));
    EXPECT_EQ(got.status, 0);
}

}  // namespace
