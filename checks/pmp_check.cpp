#include <algorithm>
#include <cstring>
#include <set>

#include "checks/harness.h"
#include "device/capability.h"
#include "platform/platform.h"
#include "pmp/bridge.h"
#include "pmp/pmpupdate.h"

namespace {

using namespace checks;

constexpr char kFile[] = "/dav0/zeb321.bin";

// A board with one bridge and this image for it. Its flash is ready at once after each command.
Board board_with_image(std::uint32_t size) {
    Board board = healthy();
    board.files.at(kFile).bytes = sim::firmware_image(size);
    sim::Bridge& bridge = board.bridges.at("1");
    bridge.flash.clear();
    bridge.erase_time = bridge.program_time = bridge.status_time = 0;
    return board;
}

std::string older(std::string image) {
    image[16] = static_cast<char>(~image[16]);
    return image;
}

Outcome run_test(const Board& board) { return run(board, "-o 10"); }

std::string said(const Outcome& got) {
    const std::string start = "open /dev/sda success!\n";
    const std::size_t at = got.console.find(start);
    return at == std::string::npos ? got.console : got.console.substr(at + start.size());
}

std::string flash_of(const Outcome& got, std::size_t size) {
    const auto* cells = reinterpret_cast<const char*>(got.world->bridges[0].flash.cells);
    return {cells, size};
}

bool flash_holds_the_file(const Outcome& got, const Board& board) {
    const std::string& file = board.files.at(kFile).bytes;
    return flash_of(got, file.size()) == file;
}

int requests(const Outcome& got) {
    int count = 0;
    for (const sim::Event& event : got.world->log())
        count += event.request == 0x197B ? 1 : 0;
    return count;
}

constexpr char kChip[] =
    "INFO: JMB39X device exist\n"
    "INFO: JMB39X CHIP ID = 32h, Revision ID = 10h\n";

std::string file_lines(int size) {
    return std::string(kChip) + "INFO: Binfile ID = 32h 197Bh\nINFO: Revision ID = 10h\n"
           "INFO: Bonding = 06h\nINFO: Binfile length = " + std::to_string(size) + " bytes\n";
}

std::string upload_lines(int size) {
    return "INFO: Upload flash #1\n"
           + std::string(static_cast<std::size_t>((size + 511) / 512), '.')
           + "\nINFO: Total upload size = " + std::to_string(size) + "\nINFO: Upload complete\n";
}

constexpr char kReset[] = "update the firmware success, now reset the jmb321!\r\n";
constexpr char kPassed[] = "测试结果如下\nChip1 正常\n";
constexpr char kError[] = "测试结果如下\nChip1 发生错误\n";

std::string hex(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        char pair[4];
        std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned char>(byte));
        text += pair;
    }
    return text;
}

