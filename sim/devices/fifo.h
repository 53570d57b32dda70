// The report FIFO, /var/q7.fifo, and its reader.
#pragma once

#include <cstdint>

#include "sim/device.h"

namespace sim {

struct FifoReader {
    bool fifo = false, reader = false;  // the FIFO exists; somebody has it open for reading
    bool reading = true;                // and reads; else the pipe fills up
    std::uint32_t unread = 0;           // bytes that lie in the pipe already then
};

struct ReportFifo {
    std::uint32_t pages, last_page;  // in use, while nobody reads; bytes in the last of them
};

extern const Device& fifo_device;

// Sends the records to this FIFO of the host, which is open for writing; -1 = none.
void use_host_fifo(int fd);

}  // namespace sim
