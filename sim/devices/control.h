// The control device, /dev/zebio, and the hardware block: what the board says it is fitted with.
#pragma once

#include <set>

#include "sim/device.h"

namespace sim {

struct ControlDevice {
    bool present = false;
    bool watchdog_bites = true;
    std::uint16_t boot_device_type = 0;
    std::set<std::uint8_t> high_lines;  // that something outside drives; it drives the others low
};

std::map<std::string, std::uint32_t> preset_hardware();  // fields of the block, by key

struct Control {
    std::uint8_t level[256], direction[256];
    Microseconds watchdog_expires;  // kNever = not running
};

extern const Device& control_device;

}  // namespace sim
