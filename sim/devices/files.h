// The regular files of the board.
#pragma once

#include <cstdint>
#include <string>

#include "sim/device.h"

namespace sim {

class Keys;

constexpr std::size_t kMostFiles = 8;

struct FileContent {
    bool present = true;
    std::string bytes;
    std::uint32_t resized_at_read = 0, resized_to = 0;  // from that read on, counted from 1
};
// `folder` is that of the scenario, for the files that it names.
void describe(Keys& keys, FileContent& file, const std::string& folder);

struct File {
    bool present;
    std::uint32_t reads;
};

extern const Device& file_device;

long remove_file(const char* path);  // result as of a Device

}  // namespace sim
