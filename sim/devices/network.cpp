// The network ports, queried with ethtool requests on a datagram socket. Each has a copper and a fibre
// side; the port selector connects one of them, initially copper.
#include "sim/devices/network.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cstring>

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {

static void describe(Keys& keys, Link& link) {
    keys.key("up", link.up, "the port has a link on this side of the selector");
    keys.key("speed", link.speed, "Mbit/s");
    keys.key("full_duplex", link.full_duplex, "full duplex, else half");
}

static void describe(Keys& keys, NetworkPort& port) {
    keys.key("present", port.present, "the interface exists");
    keys.key("ethtool", port.ethtool, "its driver answers ethtool queries");
    keys.table("copper", port.copper);
    keys.table("fibre", port.fibre);
}

namespace {

constexpr std::uint32_t kSelectPort = 0x81;  // of the control device
constexpr std::uint32_t kCopper = 1, kFibre = 2;
constexpr Names kNames{"NAME", "eth[0-3]"};

// Answers the query that lies at the block.
long answer(const Link& link, Argument& query) {
    ethtool_cmd settings;
    std::memcpy(&settings.cmd, query.block, sizeof settings.cmd);
    if (settings.cmd == ETHTOOL_GLINK) {
        const ethtool_value state{ETHTOOL_GLINK, link.up};
        return query.write(&state, sizeof state);
    }
    if (settings.cmd != ETHTOOL_GSET) return -EOPNOTSUPP;
    std::memcpy(&settings, query.block, sizeof settings);
    settings.speed = link.up ? link.speed : 65535;  // modern drivers: unknown
    settings.duplex = link.up ? link.full_duplex : 255;
    return query.write(&settings, sizeof settings);
}

struct Socket final : Device {
    void describe(Keys& keys, Board& board) const override {
        keys.named("ports", kNames, board.ports);
    }

    void start() const override { world->net_port = kCopper; }

    long ioctl(OpenFile&, std::uint32_t request, Argument& argument) const override {
        if (request != SIOCETHTOOL) return -ENOTTY;
        const auto* query = reinterpret_cast<const ifreq*>(argument.block);
        const auto port = scenario->ports.find(query->ifr_name);
        if (port == scenario->ports.end() || !port->second.present) return -ENODEV;
        if (!port->second.ethtool) return -EOPNOTSUPP;
        const bool fibre = world->net_port == kFibre;
        argument.block = reinterpret_cast<std::uint8_t*>(query->ifr_data);
        return answer(fibre ? port->second.fibre : port->second.copper, argument);
    }

    long control(std::uint32_t request, Argument& argument) const override {
        if (request != kSelectPort) return -ENOTTY;
        if (argument.value != kCopper && argument.value != kFibre) return -EINVAL;
        world->net_port = argument.value;
        return 0;
    }
};

}  // namespace

const Device& network_device = Socket{};

long open_socket(int domain, int type, int protocol) {
    if (domain != AF_INET) return -EAFNOSUPPORT;
    if (type != SOCK_DGRAM || protocol != 0) return -EPROTONOSUPPORT;
    return new_descriptor(network_device, 0, "socket");
}

}  // namespace sim
