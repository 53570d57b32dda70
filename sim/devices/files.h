// The regular files of the board, and the directory /dev.
#pragma once

#include "sim/device.h"

namespace sim {

constexpr std::size_t kMostFiles = 8;

struct FileContent {
    bool present = true;
    std::string bytes;
};

extern const Device& file_device;

// Results as of a Device.
long remove_file(std::string_view path);
long open_directory(std::string_view path);
const char* next_entry(OpenFile& directory);  // null at the end

}  // namespace sim
