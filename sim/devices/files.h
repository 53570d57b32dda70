// The regular files of the board.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "sim/device.h"

namespace sim {

constexpr std::size_t kMostFiles = 8;
constexpr std::size_t kMostFileBytes = 1 << 20;

struct FileContent {
    bool present = true;
    std::string bytes;
    std::int64_t size = -1;  // cut off or filled with zeros; -1 = as its bytes are
};

struct File {
    bool removed;  // by the product
};

extern const Device& file_device;

long remove_file(const char* path);  // result as of a Device

}  // namespace sim
