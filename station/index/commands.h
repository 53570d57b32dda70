// index, history, yield and export on the command line of q7-station.
#pragma once

#include <CLI/CLI.hpp>

namespace station::index {

// Adds the four commands. Their status: 0; 1 = some attempts could not be indexed; 2 = bad use, or
// the database or the output failed. Other statuses than 0 leave as CLI::RuntimeError.
void add_commands(CLI::App& app);

}  // namespace station::index
