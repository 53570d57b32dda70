// Pipes between processes of the product.
#pragma once

#include <cstdint>

#include "sim/device.h"

namespace sim {

struct Pipe {
    bool open[2];  // its ends: of reading, of writing
    std::uint32_t size;
    std::uint8_t bytes[65'536];  // written and not yet read

    bool is_used() const { return open[0] || open[1]; }
};

extern const Device& pipe_device;

long open_pipe(int ends[2], int flags);  // result as of a Device

}  // namespace sim
