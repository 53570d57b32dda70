#include "station/dictionary/defects.h"

#include <termios.h>

#include <algorithm>
#include <set>
#include <stdexcept>

#include "station/dictionary/board.h"

namespace station {
namespace {

using Apply = std::function<void(toml::table&)>;
using Path = std::initializer_list<std::string_view>;

toml::table& table_in(toml::table& board, const std::vector<std::string>& path) {
    toml::table* at = &board;
    for (const std::string& name : path)
        at = &table_at(*at, {name});
    return *at;
}

// A change that a key takes the value.
template <class Value>
Apply setting(const std::vector<std::string>& table, const std::string& key, const Value& value) {
    return [=](toml::table& board) { table_in(board, table).insert_or_assign(key, value); };
}

// Both changes.
Apply both(const Apply& first, const Apply& second) {
    return [=](toml::table& board) {
        first(board);
        second(board);
    };
}

toml::array& list_at(toml::table& table, std::string_view key) {
    if (!table.get_as<toml::array>(key)) table.insert_or_assign(key, toml::array{});
    return *table.get_as<toml::array>(key);
}

Apply numbers_added(const char* table, const char* key, const std::vector<std::int64_t>& numbers) {
    return [=](toml::table& board) {
        toml::array& list = list_at(table_at(board, {table}), key);
        for (const std::int64_t number : numbers)
            list.push_back(number);
    };
}

// How a fault, or a change in the middle of the run, names the nth of these calls.
toml::table call_named(const SystemCall& call, std::int64_t nth) {
    toml::table named{{"call", call.function}};
    if (!call.path.empty()) named.insert("path", call.path);
    if (!call.request.empty())
        named.insert("request", std::int64_t{std::stoll(call.request, nullptr, 16)});
    if (nth != 1) named.insert("nth", nth);
    return named;
}

Apply fault_added(const toml::table& fault) {
    return [=](toml::table& board) { list_at(board, "faults").push_back(fault); };
}

// The call fails that one time.
Apply failing(const SystemCall& call, std::int64_t nth) {
    return fault_added(call_named(call, nth));
}

Apply failing_from(const SystemCall& call, std::int64_t nth) {
    toml::table fault = call_named(call, nth);
    fault.insert("onwards", true);
    return fault_added(fault);
}

// The first of these transfers stops after so many bytes.
Apply cut_short(const SystemCall& call, std::int64_t bytes) {
    toml::table fault = call_named(call, 1);
    fault.insert("effect", "short");
    fault.insert("count", bytes);
    return fault_added(fault);
}

// The change is made just before the nth of these calls.
Apply from_call(const SystemCall& call, std::int64_t nth, const Apply& change) {
    return [=](toml::table& board) {
        toml::table later = call_named(call, nth);
        change(later);
        toml::array& changes = list_at(board, "changes");
        changes.insert(changes.begin(), std::move(later));
    };
}

Apply from_second(double at_s, const Apply& change) {
    return [=](toml::table& board) {
        toml::table later{{"at", at_s}};
        change(later);
        toml::array& changes = list_at(board, "changes");
        changes.insert(changes.begin(), std::move(later));
    };
}

std::vector<std::int64_t> numbers_between(std::int64_t first, std::int64_t last,
                                          std::int64_t step = 1) {
    std::vector<std::int64_t> numbers;
    for (std::int64_t number = first; number <= last; number += step)
        numbers.push_back(number);
    return numbers;
}

// The rows of the table of defects are the calls of add().
class Enumeration {
  public:
    Enumeration(const toml::table& board, const CallCounts& calls) : board_(board), calls_(calls) {}

    void alarm();
    void network();
    void clock();
    void usb();
    void disks();
    void rs485();
    void panel();
    void description();
    void bridges();
    void calls();

    std::vector<Defect> defects;

  private:
    void add(std::string_view kind, std::vector<std::string> places, Apply apply);
    void add_alarm_contacts();
    void add_link_drops(const std::string& port, std::int64_t place);
    void add_stick(const std::string& node);
    void add_disk(const std::string& node);
    void add_serial_line(const std::string& name);
    void add_panel_failures();
    void add_rear_port(const std::string& name, char port);
    std::int64_t number(std::string_view table, std::string_view key) const {
        return board_[table][key].value_or(std::int64_t{0});
    }
    std::vector<std::string> names(std::string_view table, std::string_view in = {}) const;
    std::vector<std::string> nodes(bool external) const;

