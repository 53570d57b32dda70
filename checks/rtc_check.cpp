#include "checks/harness.h"

namespace {

using namespace checks;

Outcome run_test(const Board& board) { return run(board, "-o 6"); }

std::string said(const Outcome& got) {
    return got.console.substr(got.console.find("avcore\n") + 7);
}

// 2026-03-29 01:00 UTC, when Berlin's clocks go forward; 2026-10-25 01:00, when they go back.
constexpr std::int64_t kForward = 1'774'746'000, kBack = 1'792'890'000;
constexpr std::int64_t kYearsEnd = 1'798'761'600;  // 2027-01-01 00:00 UTC

TEST(RtcTest, TwoSecondsApartPassAndThreeFailInBothDirectionsAtAnyTime) {
    const std::int64_t instants[] = {1'779'000'000,   kForward,  kForward + 3600,
                                     kForward - 3600, kBack,     kBack + 3600,
                                     kBack - 3600,    kYearsEnd, 951'782'400 /* 2000-02-29 */,
                                     2'147'483'000};
    for (const char* zone : {"UTC", "Europe/Berlin", "CET-1CEST,M3.5.0,M10.5.0/3",
                             "EST5EDT,M3.2.0,M11.1.0", "Asia/Shanghai", "<+0545>-5:45"}) {
        for (const std::int64_t instant : instants) {
            for (const int offset : {-3, -2, 0, 2, 3}) {
                Board board = healthy();
                board.time_zone = zone;
                board.start.seconds = instant - 4;  // the readings lie around the instant
                board.rtc.offset_s = offset;
                board.rtc.isdst = 1;  // whatever the driver leaves
                const bool fails = offset == -3 || offset == 3;
                EXPECT_EQ(run_test(board).results.rtc, fails ? 1u : 0u)
                    << zone << " " << instant << " " << offset;
            }
        }
    }
}

TEST(RtcTest, ShowsBothClocksAndBeepsTwiceForEachDifference) {
    Board board = healthy();
    board.start.seconds = kYearsEnd - 4;
    board.rtc.offset_s = 3;
    const Outcome got = run_test(board);
    EXPECT_EQ(said(got),
              "时钟时间 2027-01-01 00:00:01\n系统时间 2026-12-31 23:59:58\n"
              "时钟时间 2027-01-01 00:00:02\n系统时间 2026-12-31 23:59:59\n"
              "时钟时间 2027-01-01 00:00:04\n系统时间 2027-01-01 00:00:01\n");
    EXPECT_EQ(got.changes("line", "4=0").size(), 6u);
    EXPECT_NEAR(got.end_s, 2.1 + 3 * 1.8, 1e-6);
    EXPECT_EQ(got.count("close", "/dev/rtc"), 3);

    board.rtc.offset_s = 0;
    const Outcome healthy = run_test(board);
    EXPECT_TRUE(healthy.changes("line", "4=0").empty());
    EXPECT_NEAR(healthy.end_s, 5.1, 1e-6);
}

TEST(RtcTest, FailureInOneIterationStays) {
    Board board = healthy();
    board.faults = {failing_request(0x80247009)};
    const Outcome got = run_test(board);
    EXPECT_EQ(got.results.rtc, 1u);
    EXPECT_EQ(got.changes("line", "4=0").size(), 2u);
    EXPECT_THAT(said(got),
                testing::StartsWith("时钟时间 1900-01-00 00:00:00\n系统时间 2026-11-23"));
    // The reading that failed leaves nothing behind for the next.
    EXPECT_THAT(said(got),
                EndsWith("时钟时间 2026-11-23 08:00:04\n系统时间 2026-11-23 08:00:04\n"));
}

TEST(RtcTest, StoppedDriftingAndMissingClocksFail) {
    Board stopped = healthy(), drifting = healthy(), missing = healthy();
    stopped.rtc.rate = 0;
    drifting.rtc.rate = 0.25;
    missing.rtc.present = false;
    EXPECT_EQ(run_test(stopped).results.rtc, 1u);
    EXPECT_EQ(run_test(drifting).results.rtc, 1u);
    const Outcome got = run_test(missing);
    EXPECT_EQ(got.results.rtc, 1u);
    EXPECT_EQ(got.changes("line", "4=0").size(), 6u);
    EXPECT_THAT(said(got),
                EndsWith("时钟时间 1900-01-00 00:00:00\n系统时间 2026-11-23 08:00:05\n"));
}

TEST(RtcTest, InNetModeOnlyTheTimeLinesAreSent) {
    const Outcome got = run(healthy(), "netQ7test");
    EXPECT_EQ(got.console.find("时间"), std::string::npos);
    const auto heading = std::find(got.records.begin(), got.records.end(), "第5步:开始测试RTC\n");
    ASSERT_NE(heading, got.records.end());
    for (int i = 1; i <= 6; ++i)
        EXPECT_THAT(heading[i], testing::StartsWith("2026-11-23 08:00:"));
    EXPECT_EQ(heading[7], "\n");
}

TEST(RtcTest, InterruptPrintsItsLineOnceAndEndsTheProcess) {
    Board board = healthy();
    board.person.interrupts = {3.5};
    const Outcome got = run_test(board);
    EXPECT_THAT(got.console, EndsWith("\nread rtc successfully 0 times : failed 0 times\n"));
    EXPECT_EQ(got.signal, SIGINT);
}

}  // namespace
