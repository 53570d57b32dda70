// The real-time clock, /dev/rtc.
#pragma once

#include <cstdint>

#include "sim/device.h"

namespace sim {

class Keys;

struct Rtc {
    bool present = false;
    std::int64_t offset_s = 0;  // ahead of the system clock at the start
    double rate = 1;            // seconds that it counts in a second
    int isdst = 0;              // that its driver leaves
};
void describe(Keys& keys, Rtc& rtc);

extern const Device& rtc_device;

}  // namespace sim
