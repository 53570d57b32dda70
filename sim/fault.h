// Faults of calls: a layer over healthy devices.
#pragma once

#include <cstdint>
#include <string>

namespace sim {

class Keys;
struct Event;

constexpr std::size_t kMostFaults = 64;

// The n-th platform call of a kind.
struct Match {
    std::string call;           // function; empty = any
    std::string path;           // of the file or directory; empty = any
    std::string actor;          // "main", "thread1", "child1" ...; empty = any
    std::uint32_t request = 0;  // of an ioctl; 0 = any
    std::uint32_t opcode = 0;   // of a bridge request: its byte 1; 0 = any
    std::uint32_t nth = 1;
    std::string place{};  // in the scenario: "board.toml:12"

    bool concerns(const Event& event) const;  // regardless of nth
};
void describe(Keys& keys, Match& match);

struct MatchState {         // of a fault or change in the run
    std::uint32_t matches;  // calls so far
    std::uint32_t came;     // times that it came
};

// Takes the place of the n-th matching call or, with `onwards`, of each from then on.
struct Fault : Match {
    enum class Effect : std::uint8_t { error, shorten, value, interrupt, power_cut };

    bool onwards = false;
    Effect effect = Effect::error;
    int error = 5;            // errno, with Effect::error
    long value = 0;           // returned, with Effect::value
    std::uint32_t count = 0;  // bytes that remain, with Effect::shorten
};
void describe(Keys& keys, Fault& fault);

// The fault that takes the place of this call; null = none. Counts the call for each fault that it
// matches.
const Fault* matching_fault(const Event& call);

}  // namespace sim
