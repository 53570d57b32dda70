// The commands of q7-station, each of which adds itself to the command line and leaves the exit
// status of its run in `status`.
#pragma once

namespace CLI {
class App;
}

namespace station {

constexpr int kBadUse = 2;

void add_prove(CLI::App& app, int& status);
void add_run(CLI::App& app, int& status);
void add_judge(CLI::App& app, int& status);
void add_learn(CLI::App& app, int& status);
void add_rejudge(CLI::App& app, int& status);
void add_replay(CLI::App& app, int& status);

}  // namespace station
