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

const Disk& disk_at(int index) { return std::next(scenario->disks.rbegin(), index)->second; }

// ATA strings are padded with blanks, and the two bytes of each word are swapped.
std::string ata_string(std::string text, std::size_t size) {
    text.resize(size, ' ');
    for (std::size_t i = 0; i < size; i += 2)
        std::swap(text[i], text[i + 1]);
    return text;
}

// HDIO_DRIVE_CMD with IDENTIFY DEVICE; the four register bytes stay as they were sent.
long identify(const Disk& disk, Argument& argument) {
    const std::uint8_t* const command = argument.block;
    if (!disk.identify || command[0] != 0xEC || command[3] != 1) return -EIO;
    std::string data(512, '\0');
    data.replace(20, 20, ata_string(disk.serial, 20));
    data.replace(46, 8, ata_string(disk.firmware, 8));
    data.replace(54, 40, ata_string(disk.model, 40));
    data.replace(0, disk.identify_data.size(), disk.identify_data).resize(512);
    data.insert(data.begin(), command, command + kRegisters);
    return argument.write(data.data(), data.size());
}

// As a 32-bit kernel: EFBIG above 2 TiB. Stored in the long of this machine; the log keeps 32 bits.
long count_sectors(const Disk& disk, Argument& argument) {
    const auto sectors = static_cast<unsigned long>(disk.bytes / 512);
    if (!disk.size) return -ENOTTY;
    if (disk.bytes >> 41 != 0) return -EFBIG;
    argument.write(&sectors, sizeof sectors);
    argument.answer = argument.answer.substr(0, 4);
    return 0;
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
    std::vector<std::pair<std::string, std::string>> names{{"", ""}};
    for (const auto& [name, bridge] : bridges)
        names.emplace_back(name, name);
    keys.key("bridge", choice(disk.bridge, names),
             "bridge of this board that it lies behind; \"\" = none");
}

struct DiskNodes final : Device {
    void describe(Keys& keys, Board& board) const override {
        keys.named("disks", kNames, board.disks,
                   [&](Keys& sub, Disk& disk) { describe_disk(sub, disk, board.bridges); });
    }

    void places(const Places& tell) const override {
        const auto& disks = scenario->disks;  // the newest node first
        for (auto at = disks.rbegin(); at != disks.rend(); ++at)
            tell("/dev/", at->second.present ? std::string_view(at->first) : std::string_view());
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

}  // namespace

const Device& disk_device = DiskNodes{};

}  // namespace sim
