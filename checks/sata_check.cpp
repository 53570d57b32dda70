#include "checks/harness.h"
#include "device/capability.h"
#include "platform/platform.h"
#include "tests/ata.h"
#include "tests/sata_test.h"

namespace {

using namespace checks;

Outcome run_test(const Board& board) { return run(board, "-o 8"); }

std::string said(const Outcome& got) {
    return got.console.substr(got.console.find("avcore\n") + 7);
}

std::string padded(std::string text, std::size_t size) {
    text.resize(size, ' ');
    return text;
}

std::string identity(const std::string& node, const sim::Disk& disk) {
    return "/dev/" + node + "\n序列号    :" + padded(disk.serial, 20) + "\n型号      :"
           + padded(disk.model, 40) + "\n固件版本  :" + padded(disk.firmware, 8) + "\n";
}

// One internal port and one miniSAS port, each with a disk, and nothing else.
Board two_disks() {
    Board board = healthy();
    board.hardware.at("sata_layout") = 1;
    board.hardware.at("esata") = 0;
    board.hardware.at("minisas") = 2;
    board.disks = {{"sda", {}}, {"sas1", {}}};
    return board;
}

constexpr char kOnePort[] = "设备有1个sata口\n";
constexpr char kMiniSas[] = "设备有2个miniSAS口\n";
constexpr char kCapacity[] = "硬盘容量  :931GB\n";

TEST(SataTest, ReportsEachDiskWithItsTextsAndItsCapacity) {
    const Board board = two_disks();
    const Outcome got = run_test(board);
    EXPECT_EQ(said(got), kOnePort + identity("sda", board.disks.at("sda")) + kCapacity + kMiniSas
                             + identity("sas1", board.disks.at("sas1")) + kCapacity);
    EXPECT_EQ(got.results.sata_disks_found, 1);
    EXPECT_EQ(got.results.sata_fault_mask, 0u);
    EXPECT_EQ(got.results.minisas, 0u);
    // O_RDWR | O_NONBLOCK for the command, O_RDONLY for the size.
    EXPECT_EQ(got.calls("/dev/sda"),
              "2.100 open(2050)\n2.100 ioctl 0x31F(0)\n2.100 close(5)\n"
              "2.100 open(0)\n2.100 ioctl 0x80041272(0)\n2.100 close(5)\n");
}

TEST(SataTest, TextsAreShownAsTheDiskGivesThemWithoutNulBytes) {
    Board board = two_disks();
    sim::Disk& disk = board.disks.at("sda");
    disk.serial = std::string("  A\0B\0\0C", 8);
    disk.model = std::string(40, 'M');
    disk.firmware = "12345678";
    EXPECT_THAT(said(run_test(board)),
                HasSubstr("序列号    :  ABC            \n型号      :" + std::string(40, 'M')
                          + "\n固件版本  :12345678\n"));
}

TEST(SataTest, FailuresOnAnInternalPortAndOnTheMiniSasPort) {
    const Board healthy = two_disks();
    const std::string no_answer = "send IDENTIFY DEVICE command, return -1\n";
    const struct {
        const char* name;
        std::function<void(sim::Disk&)> change;
        std::string printed, reported;
    } rows[] = {
        {"missing", [](auto& disk) { disk.present = false; }, "", "不存在\n"},
        {"no answer", [](auto& disk) { disk.identify = false; }, no_answer, "不存在\n"},
        {"no size", [](auto& disk) { disk.size64 = disk.size = false; }, "", "无法获取硬盘容量\n"},
    };
    for (const auto& row : rows) {
        const bool identified = row.name == std::string("no size");
        for (const std::string node : {"sda", "sas1"}) {
            SCOPED_TRACE(row.name + (" " + node));
            Board board = healthy;
            row.change(board.disks.at(node));
            std::string text = row.printed + "/dev/" + node + " " + row.reported;
            if (identified) {
                text = identity(node, board.disks.at(node)) + "Can not get /dev/" + node
                       + " size \n" + "/dev/" + node + " " + row.reported;
            }
            const bool internal = node == "sda";
            if (!internal && !board.disks.at(node).present) text = "没有找到miniSAS口 \n";
            const Outcome got = run_test(board);
            EXPECT_EQ(
                said(got),
                kOnePort + (internal ? text : identity("sda", board.disks.at("sda")) + kCapacity)
                    + kMiniSas
                    + (internal ? identity("sas1", board.disks.at("sas1")) + kCapacity : text));
            EXPECT_EQ(got.results.sata_fault_mask, internal ? 1u : 0u);
            EXPECT_EQ(got.results.sata_disks_found, internal ? 0 : 1);
            EXPECT_EQ(got.results.minisas, internal ? 0u : 1u);
        }
    }
    Board vanishing = healthy;
    vanishing.faults = {failing("open", "/dev/sda", 2)};
    EXPECT_THAT(said(run_test(vanishing)),
                HasSubstr("Can not open /dev/sda \n/dev/sda 无法获取硬盘容量\n"));
}

TEST(SataTest, MiniSasDiskThatVanishesAfterTheScanDoesNotExist) {
    Board board = two_disks();
    board.faults = {failing("open", "/dev/sas1")};
    const Outcome got = run_test(board);
    EXPECT_THAT(said(got), EndsWith(std::string(kMiniSas) + "/dev/sas1 不存在\n"));
    EXPECT_EQ(got.results.minisas, 1u);
}

TEST(SataTest, UnreadableDeviceDirectoryIsSaidOnStandardError) {
    Board board = two_disks();
    for (const char* call : {"opendir", "readdir"}) {
        board.faults = {failing(call)};
        const Outcome got = run_test(board);
        EXPECT_EQ(got.errors, "scandir fail, errno = 5(Input/output error)\n");
        EXPECT_THAT(said(got), EndsWith(kMiniSas));
        EXPECT_EQ(got.results.minisas, 1u);
    }
}

TEST(SataTest, FirstMiniSasNodeInAlphabeticalOrderIsExamined) {
    const struct {
        std::vector<std::string> nodes;
        std::string examined;
    } rows[] = {
        {{"sas1a", "sas1", "sas10"}, "sas1"},
        {{"sas1b", "sas1a"}, "sas1a"},
        {{"sas2", "sas1z"}, "sas1z"},
        {{"sas1" + std::string(60, 'x')}, "sas1" + std::string(60, 'x')},  // the path is not cut
        {{"sas2", "sas", "xsas1"}, ""},
    };
    for (const auto& row : rows) {
        Board board = two_disks();
        board.disks = {};
        for (const std::string& node : row.nodes)
            board.disks[node] = {};
        const std::string text = said(run_test(board));
        const std::string from =
            row.examined.empty() ? "没有找到miniSAS口 \n" : "/dev/" + row.examined + "\n序列号";
        EXPECT_THAT(text, HasSubstr(kMiniSas + from));
    }
    Board none = two_disks();
    none.hardware.at("minisas") = 0;
    EXPECT_EQ(said(run_test(none)).find("miniSAS"), std::string::npos);
}

TEST(SataTest, InternalPortsFollowTheNumberingRule) {
    const struct {
        int ports, esata, new_rule, internal;
    } rows[] = {
        {9, 1, 1, 8}, {9, 3, 1, 8},  {9, 0, 0, 8},  {5, 2, 1, 4},   {5, 0, 1, 4},
        {4, 1, 1, 3}, {4, 1, 0, 4},  {8, 2, 1, 6},  {17, 1, 1, 16}, {25, 3, 1, 22},
        {0, 0, 1, 0}, {0, 3, 1, -3}, {1, 3, 1, -2}, {1, 3, 0, 1},   {4, 1, 2, 4},
    };
    for (const auto& row : rows) {
        const Outcome got = run_piece({}, [&] {
            g_sata_port_num = static_cast<std::uint8_t>(row.ports);
            g_cESataNum = static_cast<std::uint8_t>(row.esata);
            g_cSataNewRule = static_cast<std::uint8_t>(row.new_rule);
            std::printf("%d", internal_sata_ports());
        });
        EXPECT_EQ(got.console, std::to_string(row.internal)) << row.ports << " " << row.esata;
    }
}

TEST(SataTest, ExternalPortsFollowTheInternalOnesAndLeaveNoVerdict) {
    const auto nodes = [](int layout, int esata) {
        Board board = healthy();
        board.hardware.at("sata_layout") = static_cast<unsigned>(layout);
        board.hardware.at("esata") = static_cast<unsigned>(esata);
        board.disks = {};
        const Outcome got = run_test(board);
        EXPECT_EQ(got.results.sata_disks_found, 0);
        std::string list;
        for (std::size_t at = 0; (at = got.console.find("/dev/", at)) != std::string::npos; ++at) {
            list += got.console.substr(at + 5, got.console.find(' ', at) - at - 5) + " ";
        }
        return list + std::to_string(got.results.sata_fault_mask);
    };
    EXPECT_EQ(nodes(4, 1), "sda sdb sdc esda 7");
    EXPECT_EQ(nodes(5, 2), "sda sdb sdc sdd esda esdb 15");
    EXPECT_EQ(nodes(7, 1), "sda sdb sdc sdd sde sdf sdg sdh esda 255");
    EXPECT_EQ(nodes(0, 0), "0");
    EXPECT_EQ(nodes(0, 3), "0");  // -3 internal ports: nothing to look at
    EXPECT_EQ(nodes(1, 3), "esdc 0");
    EXPECT_THAT(nodes(10, 3), EndsWith("sdv esda esdb esdc 4194303"));
}

TEST(SataTest, RepeatedRunsAccumulateDisksAndDescribeTheLastMask) {
    Board board = two_disks();
    board.faults = {failing("open", "/dev/sda")};
    const Outcome got = run(board, "-o 8 3");
    EXPECT_EQ(got.results.sata_disks_found, 2);
    EXPECT_EQ(got.results.sata_fault_mask, 0u);
}

TEST(Ata, SizeRequestIsChosenByTheKernelRelease) {
    const struct {
        const char* release;
        unsigned version;
        bool asks_bytes;
    } rows[] = {
        {"2.6.35-custom", 0x20623, true},
        {"2.6.0", 0x20600, true},
        {"2.5.255", 0x205FF, false},
        {"2.4.17", 0x20411, false},
        {"2.4.18", 0x20412, true},
        {"2.4.255", 0x204FF, true},
        {"2.4.256", 0x20500, false},
        {"3.0.8", 0x30008, true},
        {"4.9", 0, false},
        {"6.1.0-13-arm", 0x60100, true},
        {"five", 0, false},
        {"", 0, false},
        {"2.6.256", 0x20700, true},
        {"32768.0.0", 0x80000000, false},
    };
    for (const auto& row : rows) {
        Board board;
        board.kernel_release = row.release;
        board.disks["sda"].bytes = 0x1FFFFFFFE00;  // 0xFFFFFFFF sectors
        const Outcome got = run_piece(board, [] {
            const auto size = static_cast<unsigned long long>(disk_size("/dev/sda"));
            std::printf("%x %llx %x", kernel_version(), size, kernel_version());
        });
        char expected[64];
        std::snprintf(expected, sizeof expected, "%x 1fffffffe00 %x", row.version, row.version);
        EXPECT_EQ(got.console, expected) << row.release;
        EXPECT_EQ(got.calls("/dev/sda").find("0x80041272") != std::string::npos, row.asks_bytes);
        EXPECT_EQ(got.count("uname"), 1);  // once, also for a release that says nothing
    }
}

TEST(Ata, SizesAndTheirFailures) {
    const auto size_of = [](const sim::Disk& disk) {
        Board board;
        board.disks["sda"] = disk;
        return run_piece(board,
                         [] {
                             std::printf("%llx",
                                         static_cast<unsigned long long>(disk_size("/dev/sda")));
                         })
            .console;
    };
    sim::Disk disk;
    disk.bytes = 0x80000000000;  // 8 TiB
    EXPECT_EQ(size_of(disk), "80000000000");
    disk.size64 = false;  // too large for the other request
    EXPECT_EQ(size_of(disk), "Can not get /dev/sda size \nffffffffffffffff");
    disk.bytes = 1'000'204'886'016;
    EXPECT_EQ(size_of(disk), "e8e0db6000");
    disk.size64 = true;
    disk.size = false;
    EXPECT_EQ(size_of(disk), "e8e0db6000");

    Board unnamed;
    unnamed.faults = {failing("uname")};
    const Outcome got = run_piece(unnamed, [] {
        std::printf("%x ", kernel_version());
        disk_size(nullptr);
        IdentifyBlock block{};
        std::printf("%d %d", ata_identify(nullptr, block), ata_identify("/dev/sdz", block));
    });
    EXPECT_EQ(got.console, "0 invalid devName\n-1 -1");
}

TEST(Ata, TextFieldsAreReorderedAlsoAfterAFailure) {
    Board board;
    board.disks["sda"].identify = false;
    const Outcome got = run_piece(board, [] {
        IdentifyBlock block{};
        for (const std::size_t field : {20, 46, 54})
            block[field] = 'B', block[field + 1] = 'A';
        block[18] = 'x';
        const int result = ata_identify("/dev/sda", block);
        std::printf("%d %c%c%c%c%c%c%c%d", result, block[20], block[21], block[46], block[47],
                    block[54], block[55], block[18], block[19]);
    });
    EXPECT_EQ(got.console, "send IDENTIFY DEVICE command, return -1\n-1 ABABABx0");
}

}  // namespace
