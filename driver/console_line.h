// The console line reader.
#pragma once

#include <array>

using ConsoleLine = std::array<char, 20>;

// Waits up to timeout_s seconds for the operator and reads at most 20 bytes. Returns the number of
// bytes read less one, so 0 for a bare Enter, which leaves "\n" as the first byte, and -2 for a
// failed read. Of two or more bytes the last becomes the terminating zero. Time-out, failed wait
// and end of input return 0 and leave the line alone.
int read_console_line(ConsoleLine& line, int timeout_s);
