// The real-time clock, /dev/rtc.
#pragma once

#include "sim/device.h"

namespace sim {

struct Rtc {
    bool present = false;
    std::int64_t offset_s = 0;  // ahead of the system clock at the start
    double rate = 1;            // seconds that it counts in a second
    int isdst = 0;              // that its driver leaves
};

struct RtcState {
    double counted_s;    // from the start of the run to the latest change of the board
    Microseconds since;  // that change
};

extern const Device& rtc_device;

}  // namespace sim
