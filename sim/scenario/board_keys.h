#pragma once

#include "sim/board.h"
#include "sim/scenario/keys.h"

namespace sim {

// The keys of a board. `folder` is that of the file, for the files that it names.
void describe(Keys& keys, Board& board, const std::string& folder);

}  // namespace sim
