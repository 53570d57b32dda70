#include "checks/harness.h"

namespace {

using namespace checks;

constexpr char kAllBack[] = "正确:    1024字节  \n错误:    0字节 \n";
constexpr char kNothingBack[] = "发送  0字节成功\n    0字节失败 \n";
constexpr char kGivesUp[] = "no more data can write in 5 seconds,exit \n";

// Test 4 begins 12.1 s after the start, and sends 0.1 s later.
TEST(Rs485, EchoIsReportedAndTheToolGoesOnSixSecondsAfterSending) {
    const Outcome got = run("-o 4");
    EXPECT_EQ(got.said(), kAllBack);
    EXPECT_TRUE(got.changes("line", "4=0").empty());
    EXPECT_EQ(got.results.rs485, 0u);
    EXPECT_EQ(got.status, 0);
    EXPECT_NEAR(got.end_s, 12.2 + 6, 1e-6);
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

TEST(Rs485, EachRunStartsItsCountsAtZero) {
    const Outcome got = run("-o 4 3");
    EXPECT_EQ(got.said(), std::string("\n第1次测试\n") + kAllBack + "\n第2次测试\n" + kAllBack
                              + "\n第3次测试\n" + kAllBack);
    EXPECT_NEAR(got.end_s, 12.1 + 3 * 6.1, 1e-6);
    EXPECT_EQ(got.count("open", "/dev/ttyS0"), 3);  // none of them is closed
    EXPECT_EQ(got.count("close", "/dev/ttyS0"), 0);
    EXPECT_EQ(got.count("pipe"), 1);
}

TEST(Rs485, EchoInAnyPiecesIsGood) {
    for (const char* changes :
         {"rs485.pieces = [1]", "rs485.pieces = [1024]", "rs485.pieces = [1, 2, 3]",
          "rs485.pieces = [500, 1, 523]", "rs485.pieces = [1000, 100]", "rs485.delay = 3.9",
          "faults = [{path = '/dev/ttyS0', call = 'write', effect = 'short', count = 100, "
          "onwards = true}]"}) {
        EXPECT_EQ(run("-o 4", changes).said(), kAllBack) << changes;
    }
}

TEST(Rs485, FaultsAreCountedAndWrongBytesAreTheVerdict) {
    const struct {
        const char* changes;
        int good, bad;
        bool verdict = false;
    } rows[] = {
        // A read is judged as one piece, here of eight bytes.
        {"rs485.corrupt = [500]", 1016, 8, true},
        {"rs485.corrupt = [0, 7]", 1016, 8, true},
        {"rs485.corrupt = [7, 8]", 1008, 16, true},
        {"rs485.drop = [0]", 0, 1023, true},
        {"rs485.drop = [1021, 1022, 1023]", 1021, 0},
        {"rs485.fixture = false", 0, 0},
        {"rs485.delay = 3.99", 968, 0},  // all 5 seconds together, not for each wait
        {"rs485.delay = 6", 0, 0},
        {"faults = [{request = 0x07}]", 0, 0},
        {"faults = [{request = 0x08}]", 0, 0},
        {"faults = [{call = 'open', path = '/dev/zebio', nth = 3}]", 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.changes);
        const Outcome got = run("-o 4", row.changes);
        EXPECT_EQ(got.said(), "发送  " + std::to_string(row.good) + "字节成功\n    "
                                  + std::to_string(row.bad) + "字节失败 \n");
        EXPECT_EQ(got.results.rs485, row.verdict ? 1u : 0u);
        EXPECT_THAT(got.changes("line", "4=0"),
                    ElementsAre(DoubleNear(17.2, 0.001), DoubleNear(17.6, 0.001)));
        EXPECT_NEAR(got.end_s, 18.2, 0.001);
    }
}

TEST(Rs485, FailedSetUpEndsItsProcess) {
    const std::string signal_failed = "signal failed\n";
    const struct {
        const char* changes;
        std::string said;
        int status;
    } rows[] = {
        {"rs485.present = false", "open /dev/ttyS0 failed\n", 255},
        {"faults = [{call = 'tcsetattr', path = '/dev/ttyS0'}]", "tcsetattr failed\n", 255},
        {"faults = [{call = 'signal', actor = 'main'}]", signal_failed + kNothingBack, 255},
        {"faults = [{call = 'signal', actor = 'child1'}]", signal_failed, 0},
    };
    for (const auto& row : rows) {
        const Outcome got = run("-o 4", row.changes);
        EXPECT_EQ(got.said(), row.said);
        EXPECT_EQ(got.status, row.status) << row.changes;
        EXPECT_EQ(got.count("_exit"), got.count("fork"));
    }
}

// However the verdict is passed on, a good line has no fault and a bad line has one.
TEST(Rs485, VerdictReachesTheSummaryWhateverFailsOnItsWay) {
    for (const char* fault :
         {"call = 'pipe'", "call = 'pipe', onwards = true", "call = 'write', path = 'pipe'",
          "call = 'waitpid'", "call = 'waitpid', nth = 2"}) {
        SCOPED_TRACE(fault);
        const std::string faults = "faults = [{" + std::string(fault) + "}]\n";
        const Outcome good = run("", faults), bad = run("", faults + "rs485.corrupt = [500]");
        EXPECT_THAT(good.console, HasSubstr("测试结果:  OK!\n"));
        EXPECT_THAT(bad.console, HasSubstr("485口       : error occured!  \n"));
    }
    EXPECT_EQ(run("-o 4", "faults = [{call = 'read', path = 'pipe'}]").results.rs485, 1u);
}

// Each side ends within its 5 seconds, and does not spin on a line that is ready but useless.
TEST(Rs485, DeadLineEndsWithinItsBudget) {
    const std::string wait_fails = "faults = [{path = '/dev/ttyS0', onwards = true, call = ";
    const struct {
        std::string changes, said;
        const char* last_error = "";
    } rows[] = {
        {"changes = [{at = 12, rs485.hung_up = true}]", std::string(kGivesUp) + kNothingBack},
        {"changes = [{at = 12.5, rs485.hung_up = true}]", "发送  280字节成功\n    0字节失败 \n"},
        {"rs485.blocked = true", std::string(kGivesUp) + kNothingBack},
        {"faults = [{call = 'fork'}]", ""},
        // The sender waits in steps, the receiver in one that began before them.
        {wait_fails + "'wait_writable'}]", std::string(kNothingBack) + kGivesUp,
         "\nselect(): Input/output error\n"},
        {wait_fails + "'wait_readable'}]", kNothingBack, "\nread select(): Input/output error\n"},
    };
    for (const auto& row : rows) {
        const Outcome got = run("-o 4", row.changes);
        EXPECT_EQ(got.said(), row.said) << row.changes;
        EXPECT_THAT(got.errors, EndsWith(row.last_error));
        EXPECT_NEAR(got.end_s, 18.1, 0.11);
        EXPECT_LT(got.count("write", "/dev/ttyS0"), 510);
        EXPECT_LT(got.count("wait_readable", "/dev/ttyS0"), 570);
        EXPECT_EQ(got.results.rs485, 0u);
    }
}

TEST(Rs485, InterruptEndsTheToolAndOnlyCutsTheReceiversWaitShort) {
    const Outcome got = run("-o 4", "operator.interrupts = [12.7]");
    EXPECT_EQ(got.signal, SIGINT);
    EXPECT_EQ(got.said(), kAllBack);
    EXPECT_EQ(got.errors, "read select(): Interrupted system call\n");
    EXPECT_NEAR(got.end_s, 12.2 + 1.07, 0.01);
}

TEST(Rs485, AfterTheTestInterruptHasItsDefaultActionAgain) {
    const double in_the_summary = run("").end_s - 5;
    const Outcome got = run("", "operator.interrupts = [" + std::to_string(in_the_summary) + "]");
    EXPECT_THAT(got.console, EndsWith("测试结果:  OK!\n"));  // and nothing of an earlier handler
    EXPECT_EQ(got.signal, SIGINT);
}

int sleeps_before_sending() {
    const Outcome got = run("");
    int sleeps = 0;
    for (const sim::Event& event : got.world->log.all()) {
        if (got.world->log.path_of(event) == "/dev/ttyS0" && event.result == 1024) break;
        const bool of_main = got.world->log.actor_of(event) == std::string_view("main");
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

TEST(Rs485, ReceiverReportsIntoTheFifoOfANetRun) {
    EXPECT_THAT(run("netQ7test").records, Contains(kAllBack));
}

}  // namespace
