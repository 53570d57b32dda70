// What the boot parameters say about the board's alarm inputs and outputs and RS-485 port.
#pragma once

#include <cstdint>

extern std::uint32_t g_rs485_step;        // 1: the full sequence tests the RS-485 port
extern std::uint32_t g_alarm_io_present;  // 1: the board information shows alarm I/O

// Reads the boot parameters through the open control device and sets the two flags. Returns 1
// when the alarm step of the full sequence applies, else 0. When they cannot be read, it prints so,
// leaves the flags unchanged and returns 0.
int check_boot_parameters(int control);
