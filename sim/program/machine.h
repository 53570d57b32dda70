// Runs for machines: the outcome of one as JSON, and checks of scenarios with expectations.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sim/board.h"
#include "sim/supervisor.h"

namespace sim {

// Runs q7 with these words, in the process that this starts.
using Product = std::function<int(const std::vector<std::string>& words)>;

// One run, silent, as a line of JSON.
std::string summary_json(const Board& board, const std::vector<std::string>& words,
                         const Product& q7);

// Runs each scenario, some at a time, and prints which hold. Returns the exit status: 0 = all hold,
// 1 = not all.
int check_scenarios(const std::vector<std::string>& names, const Product& q7);

}  // namespace sim
