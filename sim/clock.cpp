#include "sim/clock.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>

#include "sim/device.h"
#include "sim/occurrence.h"
#include "sim/supervisor.h"
#include "sim/world.h"

namespace sim {

World* world = nullptr;

namespace {

bool is_interrupted(const Actor& actor) {
    return actor.process->interrupt_pending && actor.process->main_actor == &actor;
}

Microseconds end_of_wait(const Actor& actor) {
    const auto& [until, file, direction, interruptible, order] = actor.wait;
    if (interruptible && is_interrupted(actor)) return world->now;
    const Microseconds ready = file == nullptr ? kNever : file->device->ready_at(*file, direction);
    return std::max(std::min(until, ready), world->now);
}

// What each actor waits for, on a line of its own.
std::string all_waits() {
    std::string text;
    for (const Actor& actor : world->actors) {
        if (actor.state != State::alive) continue;
        text.append("\n  ").append(actor.name).append(": ");
        const Wait& wait = actor.wait;
        if (wait.file != nullptr) {
            text.append("for ").append(wait.file->path).append(" to become ");
            text += wait.direction == Direction::read ? "readable" : "writable";
            if (wait.until == kNever) continue;
            text += ", ";
        }
        char until[40];
        std::snprintf(until, sizeof until, "until %.6f s", to_seconds(wait.until));
        text += until;
    }
    return text;
}

bool is_ready(const OpenFile* file, Direction direction) {
    return file != nullptr && file->device->ready_at(*file, direction) <= world->now;
}

void wait_for(const Wait& wait) {
    self->wait = wait;
    self->wait.order = ++world->waits_begun;
    pass_turn();
    await_turn();
}

[[gnu::format(printf, 1, 0)]] void stop_for(const char* format, va_list arguments) {
    if (world->stopped) return;
    std::vsnprintf(world->stop_reason, sizeof world->stop_reason, format, arguments);
    world->stopped = true;
    wake_supervisor();
}

}  // namespace

void stop_run(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    stop_for(format, arguments);
    va_end(arguments);
}

void stop_here(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    stop_for(format, arguments);
    va_end(arguments);
    if (self == nullptr) throw std::length_error(world->stop_reason);
    for (;;)
        ::pause();
}

bool anyone_alive() {
    return std::ranges::any_of(world->actors,
                               [](const Actor& actor) { return actor.state == State::alive; });
}

Step next_step() {
    follow_changes();
    Step next{kNever, nullptr};
    for (Actor& actor : world->actors) {
        if (actor.state != State::alive) continue;
        const Microseconds at = end_of_wait(actor);
        const bool is_first = next.actor == nullptr || at < next.at
                              || (at == next.at && actor.wait.order < next.actor->wait.order);
        if (is_first) next = {at, &actor};
    }
    Microseconds board_at = next_change_at();
    for (const Device* device : kDevices)
        board_at = std::min(board_at, device->acts_at());
    if (board_at <= next.at) next = {std::max(board_at, world->now), nullptr};
    return next;
}

void run_step(const Step& step) {
    if (step.at == kNever) {
        stop_run("nothing will ever happen any more; the actors waited:%s", all_waits().c_str());
        return;
    }
    if (step.at > from_seconds(scenario->end)) {
        stop_run("the run passed its end of %.6f s; its actors waited:%s", scenario->end,
                 all_waits().c_str());
        return;
    }
    world->now = step.at;
    if (step.actor == nullptr) {
        make_due_changes();
        for (const Device* device : kDevices)
            if (device->acts_at() <= world->now) device->act();
        return;
    }
    world->running = step.actor;
    sem_post(&step.actor->turn);
}

void pass_turn() {
    world->running = nullptr;
    if (world->paced) {
        wake_supervisor();
        return;
    }
    // A woken actor may run immediately; do not read the world after this.
    bool woken = false;
    while (!woken && !world->stopped && anyone_alive()) {
        const Step step = next_step();
        run_step(step);
        woken = step.actor != nullptr;
    }
}

// False when the supervisor was killed: its processes then have another parent.
static bool is_supervised() {
    const pid_t parent = ::getppid();
    return parent == world->supervisor || parent == world->processes[0].pid;
}

void await_turn() {
    for (;;) {
        timespec limit{};
        clock_gettime(CLOCK_MONOTONIC, &limit);
        limit.tv_sec += 5;
        if (sem_clockwait(&self->turn, CLOCK_MONOTONIC, &limit) == 0) break;
        if (errno == ETIMEDOUT && !is_supervised()) ::_exit(127);
    }
    follow_changes();
}

bool deliver_interrupt() {
    if (!is_interrupted(*self)) return false;
    self->process->interrupt_pending = false;
    save_coverage();
    ::raise(SIGINT);
    return true;
}

Wake wait_until(Microseconds until, const OpenFile* file, Direction direction) {
    const bool is_over = is_ready(file, direction) || until <= world->now;
    if (!is_over) wait_for({until, file, direction, true});
    if (deliver_interrupt()) return Wake::interrupt;
    return is_ready(file, direction) ? Wake::ready : Wake::time_up;
}

void spend_time(Microseconds duration) {
    if (duration > 0) wait_for({world->now + duration});
    deliver_interrupt();
}

bool spend_time_in_shell(Microseconds duration) {
    wait_for({world->now + duration});
    return std::exchange(self->process->interrupt_pending, false);
}

void interrupt_all() {
    for (Process& process : world->processes) {
        process.interrupt_pending = process.state == State::alive;
    }
}

}  // namespace sim
