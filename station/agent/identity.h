#pragma once

#include "station/agent/event.h"

namespace agent {

// Adds to a line which board this is and what runs on it: "boot" (the kernel's id of this boot),
// "kernel" (its release), "time" (seconds since 1970, by a clock that may be wrong), "addresses"
// (of the network interfaces; at most 16), "program" (path, size, sha256; null = not found).
// What the system does not tell is empty.
void describe_board(Line& line, const char* program);

}  // namespace agent
