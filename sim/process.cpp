#include "sim/process.h"
#include "sim/world.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <iterator>

#include "sim/device.h"

namespace sim {

constinit thread_local int self = -1;

namespace {

constexpr pid_t kFirstPid = 100;  // what the product sees; the host's numbers differ each time

template <class Slot, std::size_t kCount>
Slot& free_slot(Slot (&slots)[kCount], const char* what) {
    Slot* const found =
        std::find_if(slots, slots + kCount, [](const Slot& slot) { return !slot.is_used(); });
    if (found == slots + kCount) stop_here("more than %zu %s", kCount, what);
    return *found;
}

int slot_of(const Process& process) { return static_cast<int>(&process - world->processes); }

int add_actor(int process, const char* kind, unsigned number) {
    char name[20];
    std::snprintf(name, sizeof name, number == 0 ? "%s" : "%s%u", kind, number);
    Actor& actor = free_slot(world->actors, "threads and processes");
    actor = {};
    actor.state = Actor::State::alive;
    actor.process = static_cast<std::int16_t>(process);
    actor.file = -1;
    actor.until = world->now;
    actor.order = ++world->waits_begun;
    actor.name = keep(name);
    sem_init(&actor.turn, 1, 0);
    return static_cast<int>(&actor - world->actors);
}

// Stored last: the supervisor may read the process at any time.
void set_state(Process& process, Process::State state) {
    std::atomic_ref(process.state).store(state, std::memory_order_release);
}

void release(OpenFile& file) {
    if (--file.users == 0) file.device->close(file.index);
}

}  // namespace

Process& running_process() { return world->processes[world->actors[self].process]; }

void start_first_process() {
    Process& process = world->processes[0];
    process.state = Process::State::alive;
    process.parent = -1;
    std::fill(std::begin(process.files), std::end(process.files), static_cast<std::int16_t>(-1));
    process.main_actor = static_cast<std::int16_t>(add_actor(0, "main", 0));
    world->running = process.main_actor;
}

int add_child() {
    const Process& parent = running_process();
    Process& child = free_slot(world->processes, "processes");
    const int place = slot_of(child);
    const std::uint32_t number = ++world->children_started;
    const auto actor = static_cast<std::int16_t>(add_actor(place, "child", number));
    Process made = parent;
    made.pid = 0;  // not forked yet: the supervisor must not mistake it for its parent
    made.number = number;
    made.parent = static_cast<std::int16_t>(slot_of(parent));
    made.interrupt_pending = false;
    made.main_actor = actor;
    made.state = Process::State::unused;
    child = made;
    set_state(child, Process::State::alive);
    for (const std::int16_t file : child.files) {
        if (file >= 0) ++world->files[file].users;
    }
    return place;
}

bool is_alive(Process& process, std::uint32_t number) {
    return std::atomic_ref(process.state).load(std::memory_order_acquire) == Process::State::alive
           && process.number == number;
}

pid_t pid_of(const Process& process) { return kFirstPid + static_cast<pid_t>(process.number); }

void end_process(int place) {
    Process& process = world->processes[place];
    set_state(process, Process::State::ended);
    for (Actor& actor : world->actors) {
        if (actor.is_used() && actor.process == place) actor.state = Actor::State::ended;
    }
    for (const std::int16_t file : process.files) {  // left in place, for whoever reads the world
        if (file >= 0) release(world->files[file]);
    }
    for (Process& other : world->processes) {
        if (other.is_used() && other.parent == place) other.parent = -1;
    }
}

int add_thread() {
    return add_actor(world->actors[self].process, "thread", ++world->threads_started);
}

void end_thread() { world->actors[self].state = Actor::State::unused; }

bool find_ended_child(Process** ended) {
    bool any = false;
    *ended = nullptr;
    for (Process& child : world->processes) {
        if (!child.is_used() || child.parent != world->actors[self].process) continue;
        any = true;
        const bool first = *ended == nullptr || child.number < (*ended)->number;
        if (child.state == Process::State::ended && first) *ended = &child;
    }
    return any;
}

// Safe now: no thread of the process is left to wait for a turn.
void forget_process(Process& process) {
    set_state(process, Process::State::unused);
    for (Actor& actor : world->actors) {
        if (actor.process == slot_of(process) && actor.state == Actor::State::ended) {
            actor.state = Actor::State::unused;
        }
    }
}

OpenFile* open_file(int fd) {
    Process& process = running_process();
    if (fd < 0 || fd >= static_cast<int>(std::size(process.files))) return nullptr;
    return process.files[fd] < 0 ? nullptr : &world->files[process.files[fd]];
}

long new_descriptor(const Device& device, int index, std::string_view path) {
    Process& process = running_process();
    auto* const closed = std::find(std::begin(process.files), std::end(process.files), -1);
    if (closed == std::end(process.files)) return -EMFILE;
    OpenFile& file = free_slot(world->files, "open files");
    file = {&device, static_cast<std::int16_t>(index), 1, keep(path), 0};
    *closed = static_cast<std::int16_t>(&file - world->files);
    return closed - process.files;
}

long close_descriptor(int fd) {
    OpenFile* file = open_file(fd);
    if (file == nullptr) return -EBADF;
    running_process().files[fd] = -1;
    release(*file);
    return 0;
}

}  // namespace sim
