#include "sim/process.h"
#include "sim/world.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <iterator>

namespace sim {

constinit thread_local Actor* self = nullptr;

namespace {

constexpr pid_t kFirstPid = 100;  // what the product sees; the host's numbers differ each time

Actor* add_actor(Process& process, const char* kind, unsigned number) {
    char name[20];
    std::snprintf(name, sizeof name, number == 0 ? "%s" : "%s%u", kind, number);
    Actor& actor = free_slot(world->actors, "threads and processes");
    actor = {};
    actor.state = State::alive;
    actor.process = &process;
    actor.wait = {.until = world->now, .order = ++world->waits_begun};
    actor.name = keep(name);
    sem_init(&actor.turn, 1, 0);
    return &actor;
}

// Stored last: the supervisor may read the process at any time.
void set_state(Process& process, State state) {
    std::atomic_ref(process.state).store(state, std::memory_order_release);
}

void release(OpenFile& file) {
    if (--file.users == 0) file.device->close(file.index);
}

}  // namespace

void start_first_process() {
    Process& process = world->processes[0];
    process.state = State::alive;
    process.main_actor = add_actor(process, "main", 0);
    world->running = process.main_actor;
}

Process* add_child() {
    Process& child = free_slot(world->processes, "processes");
    Process made = *self->process;
    made.pid = 0;  // not forked yet: the supervisor must not mistake it for its parent
    made.number = ++world->children_started;
    made.parent = self->process;
    made.interrupt_pending = false;
    made.main_actor = add_actor(child, "child", made.number);
    made.state = State::unused;
    child = made;
    set_state(child, State::alive);
    for (OpenFile* file : child.files) {
        if (file != nullptr) ++file->users;
    }
    return &child;
}

bool is_alive(Process& process, std::uint32_t number) {
    return std::atomic_ref(process.state).load(std::memory_order_acquire) == State::alive
           && process.number == number;
}

pid_t pid_of(const Process& process) { return kFirstPid + static_cast<pid_t>(process.number); }

void end_process(Process& process) {
    set_state(process, State::ended);
    for (Actor& actor : world->actors) {
        if (actor.is_used() && actor.process == &process) actor.state = State::ended;
    }
    for (OpenFile* file : process.files) {  // left in place, for whoever reads the world
        if (file != nullptr) release(*file);
    }
    for (Process& other : world->processes) {
        if (other.is_used() && other.parent == &process) other.parent = nullptr;
    }
}

Actor* add_thread(void* (*body)(void*)) {
    Actor* const thread = add_actor(*self->process, "thread", ++world->threads_started);
    thread->body = body;
    return thread;
}

void end_thread() { self->state = State::unused; }

bool find_ended_child(Process** ended) {
    bool any = false;
    *ended = nullptr;
    for (Process& child : world->processes) {
        if (!child.is_used() || child.parent != self->process) continue;
        any = true;
        const bool first = *ended == nullptr || child.number < (*ended)->number;
        if (child.state == State::ended && first) *ended = &child;
    }
    return any;
}

// Safe now: no thread of the process is left to wait for a turn.
void forget_process(Process& process) {
    set_state(process, State::unused);
    for (Actor& actor : world->actors) {
        if (actor.process == &process && actor.state == State::ended) actor.state = State::unused;
    }
}

OpenFile* open_file(int fd) {
    auto& files = self->process->files;
    return fd < 0 || fd >= std::ssize(files) ? nullptr : files[fd];
}

long new_descriptor(const Device& device, int index, std::string_view path) {
    auto& files = self->process->files;
    auto* const closed = std::find(std::begin(files), std::end(files), nullptr);
    if (closed == std::end(files)) return -EMFILE;
    OpenFile& file = free_slot(world->files, "open files");
    file = {&device, index, 1, keep(path), 0};
    *closed = &file;
    return closed - files;
}

long close_descriptor(int fd) {
    OpenFile* file = open_file(fd);
    if (file == nullptr) return -EBADF;
    self->process->files[fd] = nullptr;
    release(*file);
    return 0;
}

}  // namespace sim
