#include "pmp/pmpupdate.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>

#include "device/little_endian.h"
#include "platform/print.h"
#include "pmp/bridge.h"

std::uint32_t g_pmp_updated = 0;

namespace {

constexpr char kFirmwarePath[] = "/dav0/zeb321.bin";
constexpr std::uint8_t kChipId = 0x32;
constexpr std::size_t kBlockSize = 512;

// Bridge registers.
constexpr std::uint32_t kPresence = 0xFC00;  // 0x8F or 0xF8: a bridge answers
constexpr std::uint32_t kRevision = 0xFC03;
constexpr std::uint32_t kBondingHigh = 0xFAFD;
constexpr std::uint32_t kBondingLow = 0xFAFC;

// Status reads, not a time.
constexpr int kErasePolls = 10000;
constexpr int kProgramPolls = 1000;

constexpr std::uint32_t kTestPattern[4] = {0x00010203, 0xFFFEFDFC, 0x55AA55AA, 0xF00FFF00};

using Block = std::array<std::uint8_t, kBlockSize>;

// Prints the outcome of a step and returns its result.
int say(int result, const char* line) {
    print_line(line);
    return result;
}

std::uint8_t register_value() { return static_cast<std::uint8_t>(g_bridge.data); }

void rewind_file() { platform::lseek(g_bridge.firmware, 0, SEEK_SET); }

// Fills the block from the file, in as many reads as it takes. Returns the bytes read, 0 at the
// end of the file, -1 on failure.
ssize_t read_block(Block& block) {
    std::size_t filled = 0;
    while (filled < block.size()) {
        const ssize_t count =
            platform::read(g_bridge.firmware, block.data() + filled, block.size() - filled);
        if (count < 0) return -1;
        if (count == 0) break;
        filled += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(filled);
}

// Flash.

int waitflashrdy(int limit) {
    for (int i = 0; i < limit; ++i) {
        const int result = spiRDSR();
        if (result < 0) return say(result, "ERR : waitflashrdy, spiRDSR fail");
        const bool write_in_progress = (g_bridge.data & 1) != 0;
        if (!write_in_progress) return 0;
    }
    print("ERR : waitflashrdy, timeout (%d)", limit);
    return -1;
}

int disableflashWP() {
    int result = waitflashrdy(kErasePolls);
    if (result < 0) return say(result, "ERR : disableflashWP, waitflashrdy(10000) fail1");
    result = spiWREN();
    if (result < 0) return say(result, "ERR : disableflashWP, spiWREN fail");
    result = spiWRSR(0);
    if (result < 0) return say(result, "ERR : disableflashWP, spiWRSR fail");
    result = waitflashrdy(kErasePolls);
    if (result < 0) return say(result, "ERR : disableflashWP, waitflashrdy(10000) fail2");
    return result;
}

int eraseflash() {
    int result = waitflashrdy(kErasePolls);
    if (result < 0) return say(result, "ERR : eraseflash, waitflashrdy(10000) fail1");
    result = spiWREN();
    if (result < 0) return say(result, "ERR : eraseflash, spiWREN fail");
    result = spiCE();
    if (result < 0) return say(result, "ERR : eraseflash, spiCE fail");
    result = waitflashrdy(kErasePolls);
    if (result < 0) return say(result, "ERR : eraseflash, waitflashrdy(10000) fail2");
    return result;
}

int writeflash(std::uint32_t address, const std::uint32_t* words, int count) {
    for (int i = 0; i < count; ++i, address += 4) {
        int result = spiWREN();
        if (result < 0) {
            print("ERR : writeflash, spiWREN fail (%08Xh)\n", address);
            return result;
        }
        result = spiPP(address, words[i]);
        if (result < 0) {
            print("ERR : writeflash, spiPP fail (%08Xh)\n", address);
            return result;
        }
        result = waitflashrdy(kProgramPolls);
        if (result < 0) {
            print("ERR : writeflash, waitflashrdy(1000) fail2 (%08Xh)\n", address);
            return result;
        }
    }
    return 0;
}

int readflash(std::uint32_t address, std::uint32_t* words, int count) {
    for (int i = 0; i < count; ++i, address += 4) {
        const int result = spiREAD(address);
        if (result < 0) {
            print("ERR : readflash, spiREAD fail (%08Xh)\n", address);
            return result;
        }
        words[i] = g_bridge.data;
    }
    return 0;
}

// Checks.

int chk39xdev() {
    int result = read_bridge_register(kPresence);
    if (result < 0) return say(result, "ERR : chk39xdev, read JMB39X fail1");
    if (register_value() != 0x8F && register_value() != 0xF8) {
        print("ERR : JMB39X device doesn't exist (%08Xh)\n", g_bridge.data);
        return -1;
    }
    print_line("INFO: JMB39X device exist");
    result = read_bridge_register(kRevision);
    if (result < 0) return say(result, "ERR : chk39xdev, read JMB39X fail2");
    g_bridge.revision = register_value();
    print("INFO: JMB39X CHIP ID = %02Xh, Revision ID = %02Xh\n", kChipId, g_bridge.revision);
    return result;
}

int check_image_id(const Block& header) {
    if (header[0] != 0x7B || header[1] != 0x19 || header[3] != kChipId) {
        print("ERR : chkbinfile, binfile ID error (%02Xh %02X%02Xh)\n", header[3], header[1],
              header[0]);
        return -1;
    }
    print("INFO: Binfile ID = %02Xh %02X%02Xh\n", header[3], header[1], header[0]);
    return 0;
}

// A mismatch only warns.
void compare_revision(const Block& header) {
    if (header[2] == g_bridge.revision) {
        print("INFO: Revision ID = %02Xh\n", g_bridge.revision);
        return;
    }
    print("WRN : chkbinfile, revision ID is mismatch (JMB39X = %02Xh, binfile = %02Xh)\n",
          g_bridge.revision, header[2]);
    print("      continue!");
}

int check_bonding(const Block& header) {
    int result = read_bridge_register(kBondingHigh);
    if (result < 0) return say(result, "ERR : chkbinfile, read JMB39X fail1");
    const unsigned high = register_value();
    result = read_bridge_register(kBondingLow);
    if (result < 0) return say(result, "ERR : chkbinfile, read JMB39X fail2");
    const unsigned bonding = (register_value() | high << 2) & 0xFF;
    if (bonding != header[4]) {
        print("ERR : chkbinfile, bonding is mismatch (JMB39X = %02Xh, binfile = %02Xh)\n", bonding,
              header[4]);
        return -1;
    }
    print("INFO: Bonding = %02Xh\n", bonding);
    return result;
}

int check_length(const Block& header) {
    const std::uint32_t expected = (word_at(&header[8]) & 0xFFFF) + (word_at(&header[12]) & 0xFFFF);
    if (expected != g_bridge.length) {
        print("ERR : Binfine length is mismatch (exp: %d, act: %d)\n", expected, g_bridge.length);
        return -1;
    }
    print("INFO: Binfile length = %d bytes\n", g_bridge.length);
    return 0;
}

int chkbinfile() {
    g_bridge.length = static_cast<std::uint32_t>(platform::lseek(g_bridge.firmware, 0, SEEK_END));
    rewind_file();
    if (g_bridge.length % 4 != 0) {
        print("ERR : chkbinfile, length of binfile isn't alignment (%d)\n", g_bridge.length);
        return -1;
    }
    Block header{};
    const ssize_t count = platform::pread(g_bridge.firmware, header.data(), header.size(), 0);
    if (count < 0) {
        print("ERR : chkbinfile, read binfile fail (%d)\n", errno);
        return -1;
    }
    if (count < 32) {
        return say(-1, "ERR : chkbinfile, too few data when read binfile (< 32 bytes)");
    }
    if (check_image_id(header) < 0) return -1;
    compare_revision(header);
    const int result = check_bonding(header);
    return result < 0 ? result : check_length(header);
}

// chk0: whether the flash can be erased, written and read.
int try_test_pattern() {
    int result = disableflashWP();
    if (result < 0) return say(result, "ERR : chkflashsts, disableflashWP fail");
    result = eraseflash();
    if (result < 0) return say(result, "ERR : chkflashsts, eraseflash fail");
    result = writeflash(0, kTestPattern, 4);
    if (result < 0) return say(result, "ERR : chkflashsts, writeflash fail");
    std::uint32_t words[4];
    result = readflash(0, words, 4);
    if (result < 0) return say(result, "ERR : chkflashsts, readflash fail");
    if (!std::equal(std::begin(words), std::end(words), std::begin(kTestPattern))) {
        print("ERR : chkflashsts, chk0 fail, (%08X %08X %08X %08X)\n", words[0], words[1], words[2],
              words[3]);
        return -1;
    }
    return say(0, "INFO: Flash is found by chk0");
}

// 1 when the flash holds an image for this chip, 0 when it passed chk0, negative on failure.
int chkflashsts() {
    const int result = spiREAD(0);
    if (result < 0) return say(result, "ERR : chkflashsts, spiREAD fail (00000000h)");
    const std::uint32_t image = 0x7Bu | 0x19u << 8
                                | static_cast<std::uint32_t>(g_bridge.revision) << 16
                                | static_cast<std::uint32_t>(kChipId) << 24;
    if (g_bridge.data == image) return say(1, "INFO: Flash is found by chk1");
    print("WRN : chkflashsts, chk1 fail, try chk0 (%08X)\n", g_bridge.data);
    return try_test_pattern();
}

// Upload and verification.

// Progress of a walk through the file.
struct Progress {
    std::uint32_t offset = 0;      // in the flash
    std::uint32_t bytes_read = 0;  // of the file
    int result = 0;
};

// Programs a block read from the file.
bool upload_block(const Block& block, std::size_t size, Progress& progress) {
    for (std::size_t i = 0; i < size; i += 4) {
        const std::uint32_t word = word_at(&block[i]);
        if (writeflash(progress.offset, &word, 1) < 0) {
            print("ERR : uploadcode, writeflash fail (%08Xh)\n", progress.offset);
            progress.result = -1;
            return false;
        }
        progress.offset += 4;
    }
    return true;
}

// Compares a block read from the file with the flash.
bool verify_block(const Block& block, std::size_t size, Progress& progress) {
    for (std::size_t i = 0; i < size; i += 4) {
        std::uint32_t word = 0;
        if (readflash(progress.offset, &word, 1) < 0) {
            print("ERR : verifycode, readflash fail (%08Xh)\n", progress.offset);
            progress.result = -1;
            return false;
        }
        if (word != word_at(&block[i])) {
            print(
                "WRN : verifycode, verify fail (%08Xh) (JMB39X = %08Xh, binfile = "
                "%02X%02X%02X%02Xh)\n",
                progress.offset, word, block[i + 3], block[i + 2], block[i + 1], block[i]);
            return false;
        }
        progress.offset += 4;
    }
    return true;
}

// Walks through the file block by block, with a dot for each, until a block or a read fails.
Progress walk_file(const char* routine, bool (*act)(const Block&, std::size_t, Progress&)) {
    Progress progress;
    for (;;) {
        Block block;
        block.fill(0xFF);
        const ssize_t count = read_block(block);
        if (count < 0) {
            print("ERR : %s, read binfile fail (%08Xh)\n", routine, progress.offset);
            progress.result = -1;
            return progress;
        }
        if (count == 0) {
            print_line("");
            return progress;
        }
        progress.bytes_read += static_cast<std::uint32_t>(count);
        if (!act(block, static_cast<std::size_t>(count), progress)) return progress;
        print(".");
    }
}

int uploadcode() {
    int result = disableflashWP();
    if (result < 0) return say(result, "ERR : uploadcode, disableflashWP fail");
    result = eraseflash();
    if (result < 0) return say(result, "ERR : uploadcode, eraseflash fail");
    rewind_file();
    print("INFO: Upload flash #%d\n", g_bridge.flash + 1);
    const Progress progress = walk_file("uploadcode", upload_block);
    print("INFO: Total upload size = %d\n", progress.offset);
    const bool complete =
        progress.offset == g_bridge.length && progress.bytes_read == g_bridge.length;
    if (!complete) return say(-1, "ERR : uploadcode, upload not complete");
    return say(progress.result, "INFO: Upload complete");
}

// 1 when the flash equals the whole file, 0 when it differs, -1 on a read error.
int verifycode() {
    rewind_file();
    print("INFO: Verify flash #%d\n", g_bridge.flash + 1);
    const Progress progress = walk_file("verifycode", verify_block);
    print("INFO: Total verify size = %d\n", progress.offset);
    if (progress.offset == g_bridge.length) return say(1, "INFO: Verify complete");
    return say(progress.result, "WRN : verifycode, verify not complete");
}

// The steps from the chip to the upload; negative when one of them failed.
int check_and_upload() {
    int result = chk39xdev();
    if (result < 0) return say(result, "ERR : main, check 39x device fail");
    result = chkbinfile();
    if (result < 0) return say(result, "ERR : main, check binary file fail");
    const int status = chkflashsts();
    if (status < 0) return say(status, "ERR : main, check flash status fail");
    g_bridge.flash = 0;
    if (status == 1) {
        result = verifycode();
        if (result < 0) return say(result, "ERR : main, verifycode fail");
        if (result == 1) {
            print("INFO: Flash #%d is the same as binary file\n", g_bridge.flash + 1);
            return result;
        }
    }
    result = uploadcode();
    if (result < 0) return say(result, "ERR : main, uploadcode fail");
    g_pmp_updated = 1;
    return result;
}

}  // namespace

int pmpupdate(platform::Descriptor& disk) {
    g_pmp_updated = 0;
    platform::Descriptor firmware(platform::open(kFirmwarePath, O_RDONLY));
    if (!firmware.is_open()) return say(-1, "ERR : open config binfile fail");
    if (!disk.is_open()) print_line("ERR:the sata fd is error");
    g_bridge.firmware = firmware.get();
    g_bridge.disk = disk.get();
    const int result = check_and_upload();
    firmware.close();
    disk.close();
    print_line("INFO: Finish");
    return result >= 0 ? 0 : -1;
}
