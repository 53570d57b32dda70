// The commands of q7-station that make and print fault dictionaries.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace station {

// What simulated boards are made of: three files.
struct ModelFiles {
    std::string plan, board, simulator;
};

// --plan FILE --board SCENARIO --simulator PATH, each required.
void add_model_files(CLI::App& command, ModelFiles& files);

// dictionary --plan FILE --board SCENARIO --simulator PATH [--output FILE]
void add_dictionary(CLI::App& app, int& status);

// faults [--language zh|en] DICTIONARY...    and    faults --blind DICTIONARY...
void add_faults(CLI::App& app, int& status);

}  // namespace station
