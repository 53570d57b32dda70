#include "sim/scenario/scenario.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "sim/scenario/keys.h"
#include "sim/scenario/words.h"

namespace sim {
namespace {

// A zone of the host's data base, or a rule of its own: "CET-1CEST,M3.5.0,M10.5.0/3".
bool is_time_zone(const std::string& zone) {
    const bool is_rule = zone.find_first_of("0123456789") != std::string::npos;
    return is_rule || zone == "UTC"
           || (!zone.empty() && std::filesystem::is_regular_file("/usr/share/zoneinfo/" + zone));
}

constexpr Names kPorts{"NAME", "eth[0-3]"};
constexpr Names kDisks{"NODE", "sd[a-z] esd[a-z] sas*"};
constexpr Names kBridges{"NAME", "[1-4]"};
constexpr Names kFiles{"PATH", "/dav0/zeb321.bin /dav2/devCfg.bin /dav2/devCfg_backup.bin"};

// What a change can describe as well; `folder` is that of the file, for the files that it names.
void describe_board(Keys& keys, Board& board, const std::string& folder) {
    keys.table("hardware", [&](Keys& sub) { describe(sub, board.hardware); });
    keys.table("control", [&](Keys& sub) { describe(sub, board.control); });
    keys.table("fifo", [&](Keys& sub) { describe(sub, board.fifo); });
    keys.table("panel", [&](Keys& sub) { describe(sub, board.panel); });
    keys.table("rs485", [&](Keys& sub) { describe(sub, board.rs485); });
    keys.table("alarm", [&](Keys& sub) { describe(sub, board.alarm); });
    keys.table("rtc", [&](Keys& sub) { describe(sub, board.rtc); });
    keys.named("ports", kPorts, board.ports,
               [](Keys& sub, NetworkPort& port) { describe(sub, port); });
    keys.table("usb", [&](Keys& sub) { describe(sub, board.usb); });
    keys.named("bridges", kBridges, board.bridges,
               [&](Keys& sub, Bridge& bridge) { describe(sub, bridge, folder); });
    keys.named("disks", kDisks, board.disks,
               [&](Keys& sub, Disk& disk) { describe(sub, disk, board.bridges); });
    keys.named("files", kFiles, board.files,
               [&](Keys& sub, FileContent& file) { describe(sub, file, folder); });
    keys.table("operator", [&](Keys& sub) { describe(sub, board.person); });
}

// One change: its trigger, and the keys that it changes. Tried once, so that its mistakes show.
Change to_change(const Node& node, const Board& board, const std::string& folder) {
    Change change;
    const auto apply = [node, folder](Board& changed) {
        Change trigger;
        Keys keys(&node, Moment::later);
        describe(keys, trigger);
        describe_board(keys, changed, folder);
        keys.finish();
    };
    Keys keys(&node, Moment::later);
    describe(keys, change);
    Board tried = board;
    apply(tried);
    change.apply = apply;
    return change;
}

void describe_changes(Keys& keys, Board& board, const std::string& folder) {
    std::vector<Node> changes;
    keys.nodes("changes", changes, kMostChanges, [](Keys& sub) {
        Change sample;
        describe(sub, sample);
    });
    if (!keys.says("changes")) return;
    board.changes.clear();
    for (const Node& node : changes)
        board.changes.push_back(to_change(node, board, folder));
}

void describe_run(Keys& keys, Board& board, const std::string& folder) {
    keys.key("story", board.story, "one line: what this board is, and what is wrong with it");
    keys.key("start", board.start, "system time at the start");
    keys.key("time_zone",
             Word{"TZ that this machine knows, such as \"Asia/Shanghai\" or \"CST-8\"", "\"UTC\"",
                  [&](const std::string& zone) {
                      board.time_zone = zone;
                      return is_time_zone(zone);
                  }},
             "TZ of the board");
    keys.key("kernel_release", board.kernel_release, "release of the running kernel", {0, 64});
    keys.key("end", board.end, "second of virtual time after which the run is stopped");
    keys.key("root", board.root, "q7 can become the super-user");
    describe_board(keys, board, folder);
    keys.list("faults", board.faults, describe, kMostFaults);
    describe_changes(keys, board, folder);
    keys.table("expect", [&](Keys& sub) { describe(sub, board.expect.emplace()); });
}

// Scenarios by their names, each with its bases before it. A base that several name counts once, so
// that what one of them says is not undone.
class Loader {
  public:
    Board take() { return std::move(board_); }

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
        const Node table = parse_toml(content, name);
        Keys keys(&table);
        std::vector<std::string> bases;
        keys.key("base", bases, "");
        for (const std::string& base : bases)
            file(std::filesystem::exists(folder + base) ? folder + base : base);
        describe_run(keys, board_, folder);
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
    return loader.take();
}

Board parse_board(const std::string& text, const std::string& name) {
    Loader loader;
    loader.text(text, name, "");
    return loader.take();
}

std::string key_reference() {
    Board board;
    Keys keys(nullptr);
    std::vector<std::string> bases;
    keys.key("base", bases, "scenarios to start from, files or names; this one says what differs");
    describe_run(keys, board, "");
    return keys.reference();
}

}  // namespace sim
