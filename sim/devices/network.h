// The network ports, as ethtool shows them through a datagram socket.
#pragma once

#include "sim/device.h"

namespace sim {

struct Link {
    bool up = false, full_duplex = true;
    std::uint16_t speed = 1000;  // Mbit/s
};

struct NetworkPort {
    bool present = true;
    bool ethtool = true;  // its driver answers ethtool queries
    Link copper, fibre;   // as the port selector has it
};

extern const Device& network_device;

long open_socket(int domain, int type, int protocol);  // result as of a Device

}  // namespace sim
