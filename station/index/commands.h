// index, history, yield and export on the command line of q7-station.
#pragma once

namespace CLI {
class App;
}

namespace station::index {

// Adds the four commands, each of which leaves its exit status in `status`: 0, or 1 when some
// attempts could not be indexed. Their callbacks throw std::runtime_error when the database or the
// output fails.
void add_commands(CLI::App& app, int& status);

}  // namespace station::index
