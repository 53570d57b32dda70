// SATA, eSATA and miniSAS disks: identity, size, and the way to the bridge that they lie behind.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "sim/board.h"
#include "sim/devices.h"

namespace sim {
namespace {

const Disk& disk_at(int index) { return std::next(scenario->disks.begin(), index)->second; }

// ATA strings are filled with blanks, and the two bytes of each word are exchanged.
void put_string(std::uint8_t* words, const std::string& text, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        words[i ^ 1] = i < text.size() ? static_cast<std::uint8_t>(text[i]) : ' ';
    }
}

// HDIO_DRIVE_CMD with IDENTIFY DEVICE; the four register bytes stay as they were sent.
long identify(const Disk& disk, std::uint8_t* command) {
    if (!disk.identify || command[0] != 0xEC || command[3] != 1) return -EIO;
    std::uint8_t* block = command + 4;
    std::memset(block, 0, 512);
    put_string(block + 20, disk.serial, 20);
    put_string(block + 46, disk.firmware, 8);
    put_string(block + 54, disk.model, 40);
    std::copy_n(disk.identify_data.begin(), std::min<std::size_t>(disk.identify_data.size(), 512),
                block);
    return 0;
}

// As a 32-bit kernel has it: too large for its long beyond 2 TiB. It is stored as this one's.
long count_sectors(const Disk& disk, void* count) {
    if (!disk.size) return -ENOTTY;
    const std::uint64_t sectors = disk.bytes / 512;
    if (sectors > 0xFFFFFFFF) return -EFBIG;
    const auto stored = static_cast<unsigned long>(sectors);
    std::memcpy(count, &stored, sizeof stored);
    return 0;
}

class DiskNodes final : public Device {
  public:
    void start() const override { bridge_start(); }

    int find(std::string_view path) const override {
        int index = 0;
        for (const auto& [name, disk] : scenario->disks) {
            if (disk.present && path == "/dev/" + name) return index;
            ++index;
        }
        return -1;
    }

    void list(std::vector<std::string>& names) const override {
        // The newest node first.
        const auto& disks = scenario->disks;
        for (auto disk = disks.rbegin(); disk != disks.rend(); ++disk) {
            if (disk->second.present) names.push_back(disk->first);
        }
    }

    long ioctl(OpenFile& file, std::uint32_t request, Argument argument) const override {
        const Disk& disk = disk_at(file.index);
        switch (request) {
        case 0x031F:
            return identify(disk, static_cast<std::uint8_t*>(argument.block));
        case 0x1260:
            return count_sectors(disk, argument.block);
        case 0x80041272:
            if (!disk.size64) return -ENOTTY;
            std::memcpy(argument.block, &disk.bytes, sizeof disk.bytes);
            return 0;
        case 0x197B:
            return pass_through(disk.bridge, static_cast<std::uint8_t*>(argument.block));
        default:
            return -ENOTTY;
        }
    }
};

const DiskNodes disks;

}  // namespace

const Device& disk_device = disks;

}  // namespace sim
