// The report channel: every operator message of a test is printed on the console or, in net mode,
// sent as a record into the report FIFO.
#pragma once

// The reporting statement: module name, and the source line, taken at the call.
struct Site {
    const char* module;
    int line;
    Site(const char* name, int at = __builtin_LINE()) : module(name), line(at) {}
};

// Formats at most 1023 bytes and prints or sends them unchanged. A record that cannot be written is
// lost; a line on the console then names the module and the source line.
[[gnu::format(printf, 2, 3)]] void report(Site site, const char* format, ...);

// True until the FIFO has been opened.
bool console_mode();

// Opens the FIFO without waiting for a reader and selects net mode. Returns 0, or -1 when there is no
// FIFO or no reader; q7 then stays in console mode. Once the FIFO is open, SIGPIPE is ignored, so that
// a reader that leaves does not end the run.
int open_report_fifo();
void close_report_fifo();
