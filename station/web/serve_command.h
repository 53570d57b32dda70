#pragma once

namespace CLI {
class App;
}

namespace station {

// serve: the pages of one station.
void add_serve(CLI::App& app, int& status);

}  // namespace station
