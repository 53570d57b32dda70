// What q7 prints. Each call formats its text first and is then one write, so that nothing of
// another process comes in between; nothing is kept back. A short write is gone on with, an
// interrupted one repeated; what cannot be written is dropped.
//
// A text has at most 1023 bytes, the length of a report; the longest of the others is a line
// around the path of a node in /dev, 260 bytes.
#pragma once

[[gnu::format(printf, 1, 2)]] void print(const char* format, ...);        // on standard output
void print_line(const char* text);                                        // the same, with "\n"
[[gnu::format(printf, 1, 2)]] void print_error(const char* format, ...);  // on standard error
void print_system_error(const char* what);  // the same: what, ": ", the text of errno, "\n"
