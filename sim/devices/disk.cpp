// SATA, eSATA and miniSAS disks: identity, size, and pass-through requests to their bridge.
#include "sim/devices/disk.h"

#include <algorithm>
#include <iterator>

#include "sim/clock.h"
#include "sim/devices/bridge.h"
#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

constexpr std::uint32_t kDriveCommand = 0x031F;  // HDIO_DRIVE_CMD
constexpr std::uint32_t kGetSectors = 0x1260;    // BLKGETSIZE
constexpr std::uint32_t kGetBytes = 0x80041272;  // BLKGETSIZE64 of a 32-bit kernel
constexpr std::uint32_t kPassThrough = 0x197B;
constexpr std::size_t kRegisters = 4;  // of a drive command, before its data
constexpr Names kNames{"NODE", "sd[a-z] esd[a-z] sas*"};

const Disk& disk_at(int index) { return std::next(scenario->disks.begin(), index)->second; }

// ATA strings are padded with blanks, and the two bytes of each word are swapped.
void put_string(std::uint8_t* words, const std::string& text, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        words[i ^ 1] = i < text.size() ? static_cast<std::uint8_t>(text[i]) : ' ';
    }
}

// HDIO_DRIVE_CMD with IDENTIFY DEVICE; the four register bytes stay as they were sent.
long identify(const Disk& disk, Argument& argument) {
    const std::uint8_t* const command = argument.block;
    if (!disk.identify || command[0] != 0xEC || command[3] != 1) return -EIO;
    std::uint8_t answer[kRegisters + 512] = {};
    std::copy_n(command, kRegisters, answer);
    std::uint8_t* const block = answer + kRegisters;
    put_string(block + 20, disk.serial, 20);
    put_string(block + 46, disk.firmware, 8);
    put_string(block + 54, disk.model, 40);
    std::copy_n(disk.identify_data.begin(), std::min<std::size_t>(disk.identify_data.size(), 512),
                block);
    return argument.write(answer, sizeof answer);
}

// As a 32-bit kernel: EFBIG above 2 TiB. Stored in the long of this machine.
long count_sectors(const Disk& disk, Argument& argument) {
    if (!disk.size) return -ENOTTY;
    const std::uint64_t sectors = disk.bytes / 512;
    if (sectors > 0xFFFFFFFF) return -EFBIG;
    const auto stored = static_cast<unsigned long>(sectors);
    return argument.write(&stored, sizeof stored);
}

// Accepts the bridges read so far.
Codec bridge_of(const std::map<std::string, Bridge>& bridges, Disk& disk) {
    std::string names = "\"\"";
    for (const auto& [name, bridge] : bridges)
        names += " or \"" + name + "\"";
    return word("\"\" or the name of a bridge of this board: " + names, "\"\"",
                [&](const std::string& name) {
                    disk.bridge = name;
                    return name.empty() || bridges.count(name) != 0;
                });
}

void describe_disk(Keys& keys, Disk& disk, const std::map<std::string, Bridge>& bridges) {
    keys.key("present", disk.present, "the disk's node exists");
    keys.key("identify", disk.identify, "it answers IDENTIFY DEVICE");
    keys.key("size64", disk.size64, "it answers BLKGETSIZE64");
    keys.key("size", disk.size, "it answers BLKGETSIZE, which ends at 2 TiB");
    keys.key("identify_data", hexadecimal(disk.identify_data, 512),
             "the data of its answer from byte 0, in place of its texts");
    keys.key("model", disk.model, "model number", {0, 40});
    keys.key("serial", disk.serial, "serial number", {0, 20});
    keys.key("firmware", disk.firmware, "firmware revision", {0, 8});
    keys.key("bytes", disk.bytes, "its size");
    keys.key("request_time", disk.request_time,
             "seconds that a request for its texts or size takes");
    keys.key("bridge", bridge_of(bridges, disk), "bridge that it lies behind; \"\" = none");
}

class DiskNodes final : public Device {
  public:
    void describe(Keys& keys, Board& board) const override {
        keys.named("disks", kNames, board.disks,
                   [&](Keys& sub, Disk& disk) { describe_disk(sub, disk, board.bridges); });
    }

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

    long ioctl(OpenFile& file, std::uint32_t request, Argument& argument) const override {
        const Disk& disk = disk_at(file.index);
        if (!disk.present) return -ENODEV;  // it was pulled
        if (request != kPassThrough) spend_time(from_seconds(disk.request_time));
        switch (request) {
        case kDriveCommand:
            return identify(disk, argument);
        case kGetSectors:
            return count_sectors(disk, argument);
        case kGetBytes:
            if (!disk.size64) return -ENOTTY;
            return argument.write(&disk.bytes, sizeof disk.bytes);
        case kPassThrough:
            return pass_through(disk.bridge, argument);
        default:
            return -ENOTTY;
        }
    }

    std::size_t sent_size(std::uint32_t request) const override {
        return request == kPassThrough ? kRegisterBlock : request == kDriveCommand ? kRegisters : 0;
    }
};

const DiskNodes disks;

}  // namespace

const Device& DiskRow::device = disks;

}  // namespace sim
