// The serial lines: 9600 baud, 8 data bits, no parity, 1 stop bit, raw.
#pragma once

// Opens a serial device read-write, not as controlling terminal, non-blocking. Returns the
// descriptor, or -1 with errno.
int open_serial_line(const char* path);

// Puts the settings on top of the line's current attributes; what they do not name stays. Returns
// 0, or -1 when they cannot be applied.
int set_up_serial_line(int fd);
