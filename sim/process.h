// Actors, processes and descriptors of a run: the slots of what has ended are used again.
#pragma once

#include <string_view>

#include "sim/world.h"

namespace sim {

extern constinit thread_local int self;  // the actor that this thread is; -1 = the supervisor

Process& running_process();

// New actors, alive, whose turn comes at the present instant.
void start_first_process();  // process 0, with the actor "main", which holds the turn
int add_thread();            // of the running process; the slot of its actor
int add_child();             // of the running process; its slot

// Whether the process of this number is in the slot, and has not ended; for the supervisor.
bool is_alive(Process& process, std::uint32_t number);
pid_t pid_of(const Process& process);  // as the product knows it

// All its actors end and its descriptors are closed; the turn stays where it is.
void end_process(int process);
void end_thread();  // the running one; its slot is free

// The child of the running process that has ended and is to be waited for; kAny = any of them.
// -1 = it has no such child, 0 = none has ended, else the pid.
constexpr pid_t kAny = -1;
pid_t ended_child(pid_t pid, Process** process);
void forget_process(Process& process);  // it was waited for; its slots are free

// Descriptors of the running process.
OpenFile* open_file(int fd);
long new_descriptor(int device_row, int index, std::string_view path);  // the lowest free one
long close_descriptor(int fd);

}  // namespace sim
