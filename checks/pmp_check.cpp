#include <algorithm>
#include <cstring>
#include <map>
#include <set>
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

std::string said(const Outcome& got) {
    const std::string start = "open /dev/sda success!\n";
    return got.console.substr(got.console.find(start) + start.size());
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
        for (const char byte : got.world->log.sent(event)) {
            char text[8];
            std::snprintf(text, sizeof text, "%02X ", static_cast<unsigned char>(byte));
            list += text;
        }
        list.back() = '\n';
    }
    return list;
}

int requests(const Outcome& got) {
    const std::string sent = sent_to_bridge(got);
    return static_cast<int>(std::count(sent.begin(), sent.end(), '\n'));
}

const std::string kReset = "update the firmware success, now reset the jmb321!\r\n";
const std::string kPassed = "测试结果如下\nChip1 正常\n";
const std::string kError = "INFO: Finish\n测试结果如下\nChip1 发生错误\n";
const std::string kFinish = "INFO: Finish\n" + kReset + kPassed;

const std::string kChip =
    "INFO: JMB39X device exist\n"
    "INFO: JMB39X CHIP ID = 32h, Revision ID = 10h\n";
const std::string kId = kChip + "INFO: Binfile ID = 32h 197Bh\n";
const std::string kRevision = kId + "INFO: Revision ID = 10h\n";
const std::string kBonding = kRevision + "INFO: Bonding = 06h\n";

std::string file_lines(int size) {
    return kBonding + "INFO: Binfile length = " + std::to_string(size) + " bytes\n";
}

std::string upload_lines(int size, const std::string& dots) {
    return "INFO: Upload flash #1\n" + dots + "\nINFO: Total upload size = " + std::to_string(size)
           + "\nINFO: Upload complete\n";
}

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

TEST(Update, SameImageWritesNothing) {
    const Outcome got = run("-o 10", firmware(4096, "image = 4096"));
    EXPECT_EQ(said(got), file_lines(4096)
                             + "INFO: Flash is found by chk1\nINFO: Verify flash #1\n........\n"
                               "INFO: Total verify size = 4096\nINFO: Verify complete\n"
                               "INFO: Flash #1 is the same as binary file\nINFO: Finish\n"
                             + kPassed);
    EXPECT_EQ(requests(got), 4 + 1 + 1024);  // each word is read, nothing else
    EXPECT_EQ(got.count("close", "/dev/sda"), 1);
}

TEST(Update, OtherImageIsErasedAndProgrammedAndTheBridgeReset) {
    const Outcome got = run("-o 10", firmware(1024, kOther));
    EXPECT_EQ(said(got), file_lines(1024)
                             + "INFO: Flash is found by chk1\nINFO: Verify flash #1\n"
                               "WRN : verifycode, verify fail (00000008h) (JMB39X = 97720040h, "
                               "binfile = 97720200h)\nINFO: Total verify size = 8\n"
                               "WRN : verifycode, verify not complete\n"
                             + upload_lines(1024, "..") + kFinish);
    EXPECT_TRUE(are_image(got.world->bridges[0].running, 1024));
    EXPECT_EQ(got.changes("bridge", "1 reset").size(), 1u);
}

TEST(Update, BlankFlashPassesTheTestPatternFirst) {
    const Outcome got = run("-o 10", firmware(256));
    EXPECT_EQ(said(got), file_lines(256)
                             + "WRN : chkflashsts, chk1 fail, try chk0 (FFFFFFFF)\n"
                               "INFO: Flash is found by chk0\n"
                             + upload_lines(256, ".") + kFinish);
    EXPECT_TRUE(are_image(got.world->bridges[0].flash.cells, 256));
    for (const char* programmed : {"03 02 01 00 80 F7 00 E5 00", "FC FD FE FF 80 F7 00 E5 04",
                                   "AA 55 AA 55 80 F7 00 E5 08", "00 FF 0F F0 80 F7 00 E5 0C"}) {
        EXPECT_THAT(sent_to_bridge(got), HasSubstr(programmed));
    }
}

