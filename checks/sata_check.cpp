#include "checks/harness.h"
#include "device/capability.h"
#include "tests/ata.h"
#include "tests/sata_test.h"

namespace {

using namespace checks;

TEST(SataTest, AsksEachDiskForItsTextsAndItsSize) {
    // O_RDWR | O_NONBLOCK for the command, O_RDONLY for the size.
    EXPECT_EQ(run("-o 8").calls("/dev/sda"),
              "2.100 open(2050)\n2.100 ioctl 0x31F(0)\n2.100 close(5)\n"
              "2.100 open(0)\n2.100 ioctl 0x80041272(0)\n2.100 close(5)\n");
}

TEST(SataTest, InternalPortsFollowTheNumberingRule) {
    const struct {
        std::uint8_t ports, esata, new_rule;
        int internal;
    } rows[] = {
        {9, 1, 1, 8}, {9, 3, 1, 8},  {9, 0, 0, 8},  {5, 2, 1, 4},   {5, 0, 1, 4},
        {4, 1, 1, 3}, {4, 1, 0, 4},  {8, 2, 1, 6},  {17, 1, 1, 16}, {25, 3, 1, 22},
        {0, 0, 1, 0}, {0, 3, 1, -3}, {1, 3, 1, -2}, {1, 3, 0, 1},   {4, 1, 2, 4},
    };
    for (const auto& row : rows) {
        const Outcome got = run_piece({}, [&] {
            g_sata_port_num = row.ports;
            g_cESataNum = row.esata;
            g_cSataNewRule = row.new_rule;
            std::printf("%d", internal_sata_ports());
        });
        EXPECT_EQ(got.console, std::to_string(row.internal)) << row.ports << " " << row.esata;
    }
}

TEST(Ata, SizeRequestIsChosenByTheKernelRelease) {
    const struct {
        std::string release, version;
        bool asks_bytes;
    } rows[] = {
        {"2.6.0", "20600", true},   {"2.5.255", "205ff", false},
        {"2.4.17", "20411", false}, {"2.4.18", "20412", true},
        {"2.4.255", "204ff", true}, {"2.4.256", "20500", false},
        {"4.9", "0", false},        {"6.1.0-13-arm", "60100", true},
        {"five", "0", false},       {"32768.0.0", "80000000", false},
    };
    for (const auto& row : rows) {
        // 0xFFFFFFFF sectors
        const Board board =
            healthy("kernel_release = '" + row.release + "'\ndisks.sda.bytes = 0x1FFFFFFFE00");
        const Outcome got = run_piece(
            board, [] { std::printf("%x %llx", kernel_version(), 0ull + disk_size("/dev/sda")); });
        EXPECT_EQ(got.console, row.version + " 1fffffffe00");
        EXPECT_EQ(got.calls("/dev/sda").find("0x80041272") != std::string::npos, row.asks_bytes);
        EXPECT_EQ(got.count("uname"), 1);  // once, even if the release cannot be parsed
    }
}

TEST(Ata, SizesAndTheirFailures) {
    const struct {
        const char *disk, *printed;
    } rows[] = {
        {"bytes = 0x80000000000", "80000000000"},  // 8 TiB
        {"bytes = 0x80000000000, size64 = false",  // too large for the other request
         "Can not get /dev/sda size \nffffffffffffffff"},
        {"bytes = 1_000_204_886_016, size64 = false", "e8e0db6000"},
        {"bytes = 1_000_204_886_016, size = false", "e8e0db6000"},
    };
    for (const auto& row : rows) {
        const Outcome got = run_piece(healthy("disks.sda = {" + std::string(row.disk) + "}"),
                                      [] { std::printf("%llx", 0ull + disk_size("/dev/sda")); });
        EXPECT_EQ(got.console, row.printed);
    }
    const Outcome got = run_piece(healthy("faults = [{call = 'uname'}]"), [] {
        std::printf("%x ", kernel_version());
        disk_size(nullptr);
        IdentifyBlock block{};
        std::printf("%d %d", ata_identify(nullptr, block), ata_identify("/dev/sdz", block));
    });
    EXPECT_EQ(got.console, "0 invalid devName\n-1 -1");
}

}  // namespace
