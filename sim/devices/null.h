// /dev/null.
#pragma once

#include "sim/device.h"

namespace sim {

extern const Device& null_device;

}  // namespace sim
