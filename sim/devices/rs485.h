// The RS-485 fixture on its serial line, /dev/ttyS0.
#pragma once

#include <cstdint>
#include <set>
#include <string_view>
#include <vector>

#include "sim/devices/serial.h"

namespace sim {

struct Rs485 {  // on /dev/ttyS0
    SerialPort port;
    bool fixture = true;
    // By the number of the byte, counted from 0 since the start; and every so many bytes.
    std::set<std::uint32_t> corrupt, drop, repeat, insert;
    std::uint32_t corrupt_every = 0, drop_every = 0;
    double delay = 0;
    std::vector<std::uint32_t> pieces;  // group sizes of the echo, used in turn
};

struct FixtureState {
    bool switches[2];             // of the line, at the control device
    std::uint32_t bytes, pieces;  // so far
};

extern const Device& rs485_device;

// Receives what the product sent, whose first byte is complete at this time.
void fixture_receives(std::string_view bytes, Microseconds at);

}  // namespace sim
