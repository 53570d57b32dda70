#include <algorithm>
#include <set>

#include "station/dictionary/enumeration.h"

namespace station {
void add_clock(Enumeration& all) {
    if (!all.board["rtc"]["present"].value_or(false)) return;
    const auto year = all.board["start"].value<toml::date_time>();
    const std::int64_t years = (year ? year->date.year : 2026) - 2000;
    constexpr std::int64_t kYear_s = 31'556'952;
    all.add("rtc.absent", {}, setting({"rtc"}, "present", false));
    all.add("rtc.stopped", {}, setting({"rtc"}, "rate", 0.0));
    for (const std::int64_t offset_s : {5, 60, 3600, 28'800, 86'400, 2'592'000}) {
        all.add("rtc.wrong", {}, setting({"rtc"}, "offset", offset_s));
        all.add("rtc.wrong", {}, setting({"rtc"}, "offset", -offset_s));
    }
    for (const std::int64_t epoch_years : {years, years + 30, years - 10, years - 20})
        all.add("rtc.battery", {}, setting({"rtc"}, "offset", -epoch_years * kYear_s));
    for (const double rate : {1.1, 1.5, 2.0, 4.0})
        all.add("rtc.fast", {}, setting({"rtc"}, "rate", rate));
    for (const double rate : {0.5, 0.9, 0.97})
        all.add("rtc.slow", {}, setting({"rtc"}, "rate", rate));
    for (const std::int64_t nth : {2, 3}) {
        const Apply gone = setting({"rtc"}, "present", false);
        all.add("rtc.drops", {}, from_call({"open", "/dev/rtc", ""}, nth, gone));
    }
    all.add("rtc.flag", {}, setting({"rtc"}, "isdst", std::int64_t{1}));
}

namespace {

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

}  // namespace

void add_description(Enumeration& all) {
    all.add("board.description", {}, setting({"hardware"}, "presence", std::int64_t{0xFFFF}));
    for (const Field& field : kFields)
        for (const std::int64_t value : field.values)
            if (value != all.number("hardware", field.key))
                all.add("board.field", {field.key}, setting({"hardware"}, field.key, value));
    all.add("board.control", {}, setting({"control"}, "present", false));
    for (const std::int64_t type : {0x4487, 0x448F, 0x4497, 0x449F}) {
        const Apply typed = setting({"control"}, "boot_device_type", type);
        all.add("board.boot-type", {}, typed);
        all.add("board.boot-type", {}, both(typed, numbers_added("control", "high_lines", {25})));
    }
    for (const std::int64_t line : {4, 25})
        all.add("board.line-high", {std::to_string(line)},
                numbers_added("control", "high_lines", {line}));
    all.add("board.root", {}, setting({}, "root", false));
    all.add("board.watchdog", {}, setting({"control"}, "watchdog_bites", false));
    for (const char* release : {"2.6.32", "4.9.0", "x"})
        all.add("board.kernel", {}, setting({}, "kernel_release", release));
    for (const char* zone : {"UTC", "EST5"})
        all.add("board.time-zone", {}, setting({}, "time_zone", zone));
    for (const std::string& path : all.names("files"))
        all.add(
            path.find("zeb") == std::string::npos ? "board.file" : "pmp.file",
            path.find("zeb") == std::string::npos ? std::vector{path} : std::vector<std::string>{},
            setting({"files", path}, "present", false));
}

void add_bridges(Enumeration& all) {
    for (const std::string& name : all.names("bridges")) {
        const std::vector<std::string> bridge{"bridges", name};
        const Apply old = setting(bridge, "image", std::int64_t{2048}),
                    stays = setting(bridge, "erases", false),
                    keeps = setting(bridge, "programs", false);
        for (const std::int64_t presence : {0, 0xFF})
            all.add("pmp.absent", {name}, setting(bridge, "presence", presence));
        all.add("pmp.old", {name}, old);
        all.add("pmp.blank", {name}, setting(bridge, "flash", ""));
        all.add("pmp.ignores", {name}, both(old, both(stays, keeps)));
        all.add("pmp.erases", {name}, both(old, stays));
        all.add("pmp.programs", {name}, both(old, keeps));
        all.add("pmp.protected", {name},
                both(old, both(setting(bridge, "protection", std::int64_t{0x1C}),
                               setting(bridge, "unlocks", false))));
        for (const std::int64_t cell : {0, 2000, 4095})
            all.add("pmp.cells", {name},
                    both(old, setting(bridge, "bad_cells", toml::array{cell})));
        for (const double time_s : {1.0, 10.0})
            all.add("pmp.slow", {name}, both(old, setting(bridge, "erase_time", time_s)));
        for (const double time_s : {0.001, 0.01})
            all.add("pmp.slow", {name}, both(old, setting(bridge, "program_time", time_s)));
        for (const char* key : {"revision", "bonding_high", "bonding_low"})
            all.add("pmp.variant", {name}, setting(bridge, key, std::int64_t{0x20}));
    }
}

void add_calls(Enumeration& all) {
    constexpr std::int64_t kMostFailures = 16;  // of the same call, each in a run of its own
    for (const auto& [call, count] : all.calls) {
        std::string place = call.function;
        for (const std::string& word : {call.path, call.request})
            if (!word.empty()) place += " " + word;
        for (const std::int64_t nth :
             numbers_between(1, std::min<std::int64_t>(count, kMostFailures)))
            all.add("call.fails", {place}, failing(call, nth));
        // From the last on, what is tried again fails too.
        for (const std::int64_t nth : std::set<std::int64_t>{1, 3, 8, count})
            if (nth <= count) all.add("call.fails", {place}, failing_from(call, nth));
        if (call.function == "read" || call.function == "write")
            all.add("call.fails", {place}, cut_short(call, 2));
    }
}

}  // namespace station
