// Pipes between processes of the product, and the report FIFO, /var/q7.fifo, with its reader.
#pragma once

#include "sim/device.h"
#include "sim/queue.h"

namespace sim {

struct Pipe {
    bool open[2];                         // its ends: of reading, of writing
    Queue<std::uint8_t, 1 << 16> unread;  // written and not yet read

    bool is_used() const { return open[0] || open[1]; }
};

struct FifoReader {
    bool fifo = false, reader = false;  // the FIFO exists; somebody has it open for reading
    bool reading = true;                // and reads; else the pipe fills up
    std::uint32_t unread = 0;           // bytes that lie in the pipe already then
};

extern const Device& pipe_device;
extern const Device& fifo_device;

long open_pipe(int ends[2], int flags);  // result as of a Device

// Sends the records to this FIFO of the host, which is open for writing; -1 = none.
void use_host_fifo(int fd);

}  // namespace sim
