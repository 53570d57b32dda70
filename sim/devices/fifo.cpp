// The report FIFO, /var/q7.fifo, and its reader.
//
// A reading reader empties the pipe at once. While it does not read, the pipe's 16 pages fill up, and
// then a write fails with EAGAIN. Without a reader, a write fails with EPIPE and raises SIGPIPE.
//
// A FIFO of the host can take its place; q7 then gets the host's results.
#include "sim/devices/fifo.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

constexpr std::uint32_t kPages = 16, kPageSize = 4096;  // of a pipe

int host_fifo = -1;

bool host_has_reader() {
    pollfd file{host_fifo, POLLOUT, 0};
    return ::poll(&file, 1, 0) >= 0 && (file.revents & POLLERR) == 0;
}

// A record that does not fit the rest of the last page begins a new one.
bool has_room(std::uint32_t size) {
    ReportFifo& fifo = world->fifo;
    if (scenario->fifo.reading) fifo = {};
    if (scenario->fifo.reading) return true;
    if (fifo.pages == 0) {
        fifo.pages = scenario->fifo.unread / kPageSize + 1;
        fifo.last_page = scenario->fifo.unread % kPageSize;
    }
    if (fifo.last_page + size <= kPageSize && fifo.pages <= kPages) {
        fifo.last_page += size;
        return true;
    }
    if (fifo.pages >= kPages) return false;
    ++fifo.pages;
    fifo.last_page = size;
    return true;
}

void describe_fifo(Keys& keys, FifoReader& fifo) {
    keys.key("present", fifo.fifo, "/var/q7.fifo exists");
    keys.key("reader", fifo.reader, "a service has it open for reading");
    keys.key("reading", fifo.reading, "and reads what comes; else the pipe fills up");
    keys.key("unread", fifo.unread, "bytes that lie in the pipe when it does not", {0, 65'536});
}

struct Fifo final : Device {
    void describe(Keys& keys, Board& board) const override {
        keys.table("fifo", board.fifo, describe_fifo);
    }

    Paths paths() const override { return {scenario->fifo.fifo ? "/var/q7.fifo" : ""}; }

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
        if (!scenario->fifo.reader) {
            ::raise(SIGPIPE);
            return -EPIPE;
        }
        if (!has_room(static_cast<std::uint32_t>(size))) return -EAGAIN;
        return static_cast<long>(size);
    }
};

}  // namespace

const Device& fifo_device = Fifo{};

void use_host_fifo(int fd) { host_fifo = fd; }

}  // namespace sim
