#include "tests/ata.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "platform/descriptor.h"
#include "platform/print.h"

namespace {

// Request numbers as the board's kernel has them; the kernel's own macros depend on the word size.
enum BlockRequest : std::uint32_t {
    kDriveCommand = 0x031F,  // HDIO_DRIVE_CMD
    kSectorCount = 0x1260,   // BLKGETSIZE
    kByteCount = 0x80041272  // BLKGETSIZE64
};

constexpr std::uint8_t kIdentifyDevice = 0xEC;
constexpr std::size_t kRegisterBytes = 4;

constexpr std::uint32_t kVersionUnknown = 0xFFFFFFFF;

// The words of ATA strings arrive with their two bytes swapped.
void put_in_reading_order(IdentifyBlock& block, std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; i += 2)
        std::swap(block[i], block[i + 1]);
}

int identify(int disk, IdentifyBlock& block) {
    std::array<std::uint8_t, kRegisterBytes + 512> command{};
    command[0] = kIdentifyDevice;
    command[3] = 1;  // one block of 512 bytes
    if (platform::ioctl(disk, kDriveCommand, command.data()) < 0) return -1;
    std::copy(command.begin() + kRegisterBytes, command.end(), block.begin());
    return 0;
}

std::uint32_t ask_kernel_version() {
    utsname names;
    if (platform::uname(&names) < 0) return 0;
    std::uint32_t version = 0;
    const char* text = names.release;
    for (const std::uint32_t weight : {65536, 256, 1}) {
        char* end = nullptr;
        version += weight * static_cast<std::uint32_t>(std::strtoll(text, &end, 10));
        if (end == text || (weight > 1 && *end != '.')) return 0;
        text = end + 1;
    }
    return version;
}

// 2.6.0 and later, and 2.4.18 to 2.4.255.
bool knows_byte_count(std::uint32_t version) {
    return static_cast<std::int32_t>(version) > 0x205FF
           || (version >= 0x20412 && version <= 0x204FF);
}

}  // namespace

int ata_identify(const char* path, IdentifyBlock& block) {
    if (path == nullptr) return -1;
    const platform::Descriptor disk(platform::open(path, O_RDWR | O_NONBLOCK));
    if (!disk.is_open()) return -1;
    const int result = identify(disk.get(), block);
    if (result < 0) print("send IDENTIFY DEVICE command, return %d\n", result);
    put_in_reading_order(block, 20, 40);  // serial number
    put_in_reading_order(block, 54, 94);  // model number
    put_in_reading_order(block, 46, 54);  // firmware revision
    return result;
}

std::uint32_t kernel_version() {
    static std::uint32_t version = kVersionUnknown;
    if (version == kVersionUnknown) version = ask_kernel_version();
    return version;
}

int blk_size64(int fd, std::uint64_t* size) {
    if (knows_byte_count(kernel_version()) && platform::ioctl(fd, kByteCount, size) >= 0) return 0;
    unsigned long sectors = 0;  // the kernel stores its own long; the count is the low 32 bits
    if (platform::ioctl(fd, kSectorCount, &sectors) < 0) return -1;
    *size = static_cast<std::uint64_t>(static_cast<std::uint32_t>(sectors)) * 512;
    return 0;
}

std::uint64_t disk_size(const char* path) {
    if (path == nullptr) {
        print_line("invalid devName");
        return kNoSize;
    }
    const platform::Descriptor disk(platform::open(path, O_RDONLY));
    if (!disk.is_open()) {
        print("Can not open %s \n", path);
        return kNoSize;
    }
    std::uint64_t size = 0;
    if (blk_size64(disk.get(), &size) < 0) {
        print("Can not get %s size \n", path);
        return kNoSize;
    }
    return size;
}
