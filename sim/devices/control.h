// The control device, /dev/zebio.
#pragma once

#include <cstdint>
#include <set>

#include "sim/device.h"
#include "sim/time.h"

namespace sim {

class Keys;

struct ControlDevice {
    bool present = false;
    bool watchdog_bites = true;
    std::uint16_t boot_device_type = 0;
    std::set<std::uint8_t> high_lines;  // that something outside drives; it drives the others low
};
void describe(Keys& keys, ControlDevice& control);

struct Control {
    std::uint8_t level[256], direction[256];
    Microseconds watchdog_expires;  // kNever = not running
    std::uint32_t watchdog_timeout_s, net_port;
    bool rs485_first, rs485_second;  // both switches of the RS-485 line
};

extern const Device& control_device;

}  // namespace sim
