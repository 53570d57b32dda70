#include <algorithm>
#include <map>

#include "station/dictionary/enumeration.h"

namespace station {
namespace {

const SystemCall kAskLink{"ioctl", "socket", "0x8946"}, kScanDevices{"opendir", "/dev", ""};

// The link goes at a query of the port, for good or for that query. All ports are asked for copper,
// then all for fibre.
void add_link_drops(Enumeration& all, const std::string& port, std::int64_t place) {
    const auto ports = static_cast<std::int64_t>(all.names("ports").size());
    const std::int64_t queries = all.count_of(kAskLink) / (2 * ports);
    for (const std::string medium : {"copper", "fibre"}) {
        if (!all.board["ports"][port][medium]["up"].value_or(false)) continue;
        const std::vector<std::string> link{"ports", port, medium};
        const std::int64_t before = ((medium == "fibre" ? ports : 0) + place - 1) * queries;
        for (std::int64_t query = before + 1; query <= before + queries; ++query) {
            const Apply gone = from_call(kAskLink, query, setting(link, "up", false)),
                        back = from_call(kAskLink, query + 1, setting(link, "up", true));
            all.add("network." + medium + ".drops", {std::to_string(place)}, gone);
            all.add("network." + medium + ".drops", {std::to_string(place)}, both(gone, back));
        }
    }
}

constexpr int kUnknownSpeed = 65535;  // as drivers report what they cannot tell

}  // namespace

void add_network(Enumeration& all) {
    const std::vector<std::string> ports = all.names("ports");
    std::map<std::string, Apply> all_down;
    for (std::size_t i = 0; i < ports.size(); ++i) {
        const std::string& port = ports[i];
        const std::string place = std::to_string(i + 1);
        for (const std::string medium : {"copper", "fibre"}) {
            if (!all.board["ports"][port][medium]["up"].value_or(false)) continue;
            const std::vector<std::string> link{"ports", port, medium};
            const std::string kind = "network." + medium;
            const Apply down = setting(link, "up", false);
            all_down[medium] = all_down[medium] ? both(all_down[medium], down) : down;
            all.add(kind + ".no-link", {place}, down);
            for (const std::int64_t speed : {10, 100, kUnknownSpeed}) {
                const Apply slow = setting(link, "speed", speed);
                all.add(kind + ".slow", {place}, slow);
                all.add(kind + ".slow", {place}, both(slow, setting(link, "full_duplex", false)));
            }
            all.add(kind + ".half", {place}, setting(link, "full_duplex", false));
        }
        all.add("network.port.no-link", {place},
                both(setting({"ports", port, "copper"}, "up", false),
                     setting({"ports", port, "fibre"}, "up", false)));
        all.add("network.port.absent", {place}, setting({"ports", port}, "present", false));
        all.add("network.port.driver", {place}, setting({"ports", port}, "ethtool", false));
        add_link_drops(all, port, static_cast<std::int64_t>(i + 1));
    }
    for (const auto& [medium, apply] : all_down)
        all.add("network." + medium + ".all", {}, apply);
}

namespace {

// Sets a key of a stick's node and of its whole disk: "msa1" and "msa".
template <class Value>
Apply stick_set(const std::string& node, const std::string& key, Value value) {
    return [=](toml::table& board) {
        for (auto&& [name, disk] : table_at(board, {"usb", "disks"}))
            if (name.str() == node || name.str() == node.substr(0, 3))
                disk.as_table()->insert_or_assign(key, value);
    };
}

// Pulled at one of its calls or before the second look, or there from the second look on.
void add_stick(Enumeration& all, const std::string& node) {
    const Apply gone = setting({"usb", "disks", node}, "present", false),
                there = setting({"usb", "disks", node}, "present", true);
    for (const SystemCall& call :
         {SystemCall{"mount", "/dev/" + node, ""}, SystemCall{"statfs", "/mnt/" + node, ""},
          SystemCall{"umount", "/mnt/" + node, ""}})
        for (std::int64_t nth = 1; nth <= std::min<std::int64_t>(all.count_of(call), 2); ++nth)
            all.add("usb.disk.loose", {node}, from_call(call, nth, gone));
    if (all.count_of(kScanDevices) < 2) return;
    all.add("usb.disk.loose", {node}, from_call(kScanDevices, 2, gone));
    all.add("usb.disk.loose", {node}, both(gone, from_call(kScanDevices, 2, there)));
}

bool moves_devices(const toml::table& change) {
    return static_cast<bool>(change["usb"]["devices"]);
}

// Calls change(devices) for what is plugged in at the start, and for each change of it later.
Apply devices_changed(const std::function<void(toml::table& devices)>& change) {
    return [=](toml::table& board) {
        change(table_at(board, {"usb", "devices"}));
        toml::array* changes = board["changes"].as_array();
        for (std::size_t i = 0; changes != nullptr && i < changes->size(); ++i)
            if (toml::table* later = (*changes)[i].as_table(); moves_devices(*later))
                change(table_at(*later, {"usb", "devices"}));
    };
}

// True for what a device in this port is called: "4-1:1.0" and "3-1:1.0" in port 1.
bool is_in_port(std::string_view device, char port) {
    return device.substr(1, 2) == std::string("-") + port;
}

void add_rear_port(Enumeration& all, const std::string& name, char port) {
    const Apply gone = devices_changed([=](toml::table& devices) {
        for (auto&& [device, state] : devices)
            if (is_in_port(device.str(), port))
                state.as_table()->insert_or_assign("present", false);
    });
    all.add("usb.rear.dead", {name}, gone);
    for (const std::string& node : all.names("usb", "disks"))
        if (node.size() > 3)
            all.add("usb.rear.dead", {name}, both(gone, stick_set(node, "present", false)));
    all.add("usb.rear.slow", {name}, devices_changed([=](toml::table& devices) {
                bool has = false;
                for (auto&& [device, state] : devices) {
                    if (!is_in_port(device.str(), port)) continue;
                    has = true;
                    state.as_table()->insert_or_assign("present", device.str()[0] == '3');
                }
                const std::string slow = std::string("3-") + port + ":1.0";
                if (has) devices.insert_or_assign(slow, toml::table{{"present", true}});
            }));
}

}  // namespace

void add_usb(Enumeration& all) {
    const std::vector<std::string> nodes = all.names("usb", "disks");
    if (nodes.empty()) return;
    Apply none = [](toml::table&) {};
    for (const std::string& node : nodes) {
        if (node.size() <= 3) continue;
        const Apply missing = stick_set(node, "present", false);
        none = both(none, missing);
        all.add("usb.disk.missing", {node}, missing);
        for (const std::string mount : {"no file system", "no driver"})
            all.add("usb.disk.unmountable", {node}, stick_set(node, "mount", mount));
        all.add("usb.disk.shell", {node}, stick_set(node, "mount", std::string("by shell")));
        for (const std::int64_t blocks : {0, 1000})
            all.add("usb.disk.full", {node}, stick_set(node, "free_blocks", blocks));
        add_stick(all, node);
    }
    for (const double time_s : {5.0, 60.0, 300.0})
        all.add("usb.slow", {}, setting({"usb"}, "mount_time", time_s));
    all.add("usb.all", {}, none);
    for (const std::int64_t mice : {1, 2})
        all.add("usb.extra", {}, setting({"usb"}, "mice", all.number("usb", "mice") + mice));
    for (const char* kind : {"directories", "files", "mounted"})
        all.add("usb.leftover", {}, setting({"usb"}, kind, toml::array{"/mnt/msa1"}));
    add_rear_port(all, "upper", '1');
    add_rear_port(all, "lower", '2');
    all.add("usb.rear.unchanged", {}, [](toml::table& board) {
        toml::array kept;
        if (const toml::array* changes = board["changes"].as_array())
            for (const toml::node& change : *changes)
                if (!moves_devices(*change.as_table())) kept.push_back(change);
        board.insert_or_assign("changes", std::move(kept));
    });
}

namespace {

void add_disk(Enumeration& all, const std::string& node) {
    const std::vector<std::string> disk{"disks", node};
    all.add("sata.disk.absent", {node}, setting(disk, "present", false));
    all.add("sata.disk.mute", {node}, setting(disk, "identify", false));
    all.add("sata.disk.sizeless", {node},
            both(setting(disk, "size64", false), setting(disk, "size", false)));
    all.add("sata.disk.size-call", {node}, setting(disk, "size64", false));
    all.add("sata.disk.size-call", {node}, setting(disk, "size", false));
    for (const double time_s : {1.0, 30.0, 300.0})
        all.add("sata.disk.slow", {node}, setting(disk, "request_time", time_s));
    for (const SystemCall& call :
         {SystemCall{"open", "/dev/" + node, ""}, SystemCall{"ioctl", "/dev/" + node, "0x31F"},
          SystemCall{"ioctl", "/dev/" + node, "0x80041272"}})
        for (std::int64_t nth = 1; nth <= all.count_of(call); ++nth)
            all.add("sata.disk.drops", {node},
                    from_call(call, nth, setting(disk, "present", false)));
    all.add("sata.disk.texts", {node}, setting(disk, "identify_data", "FF FF FF FF"));
    all.add("sata.disk.texts", {node},
            both(setting(disk, "serial", ""),
                 both(setting(disk, "model", ""), setting(disk, "firmware", ""))));
    all.add("sata.disk.other", {node},
            both(setting(disk, "model", "Another disk"), setting(disk, "firmware", "X1")));
    for (const std::int64_t bytes :
         {std::int64_t{512}, std::int64_t{250'059'350'016}, std::int64_t{12'000'138'625'024}})
        all.add("sata.disk.other", {node}, setting(disk, "bytes", bytes));
}

// Exchanges what two disks say of themselves.
Apply disks_swapped(const std::string& a, const std::string& b) {
    return [=](toml::table& board) {
        toml::table& first = table_at(board, {"disks", a});
        toml::table& second = table_at(board, {"disks", b});
        for (const std::string key : {"serial", "model", "firmware", "bytes"}) {
            toml::table old;
            if (const toml::node* value = first.get(key)) old.insert(key, *value);
            if (const toml::node* value = second.get(key)) first.insert_or_assign(key, *value);
            if (const toml::node* value = old.get(key)) second.insert_or_assign(key, *value);
        }
    };
}

}  // namespace

void add_disks(Enumeration& all) {
    const std::vector<std::string> internal = all.nodes(false);
    std::vector<std::string> disks = internal;
    for (const std::string& node : all.nodes(true))
        disks.push_back(node);
    std::map<std::string, Apply> behind;
    Apply none = [](toml::table&) {};
    for (std::size_t a = 0; a < disks.size(); ++a) {
        const toml::node_view<const toml::node> disk = all.board["disks"][disks[a]];
        add_disk(all, disks[a]);
        const Apply absent = setting({"disks", disks[a]}, "present", false);
        if (a < internal.size()) none = both(none, absent);
        if (const std::string bridge = disk["bridge"].value_or(std::string()); !bridge.empty())
            behind[bridge] = behind[bridge] ? both(behind[bridge], absent) : absent;
        for (std::size_t b = a + 1; b < disks.size(); ++b) {
            const std::string serial = disk["serial"].value_or(std::string("0001"));
            all.add("sata.disks.doubled", {disks[a], disks[b]},
                    setting({"disks", disks[b]}, "serial", serial));
            all.add("sata.disks.swapped", {disks[a], disks[b]}, disks_swapped(disks[a], disks[b]));
        }
    }
    for (const auto& [bridge, apply] : behind)
        all.add("sata.bridge.down", {bridge}, apply);
    if (!internal.empty()) all.add("sata.all", {}, none);
}

}  // namespace station
