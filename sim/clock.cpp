#include "sim/clock.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <span>
#include <string>
#include <utility>

#include "sim/board.h"
#include "sim/device.h"
#include "sim/supervisor.h"

namespace sim {

World* world = nullptr;
const Board* scenario = nullptr;
constinit thread_local int self = -1;

namespace {

bool is_interrupted(const Actor& actor) {
    const Process& process = world->processes[actor.process];
    return process.interrupt_pending && &actor == &world->actors[process.main_actor];
}

Microseconds end_of_wait(const Actor& actor) {
    if (actor.interruptible && is_interrupted(actor)) return world->now;
    Microseconds end = actor.until;
    if (actor.file >= 0) {
        const OpenFile& file = world->files[actor.file];
        end = std::min(end, device(file.device).ready_at(file, actor.direction));
    }
    return std::max(end, world->now);
}

Microseconds next_interrupt() {
    Microseconds at = world->typed_interrupt;
    if (world->interrupts_delivered < scenario->person.interrupts.size()) {
        at = std::min(at, from_seconds(scenario->person.interrupts[world->interrupts_delivered]));
    }
    return at;
}

// Ctrl-C, or the end of the watchdog's time.
void act_as_board() {
    if (world->control.watchdog_expires <= world->now) {
        note("watchdog", "expired: the board restarts");
        world->restarted = true;
        stop_run("the watchdog restarted the board in the middle of the run");
        return;
    }
    if (world->typed_interrupt <= world->now) {
        world->typed_interrupt = kNever;
    } else {
        ++world->interrupts_delivered;
    }
    note("operator", "interrupt");
    interrupt_all();
}

std::string wait_of(const Actor& actor) {
    char text[160];
    const double until = static_cast<double>(actor.until) / 1e6;
    if (actor.file < 0) {
        std::snprintf(text, sizeof text, "\n  %s: until %.6f s", actor.name, until);
        return text;
    }
    int length = std::snprintf(text, sizeof text, "\n  %s: for %s to become %s", actor.name,
                               world->text + world->files[actor.file].path,
                               actor.direction == Direction::read ? "readable" : "writable");
    if (actor.until != kNever && length < static_cast<int>(sizeof text)) {
        std::snprintf(text + length, sizeof text - static_cast<std::size_t>(length),
                      ", until %.6f s", until);
    }
    return text;
}

std::string all_waits() {
    std::string text;
    for (const Actor& actor : world->all_actors()) {
        if (actor.state == Actor::State::alive) text += wait_of(actor);
    }
    return text;
}

void wait_for(Microseconds until, int file, Direction direction, bool interruptible) {
    Actor& actor = world->actors[self];
    actor.until = until;
    actor.file = static_cast<std::int16_t>(file);
    actor.direction = direction;
    actor.interruptible = interruptible;
    pass_turn();
    await_turn();
}

}  // namespace

void stop_run(const char* format, ...) {
    if (world->stopped) return;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(world->stop_reason, sizeof world->stop_reason, format, arguments);
    va_end(arguments);
    world->stopped = true;
    wake_supervisor();
}

bool anyone_alive() {
    const std::span actors = world->all_actors();
    return std::any_of(actors.begin(), actors.end(),
                       [](const Actor& actor) { return actor.state == Actor::State::alive; });
}

Step next_step() {
    Step next{kNever, -1};
    for (const Actor& actor : world->all_actors()) {
        if (actor.state != Actor::State::alive) continue;
        const Microseconds at = end_of_wait(actor);
        if (at < next.at) next = {at, static_cast<int>(&actor - world->actors)};
    }
    const Microseconds board_at = std::min(next_interrupt(), world->control.watchdog_expires);
    if (board_at <= next.at) next = {std::max(board_at, world->now), -1};
    return next;
}

void take_step(const Step& step) {
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
    if (step.actor < 0) {
        act_as_board();
        return;
    }
    world->running = static_cast<std::int16_t>(step.actor);
    sem_post(&world->actors[step.actor].turn);
}

void pass_turn() {
    world->running = -1;
    if (world->paced) {
        wake_supervisor();
        return;
    }
    // An actor that was woken holds the turn at once: nothing may be looked at any more.
    bool woken = false;
    while (!woken && !world->stopped && anyone_alive()) {
        const Step step = next_step();
        take_step(step);
        woken = step.actor >= 0;
    }
}

// False when the supervisor was killed: its processes then have a parent that is none of ours.
static bool is_supervised() {
    const pid_t parent = ::getppid();
    return parent == world->supervisor || parent == world->processes[0].pid;
}

void await_turn() {
    for (;;) {
        timespec limit{};
        clock_gettime(CLOCK_MONOTONIC, &limit);
        limit.tv_sec += 5;
        if (sem_clockwait(&world->actors[self].turn, CLOCK_MONOTONIC, &limit) == 0) return;
        if (errno == ETIMEDOUT && !is_supervised()) ::_exit(127);
    }
}

void deliver_interrupt() {
    const Actor& actor = world->actors[self];
    if (!is_interrupted(actor)) return;
    world->processes[actor.process].interrupt_pending = false;
    save_coverage();
    ::raise(SIGINT);
}

Wake wait_until(Microseconds until, int file, Direction direction) {
    wait_for(until, file, direction, true);
    const Actor& actor = world->actors[self];
    if (is_interrupted(actor)) {
        deliver_interrupt();
        return Wake::interrupt;
    }
    if (file >= 0) {
        const OpenFile& waited = world->files[file];
        if (device(waited.device).ready_at(waited, direction) <= world->now) return Wake::ready;
    }
    return Wake::time_up;
}

void take_time(Microseconds duration) {
    if (duration > 0) wait_for(world->now + duration, -1, Direction::read, false);
    deliver_interrupt();
}

bool take_time_of_shell(Microseconds duration) {
    wait_for(world->now + duration, -1, Direction::read, false);
    return std::exchange(world->processes[world->actors[self].process].interrupt_pending, false);
}

int add_actor(int process, const char* kind, int number) {
    if (world->actors_used == std::size(world->actors)) {
        stop_run("more than %zu threads and processes", std::size(world->actors));
        return -1;
    }
    const int place = static_cast<int>(world->actors_used++);
    Actor& actor = world->actors[place];
    actor.state = Actor::State::alive;
    actor.process = static_cast<std::uint8_t>(process);
    actor.file = -1;
    actor.until = world->now;
    std::snprintf(actor.name, sizeof actor.name, number == 0 ? "%s" : "%s%d", kind, number);
    sem_init(&actor.turn, 1, 0);
    return place;
}

void interrupt_all() {
    for (Process& process : world->all_processes()) {
        process.interrupt_pending = process.alive;
    }
}

void end_process(int process) {
    world->processes[process].alive = false;
    for (Actor& actor : world->all_actors()) {
        if (actor.process == process) actor.state = Actor::State::ended;
    }
}

}  // namespace sim
