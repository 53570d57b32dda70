#include "checks/harness.h"
#include "device/capability.h"
#include "tests/ata.h"
#include "tests/sata_test.h"

namespace {

using namespace checks;

// One internal port and one miniSAS port, each with a disk.
const std::string kPorts = "hardware = {sata_layout = 1, esata = 0, minisas = 2}\n";
const std::string kTwoDisks = kPorts + "disks.sas1.serial = '0001'\n";

const std::string kOnePort = "设备有1个sata口\n", kMiniSas = "设备有2个miniSAS口\n";
const std::string kSda =
    "/dev/sda\n序列号    :SIM-0001            \n"
    "型号      :Simulated disk 1 TB                     \n固件版本  :01.01A01\n";
const std::string kSas1 =
    "/dev/sas1\n序列号    :0001                \n"
    "型号      :Simulated disk                          \n固件版本  :1.0     \n";
const std::string kCapacity = "硬盘容量  :931GB\n";

TEST(SataTest, AsksEachDiskForItsTextsAndItsSize) {
    // O_RDWR | O_NONBLOCK for the command, O_RDONLY for the size.
    EXPECT_EQ(run("-o 8", kTwoDisks).calls("/dev/sda"),
              "2.100 open(2050)\n2.100 ioctl 0x31F(0)\n2.100 close(5)\n"
              "2.100 open(0)\n2.100 ioctl 0x80041272(0)\n2.100 close(5)\n");
}

TEST(SataTest, ReportsEachDiskOrWhatIsMissing) {
    const std::string good_sda = kSda + kCapacity, good_sas1 = kSas1 + kCapacity;
    const std::string no_answer = "send IDENTIFY DEVICE command, return -1\n";
    const struct {
        const char* changes;
        std::string sda, sas1;
    } rows[] = {
        {"", good_sda, good_sas1},
        {"disks.sda.present = false", "/dev/sda 不存在\n", good_sas1},
        {"disks.sda.identify = false", no_answer + "/dev/sda 不存在\n", good_sas1},
        {"disks.sda = {size64 = false, size = false}",
         kSda + "Can not get /dev/sda size \n/dev/sda 无法获取硬盘容量\n", good_sas1},
        {"faults = [{call = 'open', path = '/dev/sda', nth = 2}]",
         kSda + "Can not open /dev/sda \n/dev/sda 无法获取硬盘容量\n", good_sas1},
        {"disks.sas1.present = false", good_sda, "没有找到miniSAS口 \n"},
        {"disks.sas1.identify = false", good_sda, no_answer + "/dev/sas1 不存在\n"},
        {"disks.sas1.size64 = false\ndisks.sas1.size = false", good_sda,
         kSas1 + "Can not get /dev/sas1 size \n/dev/sas1 无法获取硬盘容量\n"},
        {"faults = [{call = 'open', path = '/dev/sas1'}]", good_sda, "/dev/sas1 不存在\n"},
        {"faults = [{call = 'opendir'}]", good_sda, ""},
        {"faults = [{call = 'readdir'}]", good_sda, ""},
    };
    for (const auto& row : rows) {
        const Outcome got = run("-o 8", kTwoDisks + row.changes);
        EXPECT_EQ(got.said(), kOnePort + row.sda + kMiniSas + row.sas1) << row.changes;
        EXPECT_EQ(got.errors,
                  row.sas1.empty() ? "scandir fail, errno = 5(Input/output error)\n" : "");
        const bool sda_is_good = row.sda == good_sda;
        EXPECT_EQ(got.results.sata_disks_found, sda_is_good ? 1 : 0);
        EXPECT_EQ(got.results.sata_fault_mask, sda_is_good ? 0u : 1u);
        EXPECT_EQ(got.results.minisas, row.sas1 == good_sas1 ? 0u : 1u);
    }
}

TEST(SataTest, TextsAreShownAsTheDiskGivesThemWithoutNulBytes) {
    const std::string model(40, 'M');
    const Outcome got = run("-o 8", kPorts + R"(
        disks.sda.serial = "  A\u0000B\u0000\u0000C"
        disks.sda.firmware = "12345678"
        disks.sda.model = ")" + model + '"');
    EXPECT_THAT(got.said(), HasSubstr("序列号    :  ABC            \n型号      :" + model
                                      + "\n固件版本  :12345678\n"));
}

TEST(SataTest, FirstMiniSasNodeInAlphabeticalOrderIsExamined) {
    const std::string long_node = "sas1" + std::string(60, 'x');  // the path is not cut
    const struct {
        std::string nodes, examined;
    } rows[] = {
        {"disks = {sas1a = {}, sas1 = {}, sas10 = {}}", "/dev/sas1\n"},
        {"disks = {sas1b = {}, sas1a = {}}", "/dev/sas1a\n"},
        {"disks = {sas2 = {}, sas1z = {}}", "/dev/sas1z\n"},
        {"disks." + long_node + " = {}", "/dev/" + long_node + "\n"},
        {"disks = {sas2 = {}, sas = {}}", "没有找到miniSAS口 \n"},
    };
    for (const auto& row : rows) {
        Board board = healthy(kPorts + row.nodes);
        board.disks["asas1"] = {};  // not a prefix match
        EXPECT_THAT(run(board, "-o 8").said(), HasSubstr(kMiniSas + row.examined));
    }
    EXPECT_EQ(run("-o 8").said().find("miniSAS"), std::string::npos);
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

TEST(SataTest, ExternalPortsFollowTheInternalOnesAndLeaveNoVerdict) {
    const struct {
        const char *ports, *nodes;
        unsigned mask;
    } rows[] = {
        {"sata_layout = 4, esata = 1", "sda sdb sdc esda ", 7},
        {"sata_layout = 5, esata = 2", "sda sdb sdc sdd esda esdb ", 15},
        {"sata_layout = 7, esata = 1", "sda sdb sdc sdd sde sdf sdg sdh esda ", 255},
        {"sata_layout = 0, esata = 0", "", 0},
        {"sata_layout = 0, esata = 3", "", 0},  // -3 internal ports: nothing to look at
        {"sata_layout = 1, esata = 3", "esdc ", 0},
        {"sata_layout = 10, esata = 3",
         "sda sdb sdc sdd sde sdf sdg sdh sdi sdj sdk sdl sdm sdn sdo sdp sdq sdr sds sdt sdu sdv "
         "esda esdb esdc ",
         0x3FFFFF},
    };
    for (const auto& row : rows) {
        Board board = healthy("hardware = {" + std::string(row.ports) + "}");
        board.disks = {};
        const Outcome got = run(board, "-o 8");
        std::string missing;
        for (std::size_t at = 0; (at = got.console.find("/dev/", at)) != std::string::npos; ++at)
            missing += got.console.substr(at + 5, got.console.find(' ', at) - at - 4);
        EXPECT_EQ(missing, row.nodes);
        EXPECT_EQ(got.results.sata_fault_mask, row.mask);
    }
}

TEST(SataTest, RepeatedRunsAccumulateDisksAndDescribeTheLastMask) {
    const Outcome got = run("-o 8 3", kPorts + "faults = [{call = 'open', path = '/dev/sda'}]");
    EXPECT_EQ(got.results.sata_disks_found, 2);
    EXPECT_EQ(got.results.sata_fault_mask, 0u);
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

TEST(Ata, TextFieldsAreReorderedAlsoAfterAFailure) {
    const Outcome got = run_piece(healthy("disks.sda.identify = false"), [] {
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
