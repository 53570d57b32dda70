#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <span>
#include <sstream>

#include "checks/harness.h"
#include "device/capability.h"
#include "platform/platform.h"
#include "pmp/bridge.h"
#include "pmp/pmpupdate.h"

namespace {

using namespace checks;

const std::string kFile = "files.'/dav0/zeb321.bin'";

// A flash that is immediately ready after each command: blank, or with an image of another size than
// the file, which differs in its third word.
constexpr char kBlank[] = "flash = '', erase_time = 0";
constexpr char kOther[] = "image = 128, erase_time = 0";

// A board with an image of this many bytes in its file, and this bridge.
std::string firmware(int size, const std::string& bridge = kBlank) {
    return kFile + ".image = " + std::to_string(size) + "\nbridges.1 = {" + bridge + "}\n";
}

bool are_image(const std::uint8_t* cells, int size) {
    const std::string image = sim::firmware_image(static_cast<std::uint32_t>(size));
    return std::memcmp(cells, image.data(), image.size()) == 0;
}

// The requests sent to the bridge, a line of 16 bytes each: "00 84 00 ... 00\n".
std::string sent_to_bridge(const Outcome& got) {
    std::string list;
    for (const sim::Event& event : got.world->log.all()) {
        if (event.request != 0x197B) continue;
        for (const char byte : event.sent) {
            char text[8];
            std::snprintf(text, sizeof text, "%02X ", static_cast<unsigned char>(byte));
            list += text;
        }
        list.back() = '\n';
    }
    return list;
}

const std::string kReset = "update the firmware success, now reset the jmb321!\r\n";
const std::string kPassed = "测试结果如下\nChip1 正常\n";
const std::string kError = "INFO: Finish\n测试结果如下\nChip1 发生错误\n";
TEST(Bridge, EachCommandSendsExactlyTheseBytes) {
    const Outcome got = run_piece(healthy(firmware(256)), [] {
        g_bridge.disk = platform::open("/dev/sda", 0);
        std::printf("%d", read_bridge_register(0xFC00));
        std::printf(" %02x", g_bridge.data & 0xFF);
        spiWREN();
        spiWRSR(0x1C);
        spiWREN();
        spiCE();  // protected: not obeyed
        spiPP(0, 0x00010203);
        spiREAD(0x12345678);
        spiRDSR();  // the address of the read is still sent
        std::printf(" %02x", g_bridge.data & 0xFF);
    });
    EXPECT_EQ(sent_to_bridge(got),
              "00 84 00 00 00 00 8F E4 00 00 00 FC 00 00 00 00\n"    // register read of 0xFC00
              "00 06 8F 00 00 00 80 F7 00 00 00 FC 00 00 00 00\n"    // write enable; the rest stays
              "00 01 1C 00 00 00 80 F7 00 04 00 FC 00 00 00 00\n"    // write status
              "00 06 1C 00 00 00 80 F7 00 00 00 FC 00 00 00 00\n"    // write enable
              "00 C7 1C 00 00 00 80 F7 00 00 00 FC 00 00 00 00\n"    // chip erase
              "00 02 03 02 01 00 80 F7 00 E5 00 00 00 00 00 00\n"    // page program
              "00 03 03 02 01 00 80 F7 00 E9 78 56 34 12 00 00\n"    // read data
              "00 05 FF FF FF FF 80 F7 00 08 78 56 34 12 00 00\n");  // read status
    EXPECT_EQ(got.console, "0 8f 1e");  // latch set, three bits of protection
}

TEST(Bridge, ResetPrintsItsLineAndChecksNothing) {
    const Outcome got = run_piece({}, [] { std::printf("%d", pmpreset(0x80)); });
    EXPECT_EQ(got.console, kReset + "0");
    EXPECT_THAT(got.calls("*"), HasSubstr("ioctl 0x52(128) EBADF\n"));
}

// Each dot is printed before the requests of the next block.
TEST(Update, DotsAppearWhileItRuns) {
    const Outcome got = run("-o 10", firmware(2048));
    std::set<std::uint32_t> printed;
    for (const sim::Event& event : got.world->log.all()) {
        if (event.request == 0x197B) printed.insert(event.printed);
    }
    const std::uint32_t last = *printed.rbegin();
    for (std::uint32_t dots = 1; dots < 4; ++dots)
        EXPECT_EQ(printed.count(last - dots), 1u);
}

TEST(Update, BadFilesStopBeforeTheFlashIsTouched) {
    const struct {
        int size;
        std::size_t place;
        char byte;
        std::string said;
    } rows[] = {
        {30, 0, 0x7B, "ERR : chkbinfile, length of binfile isn't alignment (30)\n"},
        {28, 0, 0x7B, "ERR : chkbinfile, too few data when read binfile (< 32 bytes)\n"},
        {256, 0, 0x7C, "ERR : chkbinfile, binfile ID error (32h 197Ch)\n"},
        {256, 1, 0x11, "ERR : chkbinfile, binfile ID error (32h 117Bh)\n"},
        {256, 3, 0x23, "ERR : chkbinfile, binfile ID error (23h 197Bh)\n"},
        {256, 4, 0x07, "ERR : chkbinfile, bonding is mismatch (JMB39X = 06h, binfile = 07h)\n"},
        {256, 8, 0x7C, "ERR : Binfine length is mismatch (exp: 252, act: 256)\n"},
        {256, 12, '\x81', "ERR : Binfine length is mismatch (exp: 257, act: 256)\n"},
        {256, 13, 0x01, "ERR : Binfine length is mismatch (exp: 512, act: 256)\n"},
    };
    for (const auto& row : rows) {
        Board board = healthy(firmware(row.size, "flash = 'AB'"));
        board.files.at("/dav0/zeb321.bin").bytes[row.place] = row.byte;
        const Outcome got = run(board, "-o 10");
        EXPECT_THAT(got.console,
                    EndsWith("\n" + row.said + "ERR : main, check binary file fail\n" + kError));
        EXPECT_EQ(got.world->bridges[0].flash.cells[0], 0xAB);
    }
}

TEST(Update, FlashIsAsTheFileAfterwards) {
    const std::string in_pieces =
        "faults = [{path = '/dav0/zeb321.bin', call = 'read', "
        "effect = 'short', count = 30, onwards = true}]";
    for (const std::string& changes :
         {firmware(1024, kOther), firmware(1024), firmware(1024) + in_pieces}) {
        const Outcome got = run("-o 10", changes);
        EXPECT_TRUE(are_image(got.world->bridges[0].running, 1024)) << changes;
        EXPECT_EQ(got.changes("bridge", "1 reset").size(), 1u);
    }
}

TEST(Update, NegativeDiskIsSaidAndGoneOnWith) {
    const Outcome got = run_piece(healthy(), [] {
        platform::Descriptor none;
        std::printf("%d", pmpupdate(none));
    });
    EXPECT_EQ(got.console,
              "ERR:the sata fd is error\nERR : pmprw, ioctl fail (9)\n"
              "ERR : chk39xdev, read JMB39X fail1\n"
              "ERR : main, check 39x device fail\nINFO: Finish\n-1");
}

// Cuts the power at a request of the update, and runs a second update on the flash that remains.
// Returns whether that one ends with the flash equal to the file.
bool recovers_from_power_cut(Board board, int size, int at_request) {
    sim::Fault cut = failing_request(0x197B, static_cast<std::uint32_t>(at_request));
    cut.effect = sim::Fault::Effect::power_cut;
    board.faults = {cut};
    const Outcome first = run(board, "-o 10");
    if (!first.world->power_cut || first.world->bridges[0].resets != 0) return false;
    board.faults = {};
    const auto& cells = first.world->bridges[0].flash.cells;
    board.bridges.at("1").flash.assign(std::begin(cells), std::end(cells));
    const Outcome second = run(board, "-o 10");
    return are_image(second.world->bridges[0].running, size)
           && second.console.find(kPassed) != std::string::npos;
}

TEST(PowerCut, SecondRunEndsWithTheFlashEqualToTheFile) {
    const struct {
        int size;
        const char* bridge;
        int places, full_places;  // of all requests
    } rows[] = {{4096, kBlank, 75, 100'000}, {4096, kOther, 75, 100'000}, {65536, kOther, 10, 500}};
    int runs = 0;
    for (const auto& row : rows) {
        const Board board = healthy(firmware(row.size, row.bridge));
        const std::string sent = sent_to_bridge(run(board, "-o 10"));
        const int all = static_cast<int>(std::count(sent.begin(), sent.end(), '\n'));
        const int places = std::min(all, full_form() ? row.full_places : row.places);
        for (int i = 0; i < places; ++i, ++runs) {
            const int at = 1 + static_cast<int>(std::int64_t{i} * all / places);
            EXPECT_TRUE(recovers_from_power_cut(board, row.size, at)) << "request " << at;
        }
    }
    std::printf("%d power cuts\n", runs);
}

// Test 10 on a board with this many ports and these changes. Its first bridge has another image
// than the file, the others have none.
Outcome run_layout(int ports, const std::string& changes = "") {
    std::string board = "hardware.presence = 0xFFFF\n" + kFile + ".image = 256\n";
    for (const char* bridge : {"1", "2", "3", "4"})
        board += "bridges." + std::string(bridge) + ".erase_time = 0\n";
    const std::map<int, std::string> bridge_of_disk = {
        {5, "11111"}, {9, "1111222212"}, {16, "1111222233334444"}};
    char letter = 'a';
    for (const char bridge : bridge_of_disk.at(ports))
        board += std::string("disks.sd") + letter++ + ".bridge = '" + bridge + "'\n";
    return run_with(healthy(board + changes), {"-o", "10"},
                    [ports] { g_sata_port_num = static_cast<std::uint8_t>(ports); });
}

std::string without(const std::string& letters) {
    std::string changes;
    for (const char letter : letters)
        changes += std::string("disks.sd") + letter + ".present = false\n";
    return changes;
}

// Which disk was opened for what, the resets, the table, and the selectors of the resets.
std::string summary(const Outcome& got) {
    std::istringstream console(got.console);
    std::string text;
    for (std::string line; std::getline(console, line);) {
        if (line.starts_with("test..")) text += line.substr(6, 1) + ":";
        if (line.starts_with("open /dev/sd")) text += line.substr(12, 1) + " ";
        if (line.ends_with("fail!")) text += "failed ";
        if (line + "\n" == kReset) text += "reset ";
        if (line.starts_with("Chip")) text += line.substr(4) + " ";
    }
    for (const sim::Event& event : got.world->log.all()) {
        if (event.request == 0x52) text += "| " + std::to_string(event.argument);
    }
    return text;
}

TEST(PmpTest, EachLayoutUpdatesItsChipsAndResetsThem) {
    const std::string same = ".image = 256\n", fails = ".presence = 0\n";
    const struct {
        int ports;
        std::string changes, summary;
    } rows[] = {
        // The first disk that opens is the only one.
        {5, "", "a reset 1 正常 | 256"},
        {5, without("ab"), "a failed b failed c reset 1 正常 | 256"},
        {5, without("abcde"), "a failed b failed c failed d failed e failed 1 未进行测试 "},
        {5, "bridges.1" + fails, "a 1 发生错误 "},
        {5, "bridges.1" + same, "a 1 正常 "},
        // Each chip through its first disk, and reset at once.
        {9, "", "1:a reset 2:e reset 1 正常 2 正常 | 256| 128"},
        {9, without("abcdefghj"), "1:i reset 1 正常 2 未进行测试 | 256"},
        {9, "bridges.1" + fails, "1:a 2:e reset 1 发生错误 2 正常 | 128"},
        // Reset in pairs after all disks.
        {16, "", "1:a 2:e 3:i 4:m reset reset 1 正常 2 正常 3 正常 4 正常 | 256| 128"},
        {16, "bridges.1" + same + "bridges.2" + same + "bridges.3" + same,
         "1:a 2:e 3:i 4:m reset 1 正常 2 正常 3 正常 4 正常 | 128"},
        {16, "bridges.2" + same + "bridges.3" + same + "bridges.4" + same,
         "1:a 2:e 3:i 4:m reset 1 正常 2 正常 3 正常 4 正常 | 256"},
        {16, "bridges.1" + same + "bridges.3" + same + "bridges.4" + fails + without("ij"),
         "1:a 2:e 3:k 4:m reset 1 正常 2 正常 3 正常 4 发生错误 | 256"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(summary(run_layout(row.ports, row.changes)), row.summary) << row.changes;
    // A disk of a chip that was tested already is opened, and closed without use.
    EXPECT_EQ(run_layout(9).count("close", "/dev/sdj"), 1);
    // Each chip then runs what was written to it.
    const Outcome got = run_layout(9, "bridges.2.reset_selector = 128\n");
    for (const auto& bridge : std::span(got.world->bridges).first(2)) {
        EXPECT_EQ(bridge.resets, 1u);
        EXPECT_TRUE(std::ranges::equal(bridge.running, bridge.flash.cells));
    }
}

}  // namespace
