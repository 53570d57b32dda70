// USB disks, mice, the device tree behind the rear ports, and the mount points under /mnt.
//
// Mounting on a mount point in use and removing one both fail with EBUSY. A directory without a mount
// shows the statistics of the file system that holds /mnt.
#include "sim/devices/usb.h"

#include <sys/vfs.h>
#include <unistd.h>

#include <cstring>
#include <iterator>

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

constexpr int kFirstMouse = 1000, kFirstDevice = 2000;
constexpr std::string_view kMouse = "/dev/input/mouse";
constexpr std::string_view kMnt = "/mnt/";
constexpr std::string_view kTree = "/sys/bus/usb/devices/";

// The place of the present item of this name; -1 = none.
template <class Item>
int place_of(const std::map<std::string, Item>& items, std::string_view name) {
    const auto found = items.find(std::string(name));
    if (found == items.end() || !found->second.present) return -1;
    return static_cast<int>(std::distance(items.begin(), found));
}

int disk_at(std::string_view path) {
    constexpr std::string_view kFolder = "/dev/";
    return path.starts_with(kFolder) ? place_of(scenario->usb.disks, path.substr(kFolder.size()))
                                     : -1;
}

const UsbDisk& disk(int place) { return std::next(scenario->usb.disks.begin(), place)->second; }

MountPoint* point_at(std::string_view path) {
    for (MountPoint& point : world->usb.points) {
        if (point.path != 0 && path == world->log.text + point.path) return &point;
    }
    return nullptr;
}

void describe_disk(Keys& keys, UsbDisk& disk) {
    keys.key("present", disk.present, "it is plugged in");
    keys.key("mount",
             choice(disk.mount, {{"works", UsbDisk::Mount::works},
                                 {"by shell", UsbDisk::Mount::by_shell},
                                 {"no file system", UsbDisk::Mount::no_file_system},
                                 {"no driver", UsbDisk::Mount::no_driver}}),
             "what can mount it");
    keys.key("free_blocks", disk.free_blocks, "free blocks of its file system");
    keys.key("block_size", disk.block_size, "bytes in a block");
}

void describe_device(Keys& keys, UsbDevice& device) {
    keys.key("present", device.present, "it is plugged in");
}

void describe_left(Keys& keys, const char* key, std::set<std::string>& paths, const char* meaning) {
    keys.key(key, paths, meaning);
    for (const std::string& path : paths) {
        if (!matches("/mnt/*", path) || paths.size() > kMostDirectories)
            keys.refuse(key, key + (" takes at most " + std::to_string(kMostDirectories))
                                 + " paths /mnt/NAME and not \"" + path + "\"");
    }
}

constexpr Names kSticks{"NODE", "ms[a-z] ms[a-z][0-9]"};
constexpr Names kDevices{"NAME", "[0-9]-[0-9]:[0-9].[0-9]"};

void describe_usb(Keys& keys, Usb& usb) {
    keys.start_only({"directories", "files", "mounted"});
    keys.named("disks", kSticks, usb.disks, describe_disk);
    keys.named("devices", kDevices, usb.devices, describe_device);
    keys.key("mice", usb.mice, "nodes /dev/input/mouse0 and up", {0, 10});
    describe_left(keys, "directories", usb.directories, "empty directories left from earlier");
    describe_left(keys, "files", usb.files, "files left from earlier, in the way of a directory");
    describe_left(keys, "mounted", usb.mounted, "directories with the disk of this name mounted");
    keys.key("mount_time", usb.mount_time, "seconds that a mount takes");
    keys.key("shell_time", usb.shell_time, "seconds that a shell command takes");
    keys.key("host_free_blocks", usb.host_free_blocks,
             "free blocks, of 1 KiB, of the file system that holds /mnt");
}

class UsbNodes final : public Device {
  public:
    void describe(Keys& keys, Board& board) const override {
        keys.table("usb", board.usb, describe_usb);
    }

    void start() const override {
        const Usb& described = scenario->usb;
        for (const auto* paths : {&described.directories, &described.files, &described.mounted}) {
            for (const std::string& path : *paths)
                make_directory(path);
        }
        for (const std::string& path : described.files)
            point_at(path)->is_file = true;
        for (const std::string& path : described.mounted)
            point_at(path)->disk =
                static_cast<std::int16_t>(place_of(described.disks, path.substr(kMnt.size())));
    }

