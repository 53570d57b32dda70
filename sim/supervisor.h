// Runs the product on a simulated board: makes the world, forks the product into it, collects its
// output, detects dead processes, and stops a run that cannot end by itself.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "sim/board.h"
#include "sim/world.h"

namespace sim {

struct Program {
    std::function<int()> run;         // in the forked process; its result is the exit status
    std::function<void()> at_exit{};  // there too, before its main process exits by itself
};

// A run that a person watches: virtual time passes at `pace` times real time.
struct Live {
    double pace = 0;                                      // 0 = as fast as the machine
    std::function<void(int console, int errors)> show{};  // when all wait, with the streams
    // Descriptors of the host, with what to do when one is readable; false = stop watching it.
    std::vector<std::pair<int, std::function<bool()>>> inputs{};
};

struct Outcome {
    int status = -1;       // exit status of the main process; -1 when a signal ended it
    int signal = 0;        // that ended it
    bool stopped = false;  // by the supervisor, for this reason
    std::string reason{};
    std::string console{}, errors{};  // bytes on standard output and standard error

    std::shared_ptr<World> world{};  // as the run left it
};

Outcome simulate(const Board& description, const Program& program, const Live& live = {});

// For the simulated platform.
[[noreturn]] void leave_process(int status);  // the end of the running process
void wake_supervisor();
void save_coverage();  // in the coverage build: what this process has run so far

}  // namespace sim
