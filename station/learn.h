// Writes a plan from journals of boards that are known to be good.
#pragma once

#include <string>
#include <vector>

#include "station/journal.h"

namespace station {

// The text of a plan that each of these journals passes, but for its signature. What differs from
// one to the other, and what does so by its nature, is left open or bounded. Throws
// std::runtime_error when the journals have no end, no end of q7, or other commands than the first.
std::string learn_plan(const std::vector<Journal>& journals, const std::string& model);

}  // namespace station
