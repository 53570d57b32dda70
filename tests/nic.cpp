#include "tests/nic.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cstring>
#include <iterator>

#include "device/capability.h"
#include "driver/report.h"
#include "driver/results.h"
#include "platform/descriptor.h"
#include "platform/print.h"

namespace {

constexpr char kModule[] = "nic";
constexpr const char* kPorts[] = {"eth0", "eth1", "eth2", "eth3"};

// Reports a count above the ports that can be examined, and clamps it.
std::uint32_t ports_to_examine() {
    if (g_iCordNo <= std::size(kPorts)) return g_iCordNo;
    report(kModule, "网卡个数超过支持上限,网口个数为 %d\n", g_iCordNo);
    return std::size(kPorts);
}

// SIOCETHTOOL with a block that begins with its command.
int query(int socket, const char* name, void* block) {
    ifreq request{};
    std::strncpy(request.ifr_name, name, sizeof request.ifr_name - 1);
    request.ifr_data = static_cast<char*>(block);
    return platform::ioctl(socket, SIOCETHTOOL, &request);
}

}  // namespace

int nic_link_check(int socket, const char* name) {
    ethtool_value link{};
    link.cmd = ETHTOOL_GLINK;
    if (query(socket, name, &link) < 0) {
        report(kModule, "ETHTOOL_GLINK failed: \n");
        return kQueryFailed;
    }
    if (link.data == 1) {
        report(kModule, "网络连接接通 \n");
        return kLinkUp;
    }
    report(kModule, "网络连接断开 \n");
    return 0;
}

int nic_speed_check(int socket, const char* name) {
    ethtool_cmd settings{};
    settings.cmd = ETHTOOL_GSET;
    if (query(socket, name, &settings) < 0) {
        report(kModule, "ETHTOOL_GLINK failed\n");
        return kQueryFailed;
    }
    report(kModule, settings.duplex == 1 ? "全双工  " : "半双工  ");
    switch (settings.speed) {
    case 10:
        report(kModule, "10M\n");
        break;
    case 100:
        report(kModule, "100M\n");
        break;
    case 1000:
        report(kModule, "1000M\n");
        return 0;
    default:
        report(kModule, "net speed error\n");
    }
    report(kModule, "请检查网络测试环境是否为千M网络\n\n");
    return -1;
}

int nic_test() {
    const std::uint32_t count = ports_to_examine();
    const platform::Descriptor socket(platform::open_socket(AF_INET, SOCK_DGRAM, 0));
    if (!socket.is_open()) {
        print_line("creat socket error");
        return -1;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        report(kModule, "网卡%d:", i + 1);
        const bool good = nic_link_check(socket.get(), kPorts[i]) == kLinkUp
                          && nic_speed_check(socket.get(), kPorts[i]) == 0;
        if (!good) results.network = 1;
    }
    return 0;
}