    std::int64_t count_of(const SystemCall& call) const {
        const auto found = calls_.find(call);
        return found == calls_.end() ? 0 : found->second;
    }

    const toml::table& board_;
    const CallCounts& calls_;
};

const SystemCall kReadInputs{"ioctl", "/dev/zebio", "0x80026B90"},
    kAskLink{"ioctl", "socket", "0x8946"}, kScanDevices{"opendir", "/dev", ""};

void Enumeration::add(std::string_view kind, std::vector<std::string> places, Apply apply) {
    const Kind* known = find_kind(kind);
    if (known == nullptr) throw std::logic_error("no kind of defect " + std::string(kind));
    defects.push_back({known, std::move(places), std::move(apply)});
}

// Keys of a table, or of a table in it.
std::vector<std::string> Enumeration::names(std::string_view table, std::string_view in) const {
    std::vector<std::string> names;
    const auto found = in.empty() ? board_[table] : board_[table][in];
    if (const toml::table* keys = found.as_table())
        for (const auto& [key, value] : *keys)
            names.emplace_back(key);
    return names;
}

// Disks, internal or external, that the board has.
std::vector<std::string> Enumeration::nodes(bool external) const {
    std::vector<std::string> found;
    for (const std::string& node : names("disks")) {
        const bool present = board_["disks"][node]["present"].value_or(true);
        if (present && (node.rfind("sd", 0) != 0) == external) found.push_back(node);
    }
    return found;
}

// --- Alarm -------------------------------------------------------------------------------------

using Wiring = std::vector<std::vector<std::int64_t>>;

Wiring wiring_of(const toml::table& board) {
    Wiring wiring;
    if (const toml::array* outputs = board["alarm"]["wiring"].as_array()) {
        for (const toml::node& output : *outputs) {
            wiring.emplace_back();
            for (const toml::node& input : *output.as_array())
                wiring.back().push_back(input.value_or(std::int64_t{0}));
        }
    }
    return wiring;
}

// A change of the wiring as it then is, so that two of them can follow each other.
Apply rewired(const std::function<void(Wiring&)>& change) {
    return [=](toml::table& board) {
        Wiring wiring = wiring_of(board);
        change(wiring);
        toml::array outputs;
        for (std::vector<std::int64_t>& inputs : wiring) {
            std::sort(inputs.begin(), inputs.end());
            inputs.erase(std::unique(inputs.begin(), inputs.end()), inputs.end());
            toml::array list;
            for (const std::int64_t input : inputs)
                list.push_back(input);
            outputs.push_back(std::move(list));
        }
        table_at(board, {"alarm"}).insert_or_assign("wiring", std::move(outputs));
    };
}

Apply inputs_shorted(std::int64_t a, std::int64_t b) {
    return rewired([=](Wiring& wiring) {
        for (auto& inputs : wiring) {
            if (std::ranges::count(inputs, a) + std::ranges::count(inputs, b) != 0)
                inputs.insert(inputs.end(), {a, b});
        }
    });
}

// What drives the one reaches the other, and not the other way round.
Apply input_leaks(std::int64_t from, std::int64_t to) {
    return rewired([=](Wiring& wiring) {
        for (auto& inputs : wiring)
            if (std::ranges::count(inputs, from) != 0) inputs.push_back(to);
    });
}

Apply inputs_swapped(std::int64_t a, std::int64_t b) {
    return rewired([=](Wiring& wiring) {
        for (auto& inputs : wiring)
            for (std::int64_t& input : inputs)
                input = input == a ? b : input == b ? a : input;
    });
}

// A contact that is open or closed at one reading of the inputs alone. The first reading is that of
// no output, the next that of output 1.
Apply input_wrong_at(std::int64_t input, std::int64_t reading, const char* key) {
    return [=](toml::table& board) {
        toml::array before;
        if (const toml::array* list = board["alarm"][key].as_array()) before = *list;
        toml::array then = before;
        then.push_back(input);
        from_call(kReadInputs, reading, setting({"alarm"}, key, then))(board);
        from_call(kReadInputs, reading + 1, setting({"alarm"}, key, before))(board);
    };
}

void Enumeration::add_alarm_contacts() {
    const Wiring wiring = wiring_of(board_);
    const auto readings = static_cast<std::int64_t>(wiring.size()) + 1;
    if (count_of(kReadInputs) != readings) return;
    for (std::int64_t a = 1; a <= std::min(number("hardware", "alarm_inputs"), std::int64_t{16});
         ++a)
        for (std::int64_t reading = 1; reading <= readings; ++reading) {
            const bool is_driven =
                reading > 1
                && std::ranges::count(wiring[static_cast<std::size_t>(reading - 2)], a) != 0;
            add("alarm.input.loose", {std::to_string(a)},
                input_wrong_at(a, reading, is_driven ? "dead" : "stuck"));
        }
}

void Enumeration::alarm() {
    const Wiring wiring = wiring_of(board_);
    const std::int64_t inputs = std::min(number("hardware", "alarm_inputs"), std::int64_t{16});
    const auto outputs = static_cast<std::int64_t>(wiring.size());
    const auto text = [](std::int64_t place) { return std::to_string(place); };
    for (std::int64_t a = 1; a <= inputs; ++a) {
        add("alarm.input.open", {text(a)}, numbers_added("alarm", "dead", {a}));
        add("alarm.input.stuck", {text(a)}, numbers_added("alarm", "stuck", {a}));
        for (std::int64_t b = a + 1; b <= inputs; ++b) {
            for (const Apply& touching :
                 {inputs_shorted(a, b), input_leaks(a, b), input_leaks(b, a)})
                add("alarm.inputs.shorted", {text(a), text(b)}, touching);
            add("alarm.inputs.swapped", {text(a), text(b)}, inputs_swapped(a, b));
        }
        for (const std::int64_t size : {4, 8}) {
            const std::int64_t last = a + size - 1;
            if (a % size == 1 && last <= inputs)
                add("alarm.inputs.block", {text(a), text(last)},
                    numbers_added("alarm", "dead", numbers_between(a, last)));
        }
    }
    if (inputs != 0)
        add("alarm.inputs.all", {}, numbers_added("alarm", "dead", numbers_between(1, inputs)));
    for (std::int64_t a = 1; a <= outputs; ++a) {
        const auto at = static_cast<std::size_t>(a - 1);
        add("alarm.output.dead", {text(a)}, rewired([=](Wiring& wires) { wires[at].clear(); }));
        add("alarm.output.stuck", {text(a)}, numbers_added("alarm", "stuck", wiring[at]));
        for (std::int64_t b = a + 1; b <= outputs; ++b) {
            const auto other = static_cast<std::size_t>(b - 1);
            add("alarm.outputs.swapped", {text(a), text(b)},
                rewired([=](Wiring& wires) { std::swap(wires[at], wires[other]); }));
            add("alarm.outputs.joined", {text(a), text(b)}, rewired([=](Wiring& wires) {
                    wires[at].insert(wires[at].end(), wires[other].begin(), wires[other].end());
                    wires[other] = wires[at];
                }));
        }
    }
    if (outputs != 0)
        add("alarm.outputs.all", {}, rewired([](Wiring& wires) {
                for (auto& inputs_of : wires)
                    inputs_of.clear();
            }));
    add_alarm_contacts();
}

// --- Network -----------------------------------------------------------------------------------

// The link goes at a query of the port, for good or for that query. All ports are asked for copper,
// then all for fibre.
void Enumeration::add_link_drops(const std::string& port, std::int64_t place) {
    const auto ports = static_cast<std::int64_t>(names("ports").size());
    const std::int64_t queries = count_of(kAskLink) / (2 * ports);
    for (const std::string medium : {"copper", "fibre"}) {
        if (!board_["ports"][port][medium]["up"].value_or(false)) continue;
        const std::vector<std::string> link{"ports", port, medium};
        const std::int64_t before = ((medium == "fibre" ? ports : 0) + place - 1) * queries;
        for (std::int64_t query = before + 1; query <= before + queries; ++query) {
            const Apply gone = from_call(kAskLink, query, setting(link, "up", false)),
                        back = from_call(kAskLink, query + 1, setting(link, "up", true));
            add("network." + medium + ".drops", {std::to_string(place)}, gone);
            add("network." + medium + ".drops", {std::to_string(place)}, both(gone, back));
        }
    }
}

constexpr int kUnknownSpeed = 65535;  // as drivers report what they cannot tell

void Enumeration::network() {
    const std::vector<std::string> ports = names("ports");
    std::map<std::string, Apply> all_down;
    for (std::size_t i = 0; i < ports.size(); ++i) {
        const std::string& port = ports[i];
        const std::string place = std::to_string(i + 1);
        for (const std::string medium : {"copper", "fibre"}) {
            if (!board_["ports"][port][medium]["up"].value_or(false)) continue;
            const std::vector<std::string> link{"ports", port, medium};
            const std::string kind = "network." + medium;
            const Apply down = setting(link, "up", false);
            all_down[medium] = all_down[medium] ? both(all_down[medium], down) : down;
            add(kind + ".no-link", {place}, down);
            for (const std::int64_t speed : {10, 100, kUnknownSpeed}) {
                const Apply slow = setting(link, "speed", speed);
                add(kind + ".slow", {place}, slow);
                add(kind + ".slow", {place}, both(slow, setting(link, "full_duplex", false)));
            }
            add(kind + ".half", {place}, setting(link, "full_duplex", false));
        }
        add("network.port.no-link", {place},
            both(setting({"ports", port, "copper"}, "up", false),
                 setting({"ports", port, "fibre"}, "up", false)));
        add("network.port.absent", {place}, setting({"ports", port}, "present", false));
        add("network.port.driver", {place}, setting({"ports", port}, "ethtool", false));
        add_link_drops(port, static_cast<std::int64_t>(i + 1));
    }
    for (const auto& [medium, apply] : all_down)
        add("network." + medium + ".all", {}, apply);
}

// --- Clock -------------------------------------------------------------------------------------

void Enumeration::clock() {
    if (!board_["rtc"]["present"].value_or(false)) return;
    const auto year = board_["start"].value<toml::date_time>();
    const std::int64_t years = (year ? year->date.year : 2026) - 2000;
    constexpr std::int64_t kYear_s = 31'556'952;
    add("rtc.absent", {}, setting({"rtc"}, "present", false));
    add("rtc.stopped", {}, setting({"rtc"}, "rate", 0.0));
    for (const std::int64_t offset_s : {5, 60, 3600, 28'800, 86'400, 2'592'000}) {
        add("rtc.wrong", {}, setting({"rtc"}, "offset", offset_s));
        add("rtc.wrong", {}, setting({"rtc"}, "offset", -offset_s));
    }
    for (const std::int64_t epoch_years : {years, years + 30, years - 10, years - 20})
        add("rtc.battery", {}, setting({"rtc"}, "offset", -epoch_years * kYear_s));
    for (const double rate : {1.1, 1.5, 2.0, 4.0})
        add("rtc.fast", {}, setting({"rtc"}, "rate", rate));
    for (const double rate : {0.5, 0.9, 0.97})
        add("rtc.slow", {}, setting({"rtc"}, "rate", rate));
    for (const std::int64_t nth : {2, 3}) {
        const Apply gone = setting({"rtc"}, "present", false);
        add("rtc.drops", {}, from_call({"open", "/dev/rtc", ""}, nth, gone));
    }
    add("rtc.flag", {}, setting({"rtc"}, "isdst", std::int64_t{1}));
}

// --- USB ---------------------------------------------------------------------------------------

bool removed(toml::table&) { return false; }

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
void Enumeration::add_stick(const std::string& node) {
    const Apply gone = setting({"usb", "disks", node}, "present", false),
                there = setting({"usb", "disks", node}, "present", true);
    for (const SystemCall& call :
         {SystemCall{"mount", "/dev/" + node, ""}, SystemCall{"statfs", "/mnt/" + node, ""},
          SystemCall{"umount", "/mnt/" + node, ""}})
        for (std::int64_t nth = 1; nth <= std::min<std::int64_t>(count_of(call), 2); ++nth)
            add("usb.disk.loose", {node}, from_call(call, nth, gone));
    if (count_of(kScanDevices) < 2) return;
    add("usb.disk.loose", {node}, from_call(kScanDevices, 2, gone));
    add("usb.disk.loose", {node}, both(gone, from_call(kScanDevices, 2, there)));
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

void Enumeration::add_rear_port(const std::string& name, char port) {
    const Apply gone = devices_changed([=](toml::table& devices) {
        for (auto&& [device, state] : devices)
            if (is_in_port(device.str(), port))
                state.as_table()->insert_or_assign("present", false);
    });
    add("usb.rear.dead", {name}, gone);
    for (const std::string& node : names("usb", "disks"))
        if (node.size() > 3)
            add("usb.rear.dead", {name}, both(gone, stick_set(node, "present", false)));
    add("usb.rear.slow", {name}, devices_changed([=](toml::table& devices) {
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

void Enumeration::usb() {
    const std::vector<std::string> nodes = names("usb", "disks");
    if (nodes.empty()) return;
    Apply none = [](toml::table&) {};
    for (const std::string& node : nodes) {
        if (node.size() <= 3) continue;
        const Apply missing = stick_set(node, "present", false);
        none = both(none, missing);
        add("usb.disk.missing", {node}, missing);
        for (const std::string mount : {"no file system", "no driver"})
            add("usb.disk.unmountable", {node}, stick_set(node, "mount", mount));
        add("usb.disk.shell", {node}, stick_set(node, "mount", std::string("by shell")));
        for (const std::int64_t blocks : {0, 1000})
            add("usb.disk.full", {node}, stick_set(node, "free_blocks", blocks));
        add_stick(node);
    }
    for (const double time_s : {5.0, 60.0, 300.0})
        add("usb.slow", {}, setting({"usb"}, "mount_time", time_s));
    add("usb.all", {}, none);
    for (const std::int64_t mice : {1, 2})
        add("usb.extra", {}, setting({"usb"}, "mice", number("usb", "mice") + mice));
    for (const char* kind : {"directories", "files", "mounted"})
        add("usb.leftover", {}, setting({"usb"}, kind, toml::array{"/mnt/msa1"}));
    add_rear_port("upper", '1');
    add_rear_port("lower", '2');
    add("usb.rear.unchanged", {}, [](toml::table& board) {
        toml::array kept;
        if (const toml::array* changes = board["changes"].as_array())
            for (const toml::node& change : *changes)
                if (!moves_devices(*change.as_table())) kept.push_back(change);
        board.insert_or_assign("changes", std::move(kept));
    });
}

// --- Disks -------------------------------------------------------------------------------------

void Enumeration::add_disk(const std::string& node) {
    const std::vector<std::string> disk{"disks", node};
    add("sata.disk.absent", {node}, setting(disk, "present", false));
    add("sata.disk.mute", {node}, setting(disk, "identify", false));
    add("sata.disk.sizeless", {node},
        both(setting(disk, "size64", false), setting(disk, "size", false)));
    add("sata.disk.size-call", {node}, setting(disk, "size64", false));
    add("sata.disk.size-call", {node}, setting(disk, "size", false));
    for (const double time_s : {1.0, 30.0, 300.0})
        add("sata.disk.slow", {node}, setting(disk, "request_time", time_s));
    for (const SystemCall& call :
         {SystemCall{"open", "/dev/" + node, ""}, SystemCall{"ioctl", "/dev/" + node, "0x31F"},
          SystemCall{"ioctl", "/dev/" + node, "0x80041272"}})
        for (std::int64_t nth = 1; nth <= count_of(call); ++nth)
            add("sata.disk.drops", {node}, from_call(call, nth, setting(disk, "present", false)));
    add("sata.disk.texts", {node}, setting(disk, "identify_data", "FF FF FF FF"));
    add("sata.disk.texts", {node},
        both(setting(disk, "serial", ""),
             both(setting(disk, "model", ""), setting(disk, "firmware", ""))));
    add("sata.disk.other", {node},
        both(setting(disk, "model", "Another disk"), setting(disk, "firmware", "X1")));
    for (const std::int64_t bytes :
         {std::int64_t{512}, std::int64_t{250'059'350'016}, std::int64_t{12'000'138'625'024}})
        add("sata.disk.other", {node}, setting(disk, "bytes", bytes));
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

void Enumeration::disks() {
    const std::vector<std::string> internal = nodes(false);
    std::vector<std::string> all = internal;
    for (const std::string& node : nodes(true))
        all.push_back(node);
    std::map<std::string, Apply> behind;
    Apply none = [](toml::table&) {};
    for (std::size_t a = 0; a < all.size(); ++a) {
        const toml::node_view<const toml::node> disk = board_["disks"][all[a]];
        add_disk(all[a]);
        const Apply absent = setting({"disks", all[a]}, "present", false);
        if (a < internal.size()) none = both(none, absent);
        if (const std::string bridge = disk["bridge"].value_or(std::string()); !bridge.empty())
            behind[bridge] = behind[bridge] ? both(behind[bridge], absent) : absent;
        for (std::size_t b = a + 1; b < all.size(); ++b) {
            const std::string serial = disk["serial"].value_or(std::string("0001"));
            add("sata.disks.doubled", {all[a], all[b]},
                setting({"disks", all[b]}, "serial", serial));
            add("sata.disks.swapped", {all[a], all[b]}, disks_swapped(all[a], all[b]));
        }
    }
    for (const auto& [bridge, apply] : behind)
        add("sata.bridge.down", {bridge}, apply);
    if (!internal.empty()) add("sata.all", {}, none);
}

// --- RS-485, panel, buzzer ---------------------------------------------------------------------

// Modes that others may have left: raw, echoing, with flow control or 7 bits, at another speed.
void Enumeration::add_serial_line(const std::string& name) {
    add(name + ".hung-up", {}, setting({name}, "hung_up", true));
    for (const auto& [key, flags] : std::initializer_list<std::pair<const char*, std::int64_t>>{
             {"iflag", 0},
             {"iflag", IXON | IXOFF | ICRNL},
             {"iflag", ISTRIP | IGNCR},
             {"oflag", 0},
             {"cflag", B9600 | CS8 | CREAD | CLOCAL},
             {"cflag", B115200 | CS7 | PARENB | CREAD},
             {"cflag", B115200 | CS8 | CSTOPB | CRTSCTS | CREAD},
             {"lflag", 0},
             {"lflag", ICANON | ECHO}})
        add(name + ".mode", {}, setting({name}, key, flags));
}

void Enumeration::rs485() {
    if (!board_["rs485"]["present"].value_or(false)) return;
    add("rs485.no-echo", {}, setting({"rs485"}, "fixture", false));
    add("rs485.blocked", {}, setting({"rs485"}, "blocked", true));
    add("rs485.absent", {}, setting({"rs485"}, "present", false));
    add("rs485.late", {}, setting({"rs485"}, "delay", 6.0));
    for (const auto& bytes :
         {numbers_between(0, 0), numbers_between(500, 500), numbers_between(1023, 1023),
          numbers_between(7, 1023, 16), numbers_between(1, 1023, 2), numbers_between(512, 1023)}) {
        add("rs485.lost", {}, numbers_added("rs485", "drop", bytes));
        add("rs485.stray", {}, numbers_added("rs485", "insert", bytes));
        add("rs485.stray", {}, numbers_added("rs485", "repeat", bytes));
        add("rs485.corrupt", {}, numbers_added("rs485", "corrupt", bytes));
    }
    add("rs485.corrupt", {}, numbers_added("rs485", "corrupt", numbers_between(0, 1023)));
    for (const std::int64_t bytes : {3, 100}) {
        add("rs485.lost", {}, setting({"rs485"}, "drop_every", bytes));
        add("rs485.corrupt", {}, setting({"rs485"}, "corrupt_every", bytes));
    }
    for (const auto& [call, count] : calls_)
        if (call.function == "wait_readable" && count > 100)  // one for each 8 bytes of the echo
            for (const std::int64_t nth : {1, count / 4, count / 2, count})
                add("rs485.drops", {}, from_call(call, nth, setting({"rs485"}, "hung_up", true)));
    add_serial_line("rs485");
}

// A change of the frames of the panel that say this key; "" = of each.
Apply frames(const std::string& key, const std::function<bool(toml::table&)>& change) {
    return [=](toml::table& board) {
        toml::array& list = list_at(table_at(board, {"panel"}), "frames");
        toml::array kept;
        for (toml::node& node : list) {
            toml::table frame = *node.as_table();
            const bool chosen = key.empty() || frame["key"].value_or(std::string()) == key;
            if (!chosen || change(frame)) kept.push_back(std::move(frame));
        }
        list = std::move(kept);
    };
}

Apply frames_sent_as(const std::string& key, const std::string& bytes) {
    return frames(key, [=](toml::table& frame) {
        frame.erase("key");
        frame.insert_or_assign("bytes", bytes);
        return true;
    });
}

// From the test of the LEDs on, or from before one of the keys on.
void Enumeration::add_panel_failures() {
    constexpr double kLedTest_s = 3.5, kBeforePress_s = 0.5;
    std::vector<double> times{kLedTest_s};
    if (const toml::array* frames = board_["panel"]["frames"].as_array())
        for (const toml::node& frame : *frames)
            times.push_back((*frame.as_table())["at"].value_or(0.0) - kBeforePress_s);
    for (const double at_s : times) {
        add("panel.dies", {}, from_second(at_s, setting({"panel"}, "connected", false)));
        add("panel.dies", {}, from_second(at_s, setting({"panel"}, "blocked", true)));
        add("panel.dies", {}, from_second(at_s, setting({"panel"}, "hung_up", true)));
    }
}

void Enumeration::panel() {
    const SystemCall set_line{"ioctl", "/dev/zebio", "0x1"};
    add("buzzer.silent", {}, failing_from(set_line, 1));
    add("buzzer.endless", {}, failing_from(set_line, 2));  // the first call switches it on
    if (!board_["panel"]["present"].value_or(false)) return;
    add("panel.unplugged", {}, setting({"panel"}, "connected", false));
    add("panel.blocked", {}, setting({"panel"}, "blocked", true));
    add("panel.absent", {}, setting({"panel"}, "present", false));
    add_serial_line("panel");
    add_panel_failures();
    const toml::array* pressed = board_["panel"]["frames"].as_array();
    if (pressed == nullptr || pressed->empty()) return;
    for (const toml::node& node : *pressed) {
        const std::string key = node.as_table()->at("key").value_or(std::string());
        if (key.empty()) continue;
        add("panel.key.dead", {key}, frames(key, removed));
        add("panel.key.unknown", {key}, frames_sent_as(key, "FF 06 20 FF 01 00"));
    }
    add("panel.keys.dead", {}, frames("", removed));
    add("panel.cut", {}, frames_sent_as("", "FF 06 20"));
    add("panel.noise", {}, [](toml::table& board) {
        toml::array& list = list_at(table_at(board, {"panel"}), "frames");
        const double at = (*list[0].as_table())["at"].value_or(5.0);
        list.insert(list.begin() + 1, toml::table{{"at", at + 1}, {"bytes", "FF 06 20 FF 01 00"}});
    });
}

// --- Description, boot parameters, bridges -----------------------------------------------------

// A field of the board's description, and wrong values that it may have.
struct Field {
    const char* key;
    std::vector<std::int64_t> values;
};
const std::vector<Field> kFields = {
    {"model", {0x9664, 0xB001}},
    {"arm_frequency", {0, 1}},
    {"memory_frequency", {0, 1}},
    {"memory_size", {0, 1, 3, 7}},
    {"flash_size", {0, 1, 3}},
    {"cpld_date", {0, 0x4DD6, 0xFFFF}},
    {"channels", {0, 1, 2, 8, 15}},
    {"sata_layout", {0, 1, 4, 5, 6, 7, 10, 11}},
    {"usb_layout", {0, 2}},
    {"panel_type", {0, 1}},
    {"device_type", {0, 1, 2}},
    {"esata", {0, 1, 2}},
    {"alarm_inputs", {0, 4, 8, 15, 32}},
    {"alarm_outputs", {0, 1, 2, 3, 7}},
    {"minisas", {0, 1}},
    {"board_word", {0, 1}},
    {"memory", {0}},
    {"second", {0}},
    {"fitting", {0}},
    {"storage", {0}},
};

void Enumeration::description() {
    add("board.description", {}, setting({"hardware"}, "presence", std::int64_t{0xFFFF}));
    for (const Field& field : kFields)
        for (const std::int64_t value : field.values)
            if (value != number("hardware", field.key))
                add("board.field", {field.key}, setting({"hardware"}, field.key, value));
    add("board.control", {}, setting({"control"}, "present", false));
    for (const std::int64_t type : {0x4487, 0x448F, 0x4497, 0x449F}) {
        const Apply typed = setting({"control"}, "boot_device_type", type);
        add("board.boot-type", {}, typed);
        add("board.boot-type", {}, both(typed, numbers_added("control", "high_lines", {25})));
    }
    for (const std::int64_t line : {4, 25})
        add("board.line-high", {std::to_string(line)},
            numbers_added("control", "high_lines", {line}));
    add("board.root", {}, setting({}, "root", false));
    add("board.watchdog", {}, setting({"control"}, "watchdog_bites", false));
    for (const char* release : {"2.6.32", "4.9.0", "x"})
        add("board.kernel", {}, setting({}, "kernel_release", release));
    for (const char* zone : {"UTC", "EST5"})
        add("board.time-zone", {}, setting({}, "time_zone", zone));
    for (const std::string& path : names("files"))
        add(path.find("zeb") == std::string::npos ? "board.file" : "pmp.file",
            path.find("zeb") == std::string::npos ? std::vector{path} : std::vector<std::string>{},
            setting({"files", path}, "present", false));
}

void Enumeration::bridges() {
    for (const std::string& name : names("bridges")) {
        const std::vector<std::string> bridge{"bridges", name};
        const Apply old = setting(bridge, "image", std::int64_t{2048}),
                    stays = setting(bridge, "erases", false),
                    keeps = setting(bridge, "programs", false);
        for (const std::int64_t presence : {0, 0xFF})
            add("pmp.absent", {name}, setting(bridge, "presence", presence));
        add("pmp.old", {name}, old);
        add("pmp.blank", {name}, setting(bridge, "flash", ""));
        add("pmp.ignores", {name}, both(old, both(stays, keeps)));
        add("pmp.erases", {name}, both(old, stays));
        add("pmp.programs", {name}, both(old, keeps));
        add("pmp.protected", {name},
            both(old, both(setting(bridge, "protection", std::int64_t{0x1C}),
                           setting(bridge, "unlocks", false))));
        for (const std::int64_t cell : {0, 2000, 4095})
            add("pmp.cells", {name}, both(old, setting(bridge, "bad_cells", toml::array{cell})));
        for (const double time_s : {1.0, 10.0})
            add("pmp.slow", {name}, both(old, setting(bridge, "erase_time", time_s)));
        for (const double time_s : {0.001, 0.01})
            add("pmp.slow", {name}, both(old, setting(bridge, "program_time", time_s)));
        for (const char* key : {"revision", "bonding_high", "bonding_low"})
            add("pmp.variant", {name}, setting(bridge, key, std::int64_t{0x20}));
    }
}

// --- Calls -------------------------------------------------------------------------------------

void Enumeration::calls() {
    constexpr std::int64_t kMostFailures = 16;  // of the same call, each in a run of its own
    for (const auto& [call, count] : calls_) {
        std::string place = call.function;
        for (const std::string& word : {call.path, call.request})
            if (!word.empty()) place += " " + word;
        for (const std::int64_t nth :
             numbers_between(1, std::min<std::int64_t>(count, kMostFailures)))
            add("call.fails", {place}, failing(call, nth));
        // From the last on, what is tried again fails too.
        for (const std::int64_t nth : std::set<std::int64_t>{1, 3, 8, count})
            if (nth <= count) add("call.fails", {place}, failing_from(call, nth));
        if (call.function == "read" || call.function == "write")
            add("call.fails", {place}, cut_short(call, 2));
    }
}

}  // namespace

std::string Defect::name() const {
    std::string text(kind->name);
    for (const std::string& place : places)
        text += " " + place;
    return text;
}

std::vector<Defect> defects_of(const toml::table& board, const CallCounts& calls) {
    Enumeration all(board, calls);
    all.alarm();
    all.network();
    all.clock();
    all.usb();
    all.disks();
    all.rs485();
    all.panel();
    all.description();
    all.bridges();
    all.calls();
    return std::move(all.defects);
}

}  // namespace station
