// Timed changes of the description, each with its trigger.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "sim/fault.h"
#include "sim/time.h"

namespace sim {

class Keys;
struct Board;

constexpr std::size_t kMostChanges = 64;

struct Change : Match {  // a matching call triggers it before the call is carried out
    enum class Trigger : std::uint8_t { time, call, key };

    Trigger trigger = Trigger::call;
    double at = 0, every = 0;  // seconds; every = 0: once
    std::string key;           // pressed by a person
    std::function<void(Board&)> apply;
};
void describe(Keys& keys, Change& change);

struct ChangeState : MatchState {
    Microseconds due;  // of a trigger by time; kNever = done
};

// Prepares the changes of the board. From then on `scenario` is the board as it is now. Each process
// has its own copy, which follow_changes brings up to date.
void start_changes(const Board& description);
void follow_changes();

Microseconds next_change_at();
void make_due_changes();
void make_changes_of_call(const Event& call);
bool make_changes_of_key(std::string_view key);  // false: no change has this key

}  // namespace sim
