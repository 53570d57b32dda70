// What a scenario lets happen during the run: faults of calls, a layer over healthy devices, and
// changes of the description.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "sim/time.h"

namespace sim {

class Keys;
struct Board;
struct Event;

constexpr std::size_t kMostFaults = 64, kMostChanges = 64;

// With the n-th platform call of a kind.
struct Occurrence {
    std::string call;           // function; empty = any
    std::string path;           // of the file or directory; empty = any
    std::string actor;          // "main", "thread1", "child1" ...; empty = any
    std::uint32_t request = 0;  // of an ioctl; 0 = any
    std::uint32_t opcode = 0;   // of a bridge request: its byte 1; 0 = any
    std::uint32_t nth = 1;
    std::string place{};  // in the scenario: "board.toml:12"

    bool concerns(const Event& event) const;  // regardless of nth
};

// Takes the place of the n-th matching call or, with `onwards`, of each from then on.
struct Fault : Occurrence {
    enum class Effect : std::uint8_t { error, shorten, value, interrupt, power_cut };

    bool onwards = false;
    Effect effect = Effect::error;
    int error = 5;            // errno, with Effect::error
    long value = 0;           // returned, with Effect::value
    std::uint32_t count = 0;  // bytes that remain, with Effect::shorten
};
void describe(Keys& keys, Fault& fault);

struct Change : Occurrence {  // a matching call triggers it before the call is carried out
    enum class Trigger : std::uint8_t { time, call, key };

    Trigger trigger = Trigger::call;
    double at = 0, every = 0;  // seconds; every = 0: once
    std::string key;           // pressed by a person
    std::function<void(Board&)> apply;
};
void describe(Keys& keys, Change& change);

struct OccurrenceState {    // in the run
    std::uint32_t matches;  // calls so far
    std::uint32_t came;     // times that it came
};

// The fault that takes the place of this call; null = none. Counts the call for each fault that it
// matches.
const Fault* matching_fault(const Event& call);

// Prepares faults and changes of the board. From then on `scenario` is the board as it is now. Each
// process has its own copy, which follow_changes brings up to date.
void start_occurrences(const Board& description);
void follow_changes();

Microseconds next_change_at();
void make_due_changes();
void make_changes_of_call(const Event& call);
bool make_changes_of_key(std::string_view key);  // false: no change has this key

}  // namespace sim
