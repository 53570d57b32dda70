// The description of one simulated board: what it is fitted with, what is wrong with it, what
// the operator does and when, and how it changes. A scenario file or a check fills it. Times are
// seconds after the start of the run.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sim/change.h"
#include "sim/devices/table.h"
#include "sim/fault.h"
#include "sim/scenario/expect.h"
#include "sim/scenario/node.h"

namespace sim {

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
