// The alarm outputs, the inputs, and the fixture that wires them.
//
// An output is in effect from the write that drives it until the write that releases it; a slow
// one follows each of these writes after its time, if no other write has come by then.
#include "sim/devices/alarm.h"

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

std::uint32_t outputs_in_effect() {
    const AlarmState& alarm = world->alarm;
    if (world->now - alarm.written >= from_seconds(scenario->alarm.slow_time)) {
        return alarm.outputs;
    }
    std::uint32_t slow = 0;
    for (const std::uint8_t output : scenario->alarm.slow)
        slow |= 1u << (output - 1);
    return (alarm.outputs & ~slow) | (alarm.before & slow);
}

std::uint32_t mask_of(const std::set<std::uint8_t>& inputs) {
    std::uint32_t mask = 0;
    for (const std::uint8_t input : inputs)
        mask |= 1u << (input - 1);
    return mask;
}

}  // namespace

void drive_alarm_outputs(std::uint32_t mask) {
    world->alarm.before = outputs_in_effect();
    world->alarm.outputs = mask;
    world->alarm.written = world->now;
    note("alarm", "outputs %X", mask);
}

std::uint16_t alarm_inputs() {
    const Alarm& alarm = scenario->alarm;
    const std::uint32_t outputs = outputs_in_effect();
    std::uint32_t inputs = mask_of(alarm.stuck);
    for (std::size_t k = 0; k < alarm.wiring.size(); ++k) {
        if (outputs >> k & 1) inputs |= mask_of(alarm.wiring[k]);
    }
    return static_cast<std::uint16_t>(inputs & ~mask_of(alarm.dead));
}

void describe(Keys& keys, Alarm& alarm) {
    keys.key("wiring", alarm.wiring, "inputs that each alarm output drives", {1, 16});
    if (alarm.wiring.size() > 32)
        throw ScenarioError(keys.place_of("wiring", 32) + ": more than 32 outputs");
    keys.key("stuck", alarm.stuck, "inputs that are always active", {1, 16});
    keys.key("dead", alarm.dead, "inputs that are never active", {1, 16});
    keys.key("slow", alarm.slow, "outputs that follow after slow_time", {1, 32});
    keys.key("slow_time", alarm.slow_time, "seconds that these take");
}

}  // namespace sim
