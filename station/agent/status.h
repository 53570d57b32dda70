#pragma once

#include <cstdarg>
#include <cstdio>

namespace agent {

// Exit statuses of q7-agent. None is one of q7's own.
enum Status {
    kGood = 0,           // the run has ended and every event was sent; whatever came of the run
    kBadUse = 64,        // of the command line
    kInProgress = 65,    // another run, or a process of it, still lives
    kNoSuchRun = 66,     //
    kNoFifo = 67,        // cannot be made, or is no FIFO
    kNoSpool = 68,       // cannot be written, or is full
    kRecorderDead = 69,  // before the end of its run
    kNoProgram = 70,     // it cannot be executed
    kNoOutput = 71,      // standard output cannot be written
    kNoProcess = 72,     // the system refuses a process or a pipe
};

// A status other than kGood comes with the reason, for a person.
struct Result {
    int status = kGood;
    char reason[500] = "";
};

[[gnu::format(printf, 2, 3)]] inline Result failure(Status status, const char* format, ...) {
    Result result;
    result.status = status;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(result.reason, sizeof result.reason, format, arguments);
    va_end(arguments);
    return result;
}

}  // namespace agent
