// /dev/null.
#pragma once

#include "sim/device.h"

namespace sim {

struct NullRow : DeviceRow {
    static const Device& device;
};

}  // namespace sim
