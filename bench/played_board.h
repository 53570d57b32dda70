// A bridge whose flash is always ready, and its firmware file, played below the C library's calls,
// so that the product and platform/linux.cpp above them are as they are on the board.
#pragma once

#include <cstdint>

struct PlayedBoard {
    std::uint64_t requests = 0;     // to the bridge
    std::uint64_t allocations = 0;  // malloc, calloc and realloc of the whole process
};
extern PlayedBoard played;

constexpr std::uint32_t kImageSize = 65536;  // of the firmware file, in bytes

// A descriptor on which every request succeeds at once.
int open_played_disk();

void clear_played_flash();
