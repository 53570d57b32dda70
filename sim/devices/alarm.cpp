// The alarm outputs, the inputs, and the fixture that wires them.
#include "sim/devices/alarm.h"

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

std::uint32_t mask_of(const std::set<std::uint8_t>& inputs) {
    std::uint32_t mask = 0;
    for (const std::uint8_t input : inputs)
        mask |= 1u << (input - 1);
    return mask;
}

}  // namespace

void drive_alarm_outputs(std::uint32_t mask) {
    world->alarm.outputs = mask;
    note("alarm", "outputs %X", mask);
}

std::uint16_t alarm_inputs() {
    const Alarm& alarm = scenario->alarm;
    std::uint32_t inputs = mask_of(alarm.stuck);
    for (std::size_t k = 0; k < alarm.wiring.size(); ++k) {
        if (world->alarm.outputs >> k & 1) inputs |= mask_of(alarm.wiring[k]);
    }
    return static_cast<std::uint16_t>(inputs & ~mask_of(alarm.dead));
}

void describe(Keys& keys, Alarm& alarm) {
    keys.key("wiring", alarm.wiring, "inputs that each alarm output drives", {1, 16});
    if (alarm.wiring.size() > 32)
        throw ScenarioError(keys.place_of("wiring", 32) + ": more than 32 outputs");
    keys.key("stuck", alarm.stuck, "inputs that are always active", {1, 16});
    keys.key("dead", alarm.dead, "inputs that are never active", {1, 16});
}

}  // namespace sim
