#pragma once

#include <string>

#include "sim/world.h"

namespace sim {

// One event as a line of JSON, without the line end. Times are seconds; bytes are hexadecimal.
std::string to_json(const World& state, const Event& event);

}  // namespace sim
