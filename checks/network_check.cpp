#include "checks/harness.h"
#include "tests/nic.h"

namespace {

using namespace checks;

constexpr char kUp[] = "网络连接接通 \n";
constexpr char kGood[] = "网络连接接通 \n全双工  1000M\n";
constexpr char kReminder[] = "请检查网络测试环境是否为千M网络\n\n";

std::string ports(const std::vector<std::string>& each) {
    std::string text;
    for (std::size_t i = 0; i < each.size(); ++i)
        text += "网卡" + std::to_string(i + 1) + ":" + each[i];
    return text;
}

const std::string kAllGood = ports({kGood, kGood, kGood, kGood});

TEST(NetworkTest, EachPortFaultIsNamedAndTheNextPortIsExamined) {
    const struct {
        const char* change;  // of the faulty port
        std::string said;
        bool fault = true;
    } rows[] = {
        {"ethtool = true", kGood, false},
        {"fibre.up = false", kGood, false},
        {"copper.up = false", "网络连接断开 \n"},
        {"present = false", "ETHTOOL_GLINK failed: \n"},
        {"ethtool = false", "ETHTOOL_GLINK failed: \n"},
        {"copper.speed = 100", kUp + std::string("全双工  100M\n") + kReminder},
        {"copper = {speed = 10, full_duplex = false}",
         kUp + std::string("半双工  10M\n") + kReminder},
        {"copper.full_duplex = false", kUp + std::string("半双工  1000M\n"), false},
        {"copper.speed = 2500", kUp + std::string("全双工  net speed error\n") + kReminder},
        // All 16 bits set means that the driver does not know.
        {"copper.speed = 65535", kUp + std::string("全双工  net speed error\n") + kReminder},
    };
    for (const auto& row : rows) {
        for (const std::size_t faulty : {0, 1, 3}) {
            const Outcome got =
                run("-o 11", "ports.eth" + std::to_string(faulty) + "." + row.change);
            std::vector<std::string> expected(4, kGood);
            expected[faulty] = row.said;
            EXPECT_EQ(got.said(), ports(expected)) << row.change;
            EXPECT_EQ(got.results.network, row.fault ? 1u : 0u) << row.change;
        }
    }
}

TEST(NetworkTest, RefusedQueriesAndSocket) {
    // Requests: link and speed of port 1, then of port 2.
    Outcome got = run("-o 11", "faults = [{request = 0x8946, nth = 4}]");
    EXPECT_EQ(got.said(), ports({kGood, "网络连接接通 \nETHTOOL_GLINK failed\n", kGood, kGood}));
    EXPECT_EQ(got.results.network, 1u);
    got = run("-o 11", "faults = [{call = 'socket'}]");
    EXPECT_EQ(got.said(), "creat socket error\n");
    EXPECT_EQ(got.results.network, 0u);
    got = run_piece(healthy("faults = [{call = 'socket'}]"), [] { std::printf("%d", nic_test()); });
    EXPECT_EQ(got.console, "creat socket error\n-1");
}

TEST(NetworkTest, ExaminesAsManyPortsAsTheBoardHasAndFourAtMost) {
    EXPECT_EQ(run("-o 11", "hardware.channels = 6").said(),
              "网卡个数超过支持上限,网口个数为 6\n" + kAllGood);
    EXPECT_EQ(run("-o 11", "hardware.channels = 1").said(), ports({kGood}));
    const Outcome none = run("-o 11", "hardware.channels = 0");
    EXPECT_EQ(none.said(), "");
    EXPECT_EQ(none.count("socket"), 1);
}

TEST(NetworkTest, VerdictOfAnEarlierRepetitionStays) {
    const Outcome got = run("-o 11 2", "faults = [{request = 0x8946}]");
    EXPECT_THAT(got.said(), EndsWith("\n第2次测试\n" + kAllGood));
    EXPECT_EQ(got.results.network, 1u);
}

TEST(NetworkStep, ExaminesTheCopperAndThenTheFibreSide) {
    const Outcome got = run("");
    EXPECT_THAT(got.console, HasSubstr("步:网络状态\n现在测试电口网络\n" + kAllGood
                                       + "现在测试光口网络\n" + kAllGood + "\n第3步:"));
    // A second of console flush comes first; each side settles for 5 seconds.
    EXPECT_THAT(got.calls("/dev/zebio"),
                HasSubstr("\n16.010 ioctl 0x81(1)\n22.010 ioctl 0x81(2)\n27.010 ioctl 0x81(1)\n"));
}

TEST(NetworkStep, FibreFaultIsSeenOnTheFibreSideAlone) {
    const Outcome got = run("", "ports.eth2.fibre.up = false");
    EXPECT_THAT(got.console,
                HasSubstr("现在测试光口网络\n" + ports({kGood, kGood, "网络连接断开 \n", kGood})));
    EXPECT_THAT(got.console, HasSubstr("现在测试电口网络\n" + kAllGood));
    EXPECT_EQ(got.results.network, 1u);
}

TEST(NetworkStep, PortThatCannotBeSelectedIsSkippedAndIsAFault) {
    const Outcome copper = run("", "faults = [{request = 0x81}]");
    EXPECT_THAT(copper.console,
                HasSubstr("现在测试电口网络\n切换电口失败\n现在测试光口网络\n" + kAllGood));
    EXPECT_EQ(copper.results.network, 1u);
    const Outcome fibre = run("", "faults = [{request = 0x81, nth = 2}]");
    EXPECT_THAT(fibre.console,
                HasSubstr("现在测试电口网络\n" + kAllGood + "现在测试光口网络\n切换光口失败\n\n"));
    EXPECT_EQ(fibre.results.network, 1u);
    EXPECT_EQ(fibre.world->net_port, 1u);
}

}  // namespace