TEST(Bridge, EachCommandSendsExactlyTheseBytes) {
    Board board = board_with_image(256);
    const Outcome got = run_piece(board, [] {
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
    std::string sent;
    for (const sim::Event& event : got.world->log()) {
        if (event.request == 0x197B) sent += hex(got.world->sent(event)) + "\n";
    }
    EXPECT_EQ(sent,
              "008400000000"
              "8fe4"
              "0000"
              "00fc0000"
              "0000\n"  // register read of 0xFC00
              "00068f000000"
              "80f7"
              "0000"
              "00fc0000"
              "0000\n"  // write enable; the rest stays
              "00011c000000"
              "80f7"
              "0004"
              "00fc0000"
              "0000\n"  // write status
              "00061c000000"
              "80f7"
              "0000"
              "00fc0000"
              "0000\n"
              "00c71c000000"
              "80f7"
              "0000"
              "00fc0000"
              "0000\n"  // chip erase
              "000203020100"
              "80f7"
              "00e5"
              "00000000"
              "0000\n"  // page program
              "000303020100"
              "80f7"
              "00e9"
              "78563412"
              "0000\n"  // read data
              "0005ffffffff"
              "80f7"
              "0008"
              "78563412"
              "0000\n");                // read status
    EXPECT_EQ(got.console, "0 8f 1e");  // latch set, three bits of protection
}

TEST(Bridge, ErrnoIsThatOfTheRequestOnBothLines) {
    Board board = board_with_image(256);
    sim::Fault fault = failing_request(0x197B);
    fault.onwards = true;
    fault.error = EBUSY;
    board.faults = {fault};
    const Outcome got = run_piece(board, [] {
        g_bridge.disk = platform::open("/dev/sda", 0);
        const int results[] = {pmprw(kRegisterRead), spiWREN(), spiRDSR(),  spiWRSR(0),
                               spiREAD(0),           spiCE(),   spiPP(0, 0)};
        for (const int result : results)
            std::printf("%d ", result);
    });
    std::string expected = "ERR : pmprw, ioctl fail (16)\n";
    for (const char* name : {"spiWREN", "spiRDSR", "spiWRSR", "spiREAD", "spiCE", "spiPP"}) {
        expected +=
            "ERR : pmprw, ioctl fail (16)\nERR : " + std::string(name) + ", spi JMB39X fail (16)\n";
    }
    EXPECT_EQ(got.console, expected + "-1 -1 -1 -1 -1 -1 -1 ");
}

TEST(Bridge, ResetPrintsItsLineAndChecksNothing) {
    const Outcome got = run_piece({}, [] { std::printf("%d", pmpreset(0x80)); });
    EXPECT_EQ(got.console, std::string(kReset) + "0");
    EXPECT_THAT(got.calls("*"), HasSubstr("ioctl 0x52(128) EBADF\n"));
}

TEST(Update, SameImageWritesNothing) {
    Board board = board_with_image(4096);
    board.bridges.at("1").flash = board.files.at(kFile).bytes;
    const Outcome got = run_test(board);
    EXPECT_EQ(said(got), file_lines(4096)
                             + "INFO: Flash is found by chk1\nINFO: Verify flash #1\n........\n"
                               "INFO: Total verify size = 4096\nINFO: Verify complete\n"
                               "INFO: Flash #1 is the same as binary file\nINFO: Finish\n"
                             + kPassed);
    EXPECT_EQ(got.world->bridges[0].programmed_words, 0u);
    EXPECT_EQ(got.world->bridges[0].resets, 0u);
    EXPECT_EQ(requests(got), 4 + 1 + 1024);
}

TEST(Update, OlderImageIsErasedAndProgrammedAndTheBridgeReset) {
    Board board = board_with_image(1024);
    const std::string& image = board.files.at(kFile).bytes;
    board.bridges.at("1").flash = older(image);
    const Outcome got = run_test(board);
    char difference[120];
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(image[i]); };
    std::snprintf(difference, sizeof difference,
                  "(00000010h) (JMB39X = %02X%02X%02X%02Xh, binfile = %02X%02X%02X%02Xh)\n",
                  byte(19), byte(18), byte(17), ~byte(16) & 0xFF, byte(19), byte(18), byte(17),
                  byte(16));
    EXPECT_EQ(said(got), file_lines(1024)
                             + "INFO: Flash is found by chk1\nINFO: Verify flash #1\n"
                               "WRN : verifycode, verify fail "
                             + difference
                             + "INFO: Total verify size = 16\n"
                               "WRN : verifycode, verify not complete\n"
                             + upload_lines(1024) + "INFO: Finish\n" + kReset + kPassed);
    EXPECT_TRUE(flash_holds_the_file(got, board));
    EXPECT_EQ(got.changes("bridge", "1 reset").size(), 1u);
    EXPECT_EQ(std::memcmp(got.world->bridges[0].running, image.data(), image.size()), 0);
    EXPECT_THAT(got.calls("/dev/zebio"), HasSubstr("ioctl 0x52(256)\n"));
}

TEST(Update, BlankFlashPassesTheTestPatternFirst) {
    const Board board = board_with_image(256);
    const Outcome got = run_test(board);
    EXPECT_EQ(said(got), file_lines(256)
                             + "WRN : chkflashsts, chk1 fail, try chk0 (FFFFFFFF)\n"
                               "INFO: Flash is found by chk0\n"
                             + upload_lines(256) + "INFO: Finish\n" + kReset + kPassed);
    EXPECT_TRUE(flash_holds_the_file(got, board));
    // 03 02 01 00 FC FD FE FF AA 55 AA 55 00 FF 0F F0
    std::string pattern;
    for (const sim::Event& event : got.world->log()) {
        const std::string_view sent = got.world->sent(event);
        if (event.request == 0x197B && sent[1] == 0x02 && pattern.size() < 32) {
            pattern += hex(sent.substr(2, 4));
        }
    }
    EXPECT_EQ(pattern, "03020100fcfdfeffaa55aa5500ff0ff0");
}

// Three requests a word and not one more, when the flash is ready at the first status read.
TEST(Update, RequestsAreTheComputedFloor) {
    for (const std::uint32_t size : {256u, 4096u}) {
        const int words = static_cast<int>(size / 4);
        const int chip_and_file = 4, look = 1, unlock = 4, erase = 4;
        EXPECT_EQ(requests(run_test(board_with_image(size))),
                  chip_and_file + look + (unlock + erase + 4 * 3 + 4)  // test pattern
                      + unlock + erase + words * 3);
    }
}

TEST(Update, DotsAppearWhileItRuns) {
    const Outcome got = run_test(board_with_image(2048));
    std::vector<std::uint32_t> dots_before_write;
    const std::size_t first_dot = got.console.find("....");
    ASSERT_NE(first_dot, std::string::npos);
    std::set<std::uint32_t> printed;
    for (const sim::Event& event : got.world->log()) {
        if (event.request == 0x197B) printed.insert(event.printed);
    }
    // Each dot was out before the requests of the next block.
    const std::uint32_t last = *printed.rbegin();
    for (std::uint32_t dot = 0; dot < 4; ++dot)
        EXPECT_EQ(printed.count(last - dot), 1u);
}

TEST(Update, FlashDefectsAreFoundOrNot) {
    const std::string start = file_lines(256);
    const auto with = [](const std::function<void(sim::Bridge&)>& change) {
        Board board = board_with_image(256);
        change(board.bridges.at("1"));
        return board;
    };
    const auto stack = [](const std::string& fault) {
        return fault + "ERR : main, check flash status fail\nINFO: Finish\n" + kError;
    };
    Board board = with([](auto& bridge) { bridge.protection = 0x1C; });
    EXPECT_EQ(said(run_test(board)).find("ERR"), std::string::npos);  // it can be unlocked

    board = with([](auto& bridge) { bridge.protection = 0x1C, bridge.unlocks = false; });
    EXPECT_THAT(said(run_test(board)),
                EndsWith(stack("ERR : chkflashsts, chk0 fail, (FFFFFFFF FFFFFFFF FFFFFFFF "
                               "FFFFFFFF)\n")));
    board = with([](auto& bridge) { bridge.programs = false; });
    EXPECT_THAT(said(run_test(board)), HasSubstr("chk0 fail, (FFFFFFFF FFFFFFFF"));

    board = with([](auto& bridge) { bridge.erases = false, bridge.flash.assign(64, '\0'); });
    EXPECT_THAT(said(run_test(board)), EndsWith(stack("ERR : chkflashsts, chk0 fail, (00000000 "
                                                      "00000000 00000000 00000000)\n")));

    // Busy for longer than 10000 status reads take.
    board = with([](auto& bridge) { bridge.erase_time = 0.25; });
    EXPECT_THAT(said(run_test(board)),
                EndsWith(stack("ERR : waitflashrdy, timeout (10000)"
                               "ERR : eraseflash, waitflashrdy(10000) fail2\n"
                               "ERR : chkflashsts, eraseflash fail\n")));
    board = with([](auto& bridge) { bridge.erase_time = 0.19; });
    EXPECT_THAT(said(run_test(board)), EndsWith(kPassed));
    board = with([](auto& bridge) { bridge.program_time = 0.03; });
    EXPECT_THAT(said(run_test(board)),
                EndsWith(stack("ERR : waitflashrdy, timeout (1000)"
                               "ERR : writeflash, waitflashrdy(1000) fail2 (00000000h)\n"
                               "ERR : chkflashsts, writeflash fail\n")));

    // A flash that shows an older image and then ignores everything is not noticed: the upload is
    // not read back.
    board = with([](auto& bridge) {
        bridge.flash = older(sim::firmware_image(256));
        bridge.erases = bridge.programs = false;
    });
    const Outcome got = run_test(board);
    EXPECT_THAT(said(got), EndsWith("INFO: Finish\n" + (kReset + std::string(kPassed))));
    EXPECT_FALSE(flash_holds_the_file(got, board));
}

TEST(Update, BadFilesStopBeforeTheFlashIsTouched) {
    const std::string chip = kChip;
    const std::string id = chip + "INFO: Binfile ID = 32h 197Bh\n";
    const std::string revision = id + "INFO: Revision ID = 10h\n";
    const auto change = [](std::size_t at, int value) {
        std::string image = sim::firmware_image(256);
        image[at] = static_cast<char>(value);
        return image;
    };
    const struct {
        std::string file, said;
    } rows[] = {
        {std::string(30, 'x'), chip + "ERR : chkbinfile, length of binfile isn't alignment (30)\n"},
        {std::string(28, 'x'),
         chip + "ERR : chkbinfile, too few data when read binfile (< 32 bytes)\n"},
        {"", chip + "ERR : chkbinfile, too few data when read binfile (< 32 bytes)\n"},
        {change(0, 0x7C), chip + "ERR : chkbinfile, binfile ID error (32h 197Ch)\n"},
        {change(1, 0x91), chip + "ERR : chkbinfile, binfile ID error (32h 917Bh)\n"},
        {change(3, 0x23), chip + "ERR : chkbinfile, binfile ID error (23h 197Bh)\n"},
        {change(4, 0x07),
         revision + "ERR : chkbinfile, bonding is mismatch (JMB39X = 06h, binfile = 07h)\n"},
        {change(8, 0x7C), revision
                              + "INFO: Bonding = 06h\n"
                                "ERR : Binfine length is mismatch (exp: 252, act: 256)\n"},
        {change(13, 0x01), revision
                               + "INFO: Bonding = 06h\n"
                                 "ERR : Binfine length is mismatch (exp: 512, act: 256)\n"},
    };
    for (const auto& row : rows) {
        Board board = board_with_image(256);
        board.files.at(kFile).bytes = row.file;
        board.bridges.at("1").flash = "untouched";
        const Outcome got = run_test(board);
        EXPECT_EQ(said(got),
                  row.said + "ERR : main, check binary file fail\nINFO: Finish\n" + kError);
        EXPECT_EQ(flash_of(got, 9), "untouched");
    }
    Board warned = board_with_image(256);
    warned.files.at(kFile).bytes[2] = 0x11;
    EXPECT_THAT(said(run_test(warned)),
                StartsWith(id
                           + "WRN : chkbinfile, revision ID is mismatch (JMB39X = 10h, binfile = "
                             "11h)\n      continue!INFO: Bonding = 06h\n"));
}

TEST(Update, MissingFileLeavesTheDiskToTheCallerAndNothingIsClosedTwice) {
    Board board = board_with_image(256);
    board.files.erase(kFile);
    const Outcome got = run_test(board);
    EXPECT_EQ(said(got), "ERR : open config binfile fail\n" + std::string(kError));
    EXPECT_EQ(got.count("close", "/dev/sda"), 1);
    EXPECT_EQ(got.calls("*").find("EBADF"), std::string::npos);
    const Outcome good = run_test(board_with_image(256));
    EXPECT_EQ(good.count("close", "/dev/sda"), 1);
    EXPECT_EQ(good.calls("*").find("EBADF"), std::string::npos);
}

TEST(Update, NegativeDiskIsSaidAndGoneOnWith) {
    const Outcome got = run_piece(board_with_image(256), [] {
        platform::Descriptor none;
        std::printf("%d", pmpupdate(none));
    });
    EXPECT_EQ(got.console,
              "ERR:the sata fd is error\nERR : pmprw, ioctl fail (9)\n"
              "ERR : chk39xdev, read JMB39X fail1\n"
              "ERR : main, check 39x device fail\nINFO: Finish\n-1");
}

TEST(Update, MissingBridgeIsNamed) {
    Board board = board_with_image(256);
    board.disks.at("sda").bridge = "";
    EXPECT_EQ(said(run_test(board)),
              "ERR : JMB39X device doesn't exist (00000000h)\n"
              "ERR : main, check 39x device fail\nINFO: Finish\n"
                  + std::string(kError));
    board = board_with_image(256);
    board.bridges.at("1").registers.at(0xFC00) = 0xF8;
    EXPECT_THAT(said(run_test(board)), EndsWith(kPassed));
}

// Each step's lines, in the order in which one failing request stacks them.
TEST(Update, FailingRequestStacksTheLinesOfEachStep) {
    const std::string unlock = "ERR : disableflashWP, ", erase = "ERR : eraseflash, ";
    const std::string flash_status = "ERR : main, check flash status fail\n";
    const std::string chk0 = "ERR : chkflashsts, ", upload = "ERR : uploadcode, ";
    const std::string upload_fail = "ERR : main, uploadcode fail\n";
    const std::string status =
        "ERR : spiRDSR, spi JMB39X fail (5)\nERR : waitflashrdy, spiRDSR fail\n";
    const auto spi = [](const char* name) {
        return "ERR : " + std::string(name) + ", spi JMB39X fail (5)\n";
    };
    const std::string not_complete =
        "INFO: Total upload size = 0\n" + upload + "upload not complete\n" + upload_fail;
    const struct {
        bool blank;  // or an older image, whose fifth word differs
        std::uint32_t nth;
        std::string stack;
    } rows[] = {
        {true, 1, "ERR : chk39xdev, read JMB39X fail1\nERR : main, check 39x device fail\n"},
        {true, 2, "ERR : chk39xdev, read JMB39X fail2\nERR : main, check 39x device fail\n"},
        {true, 3, "ERR : chkbinfile, read JMB39X fail1\nERR : main, check binary file fail\n"},
        {true, 4, "ERR : chkbinfile, read JMB39X fail2\nERR : main, check binary file fail\n"},
        {true, 5, spi("spiREAD") + chk0 + "spiREAD fail (00000000h)\n" + flash_status},
        {true, 6,
         status + unlock + "waitflashrdy(10000) fail1\n" + chk0 + "disableflashWP fail\n"
             + flash_status},
        {true, 7,
         spi("spiWREN") + unlock + "spiWREN fail\n" + chk0 + "disableflashWP fail\n"
             + flash_status},
        {true, 8,
         spi("spiWRSR") + unlock + "spiWRSR fail\n" + chk0 + "disableflashWP fail\n"
             + flash_status},
        {true, 9,
         status + unlock + "waitflashrdy(10000) fail2\n" + chk0 + "disableflashWP fail\n"
             + flash_status},
        {true, 10,
         status + erase + "waitflashrdy(10000) fail1\n" + chk0 + "eraseflash fail\n"
             + flash_status},
        {true, 11,
         spi("spiWREN") + erase + "spiWREN fail\n" + chk0 + "eraseflash fail\n" + flash_status},
        {true, 12,
         spi("spiCE") + erase + "spiCE fail\n" + chk0 + "eraseflash fail\n" + flash_status},
        {true, 13,
         status + erase + "waitflashrdy(10000) fail2\n" + chk0 + "eraseflash fail\n"
             + flash_status},
        {true, 17,
         spi("spiWREN") + "ERR : writeflash, spiWREN fail (00000004h)\n" + chk0
             + "writeflash fail\n" + flash_status},
        {true, 18,
         spi("spiPP") + "ERR : writeflash, spiPP fail (00000004h)\n" + chk0 + "writeflash fail\n"
             + flash_status},
        {true, 19,
         status + "ERR : writeflash, waitflashrdy(1000) fail2 (00000004h)\n" + chk0
             + "writeflash fail\n" + flash_status},
        {true, 27,
         spi("spiREAD") + "ERR : readflash, spiREAD fail (00000004h)\n" + chk0 + "readflash fail\n"
             + flash_status},
        {false, 7,
         spi("spiREAD")
             + "ERR : readflash, spiREAD fail (00000004h)\n"
               "ERR : verifycode, readflash fail (00000004h)\nINFO: Total verify size = 4\n"
               "WRN : verifycode, verify not complete\nERR : main, verifycode fail\n"},
        {false, 11,
         status + unlock + "waitflashrdy(10000) fail1\n" + upload + "disableflashWP fail\n"
             + upload_fail},
        {false, 17,
         spi("spiCE") + erase + "spiCE fail\n" + upload + "eraseflash fail\n" + upload_fail},
        {false, 20,
         spi("spiPP") + "ERR : writeflash, spiPP fail (00000000h)\n" + upload
             + "writeflash fail (00000000h)\n" + not_complete},
    };
    for (const auto& row : rows) {
        Board board = board_with_image(256);
        if (!row.blank) board.bridges.at("1").flash = older(board.files.at(kFile).bytes);
        board.faults = {failing_request(0x197B, row.nth)};
        const Outcome got = run_test(board);
        EXPECT_THAT(got.console, EndsWith("ERR : pmprw, ioctl fail (5)\n" + row.stack
                                          + "INFO: Finish\n" + kError))
            << row.nth;
        EXPECT_EQ(got.world->bridges[0].resets, 0u);
    }
}

TEST(Update, FileThatChangesUnderTheUploadIsNotComplete) {
    // Reads: the header, two blocks and the end of the verification, then those of the upload.
    const auto run_resized = [](std::uint32_t at_read, std::uint32_t size) {
        Board board = board_with_image(1024);
        board.files.at(kFile).resized_at_read = at_read;
        board.files.at(kFile).resized_to = size;
        return run_test(board);
    };
    for (const std::uint32_t size : {512u, 1020u, 1022u, 1028u, 1536u}) {
        const Outcome got = run_resized(3, size);
        EXPECT_THAT(said(got), EndsWith("ERR : uploadcode, upload not complete\n"
                                        "ERR : main, uploadcode fail\nINFO: Finish\n"
                                        + std::string(kError)))
            << size;
        EXPECT_EQ(got.world->bridges[0].resets, 0u);
    }
    EXPECT_THAT(said(run_resized(3, 512)), HasSubstr("\n.\nINFO: Total upload size = 512\n"));
}

TEST(Update, FailedAndShortReadsOfTheFile) {
    Board board = board_with_image(1024);
    sim::Fault shorten = failing("read", kFile);
    shorten.effect = sim::Fault::Effect::shorten;
    shorten.onwards = true;
    shorten.count = 30;  // continued up to 512 bytes, or the rest would be out of step
    board.faults = {shorten};
    Outcome got = run_test(board);
    EXPECT_THAT(said(got), EndsWith(upload_lines(1024) + "INFO: Finish\n" + kReset + kPassed));
    EXPECT_TRUE(flash_holds_the_file(got, board));

    board.faults = {failing("read", kFile, 2)};
    got = run_test(board);
    EXPECT_THAT(said(got), HasSubstr("\n.ERR : uploadcode, read binfile fail (00000200h)\n"
                                     "INFO: Total upload size = 512\n"));
    board.bridges.at("1").flash = board.files.at(kFile).bytes;
    got = run_test(board);
    EXPECT_THAT(said(got), HasSubstr("\n.ERR : verifycode, read binfile fail (00000200h)\n"
                                     "INFO: Total verify size = 512\n"
                                     "WRN : verifycode, verify not complete\n"
                                     "ERR : main, verifycode fail\n"));
    board.faults = {failing("pread", kFile)};
    EXPECT_THAT(said(run_test(board)), HasSubstr("ERR : chkbinfile, read binfile fail (5)\n"));
    board.faults = {failing("lseek", kFile)};
    EXPECT_THAT(said(run_test(board)), HasSubstr("length of binfile isn't alignment (-1)\n"));
}

// Cuts the power at a request of the update; what is left of the flash is where a second run
// starts. Returns whether that run ends with the flash equal to the file.
bool recovers_from_power_cut(Board board, std::uint32_t at_request) {
    sim::Fault cut = failing_request(0x197B, at_request);
    cut.effect = sim::Fault::Effect::power_cut;
    board.faults = {cut};
    const Outcome first = run_test(board);
    if (!first.world->power_cut || first.world->bridges[0].resets != 0) return false;
    board.faults = {};
    board.bridges.at("1").flash = flash_of(first, sizeof first.world->bridges[0].flash.cells);
    const Outcome second = run_test(board);
    return flash_holds_the_file(second, board) && second.console.find(kPassed) != std::string::npos;
}

TEST(PowerCut, SecondRunEndsWithTheFlashEqualToTheFile) {
    int runs = 0;
    for (const bool blank : {true, false}) {
        Board board = board_with_image(4096);
        if (!blank) board.bridges.at("1").flash = older(board.files.at(kFile).bytes);
        const auto all = static_cast<std::uint32_t>(requests(run_test(board)));
        const std::uint32_t step = full_form() ? 1 : 41;
        for (std::uint32_t at = 1; at <= all; at += step, ++runs) {
            EXPECT_TRUE(recovers_from_power_cut(board, at)) << "request " << at;
        }
    }
    Board large = board_with_image(65536);
    large.bridges.at("1").flash = older(large.files.at(kFile).bytes);
    const auto all = static_cast<std::uint32_t>(requests(run_test(large)));
    const std::uint32_t places = full_form() ? 500 : 10;
    for (std::uint32_t i = 0; i < places; ++i, ++runs) {
        const std::uint32_t at = 1 + i * (all - 1) / places;
        EXPECT_TRUE(recovers_from_power_cut(large, at)) << "request " << at;
    }
    std::printf("%d power cuts\n", runs);
}

// Test 10 over the layouts: disks by letter, bridges by number.
Board board_of_layout(int ports, const std::string& chip_of_disk) {
    Board board = board_with_image(256);
    board.hardware.at("presence") = 0xFFFF;  // the check presets the table
    board.disks.clear();
    const sim::Bridge bridge = board.bridges.at("1");
    for (std::size_t i = 0; i < chip_of_disk.size(); ++i) {
        const std::string chip(1, chip_of_disk[i]);
        board.disks["sd" + std::string(1, static_cast<char>('a' + i))].bridge = chip;
        board.bridges[chip] = bridge;
        board.bridges[chip].reset_selector =
            chip == "1" || (ports == 16 && chip == "2") ? 256 : 128;
    }
    return board;
}

Outcome run_layout(const Board& board, int ports) {
    return run_with(board, {"-o", "10"},
                    [ports] { g_sata_port_num = static_cast<std::uint8_t>(ports); });
}

// Which disk was used for what, the resets, and the table, in the order in which they came.
std::string summary(const Outcome& got) {
    std::string text;
    std::size_t at = got.console.find("sata_port_num");
    while (at < got.console.size()) {
        const std::size_t end = got.console.find('\n', at);
        const std::string line = got.console.substr(at, end - at);
        if (line.find("test..") == 0) text += line.substr(6, 1) + ":";
        if (line.find("open /dev/sd") == 0) {
            text += line.substr(12, 1) + (line.find("fail") != std::string::npos ? "! " : " ");
        }
        if (line.find("Chip") == 0) text += line.substr(4) + " ";
        at = end + 1;
    }
    std::string resets;
    for (const sim::Event& event : got.world->log()) {
        if (event.request == 0x52) resets += std::to_string(event.argument) + " ";
    }
    return text + "| " + resets;
}

TEST(PmpTest, FivePortsUseTheFirstDiskThatOpens) {
    Board board = board_of_layout(5, "11111");
    EXPECT_EQ(summary(run_layout(board, 5)), "a 1 正常 | 256 ");
    EXPECT_EQ(run_layout(board, 5).count("open", "/dev/sdb"), 0);
    board.disks.at("sda").present = board.disks.at("sdb").present = false;
    EXPECT_EQ(summary(run_layout(board, 5)), "a! b! c 1 正常 | 256 ");
    for (auto& [node, disk] : board.disks)
        disk.present = false;
    EXPECT_EQ(summary(run_layout(board, 5)), "a! b! c! d! e! 1 未进行测试 | ");
    board = board_of_layout(5, "11111");
    board.disks.at("sda").bridge = "";  // opens, and no bridge answers: not tried on another
    EXPECT_EQ(summary(run_layout(board, 5)), "a 1 发生错误 | ");
    board.disks.at("sda").bridge = "1";
    board.bridges.at("1").flash = board.files.at(kFile).bytes;
    EXPECT_EQ(summary(run_layout(board, 5)), "a 1 正常 | ");
}

TEST(PmpTest, NinePortsTryEachChipThroughItsFirstDiskAndResetAtOnce) {
    Board board = board_of_layout(9, "1111222212");
    const Outcome got = run_layout(board, 9);
    EXPECT_EQ(summary(got), "1:a 2:e 1 正常 2 正常 | 256 128 ");
    EXPECT_LT(got.console.find(kReset), got.console.find("test..2"));
    EXPECT_EQ(got.count("open", "/dev/sdj"), 1);  // opened, and closed without use
    EXPECT_EQ(got.count("close", "/dev/sdj"), 1);

    Board only_sdi = board;
    for (auto& [node, disk] : only_sdi.disks)
        disk.present = node == "sdi";
    EXPECT_EQ(summary(run_layout(only_sdi, 9)), "1:i 1 正常 2 未进行测试 | 256 ");
    Board failing_first = board;
    failing_first.bridges.at("1").registers.at(0xFC00) = 0;
    EXPECT_EQ(summary(run_layout(failing_first, 9)), "1:a 2:e 1 发生错误 2 正常 | 128 ");
}

TEST(PmpTest, SixteenPortsResetInPairsAfterAllDisks) {
    Board board = board_of_layout(16, "1111222233334444");
    const Outcome got = run_layout(board, 16);
    EXPECT_EQ(summary(got), "1:a 2:e 3:i 4:m 1 正常 2 正常 3 正常 4 正常 | 256 128 ");
    EXPECT_LT(got.console.find("test..4"), got.console.find(kReset));
    for (const sim::BridgeState& bridge : got.world->bridges)
        EXPECT_EQ(bridge.resets, 1u);

    for (const char* chip : {"1", "2", "3"}) {
        board.bridges.at(chip).flash = board.files.at(kFile).bytes;
    }
    EXPECT_THAT(summary(run_layout(board, 16)), EndsWith("4 正常 | 128 "));
    board.bridges.at("2").flash = "";
    board.bridges.at("4").registers.at(0xFC00) = 0;
    board.disks.at("sdi").present = board.disks.at("sdj").present = false;
    EXPECT_EQ(summary(run_layout(board, 16)),
              "1:a 2:e 3:k 4:m 1 正常 2 正常 3 正常 4 发生错误 | 256 ");
}

TEST(PmpTest, OtherPortCountsAreNamedAndHaveNoTable) {
    for (const int ports : {0, 1, 4, 8, 17, 18, 25}) {
        const Outcome unknown = run_layout(board_of_layout(5, "11111"), ports);
        EXPECT_THAT(unknown.console,
                    EndsWith("sata_port_num = " + std::to_string(ports) + " \n硬盘个数为"
                             + std::to_string(ports) + ",请检查CPLD是否正确烧写\n"));
        EXPECT_EQ(unknown.status, 0);
    }
    EXPECT_THAT(run(healthy(), "-o 10 2").console,
                HasSubstr("Chip1 正常\n\n第2次测试\nsata_port_num = 5 \n"));
}

}  // namespace
