#include "sim/scenario/scenario.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "sim/scenario/keys.h"
#include "sim/scenario/words.h"

namespace sim {
namespace {

constexpr int kDeepestBase = 8;

// A zone of the host's data base, or a rule of its own: "CET-1CEST,M3.5.0,M10.5.0/3".
bool is_time_zone(const std::string& zone) {
    const bool is_rule = zone.find_first_of("0123456789") != std::string::npos;
    return is_rule || zone == "UTC"
           || (!zone.empty() && std::filesystem::is_regular_file("/usr/share/zoneinfo/" + zone));
}

const Names kPorts{"NAME", "eth0 to eth3", [](const std::string& name) {
                       return name.size() == 4 && name.starts_with("eth") && name[3] >= '0'
                              && name[3] <= '3';
                   }};
const Names kDisks{
    "NODE", "sda to sdz, esda to esdz, or sas and a number, such as sas1",
    [](const std::string& name) {
        const bool single = name.size() == 3 && name.starts_with("sd") && is_letter(name[2]);
        const bool external = name.size() == 4 && name.starts_with("esd") && is_letter(name[3]);
        const bool minisas = name.starts_with("sas") && name.size() < 256;
        return single || external
               || (minisas && std::all_of(name.begin(), name.end(), [](char each) {
                       return is_letter(each) || is_digit(each);
                   }));
    }};
const Names kBridges{"NAME", "1 to 4", [](const std::string& name) {
                         return name.size() == 1 && name[0] >= '1' && name[0] <= '4';
                     }};
const Names kFiles{"PATH", "/dav0/zeb321.bin, /dav2/devCfg.bin or /dav2/devCfg_backup.bin",
                   [](const std::string& path) {
                       return path == "/dav0/zeb321.bin" || path == "/dav2/devCfg.bin"
                              || path == "/dav2/devCfg_backup.bin";
                   }};

void describe_board(Keys& keys, Board& board, const std::string& folder) {
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
    keys.table("hardware", [&](Keys& sub) { describe(sub, board.hardware); });
    keys.table("control", [&](Keys& sub) { describe(sub, board.control); });
    keys.table("fifo", [&](Keys& sub) { describe(sub, board.fifo); });
    keys.table("panel", [&](Keys& sub) { describe(sub, board.panel); });
    keys.table("rs485", [&](Keys& sub) { describe(sub, board.rs485); });
    keys.table("alarm", [&](Keys& sub) { describe(sub, board.alarm); });
    keys.table("rtc", [&](Keys& sub) { describe(sub, board.rtc); });
    keys.named("ports", kPorts,
               [&](Keys& sub, const std::string& name) { describe(sub, board.ports[name]); });
    keys.table("usb", [&](Keys& sub) { describe(sub, board.usb); });
    keys.named("bridges", kBridges, [&](Keys& sub, const std::string& name) {
        describe(sub, board.bridges[name], folder);
    });
    keys.named("disks", kDisks, [&](Keys& sub, const std::string& node) {
        describe(sub, board.disks[node], board.bridges);
    });
    keys.named("files", kFiles, [&](Keys& sub, const std::string& path) {
        describe(sub, board.files[path], folder);
    });
    keys.table("operator", [&](Keys& sub) { describe(sub, board.person); });
    keys.list("faults", board.faults, describe, kMostFaults);
}

void apply(Board& board, const std::string& text, const std::string& name,
           const std::string& folder, int depth);

void apply_file(Board& board, const std::string& name, int depth) {
    if (std::ifstream file(name, std::ios::binary); file) {
        const std::string text(std::istreambuf_iterator<char>(file), {});
        if (file.bad()) throw ScenarioError(name + ": cannot be read");
        std::string folder = std::filesystem::path(name).parent_path().string();
        if (!folder.empty()) folder += '/';
        apply(board, text, name, folder, depth);
        return;
    }
    for (const BuiltInBoard& built_in : built_in_boards()) {
        const std::string known = built_in.name;
        if (name != known && name != known + ".toml") continue;
        apply(board, built_in.text, known + ".toml", "", depth);
        return;
    }
    throw ScenarioError(name + ": no such file, and no board of this name (--list shows them)");
}

void apply(Board& board, const std::string& text, const std::string& name,
           const std::string& folder, int depth) {
    const Node table = parse_toml(text, name);
    Keys keys(&table);
    std::string base;
    keys.key("base", base, "");
    if (!base.empty()) {
        if (depth == kDeepestBase) throw ScenarioError(name + ": the base of its own base");
        const bool beside = std::filesystem::exists(folder + base);
        apply_file(board, beside ? folder + base : base, depth + 1);
    }
    describe_board(keys, board, folder);
    keys.finish();
}

}  // namespace

Board load_board(const std::string& file_or_name) {
    Board board;
    apply_file(board, file_or_name, 0);
    return board;
}

Board parse_board(const std::string& text, const std::string& name) {
    Board board;
    apply(board, text, name, "", 0);
    return board;
}

std::string key_reference() {
    Board board;
    Keys keys(nullptr);
    std::string base;
    keys.key("base", base, "scenario to start from, a file or a name; this one says what differs");
    describe_board(keys, board, "");
    return keys.reference();
}

}  // namespace sim
