#include "sim/scenario/scenario.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "sim/scenario/board_keys.h"

namespace sim {
namespace {

constexpr int kDeepestBase = 8;

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
    describe(keys, board, folder);
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
    describe(keys, board, "");
    return keys.reference();
}

}  // namespace sim
