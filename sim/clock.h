// Virtual time. One actor runs at a time, until it waits or ends. The turn then goes to the actor
// whose wait ends first, and the clock jumps to that instant. Of waits that end together, the one
// that began first ends first.
#pragma once

#include "sim/process.h"
#include "sim/time.h"

namespace sim {

enum class Wake { time_up, ready, interrupt };

// Ends at `until`, when the open file becomes ready (null = none), or by an interrupt, whose handler
// has then run, as inside a system call. A wait that is already over keeps the turn.
Wake wait_until(Microseconds until, const OpenFile* file = nullptr,
                Direction direction = Direction::read);

// Advances the clock; not interruptible. A pending interrupt is delivered afterwards.
void spend_time(Microseconds duration);

// Advances the clock by a shell command, which takes an interrupt in place of its caller. True when
// one came.
bool spend_time_in_shell(Microseconds duration);

void await_turn();         // blocks until this actor holds the turn
bool deliver_interrupt();  // runs the handler if an interrupt is pending for this actor; false = none
void interrupt_all();      // Ctrl-C at the console: to every process
void pass_turn();          // called by an actor that waits or has ended

// The next step of the run: an actor's wait ends, or the board itself acts. In a paced run the
// supervisor takes the steps.
struct Step {
    Microseconds at;  // kNever: nothing will ever happen
    Actor* actor;     // null = the board
};
bool anyone_alive();
Step next_step();
void run_step(const Step& step);

}  // namespace sim
