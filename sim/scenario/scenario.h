// Scenario files: a board described in TOML, possibly by its differences from others.
#pragma once

#include <string>
#include <vector>

#include "sim/board.h"

namespace sim {

struct BuiltInBoard {
    const char* name;  // "healthy"
    const char* text;  // TOML
};
const std::vector<BuiltInBoard>& built_in_boards();

// The board in a file, or a built-in one by its name. Throws a runtime error that names
// file, line and the words that would have been accepted.
Board load_board(const std::string& file_or_name);

// The same from a text; `name` stands for the file in errors.
Board parse_board(const std::string& text, const std::string& name);

// Every key with its type, default and meaning, as a Markdown table for each section.
std::string key_reference();

}  // namespace sim
