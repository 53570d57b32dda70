// USB disks, mice, the device tree behind the rear ports, and the mount points under /mnt.
#pragma once

#include <set>

#include "sim/device.h"

struct statfs;

namespace sim {

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
};

struct MountPoint {
    std::string_view path;  // in the log; empty = free
    bool is_file;           // in the way
    int disk;               // that is mounted there, -1 = none

    bool is_used() const { return !path.empty(); }
};

extern const Device& usb_device;

// Directories and mount points. Results as of a Device.
long make_directory(std::string_view path);
long remove_directory(std::string_view path);
long mount_disk(std::string_view device, std::string_view directory, std::string_view type,
                bool by_shell);
long unmount(std::string_view directory);
long statistics(std::string_view path, struct statfs& statistics);
// The two commands that the product knows, mkdir and mount. Returns the wait status.
int run_shell(const std::string& command);

}  // namespace sim
