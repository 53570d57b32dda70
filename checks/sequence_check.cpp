#include <chrono>

#include "checks/harness.h"

namespace {

using namespace checks;

TEST(Sequence, RemovesTheConfigurationAndRestartsExceptInNetMode) {
    const Outcome got = run("");
    EXPECT_EQ(got.count("remove", "/dav2/devCfg.bin"), 1);
    EXPECT_EQ(got.count("remove", "/dav2/devCfg_backup.bin"), 1);
    EXPECT_EQ(got.world->control.watchdog_expires, got.world->now + sim::from_seconds(5));
    const Outcome net = run("netQ7test");
    EXPECT_THAT(net.calls("/var/q7.fifo"), EndsWith("close(4)\n"));
    EXPECT_EQ(net.count("remove"), 0);
    EXPECT_EQ(net.world->control.watchdog_expires, sim::kNever);
}

TEST(Sequence, CostsLittleRealTime) {
    auto best = std::chrono::steady_clock::duration::max();
    for (int i = 0; i < 20; ++i) {
        const auto start = std::chrono::steady_clock::now();
        run("");
        best = std::min(best, std::chrono::steady_clock::now() - start);
    }
    EXPECT_LT(best, std::chrono::milliseconds(20));
}

}  // namespace
