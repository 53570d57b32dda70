// The hardware block of the control device: what the board says it is fitted with.
#pragma once

#include "sim/device.h"

namespace sim {

std::map<std::string, std::uint32_t> preset_hardware();  // fields of the block, by key

extern const Device& hardware_device;

}  // namespace sim
