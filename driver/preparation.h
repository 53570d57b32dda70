// Prepares the board for the first test.
#pragma once

#include "platform/descriptor.h"

// Opens the control device, sets the watchdog's time-out of 7 seconds and stops it, so that it
// does not restart the board while tests run. Returns the open device. When it cannot be opened or
// refuses the time-out, prints so and ends the process: with the open's negative result, or with
// the descriptor's number, as exit status.
platform::Descriptor prepare_control_device();

// Waits two seconds, and opens the keyboard line if a front panel is fitted.
void settle_board();
