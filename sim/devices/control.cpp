// The control device, /dev/zebio.
//
// Lines: each has a level and a direction. An output reads as last driven, an input as driven from
// outside.
// Watchdog: stopped -> a time-out starts it -> it expires and restarts the board. A new time-out
// restarts it; request 0x22 with 0 stops it.
// Hardware block: what the board says it is fitted with.
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
    kGetHardware = 0x04,
    kGetLine = 0x06,
    kGetBootParameters = 0x10,
    kSetWatchdog = 0x20,
    kStopWatchdog = 0x22,
};

// A field of the 256-byte block of the hardware, little endian.
struct HardwareField {
    const char* key;
    int offset, high, low;  // of its word in the block; its bits in that word
    std::uint32_t preset;
    const char* meaning;

    std::uint32_t most() const { return 0xFFFFFFFFu >> (31 - high + low); }
};

constexpr HardwareField kHardwareFields[] = {
    // key           offset  bits    preset  meaning
    {"board_word", 0, 31, 0, 0, "bytes 0 to 3 of the hardware block"},
    {"presence", 4, 15, 0, 1, "presence word; 0xFFFF = no description"},
    {"model", 14, 15, 0, 0xB000, "model code; 0xB000 is a QM-45270"},
    {"memory", 16, 15, 0, 0xE09F, "memory word, where no key below names its bits"},
    {"arm_frequency", 16, 12, 12, 0, "0 = 1.3G, 1 = 1.6G"},
    {"memory_frequency", 16, 11, 11, 0, "0 = 667MHz, 1 = 800MHz"},
    {"memory_size", 16, 10, 8, 0, "0 = 3GB"},
    {"flash_size", 16, 6, 5, 0, "0 = 2MB+256MB"},
    {"second", 18, 15, 0, 0xFFFF, "second code word"},
    {"cpld_date", 20, 15, 0, 0, "packed date; 0x4DD5 is 2013-07-15"},
    {"channels", 24, 3, 0, 1, "channel count, also of network ports"},
    {"fitting", 26, 15, 0, 0x0C61, "fitting word, where no key below names its bits"},
    {"sata_layout", 26, 15, 12, 0,
     "SATA ports: 0 to 5 as they are, 6 = 8, 7 = 9, 8 = 17, 9 = 18, 10 = 25"},
    {"usb_layout", 26, 9, 8, 0, "2 = three USB ports, else four"},
    {"panel_type", 26, 7, 7, 0, "0 = with LCD, 1 = without"},
    {"device_type", 26, 4, 3, 0, "1 = DVS, 2 = NVR, else DVR"},
    {"esata", 26, 2, 1, 0, "eSATA ports"},
    {"alarm_inputs", 28, 15, 8, 0, "alarm inputs"},
    {"alarm_outputs", 28, 6, 0, 0, "alarm outputs"},
    {"storage", 32, 15, 0, 0x3FFF, "storage word, where minisas does not name its bits"},
    {"minisas", 32, 15, 14, 0, "miniSAS ports"},
};

long answer_hardware(Argument& argument) {
    std::uint8_t block[256];
    std::memset(block, 0xFF, sizeof block);  // what has no meaning is not 0
    for (const HardwareField& field : kHardwareFields) {
        std::uint8_t* const word = block + field.offset;
        const std::uint32_t mask = field.most() << field.low;
        const std::uint32_t value = scenario->hardware.at(field.key) << field.low;
        put_word(word, (get_word(word) & ~mask) | value);
    }
    return argument.write(block, sizeof block);
}

long ask_others(std::uint32_t request, Argument& argument) {
    for (const Device* device : kDevices) {
        const long result = device->control(request, argument);
        if (result != -ENOTTY) return result;
    }
    return -ENOTTY;
}

struct ControlNode final : Device {
    void describe(Keys& keys, Board& board) const override {
        keys.table("hardware", board.hardware, [](Keys& sub, auto& hardware) {
            for (const HardwareField& field : kHardwareFields)
                sub.key(field.key, hardware.at(field.key), field.meaning, {0, field.most()});
        });
        keys.table("control", board.control);
    }

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
        case kGetHardware:
            return answer_hardware(argument);
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

std::map<std::string, std::uint32_t> preset_hardware() {
    std::map<std::string, std::uint32_t> hardware;
    for (const HardwareField& field : kHardwareFields)
        hardware[field.key] = field.preset;
    return hardware;
}

}  // namespace sim
