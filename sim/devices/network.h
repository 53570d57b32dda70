// The network ports, as ethtool shows them through a datagram socket.
#pragma once

#include <cstdint>

#include "sim/device.h"

namespace sim {

class Keys;

struct Link {
    bool up = false, full_duplex = true;
    std::uint16_t speed = 1000;  // Mbit/s
};

struct NetworkPort {
    bool present = true;
    bool ethtool = true;  // its driver answers ethtool queries
    Link copper, fibre;   // as the port selector has it
};
void describe(Keys& keys, NetworkPort& port);

extern const Device& socket_device;

}  // namespace sim
