// The control device, /dev/zebio.
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

struct Control {
    std::uint8_t level[256], direction[256];
    Microseconds watchdog_expires;  // kNever = not running
};

extern const Device& control_device;

}  // namespace sim
