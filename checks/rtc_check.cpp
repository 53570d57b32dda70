#include "checks/harness.h"
#include "tests/nic.h"
#include "tests/rtc_test.h"

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

// Nothing in q7 uses them.
TEST(Results, OfClockAndNetworkTest) {
    const auto rtc = [] { std::printf("%d", rtc_test()); };
    const auto nic = [] { std::printf("%d", nic_test()); };
    EXPECT_THAT(run_piece(healthy(), rtc).console, EndsWith("\n0"));
    EXPECT_THAT(run_piece(healthy("rtc.offset = 9"), rtc).console, EndsWith("\n1"));
    EXPECT_THAT(run_piece(healthy(), nic).console, EndsWith("\n0"));
    EXPECT_THAT(run_piece(healthy("faults = [{call = 'socket'}]"), nic).console, EndsWith("\n-1"));
}

}  // namespace
