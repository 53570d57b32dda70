// The network ports as ethtool shows them, through a datagram socket. Each has a copper and a fibre
// side; the control device's selector says which of them is connected.
#include "sim/devices/network.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>

#include "sim/devices/control.h"
#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

constexpr std::uint32_t kFibre = 2;

long answer(const Link& link, void* block) {
    switch (*static_cast<std::uint32_t*>(block)) {
    case ETHTOOL_GLINK:
        static_cast<ethtool_value*>(block)->data = link.up ? 1 : 0;
        return 0;
    case ETHTOOL_GSET: {
        auto* settings = static_cast<ethtool_cmd*>(block);
        settings->speed = link.up ? link.speed : 65535;  // modern drivers: unknown
        settings->duplex = link.up ? link.full_duplex : 255;
        return 0;
    }
    default:
        return -EOPNOTSUPP;
    }
}

class Socket final : public Device {
  public:
    int find(std::string_view) const override { return -1; }

    long ioctl(OpenFile&, std::uint32_t request, Argument argument) const override {
        if (request != SIOCETHTOOL) return -ENOTTY;
        const auto* query = static_cast<const ifreq*>(argument.block);
        const auto port = scenario->ports.find(query->ifr_name);
        if (port == scenario->ports.end() || !port->second.present) return -ENODEV;
        if (!port->second.ethtool) return -EOPNOTSUPP;
        const bool fibre = world->control.net_port == kFibre;
        return answer(fibre ? port->second.fibre : port->second.copper, query->ifr_data);
    }
};

const Socket socket;

void describe_link(Keys& keys, Link& link) {
    keys.key("up", link.up, "the port has a link on this side of the selector");
    keys.key("speed", link.speed, "Mbit/s");
    keys.key("full_duplex", link.full_duplex, "full duplex, else half");
}

}  // namespace

const Device& socket_device = socket;

void describe(Keys& keys, NetworkPort& port) {
    keys.key("present", port.present, "the interface exists");
    keys.key("ethtool", port.ethtool, "its driver answers ethtool queries");
    keys.table("copper", [&](Keys& sub) { describe_link(sub, port.copper); });
    keys.table("fibre", [&](Keys& sub) { describe_link(sub, port.fibre); });
}

}  // namespace sim
