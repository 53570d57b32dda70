// The hardware block of the control device: what the board says it is fitted with.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "sim/device.h"

namespace sim {

// A field of the 256-byte block that request 0x04 of the control device answers, little endian.
struct HardwareField {
    const char* key;
    int offset, high, low;  // of its word in the block; its bits in that word
    std::uint32_t preset;
    const char* meaning;

    std::uint32_t most() const { return 0xFFFFFFFFu >> (31 - high + low); }
};
extern const HardwareField kHardwareFields[21];

std::map<std::string, std::uint32_t> preset_hardware();  // by key

extern const Device& hardware_device;

}  // namespace sim
