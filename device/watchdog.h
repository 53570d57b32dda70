// The board's watchdog.
#pragma once

// Lets the watchdog restart the board in 5 seconds. A failure is printed; returns 0 always.
int watchdog_restart();
