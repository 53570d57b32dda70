// The alarm outputs, the inputs, and the fixture that wires them.
#pragma once

#include <cstdint>
#include <set>
#include <vector>

#include "sim/time.h"

namespace sim {

class Keys;

struct Alarm {  // the fixture between alarm outputs and inputs, all counted from 1
    std::vector<std::set<std::uint8_t>> wiring;  // inputs that each output drives
    std::set<std::uint8_t> stuck, dead;          // inputs: always active, never active
    std::set<std::uint8_t> slow;                 // outputs that follow after slow_time
    double slow_time = 3;
};
void describe(Keys& keys, Alarm& alarm);

struct AlarmState {
    std::uint32_t outputs, before;  // as last written; as they were in effect until then
    Microseconds written;
};

// The sides of the control device.
void drive_alarm_outputs(std::uint32_t mask);
std::uint16_t alarm_inputs();

}  // namespace sim
