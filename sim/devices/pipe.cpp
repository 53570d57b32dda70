// Non-blocking pipes. A read fails with EAGAIN while the pipe is empty, and returns 0 once the write
// end is closed too. A write fails with EAGAIN when the pipe is full, with EPIPE when the read end is
// closed.
#include "sim/devices/pipe.h"

#include <fcntl.h>
#include <signal.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "sim/process.h"
#include "sim/world.h"

namespace sim {
namespace {

constexpr int kReading = 0, kWriting = 1;

// An open file's index is 2 * pipe + end.
Pipe& pipe_of(int index) { return world->pipes[index / 2]; }

struct Pipes final : Device {
    void close(int index) const override { pipe_of(index).open[index % 2] = false; }

    long read(OpenFile& file, void* data, std::size_t size) const override {
        Pipe& pipe = pipe_of(file.index);
        if (file.index % 2 != kReading) return -EBADF;
        if (pipe.size == 0) return !pipe.open[kWriting] ? 0 : -EAGAIN;
        const auto count = std::min(static_cast<std::uint32_t>(size), pipe.size);
        std::memcpy(data, pipe.bytes, count);
        pipe.size -= count;
        std::memmove(pipe.bytes, pipe.bytes + count, pipe.size);
        return static_cast<long>(count);
    }

    long write(OpenFile& file, const void* data, std::size_t size) const override {
        Pipe& pipe = pipe_of(file.index);
        if (file.index % 2 != kWriting) return -EBADF;
        if (!pipe.open[kReading]) {
            ::raise(SIGPIPE);
            return -EPIPE;
        }
        if (size > sizeof pipe.bytes - pipe.size) return -EAGAIN;
        std::memcpy(pipe.bytes + pipe.size, data, size);
        pipe.size += static_cast<std::uint32_t>(size);
        return static_cast<long>(size);
    }

    Microseconds ready_at(const OpenFile& file, Direction direction) const override {
        const Pipe& pipe = pipe_of(file.index);
        const bool ready = direction == Direction::write || pipe.size > 0 || !pipe.open[kWriting];
        return ready ? world->now : kNever;
    }
};

}  // namespace

const Device& pipe_device = Pipes{};

long open_pipe(int ends[2], int flags) {
    if (flags != O_NONBLOCK) return -EINVAL;
    Pipe* const pipe = std::find_if(std::begin(world->pipes), std::end(world->pipes),
                                    [](const Pipe& each) { return !each.is_used(); });
    if (pipe == std::end(world->pipes)) stop_here("more than %zu pipes", std::size(world->pipes));
    const auto index = static_cast<int>(2 * (pipe - world->pipes));
    const long reading = new_descriptor(pipe_device, index + kReading, "pipe");
    if (reading < 0) return reading;
    const long writing = new_descriptor(pipe_device, index + kWriting, "pipe");
    if (writing < 0) {
        close_descriptor(static_cast<int>(reading));
        return writing;
    }
    pipe->size = 0;
    pipe->open[kReading] = pipe->open[kWriting] = true;
    ends[0] = static_cast<int>(reading);
    ends[1] = static_cast<int>(writing);
    return 0;
}

}  // namespace sim
