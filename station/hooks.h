// The factory's own commands: before a start, which they may refuse, and after a verdict.
#pragma once

#include <chrono>
#include <string>

#include "station/journal.h"

namespace station {

constexpr std::chrono::seconds kHookLimit{10};

struct HookResult {
    enum class End {
        exited,       // with `status`
        signalled,    // by `status`
        late,         // ended by us after its time
        not_started,  // there is no shell
    } end = End::not_started;
    int status = 0;
    std::string said;  // the beginning of its standard output and error, at most 4096 bytes

    // A start goes on after status 0 alone.
    bool agrees() const { return end == End::exited && status == 0; }
};

// What the command before a start reads: one JSON object on one line.
std::string start_question(const Identity& identity, const std::string& plan_sha256);

// What a command that does not agree says for people.
std::string words_of(const HookResult& result);

// Runs the command by the shell, in a process group of its own, with `input` and then the end on
// its standard input. Returns when it has ended, or has been killed with its group after `limit`.
// A command need not read its input. Safe beside other threads.
HookResult run_hook(const std::string& command, const std::string& input,
                    std::chrono::milliseconds limit = kHookLimit);

}  // namespace station
