// USB disks, mice, the device tree behind the rear ports, and the mount points under /mnt.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "sim/device.h"

struct statfs;

namespace sim {

constexpr std::size_t kMostDirectories = 8;  // under /mnt, left from earlier

struct UsbDisk {  // by the name of its node: "msa1"
    enum class Mount : std::uint8_t { works, by_shell, no_file_system, no_driver };

    bool present = true;
    Mount mount = Mount::works;
    std::uint64_t free_blocks = 0;
    std::uint32_t block_size = 4096;
};

struct UsbDevice {
    bool present = true;
};

struct Usb {
    std::map<std::string, UsbDisk> disks;      // in the order of the directory
    std::map<std::string, UsbDevice> devices;  // by their name in /sys/bus/usb/devices
    std::uint32_t mice = 0;
    // Under /mnt, left from earlier: empty directories, files, directories with their disk mounted.
    std::set<std::string> directories, files, mounted;
    double mount_time = 0.2, shell_time = 0.1;
    std::uint64_t host_free_blocks = 100'000;  // of the file system that holds /mnt, 1 KiB each
};

struct MountPoint {
    std::uint32_t path;  // in the text of the log; 0 = free
    bool is_file;        // in the way
    std::int16_t disk;   // that is mounted there, -1 = none
};

struct UsbState {
    MountPoint points[32];
};

extern const Device& usb_device;

// Directories and mount points. Results as of a Device.
long make_directory(std::string_view path);
long remove_directory(std::string_view path);
long mount_disk(std::string_view device, std::string_view directory, std::string_view type,
                bool by_shell);
long unmount(std::string_view directory);
long statistics(std::string_view path, struct statfs& statistics);
int run_shell(std::string_view command);  // wait status

}  // namespace sim
