// The control device, /dev/zebio.
//
// Lines: each has a level and a direction. An output reads as last driven, an input as driven from
// outside.
// Watchdog: stopped -> a time-out starts it -> it expires and restarts the board. A new time-out
// restarts it; request 0x22 with 0 stops it.
// Other requests go to the device that serves them.
#include "sim/devices/control.h"

#include <cstring>

#include "sim/devices/alarm.h"
#include "sim/little_endian.h"
#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

enum Request : std::uint32_t {
    kSetLine = 0x01,
    kSetDirection = 0x03,
    kGetLine = 0x06,
    kGetBootParameters = 0x10,
    kSetWatchdog = 0x20,
    kStopWatchdog = 0x22,
};

constexpr std::size_t kBlockSize = 256;  // of the boot parameters

long get_boot_parameters(Argument& argument) {
    std::uint8_t block[kBlockSize];
    std::memset(block, 0x5A, sizeof block);  // bytes without a meaning are not 0
    put_half_word(block + 100, scenario->control.boot_device_type);
    return argument.write(block, sizeof block);
}

long set_line(std::uint32_t argument) {
    const std::uint8_t line = argument & 0xFF;
    const std::uint8_t level = argument >> 8 & 0xFF;
    if (world->control.level[line] != level) note("line", "%u=%u", line, level);
    world->control.level[line] = level;
    return 0;
}

long get_line(std::uint32_t argument) {
    const std::uint8_t line = argument & 0xFF;
    if (world->control.direction[line] == 1) return scenario->control.high_lines.count(line) != 0;
    return world->control.level[line];
}

long set_watchdog_timeout(std::uint32_t seconds) {
    if (scenario->control.watchdog_bites)
        world->control.watchdog_expires = world->now + from_ms(1000) * seconds;
    note("watchdog", "%u s", seconds);
    return 0;
}

long stop_watchdog(std::uint32_t value) {
    if (value != 0) return -EINVAL;
    world->control.watchdog_expires = kNever;
    note("watchdog", "stopped");
    return 0;
}

void describe_control(Keys& keys, ControlDevice& control) {
    keys.key("present", control.present, "/dev/zebio exists");
    keys.key("watchdog_bites", control.watchdog_bites,
             "false: it accepts a time-out and never restarts the board");
    keys.key("boot_device_type", control.boot_device_type,
             "device type in the boot parameters; 0x4487, 0x448F, 0x4497 and 0x449F have no RS-485 "
             "step, and alarm I/O by control line 25");
    keys.key("high_lines", control.high_lines,
             "control lines that something outside drives high; it drives the others low");
}

class ControlNode final : public Device {
  public:
    void describe(Keys& keys, Board& board) const override {
        keys.table("control", board.control, describe_control);
    }

    void start() const override {
        std::memset(world->control.level, 1, sizeof world->control.level);
        world->control.watchdog_expires = kNever;
    }

    int find(std::string_view path) const override {
        return scenario->control.present && path == "/dev/zebio" ? 0 : -1;
    }

    Microseconds acts_at() const override { return world->control.watchdog_expires; }

    void act() const override {
        world->control.watchdog_expires = kNever;
        note("watchdog", "expired: the board restarts");
        world->restarted = true;
        stop_run("the watchdog restarted the board in the middle of the run");
    }

    void list(std::vector<std::string>& names) const override {
        if (scenario->control.present) names.push_back("zebio");
    }

    long write(OpenFile&, const void* data, std::size_t size) const override {
        std::uint32_t mask = 0;
        if (size != sizeof mask) return -EINVAL;
        std::memcpy(&mask, data, size);
        drive_alarm_outputs(mask);
        return static_cast<long>(size);
    }

    long ioctl(OpenFile&, std::uint32_t request, Argument& argument) const override {
        switch (request) {
        case kSetLine:
            return set_line(argument.value);
        case kSetDirection:
            world->control.direction[argument.value & 0xFF] = argument.value >> 8 & 0xFF;
            return 0;
        case kGetLine:
            return get_line(argument.value);
        case kGetBootParameters:
            return get_boot_parameters(argument);
        case kSetWatchdog:
            return set_watchdog_timeout(argument.value);
        case kStopWatchdog:
            return stop_watchdog(argument.value);
        default:
            break;
        }
        long result = -ENOTTY;
        for (const Device* device : all_devices())
            if (result == -ENOTTY) result = device->control(request, argument);
        return result;
    }
};

const ControlNode control_node;

}  // namespace

const Device& ControlRow::device = control_node;

}  // namespace sim
