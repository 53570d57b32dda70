// The control device, /dev/zebio.
//
// Lines: each has a level and a direction; an output shows what was last driven, an input what
// stands outside.
// Watchdog: stopped -> setting a time-out starts it -> it restarts the board when the time has
// passed; a new time-out starts it anew, request 0x22 with 0 stops it.
// Network port selector: copper (1) until fibre (2) is chosen.
// RS-485 switches: both off until their requests come with 1.
#include "sim/devices/control.h"

#include <cstring>

#include "sim/devices/alarm.h"
#include "sim/devices/bridge.h"
#include "sim/little_endian.h"
#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

using Block = std::uint8_t*;

enum Request : std::uint32_t {
    kSetLine = 0x01,
    kSetDirection = 0x03,
    kGetHardware = 0x04,
    kGetLine = 0x06,
    kRs485First = 0x07,
    kRs485Second = 0x08,
    kGetBootParameters = 0x10,
    kSetWatchdog = 0x20,
    kStopWatchdog = 0x22,
    kResetBridges = 0x52,
    kSelectNetPort = 0x81,
    kStartAlarm = 0x40026B91,
    kGetAlarmInputs = 0x80026B90,
};

constexpr std::size_t kBlockSize = 256;

// What q7 has no use for is not zero.
void fill_hardware_block(Block block) {
    std::memset(block, 0xA5, kBlockSize);
    for (const HardwareField& field : kHardwareFields) {
        const std::uint32_t mask = field.most() << field.low;
        const std::uint32_t value = scenario->hardware.at(field.key) << field.low;
        put_word(block + field.offset, (get_word(block + field.offset) & ~mask) | value);
    }
}

void fill_boot_parameters(Block block) {
    std::memset(block, 0x5A, kBlockSize);
    block[100] = static_cast<std::uint8_t>(scenario->control.boot_device_type);
    block[101] = static_cast<std::uint8_t>(scenario->control.boot_device_type >> 8);
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

long select_net_port(std::uint32_t port) {
    if (port != 1 && port != 2) return -EINVAL;
    world->control.net_port = port;
    return 0;
}

class ControlNode final : public Device {
  public:
    void start() const override {
        std::memset(world->control.level, 1, sizeof world->control.level);
        world->control.watchdog_expires = kNever;
        world->control.net_port = 1;
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

    long ioctl(OpenFile&, std::uint32_t request, Argument argument) const override {
        auto* const block = static_cast<Block>(argument.block);
        switch (request) {
        case kSetLine:
            return set_line(argument.value);
        case kSetDirection:
            world->control.direction[argument.value & 0xFF] = argument.value >> 8 & 0xFF;
            return 0;
        case kGetHardware:
            fill_hardware_block(block);
            return 0;
        case kGetLine:
            return get_line(argument.value);
        case kRs485First:
            world->control.rs485_first = argument.value == 1;
            return 0;
        case kRs485Second:
            world->control.rs485_second = argument.value == 1;
            return 0;
        case kGetBootParameters:
            fill_boot_parameters(block);
            return 0;
        case kSetWatchdog:
            return set_watchdog_timeout(argument.value);
        case kStopWatchdog:
            return stop_watchdog(argument.value);
        case kResetBridges:
            reset_bridges(argument.value);
            return 0;
        case kSelectNetPort:
            return select_net_port(argument.value);
        case kStartAlarm:
            return 0;
        case kGetAlarmInputs: {
            const std::uint16_t inputs = alarm_inputs();  // the upper half keeps what it was
            std::memcpy(block, &inputs, sizeof inputs);
            return 0;
        }
        default:
            return -ENOTTY;
        }
    }

    std::size_t answer_size(std::uint32_t request) const override {
        if (request == kGetAlarmInputs) return sizeof(std::uint16_t);
        return request == kGetHardware || request == kGetBootParameters ? kBlockSize : 0;
    }
};

const ControlNode control_node;

}  // namespace

const Device& control_device = control_node;

void describe(Keys& keys, ControlDevice& control) {
    keys.key("present", control.present, "/dev/zebio exists");
    keys.key("watchdog_bites", control.watchdog_bites,
             "false: it accepts a time-out and never restarts the board");
    keys.key("boot_device_type", control.boot_device_type,
             "device type in the boot parameters; 0x4487, 0x448F, 0x4497 and 0x449F have no RS-485 "
             "step, and alarm I/O by control line 25");
    keys.key("high_lines", control.high_lines,
             "control lines that something outside drives high; it drives the others low");
}

}  // namespace sim
