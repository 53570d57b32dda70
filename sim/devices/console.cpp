// Standard input: silent until the operator types. A read returns at most one line; the rest of a
// long line stays for the next read. Standard output and error go to the supervisor's files.
#include "sim/devices/console.h"

#include <unistd.h>

#include <algorithm>

#include "sim/clock.h"
#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {

static void describe(Keys& keys, TypedLine& line) {
    keys.key("at", line.at, "second at which it is typed");
    keys.key("text", line.text, "the line, with its \"\\n\"; \"\" = end of input");
}

static void describe(Keys& keys, Operator& person) {
    keys.start_only({"lines", "interrupts"});
    keys.list("lines", person.lines, kMostLines);
    keys.ascending("lines", person.lines);
    keys.key("interrupts", person.interrupts, "seconds at which Ctrl-C is pressed, in order");
    if (!std::is_sorted(person.interrupts.begin(), person.interrupts.end()))
        keys.refuse("interrupts", "interrupts takes ascending times");
}

namespace {

void add_input(Microseconds at, std::string_view text) {
    auto& queue = world->console.typed;
    if (queue.room() == 0) {
        stop_run("more than %zu lines typed and not read", std::size(queue.items));
        return;
    }
    queue[queue.tail++] = {at, keep(text)};
}

struct Console final : Device {
    void describe(Keys& keys, Board& board) const override { keys.table("operator", board.person); }

    void start() const override {
        for (int fd = 0; fd < 3; ++fd) {
            world->files[fd] = {this, fd, 1, keep("console"), 0};
            world->processes[0].files[fd] = &world->files[fd];
        }
        for (const TypedLine& line : scenario->person.lines) {
            add_input(from_seconds(line.at), line.text);
        }
    }

    Microseconds acts_at() const override {
        const auto& times = scenario->person.interrupts;
        const std::uint32_t next = world->console.interrupts;
        return next < times.size() ? from_seconds(times[next]) : kNever;
    }

    void act() const override {
        ++world->console.interrupts;
        type_interrupt();
    }

    long read(OpenFile&, void* data, std::size_t size) const override {
        auto& queue = world->console.typed;
        if (queue.is_empty() || queue.front().at > world->now) return -EAGAIN;
        ConsoleInput& input = queue[queue.head];
        const std::size_t count = input.text.copy(static_cast<char*>(data), size);
        input.text.remove_prefix(count);
        if (input.text.empty() && count > 0) ++queue.head;
        return static_cast<long>(count);
    }

    long write(OpenFile& file, const void* data, std::size_t size) const override {
        return ::write(file.index, data, size);
    }

    Microseconds ready_at(const OpenFile&, Direction direction) const override {
        const auto& queue = world->console.typed;
        if (direction == Direction::write) return 0;
        return queue.is_empty() ? kNever : queue.front().at;
    }
};

}  // namespace

const Device& console_device = Console{};

void type_line(std::string_view text) { add_input(world->now, text); }

void type_interrupt() {
    note("operator", "interrupt");
    interrupt_all();
}

}  // namespace sim
