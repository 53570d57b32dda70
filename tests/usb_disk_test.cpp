#include "tests/usb_disk_test.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "driver/report.h"
#include "driver/results.h"
#include "platform/print.h"
#include "tests/directory_stream.h"

namespace {

constexpr char kModule[] = "usb_disk_test";
constexpr std::size_t kNameSize = sizeof DiskNames{}.names[0];
constexpr std::uint64_t kReservedBlocks = 5000;

bool exists(const char* path) { return platform::access(path) == 0; }

std::uint32_t count_mice() {
    std::uint32_t count = 0;
    for (const char* mouse : {"/dev/input/mouse0", "/dev/input/mouse1", "/dev/input/mouse2"}) {
        if (exists(mouse)) ++count;
    }
    return count;
}

DiskNames read_disk_names(DirectoryStream& directory) {
    DiskNames disks{};
    while (!disks.is_full()) {
        const char* name = directory.next();
        if (name == nullptr) break;
        take_disk_name(disks, name);
    }
    return disks;
}

struct DiskPaths {
    char device[64], mount_point[64];

    explicit DiskPaths(const char* name) {
        std::snprintf(device, sizeof device, "/dev/%s", name);
        std::snprintf(mount_point, sizeof mount_point, "/mnt/%s", name);
    }
};

// Falls back to the shell's mkdir and mount.
void mount_disk(const DiskPaths& disk) {
    char command[160];
    if (platform::mkdir(disk.mount_point, 0777) != 0) {
        std::snprintf(command, sizeof command, "mkdir %s\n", disk.mount_point);
        platform::system(command);
    }
    if (platform::mount(disk.device, disk.mount_point, "vfat") != 0) {
        std::snprintf(command, sizeof command, "mount -t vfat %s  %s\n", disk.device,
                      disk.mount_point);
        platform::system(command);
    }
}

// In MiB; 0 for a disk with fewer free blocks than those reserved.
std::int32_t free_space(const struct statfs& statistics) {
    const std::uint64_t blocks = statistics.f_bfree;
    if (blocks < kReservedBlocks) return 0;
    const auto block_size = static_cast<std::uint64_t>(statistics.f_bsize);
    return static_cast<std::int32_t>((blocks - kReservedBlocks) / 1024 * block_size / 1024);
}

void examine_disk(const char* name) {
    const DiskPaths disk(name);
    mount_disk(disk);
    struct statfs statistics {};
    if (platform::statfs(disk.mount_point, &statistics) != 0) {
        report(kModule, "Failed to statfs");
        --results.usb_ports_found;
        platform::umount(disk.mount_point);
        return;
    }
    platform::umount(disk.mount_point);
    platform::rmdir(disk.mount_point);
    report(kModule, "%s 剩余空间 = %dM\n", disk.device, free_space(statistics));
}

// A device on a root port of the SuperSpeed hub, bus 4, or of the high-speed one, bus 3.
void show_rear_ports() {
    if (exists("/sys/bus/usb/devices/4-1:1.0")) {
        print_line("后面板上面的USB口插着的U盘是3.0U盘");
    } else if (exists("/sys/bus/usb/devices/3-1:1.0")) {
        print_line("后面板上面的USB口插着的U盘是2.0U盘或者鼠标");
    } else {
        print_line("后面板上面的USB口没有插U盘");
    }
    if (exists("/sys/bus/usb/devices/4-2:1.0")) {
        print_line("后面板下面的USB口插着的U盘是3.0U盘");
    } else if (exists("/sys/bus/usb/devices/3-2:1.0")) {
        print_line("后面板下面的USB口插着的U盘是2.0U盘或者鼠标");
    } else {
        print_line("后面板下面的USB口没有插U盘");
    }
}

}  // namespace

bool has_digit(const char* name) {
    return name != nullptr && std::strpbrk(name, "0123456789") != nullptr;
}

void take_disk_name(DiskNames& disks, const char* name) {
    if (name[0] != 'm' || name[1] != 's' || name[2] == 'm') return;
    if (disks.count > 0) {
        char* previous = disks.names[disks.count - 1];
        const bool same_disk = std::strncmp(previous, name, 3) == 0;
        if (same_disk && has_digit(name)) {
            std::snprintf(previous, kNameSize, "%s", name);
            return;
        }
        if (same_disk && has_digit(previous)) return;
    }
    std::snprintf(disks.names[disks.count++], kNameSize, "%s", name);
}

int usb_test() {
    results.usb_ports_found = 0;
    DirectoryStream directory("/dev");
    if (!directory.is_open()) {
        print_system_error("/dev");
        results.usb_ports_found = 1;
        return -1;
    }
    results.usb_ports_found += count_mice();
    const DiskNames disks = read_disk_names(directory);
    if (disks.count == 0) {
        report(kModule, "没有接usb\n");
        return -1;
    }
    results.usb_ports_found += static_cast<std::uint32_t>(disks.count);
    for (std::size_t i = 0; i < disks.count; ++i)
        examine_disk(disks.names[i]);
    show_rear_ports();
    return 0;
}
