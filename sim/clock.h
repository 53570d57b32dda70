// Virtual time. One actor runs at a time, until it waits or ends; then the turn goes to the one
// whose wait ends first, and the clock jumps there. Of waits that end together, the one that began
// first is the first.
#pragma once

#include "sim/process.h"
#include "sim/time.h"

namespace sim {

enum class Wake { time_up, ready, interrupt };

// Ends when `until` has come, when the open file becomes ready (-1 = none), or by an interrupt:
// then its handler has run already, as it would inside a system call. A wait that is over at once
// keeps the turn.
Wake wait_until(Microseconds until, int file = -1, Direction direction = Direction::read);

// A call that takes time and that no signal ends; an interrupt is delivered after it.
void take_time(Microseconds duration);

// The time of a shell command, which an interrupt ends in place of its caller. True if one did.
bool take_time_of_shell(Microseconds duration);

void await_turn();         // blocks until this actor holds the turn
void deliver_interrupt();  // runs the handler, if one is due to this actor
void interrupt_all();      // Ctrl-C at the console: to every process
void pass_turn();          // of an actor that waits or has ended

// What happens next, and the step to it: an actor's wait ends, or the board itself does
// something. For a paced run, where the supervisor moves the clock.
struct Step {
    Microseconds at;  // kNever: nothing will happen any more
    int actor;        // -1 = the board
};
bool anyone_alive();
Step next_step();
void take_step(const Step& step);

}  // namespace sim
