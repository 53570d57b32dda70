// A simulated board as its scenario file describes it, and changes of it, as TOML.
#pragma once

#include <toml++/toml.h>
#include <filesystem>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>

namespace station {

struct BoardError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The scenario with everything of its bases, which stand in files beside it. Throws BoardError.
toml::table load_board(const std::filesystem::path& scenario);

// The table at a dotted path; made where it is missing.
toml::table& table_at(toml::table& board, std::initializer_list<std::string_view> path);

// Writes a change, as TOML, into the board. Throws BoardError.
void apply_change(toml::table& board, const std::string& change);

// The keys, one a line, that turn `board` into `changed` when they follow a line that names `board`
// as their base: "alarm.dead = [6]". A key that only `board` has stays as it is.
std::string change_of(const toml::table& board, const toml::table& changed);

}  // namespace station
