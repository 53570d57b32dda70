// The alarm outputs, the inputs, and the fixture that wires them.
#pragma once

#include <cstdint>
#include <set>
#include <vector>

namespace sim {

class Keys;

struct Alarm {  // the fixture between alarm outputs and inputs, all counted from 1
    std::vector<std::set<std::uint8_t>> wiring;  // inputs that each output drives
    std::set<std::uint8_t> stuck, dead;          // inputs: always active, never active
};
void describe(Keys& keys, Alarm& alarm);

struct AlarmState {
    std::uint32_t outputs;  // as last written
};

// The sides of the control device.
void drive_alarm_outputs(std::uint32_t mask);
std::uint16_t alarm_inputs();

}  // namespace sim
