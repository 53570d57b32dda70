// Output of q7. Each call formats its text and writes it in one piece, unbuffered, so that output of
// other processes cannot land within a line. Short writes are continued, interrupted ones repeated;
// text that cannot be written is dropped.
//
// A text has at most 1023 bytes, the length of a report; the longest of the others is a line
// around the path of a node in /dev, 260 bytes.
#pragma once

[[gnu::format(printf, 1, 2)]] void print(const char* format, ...);        // on standard output
void print_line(const char* text);                                        // the same, with "\n"
[[gnu::format(printf, 1, 2)]] void print_error(const char* format, ...);  // on standard error
void print_system_error(const char* what);  // the same: what, ": ", the text of errno, "\n"
