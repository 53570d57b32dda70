// Pipes between processes of the product, and the report FIFO, /var/q7.fifo, with its reader.
//
// Pipes are non-blocking. A read fails with EAGAIN while the pipe is empty, and returns 0 once the
// write end is closed too. A write fails with EAGAIN when the pipe is full. Without a reader, it fails
// with EPIPE and raises SIGPIPE.
//
// The reader of the FIFO empties it at once, or reads nothing; then the 16 pages of the FIFO fill up.
// A FIFO of the host can take its place; q7 then gets the host's results.
#include "sim/devices/pipe.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {

constexpr std::uint32_t kPageSize = 4096, kFifoSize = 16 * kPageSize;

static void describe(Keys& keys, FifoReader& fifo) {
    keys.key("present", fifo.fifo, "/var/q7.fifo exists");
    keys.key("reader", fifo.reader, "a service has it open for reading");
    keys.key("reading", fifo.reading, "and reads what comes; else the pipe fills up");
    keys.key("unread", fifo.unread, "bytes that lie in the pipe when it does not", {0, kFifoSize});
}

namespace {

constexpr int kReading = 0, kWriting = 1;
int host_fifo = -1;

long fail_without_reader() {
    ::raise(SIGPIPE);
    return -EPIPE;
}

// An open file's index is 2 * pipe + end.
Pipe& pipe_of(int index) { return world->pipes[index / 2]; }

struct Pipes final : Device {
    void close(int index) const override { pipe_of(index).open[index % 2] = false; }

    long read(OpenFile& file, void* data, std::size_t size) const override {
        Pipe& pipe = pipe_of(file.index);
        if (file.index % 2 != kReading) return -EBADF;
        if (pipe.unread.is_empty()) return !pipe.open[kWriting] ? 0 : -EAGAIN;
        std::size_t count = 0;
        for (; count < size && !pipe.unread.is_empty(); ++count)
            static_cast<std::uint8_t*>(data)[count] = pipe.unread[pipe.unread.head++];
        return static_cast<long>(count);
    }

    long write(OpenFile& file, const void* data, std::size_t size) const override {
        Pipe& pipe = pipe_of(file.index);
        if (file.index % 2 != kWriting) return -EBADF;
        if (!pipe.open[kReading]) return fail_without_reader();
        if (size > pipe.unread.room()) return -EAGAIN;
        for (std::size_t i = 0; i < size; ++i)
            pipe.unread[pipe.unread.tail++] = static_cast<const std::uint8_t*>(data)[i];
        return static_cast<long>(size);
    }

    Microseconds ready_at(const OpenFile& file, Direction direction) const override {
        const Pipe& pipe = pipe_of(file.index);
        const bool readable = !pipe.unread.is_empty() || !pipe.open[kWriting];
        return direction == Direction::write || readable ? 0 : kNever;
    }
};

bool host_has_reader() {
    pollfd file{host_fifo, POLLOUT, 0};
    return ::poll(&file, 1, 0) >= 0 && (file.revents & POLLERR) == 0;
}

// A record that does not fit the rest of the last page begins a new one.
bool has_room(std::uint32_t size) {
    std::uint32_t& used = world->fifo_used;
    if (scenario->fifo.reading) used = 0;
    if (scenario->fifo.reading) return true;
    if (used == 0) used = scenario->fifo.unread;
    const std::uint32_t rest = kPageSize - used % kPageSize;
    const std::uint32_t end = used + size + (size > rest ? rest : 0);
    if (end > kFifoSize) return false;
    used = end;
    return true;
}

struct Fifo final : Device {
    void describe(Keys& keys, Board& board) const override { keys.table("fifo", board.fifo); }

    void places(const Places& tell) const override {
        tell("/var/", scenario->fifo.fifo ? "q7.fifo" : "");
    }

    long open(int, int flags) const override {
        if ((flags & O_ACCMODE) != O_WRONLY) return -EACCES;
        const bool has_reader = host_fifo < 0 ? scenario->fifo.reader : host_has_reader();
        return has_reader ? 0 : -ENXIO;
    }

    long write(OpenFile&, const void* data, std::size_t size) const override {
        if (host_fifo >= 0) {
            const ssize_t count = ::write(host_fifo, data, size);
            return count < 0 ? -errno : count;
        }
        if (!scenario->fifo.reader) return fail_without_reader();
        return has_room(static_cast<std::uint32_t>(size)) ? static_cast<long>(size) : -EAGAIN;
    }
};

}  // namespace

const Device& pipe_device = Pipes{};
const Device& fifo_device = Fifo{};

void use_host_fifo(int fd) { host_fifo = fd; }

long open_pipe(int ends[2], int flags) {
    if (flags != O_NONBLOCK) return -EINVAL;
    Pipe& pipe = free_slot(world->pipes, "pipes");
    const auto index = static_cast<int>(2 * (&pipe - world->pipes));
    const long reading = new_descriptor(pipe_device, index + kReading, "pipe");
    if (reading < 0) return reading;
    const long writing = new_descriptor(pipe_device, index + kWriting, "pipe");
    if (writing < 0) {
        close_descriptor(static_cast<int>(reading));
        return writing;
    }
    pipe.open[kReading] = pipe.open[kWriting] = true;
    pipe.unread.head = pipe.unread.tail;
    ends[0] = static_cast<int>(reading);
    ends[1] = static_cast<int>(writing);
    return 0;
}

}  // namespace sim
