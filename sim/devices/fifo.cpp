// The report FIFO, /var/q7.fifo, and its reader.
//
// The reader takes each record at once. From the record at which it stalls it takes none any
// more: the pipe fills up to 65,536 bytes, then a write fails with EAGAIN. At the record at which
// it leaves it closes its end: that write, and each after it, fails with EPIPE and SIGPIPE.
#include "sim/devices/fifo.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

constexpr std::uint32_t kPipeCapacity = 65'536;

int host_fifo = -1;

bool host_has_reader() {
    pollfd file{host_fifo, POLLOUT, 0};
    return ::poll(&file, 1, 0) >= 0 && (file.revents & POLLERR) == 0;
}

bool reached(std::uint32_t record) { return record != 0 && world->fifo.records + 1 >= record; }

class Fifo final : public Device {
  public:
    int find(std::string_view path) const override {
        return scenario->fifo.fifo && path == "/var/q7.fifo" ? 0 : -1;
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
        ReportFifo& fifo = world->fifo;
        if (reached(scenario->fifo.leaves_at)) {
            ::raise(SIGPIPE);
            return -EPIPE;
        }
        if (reached(scenario->fifo.stalls_at)) {
            if (size > kPipeCapacity - scenario->fifo.unread - fifo.unread) return -EAGAIN;
            fifo.unread += static_cast<std::uint32_t>(size);
        }
        ++fifo.records;
        return static_cast<long>(size);
    }
};

const Fifo fifo;

}  // namespace

const Device& fifo_device = fifo;

void use_host_fifo(int fd) { host_fifo = fd; }

void describe(Keys& keys, FifoReader& fifo) {
    keys.key("present", fifo.fifo, "/var/q7.fifo exists");
    keys.key("reader", fifo.reader, "a service has it open for reading");
    keys.key("stalls_at", fifo.stalls_at, "record from which it reads no more; 0 = never");
    keys.key("leaves_at", fifo.leaves_at, "record at which it closes its end; 0 = never");
    keys.key("unread", fifo.unread, "bytes that lie in the pipe when it stalls", {0, 65'536});
    keys.only_if(fifo.stalls_at != 0, {"unread"}, "stalls_at");
}

}  // namespace sim
