// The changeable state of one simulated run: clock, actors, descriptors, devices, event log.
// It lies in one shared mapping, made before the product is forked, so that all threads and processes
// of the run share one board. Trivially copyable, of fixed capacity; exceeding it ends the run with
// a message.
#pragma once

#include <cstddef>
#include <type_traits>

#include "sim/board.h"
#include "sim/event_log.h"
#include "sim/process.h"

namespace sim {

struct World : States {
    Microseconds now;
    Actor* running;  // holds the turn; null = nobody
    std::uint32_t threads_started, children_started;
    std::uint64_t waits_begun;
    pid_t supervisor;
    int wake_supervisor;  // event descriptor, inherited by every process
    bool paced;           // the supervisor moves the clock
    bool stopped, power_cut, restarted;
    char stop_reason[4096];
    std::uint8_t left[256];  // by the program at its exit, for whoever reads the world

    OccurrenceState faults[kMostFaults], changes[kMostChanges];
    std::uint32_t changes_made;
    std::uint8_t made[1 << 16];  // their places in the list, in order

    Actor actors[64];
    Process processes[64];
    OpenFile files[8192];

    EventLog log;
};
static_assert(std::is_trivially_copyable_v<World>);

extern World* world;  // of this run; set before the product starts

// Marks the run as stopped, with the reason, and wakes the supervisor, which ends it. stop_here never
// returns; before the run it throws.
[[gnu::format(printf, 1, 2)]] void stop_run(const char* format, ...);
[[noreturn, gnu::format(printf, 1, 2)]] void stop_here(const char* format, ...);

// The first slot that is not used. Ends the run where there is none, as "more than 64 pipes".
template <class Slot, std::size_t kCount>
Slot& free_slot(Slot (&slots)[kCount], const char* what) {
    for (Slot& slot : slots)
        if (!slot.is_used()) return slot;
    stop_here("more than %zu %s", kCount, what);
}

}  // namespace sim
