#include <ranges>

#include "checks/harness.h"
#include "platform/platform.h"

namespace {

using namespace checks;

const std::string kHint = "请选择测试序号(1~11)\n";
constexpr char kWrongNumber[] = "请输入正确的测试序号.(1~11)";
constexpr char kIllegal[] = "参数非法\n";
const std::string kPrepared = "no kill avcore\n";
constexpr char kUsage[] =
    "q7 ver1.02(2009-4-3)\nthis program will excute the follow test\n"
    "No.1 : \t\t\tShow board Info\nNo.2 : \t\t\tBuzzer test\nNo.3 : \t\t\tFront-board test\n"
    "No.4 : \t\t\t485 com test\nNo.5 : \t\t\tIop test\nNo.6 : \t\t\tRTC test\n"
    "No.7: \t\t\tUSB port test\nNo.8: \t\t\tSATA test\n"
    "No.9: \t\t\tWatchdog test,Restart system\n\nNo.10: \t\t\tpmp test,Restart system\n\n"
    "No.11 : \t\t\tNetwork moudel configure show\n"
    "q7 -h or q7 --help for help information\n"
    "If you want to do all the tests, please run q7 \n"
    "If you want to do only one test of them ,please run q7 -o  <No.> \n"
    "        eg. q7 -o 4   then only test 485 port\n";

// The words before, between and after the blanks, empty ones included.
Outcome run_line(std::string_view line) {
    std::vector<std::string> arguments;
    for (const auto word : std::views::split(line, ' '))
        arguments.emplace_back(word.begin(), word.end());
    return run_with(healthy(), arguments);
}

// Otherwise printed text would go to the FIFO, or to the control device as a mask of alarm outputs.
TEST(CommandLine, MissingStandardDescriptorsAreTakenByNoFileOfTheRun) {
    for (unsigned missing = 0; missing < 8; ++missing) {
        for (const char* words : {"-h", "netQ7test"}) {
            SCOPED_TRACE(missing);
            const Outcome got = run_with(healthy(), {words}, [&] {
                for (int fd = 0; fd < 3; ++fd) {
                    if ((missing >> fd & 1) != 0) platform::close(fd);
                }
            });
            const auto& files = got.world->processes[0].files;
            for (unsigned fd = 0; fd < 3; ++fd) {
                ASSERT_GE(files[fd], 0);
                const char* path = got.world->log.text + got.world->files[files[fd]].path;
                EXPECT_STREQ(path, (missing >> fd & 1) != 0 ? "/dev/null" : "console");
            }
            EXPECT_EQ(got.count("close", "/dev/null"), 1);
            EXPECT_EQ(got.status, 0);
        }
    }
}

TEST(CommandLine, EachFormHasItsOutputAndStatus) {
    const struct {
        std::string printed;
        std::size_t beeps;
        std::vector<const char*> lines;
    } rows[] = {
        {kUsage, 0, {"-h", "--help"}},
        {kIllegal, 0, {"-x 1", "-oo 2", "-h 2 3", "netQ7test 2"}},
        {kPrepared, 3, {"-o 2", "-O 2", "-o 02", "-o 2 1"}},
        {kHint + kPrepared, 3, {"-o 025"}},  // the third character is not looked at
        {kPrepared + "\n第1次测试\n\n第2次测试\n", 6, {"-o 2 2"}},
        {kPrepared, 3, {"-o 2 +1x"}},  // a count ends where its digits end
        {kPrepared, 0, {"-o 2 0", "-o 2 many", "-o 2 "}},
        {kWrongNumber, 0, {"-o ", "-o 0", "-o 12"}},
        {kHint + kWrongNumber, 0, {"-o 129"}},
        {kHint, 0, {"-o x", "-o 5x", "-o -1"}},
        {kHint + kHint, 0, {"-o 5xy", "-o xyz 3"}},  // too long, and then no number
    };
    for (const auto& row : rows) {
        for (const char* line : row.lines) {
            SCOPED_TRACE(line);
            const Outcome got = run_line(line);
            EXPECT_EQ(got.console, kStartLine + row.printed);
            EXPECT_EQ(got.status, 0);
            EXPECT_EQ(got.changes("line", "4=0").size(), row.beeps);
            const bool stopped_watchdog = row.printed.find(kPrepared) != std::string::npos;
            EXPECT_EQ(got.changes("watchdog", "7 s").size(), stopped_watchdog ? 1u : 0u);
            EXPECT_TRUE(got.records.empty());
        }
    }
}

TEST(CommandLine, OtherFormsRunTheFullSequence) {
    for (const char* line : {"", "foo", "-o", "-help", "-o 2 1 0", "-h    "}) {
        const Outcome got = run_line(line);
        EXPECT_THAT(got.console, HasSubstr("Q7测试结果如下:\n")) << line;
        EXPECT_TRUE(got.records.empty());
    }
    EXPECT_EQ(run_line("netQ7test -o 2 1").records.back(), "Q7TESTEND");
}

TEST(CommandLine, CountIsThatOfA32BitLongOnEveryBuild) {
    // Each count is too large to finish; the run is stopped after four repetitions of 1.2 s.
    for (const char* words : {"-o 2 -1", "-o 2 4294967296", "-o 2 99999999999999999999"}) {
        const Outcome got = run(words, "end = 7");
        EXPECT_THAT(got.console, HasSubstr("\n第4次测试\n")) << words;
        EXPECT_THAT(got.stopped, HasSubstr("passed its end"));
    }
}

TEST(CommandLine, SuperUserFailureIsSaidAndTheRunGoesOn) {
    EXPECT_EQ(
        run("-o 2", "root = false").console,
        "切换到超级用户失败，可能会对Q7的某些项测试有影响\n" + std::string(kStartLine) + kPrepared);
}

TEST(Preparation, AsksTheControlDeviceInThisOrderAndThenWaits) {
    EXPECT_EQ(run("-o 9").calls("/dev/zebio"),
              "0.000 open(2)\n0.000 ioctl 0x4(0)\n"  // stays open
              "0.100 open(2)\n0.100 ioctl 0x20(7)\n0.100 ioctl 0x22(0)\n0.100 close(4)\n"
              "2.100 open(2)\n2.100 ioctl 0x20(5)\n2.100 close(5)\n");
}

// The exit status of a refused time-out is the descriptor's number: the lowest that is free.
TEST(Preparation, FailuresEndTheRunWithTheirStatus) {
    const auto expect = [](const char* words, const char* change, const char* end, int status) {
        const Outcome got = run(words, change);
        EXPECT_THAT(got.console, EndsWith(end)) << words;
        EXPECT_EQ(got.status, status) << words;
        EXPECT_LE(got.end_s, 0.1);
    };
    const char *missing = "control.present = false", *refused = "faults = [{request = 0x20}]",
               *undescribed = "hardware.presence = 0xFFFF\nfaults = [{request = 0x20}]";
    for (const char* words : {"-o 2", "", "netQ7test"})
        expect(words, missing, "sysInit 1 Fatal\n打开hwInfo设备出错!\n", 255);
    expect("-x 1", missing, "sysInit 1 Fatal\n参数非法\n", 0);
    expect("-o 2", refused, "]\n初始化看门狗失败!\n", 4);
    expect("", refused, "]\n初始化看门狗失败!\n", 4);
    expect("netQ7test", refused, "]\n初始化看门狗失败!\n", 5);
    expect("-o 2", undescribed, "初始化看门狗失败!\n", 3);
    expect("netQ7test", undescribed, "初始化看门狗失败!\n", 4);
}

TEST(Watchdog, RestartSaysWhatFailsAndStillExitsWell) {
    EXPECT_EQ(run("-o 9", "faults = [{call = 'open', path = '/dev/zebio', nth = 3}]").said(),
              "failed to open watchdog\nset watchdog timeout failed\n");
    const Outcome refused = run("-o 9", "faults = [{request = 0x20, nth = 2}]");
    EXPECT_EQ(refused.said(), "set watchdog timeout failed\n");
    EXPECT_EQ(refused.status, 0);
}

}  // namespace
