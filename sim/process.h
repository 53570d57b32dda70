// Actors, processes and descriptors of a run. Slots are reused.
#pragma once

#include <semaphore.h>
#include <sys/types.h>

#include <cstdint>
#include <string_view>

#include "sim/time.h"

namespace sim {

class Device;
struct OpenFile;
struct Process;

enum class Direction : std::uint8_t { read, write };
enum class State : std::uint8_t { unused, alive, ended };  // of an actor or a process

struct Wait {  // of an actor
    Microseconds until;
    const OpenFile* file = nullptr;  // or until this is ready
    Direction direction = Direction::read;
    bool interruptible = false;  // an interrupt ends it early
    std::uint64_t order = 0;     // among all waits
};

// A flow of control: the main thread, a thread that it started, a process that it forked.
struct Actor {
    State state;
    Process* process;
    void* (*body)(void*);  // of a thread
    Wait wait;
    Microseconds instant;  // time of its latest call
    std::uint32_t calls_at_instant;
    std::string_view name;  // "main", "thread1", "child1" ...
    sem_t turn;

    bool is_used() const { return state != State::unused; }
};

struct Process {
    State state;
    bool interrupt_pending;
    Actor* main_actor;
    Process* parent;        // null = it has ended
    pid_t pid;              // on the host; 0 = not forked yet
    std::uint32_t number;   // in the order of their start, from 0
    OpenFile* files[1024];  // of each descriptor; null = closed

    bool is_used() const { return state != State::unused; }
};

struct OpenFile {
    const Device* device;  // of the device table
    int index;             // which one of its kind
    int users;             // descriptors that refer to it; 0 = free
    std::string_view path;
    std::int64_t offset;

    bool is_used() const { return users > 0; }
};

extern constinit thread_local Actor* self;  // that this thread is; null = the supervisor

// New actors, alive and due at the present instant.
void start_first_process();               // process 0; its actor "main" holds the turn
Actor* add_thread(void* (*body)(void*));  // of the running process
Process* add_child();                     // of the running process

// Whether the slot still holds the process of this number, alive; for the supervisor.
bool is_alive(Process& process, std::uint32_t number);
pid_t pid_of(const Process& process);  // as the product sees it

// Ends all its actors and closes its descriptors; the turn stays where it is.
void end_process(Process& process);
void end_thread();  // the running one; frees its slot

// The child of the running process that waitpid(-1) would reap: of those that have ended, the first
// that was started; null = none. False when the process has no child.
bool find_ended_child(Process** child);
void forget_process(Process& process);  // reaped: frees its slots

// Descriptors of the running process.
OpenFile* open_file(int fd);
long new_descriptor(const Device& device, int index, std::string_view path);  // the lowest
long close_descriptor(int fd);

}  // namespace sim
