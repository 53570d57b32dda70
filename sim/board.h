// The description of one simulated board: what it is fitted with, what is wrong with it, what
// the operator does and when, and how it changes. A scenario file or a check fills it. Times are
// seconds after the start of the run.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "sim/devices/table.h"
#include "sim/occurrence.h"

namespace sim {

struct Expect {                                     // what its run must show, for q7-sim --check
    std::vector<std::string> arguments;             // of q7
    std::optional<int> status;                      // with which it ends by itself
    std::optional<std::set<std::string>> verdicts;  // the result slots that show a fault
    std::vector<std::string> texts, no_texts;       // on the console or in a record, in UTF-8
};

struct Board : Descriptions {
    std::string file;  // that describes it, without its bases; empty for a built-in board
    std::string story;
    std::string time_zone = "UTC";
    std::string kernel_release = "3.10.0";
    UnixTime start{1'384'000'000};  // system time at the start
    double end = 3600;              // the run is stopped when virtual time passes this
    bool root = true;               // setuid(0) succeeds

    std::vector<Fault> faults;
    std::vector<Change> changes;
    std::optional<Expect> expect;
};

extern const Board* scenario;  // of this run, as it is at present

}  // namespace sim
