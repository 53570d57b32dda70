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

static void describe(Keys& keys, ControlDevice& control) {
    keys.key("present", control.present, "/dev/zebio exists");
    keys.key("watchdog_bites", control.watchdog_bites,
             "false: it accepts a time-out and never restarts the board");
    keys.key("boot_device_type", control.boot_device_type,
             "device type in the boot parameters; 0x4487, 0x448F, 0x4497 and 0x449F have no RS-485 "
             "step, and alarm I/O by control line 25");
    keys.key("high_lines", control.high_lines,
             "control lines that something outside drives high; it drives the others low");
}

namespace {

enum Request : std::uint32_t {
    kSetLine = 0x01,
    kSetDirection = 0x03,
    kGetLine = 0x06,
    kGetBootParameters = 0x10,
    kSetWatchdog = 0x20,
    kStopWatchdog = 0x22,
};

long ask_others(std::uint32_t request, Argument& argument) {
    for (const Device* device : kDevices) {
        const long result = device->control(request, argument);
        if (result != -ENOTTY) return result;
    }
    return -ENOTTY;
}

struct ControlNode final : Device {
    void describe(Keys& keys, Board& board) const override { keys.table("control", board.control); }

    void start() const override {
        std::memset(world->control.level, 1, sizeof world->control.level);
        world->control.watchdog_expires = kNever;
    }

    void places(const Places& tell) const override {
        tell("/dev/", scenario->control.present ? "zebio" : "");
    }

    Microseconds acts_at() const override { return world->control.watchdog_expires; }

    void act() const override {
        world->control.watchdog_expires = kNever;
        note("watchdog", "expired: the board restarts");
        world->restarted = true;
        stop_run("the watchdog restarted the board in the middle of the run");
    }

    long write(OpenFile&, const void* data, std::size_t size) const override {
        std::uint32_t mask = 0;
        if (size != sizeof mask) return -EINVAL;
        std::memcpy(&mask, data, size);
        drive_alarm_outputs(mask);
        return static_cast<long>(size);
    }

    long ioctl(OpenFile&, std::uint32_t request, Argument& argument) const override {
        Control& control = world->control;
        const std::uint8_t line = argument.value & 0xFF, level = argument.value >> 8 & 0xFF;
        switch (request) {
        case kSetLine:
            if (control.level[line] != level) note("line", "%u=%u", line, level);
            control.level[line] = level;
            return 0;
        case kSetDirection:
            control.direction[line] = level;
            return 0;
        case kGetLine:
            if (control.direction[line] == 1) return scenario->control.high_lines.count(line) != 0;
            return control.level[line];
        case kGetBootParameters: {
            std::uint8_t block[256];
            std::memset(block, 0x5A, sizeof block);  // bytes without a meaning are not 0
            put_half_word(block + 100, scenario->control.boot_device_type);
            return argument.write(block, sizeof block);
        }
        case kSetWatchdog:
            if (scenario->control.watchdog_bites)
                control.watchdog_expires = world->now + from_ms(1000) * argument.value;
            note("watchdog", "%u s", argument.value);
            return 0;
        case kStopWatchdog:
            if (argument.value != 0) return -EINVAL;
            control.watchdog_expires = kNever;
            note("watchdog", "stopped");
            return 0;
        default:
            return ask_others(request, argument);
        }
    }
};

}  // namespace

const Device& control_device = ControlNode{};

}  // namespace sim
