#include "checks/harness.h"

namespace {

using namespace checks;

// 2026-03-29 01:00 UTC, when Berlin's clocks go forward; 2026-10-25 01:00, when they go back.
constexpr std::int64_t kForward = 1'774'746'000, kBack = 1'792'890'000;
constexpr std::int64_t kYearsEnd = 1'798'761'600;  // 2027-01-01 00:00 UTC

TEST(RtcTest, TwoSecondsApartPassAndThreeFailInBothDirectionsAtAnyTime) {
    const std::int64_t instants[] = {1'779'000'000,   kForward,  kForward + 3600,
                                     kForward - 3600, kBack,     kBack + 3600,
                                     kBack - 3600,    kYearsEnd, 951'782'400 /* 2000-02-29 */,
                                     2'147'483'000};
    Board board = healthy("rtc.isdst = 1");  // whatever the driver leaves
    for (const char* zone : {"UTC", "Europe/Berlin", "CET-1CEST,M3.5.0,M10.5.0/3",
                             "EST5EDT,M3.2.0,M11.1.0", "Asia/Shanghai", "<+0545>-5:45"}) {
        board.time_zone = zone;
        for (const std::int64_t instant : instants) {
            board.start.seconds = instant - 4;  // the readings lie around the instant
            for (const int offset : {-3, -2, 0, 2, 3}) {
                board.rtc.offset_s = offset;
                EXPECT_EQ(run(board, "-o 6").results.rtc, offset * offset == 9 ? 1u : 0u)
                    << zone << " " << instant << " " << offset;
            }
        }
    }
}

TEST(RtcTest, ShowsBothClocksAndBeepsTwiceForEachDifference) {
    const Outcome got = run("-o 6", "start = 2026-12-31T23:59:56Z\nrtc.offset = 3");
    EXPECT_EQ(got.said(),
              "时钟时间 2027-01-01 00:00:01\n系统时间 2026-12-31 23:59:58\n"
              "时钟时间 2027-01-01 00:00:02\n系统时间 2026-12-31 23:59:59\n"
              "时钟时间 2027-01-01 00:00:04\n系统时间 2027-01-01 00:00:01\n");
    EXPECT_EQ(got.changes("line", "4=0").size(), 6u);
    EXPECT_NEAR(got.end_s, 2.1 + 3 * 1.8, 1e-6);
    EXPECT_EQ(got.count("close", "/dev/rtc"), 3);
}

TEST(RtcTest, UnreadableStoppedAndDriftingClocksFail) {
    const std::string none = "时钟时间 1900-01-00 00:00:00\n系统时间 2026-11-23 08:00:0",
                      second_2 = "时钟时间 2026-11-23 08:00:02\n系统时间 2026-11-23 08:00:02\n";
    const auto expect = [](const char* defect, std::size_t beeps, const std::string& start,
                           const std::string& end) {
        const Outcome got = run("-o 6", defect);
        EXPECT_THAT(got.said(), StartsWith(start));
        EXPECT_THAT(got.said(), EndsWith(end));
        EXPECT_EQ(got.changes("line", "4=0").size(), beeps) << defect;
        EXPECT_EQ(got.results.rtc, 1u);
    };
    expect("rtc.present = false", 6, none, none + "5\n");
    // A failed reading shows nothing of the previous one, and its verdict stays.
    expect("faults = [{request = 0x80247009, nth = 2}]", 2, second_2 + none + "3\n",
           "时钟时间 2026-11-23 08:00:04\n系统时间 2026-11-23 08:00:04\n");
    expect("rtc.rate = 0", 4, "", "时钟时间 2026-11-23 08:00:00\n系统时间 2026-11-23 08:00:04\n");
    expect("rtc.rate = 0.25", 4, "",
           "时钟时间 2026-11-23 08:00:01\n系统时间 2026-11-23 08:00:04\n");
}

TEST(RtcTest, RateThatChangesAppliesFromThenOn) {
    // After four seconds the clock stops, and does not jump back.
    const Outcome got = run("-o 6 9", "rtc.rate = 1\n[[changes]]\nat = 4\nrtc.rate = 0");
    EXPECT_THAT(got.said(), HasSubstr("时钟时间 2026-11-23 08:00:04\n"));
    EXPECT_EQ(got.said().find("时钟时间 2026-11-23 08:00:00\n"), std::string::npos);
    EXPECT_EQ(got.said().find("时钟时间 2026-11-23 08:00:05\n"), std::string::npos);
}

TEST(RtcTest, InterruptPrintsItsLineOnceAndEndsTheProcess) {
    const Outcome got = run("-o 6", "operator.interrupts = [3.5]");
    EXPECT_THAT(got.said(), EndsWith("\nread rtc successfully 0 times : failed 0 times\n"));
    EXPECT_EQ(got.signal, SIGINT);
}

}  // namespace
