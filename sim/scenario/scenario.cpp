#include "sim/scenario/scenario.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <utility>

#include "sim/device.h"
#include "sim/scenario/keys.h"

namespace sim {
namespace {

// A zone of the host's database, or a rule such as "CET-1CEST,M3.5.0,M10.5.0/3".
bool is_time_zone(const std::string& zone) {
    const bool is_rule = zone.find_first_of("0123456789") != std::string::npos;
    return is_rule || zone == "UTC"
           || (!zone.empty() && std::filesystem::is_regular_file("/usr/share/zoneinfo/" + zone));
}

void describe_devices(Keys& keys, Board& board) {
    for (const Device* device : kDevices)
        device->describe(keys, board);
}

// A change: its trigger and any keys of the devices. Applied once to a copy, to find its errors.
void describe_change(Keys& keys, Change& change, const Board& board) {
    describe(keys, change);
    if (keys.is_reference()) return;
    keys.describe_later();
    change.apply = [keys](Board& changed) {
        Keys again = keys;
        describe_devices(again, changed);
    };
    Board tried = board;
    describe_devices(keys, tried);
}

void describe_expect(Keys& keys, std::optional<Expect>& expected) {
    static const std::set<std::string> kSlots = {"alarm", "minisas", "network",
                                                 "rs485", "rtc",     "sata"};
    Expect& expect = expected.emplace();
    int status = 0;
    std::set<std::string> verdicts;
    keys.key("arguments", expect.arguments, "words for q7; [] = the console sequence");
    keys.key("status", status, "status with which q7 ends", {0, 255});
    if (keys.says("status")) expect.status = status;
    keys.key("verdicts", verdicts,
             "result slots that show a fault, of alarm, minisas, network, rs485, rtc and sata; "
             "[] = none");
    for (const std::string& verdict : verdicts)
        if (kSlots.count(verdict) == 0)
            keys.refuse("verdicts",
                        "verdicts takes alarm, minisas, network, rs485, rtc, sata and not \""
                            + verdict + "\"");
    if (keys.says("verdicts")) expect.verdicts = verdicts;
    keys.key("texts", expect.texts, "texts that must come, on the console or in a record");
    keys.key("no_texts", expect.no_texts, "texts that must not come");
}

void describe_run(Keys& keys, Board& board) {
    keys.key("story", board.story, "one line: what this board is, and what is wrong with it");
    keys.key("start", board.start, "system time at the start");
    keys.key("time_zone",
             word("TZ that this machine knows, such as \"Asia/Shanghai\" or \"CST-8\"", "\"UTC\"",
                  [&](const std::string& zone) {
                      board.time_zone = zone;
                      return is_time_zone(zone);
                  }),
             "TZ of the board");
    keys.key("kernel_release", board.kernel_release, "release of the running kernel", {0, 64});
    keys.key("end", board.end, "second of virtual time after which the run is stopped");
    keys.key("root", board.root, "q7 can become the super-user");
    describe_devices(keys, board);
    keys.list("faults", board.faults, kMostFaults);
    keys.list("changes", board.changes, kMostChanges,
              [&](Keys& sub, Change& change) { describe_change(sub, change, board); });
    keys.table("expect", board.expect, describe_expect);
}

// Reads scenarios, each after its bases. A base named several times is read once, so that it does
// not override what was read in between.
class Loader {
  public:
    Board result() { return std::move(board_); }

    void file(const std::string& name) {
        if (std::ifstream file(name, std::ios::binary); file) {
            const std::string content(std::istreambuf_iterator<char>(file), {});
            if (file.bad()) throw ScenarioError(name + ": cannot be read");
            std::string folder = std::filesystem::path(name).parent_path().string();
            if (!folder.empty()) folder += '/';
            text(content, name, folder);
            return;
        }
        for (const BuiltInBoard& built_in : built_in_boards()) {
            const std::string known = built_in.name;
            if (name != known && name != known + ".toml") continue;
            text(built_in.text, known + ".toml", "");
            board_.file.clear();
            return;
        }
        throw ScenarioError(name + ": no such file, and no board of this name (--list shows them)");
    }

    void text(const std::string& content, const std::string& name, const std::string& folder) {
        if (!read_.insert(name).second) return;
        Keys keys(parse_toml(content, name), folder);
        std::vector<std::string> bases;
        keys.key("base", bases, "");
        for (const std::string& base : bases)
            file(std::filesystem::exists(folder + base) ? folder + base : base);
        describe_run(keys, board_);
        keys.finish();
        board_.file = name;
    }

  private:
    Board board_;
    std::set<std::string> read_;
};

}  // namespace

Board load_board(const std::string& file_or_name) {
    Loader loader;
    loader.file(file_or_name);
    return loader.result();
}

Board parse_board(const std::string& text, const std::string& name) {
    Loader loader;
    loader.text(text, name, "");
    return loader.result();
}

std::string key_reference() {
    Board board;
    Keys keys(nullptr);
    std::vector<std::string> bases;
    keys.key("base", bases, "scenarios to start from, files or names; this one says what differs");
    describe_run(keys, board);
    return keys.reference();
}

}  // namespace sim
