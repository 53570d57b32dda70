// The RS-485 fixture on its serial line, /dev/ttyS0.
#pragma once

#include <cstdint>
#include <set>
#include <string_view>
#include <vector>

#include "sim/devices/serial.h"

namespace sim {

class Keys;

struct Rs485 {  // on /dev/ttyS0
    SerialPort port;
    bool fixture = true;
    // Bytes, counted from 0 since the start; and each so many.
    std::set<std::uint32_t> corrupt, drop, repeat, insert;
    std::uint32_t corrupt_every = 0, drop_every = 0;
    double delay = 0;
    std::vector<std::uint32_t> pieces;  // sizes in which the echo becomes readable, in turn
};
void describe(Keys& keys, Rs485& rs485);

struct FixtureState {
    std::uint32_t bytes, pieces;  // that have come so far
};

// What the product has sent; its first byte is complete at this time.
void fixture_receives(std::string_view bytes, Microseconds at);

}  // namespace sim
