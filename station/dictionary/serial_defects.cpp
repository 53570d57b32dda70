#include <termios.h>

#include "station/dictionary/enumeration.h"

namespace station {
namespace {

// Modes that others may have left: raw, echoing, with flow control or 7 bits, at another speed.
void add_serial_line(Enumeration& all, const std::string& name) {
    all.add(name + ".hung-up", {}, setting({name}, "hung_up", true));
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
        all.add(name + ".mode", {}, setting({name}, key, flags));
}

}  // namespace

void add_rs485(Enumeration& all) {
    if (!all.board["rs485"]["present"].value_or(false)) return;
    all.add("rs485.no-echo", {}, setting({"rs485"}, "fixture", false));
    all.add("rs485.blocked", {}, setting({"rs485"}, "blocked", true));
    all.add("rs485.absent", {}, setting({"rs485"}, "present", false));
    all.add("rs485.late", {}, setting({"rs485"}, "delay", 6.0));
    for (const auto& bytes :
         {numbers_between(0, 0), numbers_between(500, 500), numbers_between(1023, 1023),
          numbers_between(7, 1023, 16), numbers_between(1, 1023, 2), numbers_between(512, 1023)}) {
        all.add("rs485.lost", {}, numbers_added("rs485", "drop", bytes));
        all.add("rs485.stray", {}, numbers_added("rs485", "insert", bytes));
        all.add("rs485.stray", {}, numbers_added("rs485", "repeat", bytes));
        all.add("rs485.corrupt", {}, numbers_added("rs485", "corrupt", bytes));
    }
    all.add("rs485.corrupt", {}, numbers_added("rs485", "corrupt", numbers_between(0, 1023)));
    for (const std::int64_t bytes : {3, 100}) {
        all.add("rs485.lost", {}, setting({"rs485"}, "drop_every", bytes));
        all.add("rs485.corrupt", {}, setting({"rs485"}, "corrupt_every", bytes));
    }
    for (const auto& [call, count] : all.calls)
        if (call.function == "wait_readable" && count > 100)  // one for each 8 bytes of the echo
            for (const std::int64_t nth : {1, count / 4, count / 2, count})
                all.add("rs485.drops", {},
                        from_call(call, nth, setting({"rs485"}, "hung_up", true)));
    add_serial_line(all, "rs485");
}

namespace {

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

bool removed(toml::table&) { return false; }

Apply frames_sent_as(const std::string& key, const std::string& bytes) {
    return frames(key, [=](toml::table& frame) {
        frame.erase("key");
        frame.insert_or_assign("bytes", bytes);
        return true;
    });
}

// From the test of the LEDs on, or from before one of the keys on.
void add_panel_failures(Enumeration& all) {
    constexpr double kLedTest_s = 3.5, kBeforePress_s = 0.5;
    std::vector<double> times{kLedTest_s};
    if (const toml::array* frames = all.board["panel"]["frames"].as_array())
        for (const toml::node& frame : *frames)
            times.push_back((*frame.as_table())["at"].value_or(0.0) - kBeforePress_s);
    for (const double at_s : times) {
        all.add("panel.dies", {}, from_second(at_s, setting({"panel"}, "connected", false)));
        all.add("panel.dies", {}, from_second(at_s, setting({"panel"}, "blocked", true)));
        all.add("panel.dies", {}, from_second(at_s, setting({"panel"}, "hung_up", true)));
    }
}

}  // namespace

void add_panel(Enumeration& all) {
    const SystemCall set_line{"ioctl", "/dev/zebio", "0x1"};
    all.add("buzzer.silent", {}, failing_from(set_line, 1));
    all.add("buzzer.endless", {}, failing_from(set_line, 2));  // the first call switches it on
    if (!all.board["panel"]["present"].value_or(false)) return;
    all.add("panel.unplugged", {}, setting({"panel"}, "connected", false));
    all.add("panel.blocked", {}, setting({"panel"}, "blocked", true));
    all.add("panel.absent", {}, setting({"panel"}, "present", false));
    add_serial_line(all, "panel");
    add_panel_failures(all);
    const toml::array* pressed = all.board["panel"]["frames"].as_array();
    if (pressed == nullptr || pressed->empty()) return;
    for (const toml::node& node : *pressed) {
        const std::string key = node.as_table()->at("key").value_or(std::string());
        if (key.empty()) continue;
        all.add("panel.key.dead", {key}, frames(key, removed));
        all.add("panel.key.unknown", {key}, frames_sent_as(key, "FF 06 20 FF 01 00"));
    }
    all.add("panel.keys.dead", {}, frames("", removed));
    all.add("panel.cut", {}, frames_sent_as("", "FF 06 20"));
    all.add("panel.noise", {}, [](toml::table& board) {
        toml::array& list = list_at(table_at(board, {"panel"}), "frames");
        const double at = (*list[0].as_table())["at"].value_or(5.0);
        list.insert(list.begin() + 1, toml::table{{"at", at + 1}, {"bytes", "FF 06 20 FF 01 00"}});
    });
}

}  // namespace station
