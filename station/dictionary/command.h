// The commands of q7-station that make and print fault dictionaries.
#pragma once

namespace CLI {
class App;
}

namespace station {

// dictionary --plan FILE --board SCENARIO --simulator PATH [--output FILE]
void add_dictionary(CLI::App& app, int& status);

// faults [--language zh|en] DICTIONARY...    and    faults --blind DICTIONARY...
void add_faults(CLI::App& app, int& status);

}  // namespace station
