// USB disks, mice, the device tree behind the rear ports, and the mount points under /mnt.
//
// Mounting on a mount point in use and removing one both fail with EBUSY. A directory without a mount
// shows the statistics of the file system that holds /mnt.
#include "sim/devices/usb.h"

#include <sys/vfs.h>
#include <unistd.h>

#include <cstring>
#include <iterator>
#include <sstream>

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {

constexpr Names kSticks{"NODE", "ms[a-z] ms[a-z][0-9]"};
constexpr std::size_t kMostLeft = 8;  // of each kind
constexpr Names kTree{"NAME", "[0-9]-[0-9]:[0-9].[0-9]"};

static void describe(Keys& keys, UsbDisk& disk) {
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

static void describe(Keys& keys, UsbDevice& device) {
    keys.key("present", device.present, "it is plugged in");
}

static void describe_left(Keys& keys, const char* key, std::set<std::string>& paths,
                          const char* meaning) {
    keys.key(key, paths, meaning);
    for (const std::string& path : paths) {
        if (!matches("/mnt/*", path) || paths.size() > kMostLeft)
            keys.refuse(key, key + (" takes at most " + std::to_string(kMostLeft))
                                 + " paths /mnt/NAME and not \"" + path + "\"");
    }
}

static void describe(Keys& keys, Usb& usb) {
    keys.start_only({"directories", "files", "mounted"});
    keys.named("disks", kSticks, usb.disks);
    keys.named("devices", kTree, usb.devices);
    keys.key("mice", usb.mice, "nodes /dev/input/mouse0 and up", {0, 10});
    describe_left(keys, "directories", usb.directories, "empty directories left from earlier");
    describe_left(keys, "files", usb.files, "files left from earlier, in the way of a directory");
    describe_left(keys, "mounted", usb.mounted, "directories with the disk of this name mounted");
    keys.key("mount_time", usb.mount_time, "seconds that a mount takes");
    keys.key("shell_time", usb.shell_time, "seconds that a shell command takes");
}

namespace {

constexpr std::string_view kMountFolder = "/mnt/";
constexpr std::uint32_t kHostBlockSize = 1024, kHostFreeBlocks = 100'000;

// The disk with this node; -1 = none.
int disk_at(std::string_view node) {
    const int index = index_of(usb_device, node);  // the disks come first
    return index < std::ssize(scenario->usb.disks) ? index : -1;
}

const UsbDisk& stick(int place) { return std::next(scenario->usb.disks.begin(), place)->second; }

MountPoint* point_at(std::string_view path) {
    for (MountPoint& point : world->mount_points) {
        if (point.is_used() && point.path == path) return &point;
    }
    return nullptr;
}

MountPoint& add_point(std::string_view path) {
    return free_slot(world->mount_points, "directories under /mnt") = {keep(path), false, -1};
}

struct UsbNodes final : Device {
    void describe(Keys& keys, Board& board) const override { keys.table("usb", board.usb); }

    void start() const override {
        const Usb& usb = scenario->usb;
        for (const std::string& path : usb.mounted)
            add_point(path).disk = disk_at("/dev/" + path.substr(kMountFolder.size()));
        for (const std::string& path : usb.files)
            add_point(path).is_file = true;
        for (const std::string& path : usb.directories)
            add_point(path);
    }

    void places(const Places& tell) const override {
        tell_places(tell, "/dev/", scenario->usb.disks);
        tell_places(tell, "/sys/bus/usb/devices/", scenario->usb.devices);
        for (std::uint32_t i = 0; i < scenario->usb.mice; ++i)
            tell("/dev/input/mouse", std::string_view("0123456789").substr(i, 1));
    }
};

}  // namespace

const Device& usb_device = UsbNodes{};

long make_directory(std::string_view path) {
    if (!path.starts_with(kMountFolder)) return -ENOENT;
    if (point_at(path) != nullptr) return -EEXIST;
    add_point(path);
    return 0;
}

long remove_directory(std::string_view path) {
    MountPoint* point = point_at(path);
    if (point == nullptr) return -ENOENT;
    if (point->is_file) return -ENOTDIR;
    if (point->disk >= 0) return -EBUSY;
    point->path = {};
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
    const UsbDisk::Mount mount = stick(place).mount;
    if (mount == UsbDisk::Mount::no_driver) return -ENXIO;
    const bool works = mount == UsbDisk::Mount::works || by_shell;
    if (mount == UsbDisk::Mount::no_file_system || !works) return -EINVAL;
    point->disk = place;
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
    const UsbDisk* const mounted = point->disk < 0 ? nullptr : &stick(point->disk);
    statistics = {};
    statistics.f_bsize = mounted == nullptr ? kHostBlockSize : mounted->block_size;
    statistics.f_bfree = mounted == nullptr ? kHostFreeBlocks : mounted->free_blocks;
    return 0;
}

// The wait status of a shell command with this result. Prints an error as the board's shell does, on
// the standard error inherited from q7.
static int wait_status(const std::string& failure, long result) {
    if (result == 0) return 0;
    const std::string text = failure + ": " + std::strerror(static_cast<int>(-result)) + "\n";
    if (::write(STDERR_FILENO, text.data(), text.size()) < 0) stop_here("standard error is lost");
    return 1 << 8;
}

int run_shell(const std::string& command) {
    std::istringstream words(command);
    std::string name, option, type, disk, path;
    words >> name;
    if (name == "mkdir" && words >> path)
        return wait_status("mkdir: can't create directory '" + path + "'", make_directory(path));
    if (name == "mount" && words >> option >> type >> disk >> path)
        return wait_status("mount: mounting " + disk + " on " + path + " failed",
                           mount_disk(disk, path, type, true));
    return 127 << 8;
}

}  // namespace sim
