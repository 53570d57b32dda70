// The result summary at the end of the full sequence.
#pragma once

#include <cstdint>

// Shows the verdicts in the result slots, sounds the outcome on the console's buzzer, and stores 1
// (passed) or 0 (failed) through the pointer, unless it is null. Uses the SATA fault mask up: it
// reads 0 afterwards.
void result_summary(std::uint8_t* all_passed);
