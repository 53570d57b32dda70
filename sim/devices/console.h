// The standard streams and the operator.
#pragma once

#include <vector>

#include "sim/device.h"
#include "sim/queue.h"

namespace sim {

constexpr std::size_t kMostLines = 1024;  // that the operator types

struct TypedLine {
    double at = 0;
    std::string text;  // as typed, with its "\n"; empty = end of input
};

struct Operator {
    std::vector<TypedLine> lines;
    std::vector<double> interrupts;  // Ctrl-C
};

struct ConsoleInput {
    Microseconds at;
    std::string_view text;  // in the log, what was not read; empty = end of input, which stays
};

struct ConsoleState {
    Queue<ConsoleInput, kMostLines> typed;
    std::uint32_t interrupts;  // of the scenario's list, so far
};

extern const Device& console_device;

// What the operator types at the present instant; empty = end of input.
void type_line(std::string_view text);
void type_interrupt();

}  // namespace sim