// Three requests a word and not one more, when the flash is ready at the first status read.
TEST(Update, RequestsAreTheComputedFloor) {
    for (const int size : {256, 4096}) {
        const int chip_and_file = 4, look = 1, unlock = 4, erase = 4;
        EXPECT_EQ(requests(run("-o 10", firmware(size))),
                  chip_and_file + look + (unlock + erase + 4 * 3 + 4)  // test pattern
                      + unlock + erase + size / 4 * 3);
    }
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

TEST(Update, FlashDefects) {
    const struct {
        const char* bridge;
        std::string fault;
    } rows[] = {
        {"flash = '', protection = 0x1C", ""},  // it can be unlocked
        {"flash = '', protection = 0x1C, unlocks = false",
         "ERR : chkflashsts, chk0 fail, (FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF)\n"},
        {"flash = '', programs = false",
         "ERR : chkflashsts, chk0 fail, (FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF)\n"},
        {"flash = '00 00 00 00', erases = false",
         "ERR : chkflashsts, chk0 fail, (00000000 FFFEFDFC 55AA55AA F00FFF00)\n"},
        // Busy for longer than 10000 status reads take.
        {"flash = '', erase_time = 0.19", ""},
        {"flash = '', erase_time = 0.25",
         "ERR : waitflashrdy, timeout (10000)ERR : eraseflash, waitflashrdy(10000) fail2\n"
         "ERR : chkflashsts, eraseflash fail\n"},
        {"flash = '', program_time = 0.03",
         "ERR : waitflashrdy, timeout (1000)"
         "ERR : writeflash, waitflashrdy(1000) fail2 (00000000h)\n"
         "ERR : chkflashsts, writeflash fail\n"},
    };
    for (const auto& row : rows) {
        const std::string failed = row.fault + "ERR : main, check flash status fail\n" + kError;
        EXPECT_THAT(
            said(run("-o 10", firmware(256, row.bridge))),
            EndsWith("\n" + (row.fault.empty() ? upload_lines(256, ".") + kFinish : failed)));
    }
}

TEST(Update, BadFilesStopBeforeTheFlashIsTouched) {
    const struct {
        int size;
        std::size_t place;
        char byte;
        std::string said;
    } rows[] = {
        {30, 0, 0x7B, kChip + "ERR : chkbinfile, length of binfile isn't alignment (30)\n"},
        {28, 0, 0x7B, kChip + "ERR : chkbinfile, too few data when read binfile (< 32 bytes)\n"},
        {256, 0, 0x7C, kChip + "ERR : chkbinfile, binfile ID error (32h 197Ch)\n"},
        {256, 1, 0x11, kChip + "ERR : chkbinfile, binfile ID error (32h 117Bh)\n"},
        {256, 3, 0x23, kChip + "ERR : chkbinfile, binfile ID error (23h 197Bh)\n"},
        {256, 4, 0x07,
         kRevision + "ERR : chkbinfile, bonding is mismatch (JMB39X = 06h, binfile = 07h)\n"},
        {256, 8, 0x7C, kBonding + "ERR : Binfine length is mismatch (exp: 252, act: 256)\n"},
        {256, 12, '\x81', kBonding + "ERR : Binfine length is mismatch (exp: 257, act: 256)\n"},
        {256, 13, 0x01, kBonding + "ERR : Binfine length is mismatch (exp: 512, act: 256)\n"},
    };
    for (const auto& row : rows) {
        Board board = healthy(firmware(row.size, "flash = 'AB'"));
        board.files.at("/dav0/zeb321.bin").bytes[row.place] = row.byte;
        const Outcome got = run(board, "-o 10");
        EXPECT_EQ(said(got), row.said + "ERR : main, check binary file fail\n" + kError);
        EXPECT_EQ(got.world->bridges[0].flash.cells[0], 0xAB);
    }
    EXPECT_THAT(
        said(run("-o 10", "bridges.1.revision = 0x11")),
        HasSubstr("\nWRN : chkbinfile, revision ID is mismatch (JMB39X = 11h, binfile = 10h)\n"
                  "      continue!INFO: Bonding = 06h\n"));
}

TEST(Update, MissingFileLeavesTheDiskToTheCallerAndNothingIsClosedTwice) {
    const Outcome got = run("-o 10", kFile + ".present = false");
    EXPECT_EQ(said(got), "ERR : open config binfile fail\n测试结果如下\nChip1 发生错误\n");
    EXPECT_EQ(got.count("close", "/dev/sda"), 1);
    EXPECT_EQ((got.calls("*") + run("-o 10").calls("*")).find("EBADF"), std::string::npos);
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

TEST(Update, MissingBridgeIsNamed) {
    EXPECT_EQ(said(run("-o 10", "disks.sda.bridge = ''")),
              "ERR : JMB39X device doesn't exist (00000000h)\n"
              "ERR : main, check 39x device fail\n"
                  + kError);
    EXPECT_THAT(said(run("-o 10", "bridges.1.presence = 0xF8")), EndsWith(kPassed));
}

std::string spi(const char* command) {
    return std::string(command) + ", spi JMB39X fail (5)\nERR : ";
}

// The lines of the test pattern's steps.
std::string chk0(const std::string& routine, const char* step) {
    return routine + ", " + step + "\nERR : chkflashsts, " + routine
           + " fail\nERR : main, check flash status fail\n";
}

TEST(Update, FailingRequestStacksTheLinesOfEachStep) {
    const std::string status = spi("spiRDSR") + "waitflashrdy, spiRDSR fail\nERR : ";
    const struct {
        const char* bridge;
        std::uint32_t nth;
        std::string request, steps;
    } rows[] = {
        {kBlank, 1, "", "chk39xdev, read JMB39X fail1\nERR : main, check 39x device fail\n"},
        {kBlank, 2, "", "chk39xdev, read JMB39X fail2\nERR : main, check 39x device fail\n"},
        {kBlank, 3, "", "chkbinfile, read JMB39X fail1\nERR : main, check binary file fail\n"},
        {kBlank, 4, "", "chkbinfile, read JMB39X fail2\nERR : main, check binary file fail\n"},
        {kBlank, 5, spi("spiREAD"),
         "chkflashsts, spiREAD fail (00000000h)\nERR : main, check flash status fail\n"},
        {kBlank, 6, status, chk0("disableflashWP", "waitflashrdy(10000) fail1")},
        {kBlank, 7, spi("spiWREN"), chk0("disableflashWP", "spiWREN fail")},
        {kBlank, 8, spi("spiWRSR"), chk0("disableflashWP", "spiWRSR fail")},
        {kBlank, 9, status, chk0("disableflashWP", "waitflashrdy(10000) fail2")},
        {kBlank, 10, status, chk0("eraseflash", "waitflashrdy(10000) fail1")},
        {kBlank, 11, spi("spiWREN"), chk0("eraseflash", "spiWREN fail")},
        {kBlank, 12, spi("spiCE"), chk0("eraseflash", "spiCE fail")},
        {kBlank, 13, status, chk0("eraseflash", "waitflashrdy(10000) fail2")},
        {kBlank, 17, spi("spiWREN"), chk0("writeflash", "spiWREN fail (00000004h)")},
        {kBlank, 18, spi("spiPP"), chk0("writeflash", "spiPP fail (00000004h)")},
        {kBlank, 19, status, chk0("writeflash", "waitflashrdy(1000) fail2 (00000004h)")},
        {kBlank, 27, spi("spiREAD"), chk0("readflash", "spiREAD fail (00000004h)")},
        {kOther, 7, spi("spiREAD"),
         "readflash, spiREAD fail (00000004h)\nERR : verifycode, readflash fail (00000004h)\n"
         "INFO: Total verify size = 4\nWRN : verifycode, verify not complete\n"
         "ERR : main, verifycode fail\n"},
        {kOther, 9, status,
         "disableflashWP, waitflashrdy(10000) fail1\nERR : uploadcode, disableflashWP fail\n"
         "ERR : main, uploadcode fail\n"},
        {kOther, 15, spi("spiCE"),
         "eraseflash, spiCE fail\nERR : uploadcode, eraseflash fail\n"
         "ERR : main, uploadcode fail\n"},
        {kOther, 18, spi("spiPP"),
         "writeflash, spiPP fail (00000000h)\nERR : uploadcode, writeflash fail (00000000h)\n"
         "INFO: Total upload size = 0\nERR : uploadcode, upload not complete\n"
         "ERR : main, uploadcode fail\n"},
    };
    for (const auto& row : rows) {
        Board board = healthy(firmware(256, row.bridge));
        board.faults = {failing_request(0x197B, row.nth)};
        const Outcome got = run(board, "-o 10");
        EXPECT_THAT(got.console, EndsWith("ERR : pmprw, ioctl fail (5)\nERR : " + row.request
                                          + row.steps + kError));
    }
}

TEST(Update, FileThatChangesUnderTheUploadIsNotComplete) {
    for (const char* size : {"512", "1020", "1022", "1028", "1536"}) {
        // Reads: the header, the block that differs, then those of the upload.
        const Outcome got =
            run("-o 10", firmware(1024, kOther)
                             + "changes = [{call = 'read', path = '/dav0/zeb321.bin', nth = 3, "
                             + kFile + ".size = " + size + "}]");
        EXPECT_THAT(said(got), EndsWith("ERR : uploadcode, upload not complete\n"
                                        "ERR : main, uploadcode fail\n"
                                        + kError));
    }
}

TEST(Update, FailedAndShortReadsOfTheFile) {
    const struct {
        const char *bridge, *fault;
        std::string said;
    } rows[] = {
        // Short reads are continued up to 512 bytes, which keeps the blocks aligned.
        {kBlank, "call = 'read', effect = 'short', count = 30, onwards = true",
         upload_lines(1024, "..") + kFinish},
        {kBlank, "call = 'read', nth = 2",
         ".ERR : uploadcode, read binfile fail (00000200h)\nINFO: Total upload size = 512\n"},
        {"image = 1024", "call = 'read', nth = 2",
         ".ERR : verifycode, read binfile fail (00000200h)\nINFO: Total verify size = 512\n"
         "WRN : verifycode, verify not complete\nERR : main, verifycode fail\n"},
        {kBlank, "call = 'pread', effect = 'short', count = 0",
         "ERR : chkbinfile, too few data when read binfile (< 32 bytes)\n"},
        {kBlank, "call = 'pread'", "ERR : chkbinfile, read binfile fail (5)\n"},
        {kBlank, "call = 'lseek'", "ERR : chkbinfile, length of binfile isn't alignment (-1)\n"},
    };
    for (const auto& row : rows) {
        const Outcome got =
            run("-o 10", firmware(1024, row.bridge) + "faults = [{path = '/dav0/zeb321.bin', "
                             + row.fault + "}]");
        EXPECT_THAT(said(got), HasSubstr("\n" + row.said));
        const sim::BridgeState& bridge = got.world->bridges[0];
        EXPECT_TRUE(bridge.resets == 0 || are_image(bridge.running, 1024));
    }
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
           && said(second).find(kPassed) != std::string::npos;
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
        const int all = requests(run(board, "-o 10"));
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
        {16, "bridges.1" + same + "bridges.3" + same + "bridges.4" + fails + without("ij"),
         "1:a 2:e 3:k 4:m reset 1 正常 2 正常 3 正常 4 发生错误 | 256"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(summary(run_layout(row.ports, row.changes)), row.summary) << row.changes;
    // A disk of a chip that was tested already is opened, and closed without use.
    EXPECT_EQ(run_layout(9).count("close", "/dev/sdj"), 1);
}

TEST(PmpTest, OtherPortCountsAreNamedAndHaveNoTable) {
    for (const auto& [layout, ports] :
         {std::pair("0", "0"), {"1", "1"}, {"4", "4"}, {"6", "8"}, {"8", "17"}, {"10", "25"}}) {
        const Outcome got = run("-o 10", std::string("hardware.sata_layout = ") + layout);
        EXPECT_EQ(got.said(), "sata_port_num = " + std::string(ports) + " \n硬盘个数为" + ports
                                  + ",请检查CPLD是否正确烧写\n");
        EXPECT_EQ(got.status, 0);
    }
    EXPECT_THAT(run("-o 10 2").console, HasSubstr("Chip1 正常\n\n第2次测试\nsata_port_num = 5 \n"));
}

}  // namespace
