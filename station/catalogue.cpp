#include "station/catalogue.h"

#include <cctype>
#include <limits>

namespace station {
namespace {

using Type = KnownFact::Type;
constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kWord = 0xFFFFFFFF;

KnownFact number(std::string_view name, std::string_view unit = {}, std::int64_t low = 0,
                 std::int64_t high = kWord) {
    return {name, unit, Type::number, low, high, {}};
}

KnownFact text(std::string_view name, std::vector<std::string_view> words = {}) {
    return {name, {}, Type::text, 0, 0, std::move(words)};
}

KnownFact list(std::string_view name) { return {name, {}, Type::list, 0, 0, {}}; }

const std::vector<std::string_view> kVerdict{"good", "bad"};
const std::vector<std::string_view> kDisk{"good", "absent", "no-size"};

std::string_view first_component(std::string_view name) { return name.substr(0, name.find('.')); }

std::string_view without_first(std::string_view name) {
    const std::size_t dot = name.find('.');
    return dot == std::string_view::npos ? std::string_view{} : name.substr(dot + 1);
}

const std::vector<KnownFact> kRows{
    number("start.front_panel"),
    number("start.usb"),
    number("start.channels"),
    number("start.alarm_outputs"),
    number("start.alarm_inputs"),
    number("start.sata_ports"),
    number("start.esata"),
    number("start.minisas"),
    number("start.sata_rule"),
    text("start.root", {"yes", "no"}),
    list("sequence.steps"),
    text("sequence.end", {"marker", "restart", "stopped"}),
    text("sequence.config", {"removed", "missing"}),
    text("sequence.config_backup", {"removed", "missing"}),
    number("panel.unknown_keys"),
    number("panel.other_frames"),
    number("panel.read_failures"),
    text("network.*.selected", {"yes", "no"}),
    number("network.*.ports", {}, 0, 4),
    text("network.*.*.link", {"up", "down", "unknown"}),
    text("network.*.*.duplex", {"full", "half"}),
    number("network.*.*.speed", "Mbit/s", 0, 1000),
    number("alarm.inputs"),
    number("alarm.outputs"),
    number("alarm.idle.inputs", "bits"),
    number("alarm.output.*.inputs", "bits"),
    number("alarm.good"),
    number("alarm.bad"),
    text("rtc.*.clock"),
    text("rtc.*.system"),
    number("rtc.*.difference", "s", -kMost, kMost),
    number("usb.runs", {}, 1, 2),
    number("usb.*.disks"),
    number("usb.*.failed"),
    number("usb.*.*.free", "MB", -kWord),
    text("usb.*.rear.upper", {"3.0", "2.0", "none"}),
    text("usb.*.rear.lower", {"3.0", "2.0", "none"}),
    number("usb.found", {}, -kWord),
    number("usb.mice", {}, -kWord),
    number("sata.ports", {}, -kWord),
    number("sata.found", {}, -kWord),
    text("sata.*.state", kDisk),
    text("sata.*.serial"),
    text("sata.*.model"),
    text("sata.*.firmware"),
    number("sata.*.size", "GB", 0, kMost),
    number("minisas.ports"),
    text("minisas.node"),
    text("minisas.state", kDisk),
    text("minisas.serial"),
    text("minisas.model"),
    text("minisas.firmware"),
    number("minisas.size", "GB", 0, kMost),
    number("rs485.good", "bytes"),
    number("rs485.bad", "bytes"),
    text("rs485.result", {"complete", "timeout"}),
    text("info.model"),
    text("info.type"),
    text("info.panel"),
    text("info.arm"),
    text("info.memory_frequency"),
    text("info.memory"),
    text("info.flash"),
    text("info.cpld"),
    text("info.alarm_io"),
    text("summary.network", kVerdict),
    text("summary.rs485", kVerdict),
    text("summary.alarm", kVerdict),
    text("summary.usb", kVerdict),
    text("summary.sata"),
    text("summary.minisas", kVerdict),
    text("summary.rtc", {"good", "bad", "person"}),
    text("summary.result", {"ok", "faults"}),
    number("pmp.ports"),
    text("pmp.chip.*.state", {"good", "error", "not-tested"}),
    text("pmp.chip.*.disk"),
    text("pmp.chip.*.revision"),
    text("pmp.chip.*.bonding"),
    number("pmp.chip.*.image", "bytes"),
    text("pmp.chip.*.flash", {"same", "updated", "failed"}),
    number("pmp.resets"),
    number("exit.status", {}, 0, 255),
    number("exit.signal", {}, 0, 64),
};

}  // namespace

const std::vector<KnownFact>& catalogue() { return kRows; }

bool name_fits(std::string_view pattern, std::string_view name) {
    while (!pattern.empty() && !name.empty()) {
        const std::string_view part = first_component(pattern);
        if (part != "*" && part != first_component(name)) return false;
        pattern = without_first(pattern);
        name = without_first(name);
    }
    return pattern.empty() && name.empty();
}

const KnownFact* find_known(std::string_view name) {
    if (first_component(name) == "repeat") name = without_first(without_first(name));
    for (const KnownFact& row : catalogue()) {
        if (name_fits(row.name, name)) return &row;
    }
    return nullptr;
}

}  // namespace station
