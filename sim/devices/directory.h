// An open /dev.
#pragma once

#include <string_view>

#include "sim/device.h"

namespace sim {

extern const Device& directory_device;

// Results as of a Device.
long open_directory(std::string_view path);
const char* next_entry(OpenFile& directory);  // null at the end

}  // namespace sim
