// The alarm outputs, the inputs, and the fixture that wires them.
#pragma once

#include <set>
#include <vector>

#include "sim/device.h"

namespace sim {

struct Alarm {  // the fixture between alarm outputs and inputs, all counted from 1
    std::vector<std::set<std::uint8_t>> wiring;  // inputs that each output drives
    std::set<std::uint8_t> stuck, dead;          // inputs: always active, never active
};

extern const Device& alarm_device;

// What a write to the control device does.
void drive_alarm_outputs(std::uint32_t mask);

}  // namespace sim
