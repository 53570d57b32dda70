#include "checks/harness.h"

namespace {

using namespace checks;

constexpr char kGivesUp[] = "no more data can write in 5 seconds,exit \n";

// Test 4 begins 12.1 s after the start, and sends 0.1 s later.
TEST(Rs485, LineIsOpenedOnceSwitchedAndUsedWithoutSpinning) {
    const Outcome got = run("-o 4");
    EXPECT_THAT(got.calls("/dev/zebio"),
                EndsWith("12.100 open(2)\n12.100 ioctl 0x7(1)\n12.100 ioctl 0x8(1)\n"));
    EXPECT_THAT(got.calls("/dev/ttyS0"), StartsWith("12.100 open(2306)\n"));
    EXPECT_EQ(got.count("write", "/dev/ttyS0"), 1);
    // The echo comes back in 128 reads over 1.07 s.
    EXPECT_EQ(got.count("read", "/dev/ttyS0"), 128);
    // The receiver runs none of its parent's exit handlers.
    EXPECT_EQ(got.count("_exit"), 1);
    EXPECT_EQ(got.count("exit"), 1);
}

int sleeps_before_sending() {
    const Outcome got = run("");
    int sleeps = 0;
    for (const sim::Event& event : got.world->log.all()) {
        if (event.path == "/dev/ttyS0" && event.result == 1024) break;
        const bool of_main = event.actor == "main";
        sleeps += of_main && event.function == std::string_view("sleep") ? 1 : 0;
    }
    return sleeps;
}

// The sender times out before the receiver has judged, because one of its pauses is cut short. Nothing
// else delays the summary: the console is at its end, and the board information cannot be read.
TEST(Rs485, SummaryWaitsForAReceiverThatJudgesLate) {
    const std::string cut_short = std::to_string(sleeps_before_sending() + 1);
    const std::string hurried = R"(
        operator.lines = [{at = 0, text = ''}]
        faults = [{path = '/dev/ttyS0', call = 'write', nth = 2, onwards = true},
                  {path = '/dev/ttyS0', call = 'write', effect = 'short', count = 600},
                  {actor = 'main', call = 'sleep', nth = )"
                                + cut_short + "}, {request = 0x04, nth = 2}, ";
    const Outcome bad = run("", "rs485.corrupt = [500]" + hurried + "]");
    EXPECT_LT(bad.console.find(kGivesUp), bad.console.find("字节失败"));
    EXPECT_LT(bad.console.find("字节失败"), bad.console.find("Q7测试结果如下"));
    EXPECT_THAT(bad.console, HasSubstr("485口       : error occured!  \n"));

    const Outcome good = run("", hurried + "]");
    EXPECT_THAT(good.console, HasSubstr("测试结果:  OK!\n"));
    const Outcome deserted = run("", hurried + "{call = 'fork'}]");
    EXPECT_THAT(deserted.console, HasSubstr("测试结果:  OK!\n"));
    // Without a receiver it waits 100 ms and no longer; this one judges after 10 ms.
    EXPECT_NEAR(deserted.end_s - good.end_s, 0.09, 1e-6);
}

}  // namespace
