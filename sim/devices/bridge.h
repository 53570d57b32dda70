// Port-multiplier bridges with their SPI flash, behind the pass-through request of a disk.
#pragma once

#include <set>

#include "sim/device.h"

namespace sim {

constexpr std::size_t kMostBridges = 4;
constexpr std::size_t kFlashSize = 1 << 17;

// An image that a bridge as described below takes, of this many bytes.
std::string firmware_image(std::uint32_t size);

struct Bridge {  // port multiplier with its SPI flash
    std::map<std::uint32_t, std::uint8_t> registers = {
        // by address
        {0xFC00, 0x8F},  // presence
        {0xFC03, 0x10},  // revision
        {0xFAFD, 0x01},  // bonding, high part
        {0xFAFC, 0x02},  // and low part
    };
    std::uint32_t reset_selector = 256;
    double request_time = 20e-6;  // of each pass-through request
    double erase_time = 0.1, program_time = 15e-6;
    std::uint8_t protection = 0;  // block protection bits of the status register, 2 to 4
    bool unlocks = true;          // writing the status register changes them
    bool erases = true, programs = true;
    std::set<std::uint32_t> bad_cells, disturbed;
    std::string flash;  // its content from address 0; the rest is 0xFF
    std::string save;   // file of this machine for the flash as the run leaves it
};

// Reads `from`, a file of at most so many bytes, and `image = 4096`, an image of this many bytes.
void describe_source(Keys& keys, std::string& bytes, std::size_t most);

struct Flash {
    std::uint8_t cells[kFlashSize];
    bool write_enabled;
    std::uint8_t protection;
    Microseconds busy_until;
};

struct BridgeState {
    Flash flash;
    std::uint8_t running[kFlashSize];  // the firmware that it was last reset with
    std::uint32_t resets;
};

extern const Device& bridge_device;

// The pass-through request: one register block, in and out.
constexpr std::size_t kRegisterBlock = 16;
long pass_through(const std::string& bridge, Argument& argument);

}  // namespace sim
