// The result summary at the end of the full sequence.
#pragma once

#include <cstdint>

// Shows the verdicts in the result slots, sounds the outcome on the buzzer in console mode, and stores
// 1 (passed) or 0 (failed) through the pointer, unless it is null. Clears the SATA fault mask in
// doing so.
void result_summary(std::uint8_t* all_passed);