    int find(std::string_view path) const override {
        if (path.substr(0, kMouse.size()) == kMouse && path.size() == kMouse.size() + 1) {
            const int number = path.back() - '0';
            return number >= 0 && number < static_cast<int>(scenario->usb.mice)
                       ? kFirstMouse + number
                       : -1;
        }
        if (path.substr(0, kTree.size()) == kTree) {
            const int place = place_of(scenario->usb.devices, path.substr(kTree.size()));
            return place < 0 ? -1 : kFirstDevice + place;
        }
        return disk_at(path);
    }

    void list(std::vector<std::string>& names) const override {
        for (const auto& [node, stick] : scenario->usb.disks)
            if (stick.present) names.push_back(node);
    }
};

const UsbNodes usb_nodes;

}  // namespace

const Device& UsbRow::device = usb_nodes;

long make_directory(std::string_view path) {
    if (path.substr(0, 5) != "/mnt/") return -ENOENT;
    if (point_at(path) != nullptr) return -EEXIST;
    for (MountPoint& point : world->usb.points) {
        if (point.path != 0) continue;
        point = {keep(path), false, -1};
        return 0;
    }
    stop_here("more than %zu directories under /mnt", std::size(world->usb.points));
}

long remove_directory(std::string_view path) {
    MountPoint* point = point_at(path);
    if (point == nullptr) return -ENOENT;
    if (point->is_file) return -ENOTDIR;
    if (point->disk >= 0) return -EBUSY;
    point->path = 0;
    return 0;
}

long mount_disk(std::string_view device, std::string_view directory, std::string_view type,
                bool by_shell) {
    MountPoint* point = point_at(directory);
    const int place = disk_at(device);
    if (point == nullptr || place < 0) return -ENOENT;
    if (point->is_file) return -ENOTDIR;
    if (point->disk >= 0) return -EBUSY;
    if (type != "vfat") return -ENODEV;
    const UsbDisk::Mount mount = disk(place).mount;
    if (mount == UsbDisk::Mount::no_driver) return -ENXIO;
    if (mount == UsbDisk::Mount::no_file_system) return -EINVAL;
    if (mount == UsbDisk::Mount::by_shell && !by_shell) return -EINVAL;
    point->disk = static_cast<std::int16_t>(place);
    return 0;
}

long unmount(std::string_view directory) {
    MountPoint* point = point_at(directory);
    if (point == nullptr) return -ENOENT;
    if (point->disk < 0) return -EINVAL;
    point->disk = -1;
    return 0;
}

long statistics(std::string_view path, struct statfs& statistics) {
    const MountPoint* point = point_at(path);
    if (point == nullptr) return -ENOENT;
    statistics = {};
    statistics.f_bsize = 1024;
    statistics.f_bfree = static_cast<fsblkcnt_t>(scenario->usb.host_free_blocks);
    if (point->disk < 0) return 0;
    const UsbDisk& stick = disk(point->disk);
    statistics.f_bsize = static_cast<decltype(statistics.f_bsize)>(stick.block_size);
    statistics.f_bfree = stick.free_blocks;
    return 0;
}

// Prints an error as the board's shell does, on the standard error inherited from q7.
void complain(const std::string& what, long error) {
    const std::string text = what + ": " + std::strerror(static_cast<int>(-error)) + "\n";
    if (::write(STDERR_FILENO, text.data(), text.size()) < 0) stop_here("standard error is lost");
}

// The two commands that the product knows: "mkdir %s\n" and "mount -t vfat %s  %s\n".
int run_shell(std::string_view command) {
    constexpr std::string_view kMkdir = "mkdir ", kMount = "mount -t vfat ";
    constexpr int kFailed = 1 << 8, kUnknown = 127 << 8;
    if (command.empty() || command.back() != '\n') return kUnknown;
    command.remove_suffix(1);
    if (command.starts_with(kMkdir)) {
        const std::string path(command.substr(kMkdir.size()));
        const long made = make_directory(path);
        if (made == 0) return 0;
        complain("mkdir: can't create directory '" + path + "'", made);
        return kFailed;
    }
    if (!command.starts_with(kMount)) return kUnknown;
    command.remove_prefix(kMount.size());
    const std::size_t blanks = command.find("  ");
    if (blanks == std::string_view::npos) return kFailed;
    const std::string stick(command.substr(0, blanks)), path(command.substr(blanks + 2));
    const long mounted = mount_disk(stick, path, "vfat", true);
    if (mounted == 0) return 0;
    complain("mount: mounting " + stick + " on " + path + " failed", mounted);
    return kFailed;
}

}  // namespace sim
