// The alarm outputs, the inputs, and the fixture that wires them.
#include "sim/devices/alarm.h"

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {

static void describe(Keys& keys, Alarm& alarm) {
    keys.key("wiring", alarm.wiring, "inputs that each alarm output drives", {1, 16});
    if (alarm.wiring.size() > 32) keys.refuse("wiring", "more than 32 outputs", 32);
    keys.key("stuck", alarm.stuck, "inputs that are always active", {1, 16});
    keys.key("dead", alarm.dead, "inputs that are never active", {1, 16});
}

namespace {

constexpr std::uint32_t kStart = 0x40026B91;
constexpr std::uint32_t kGetInputs = 0x80026B90;

std::uint32_t mask_of(const std::set<std::uint8_t>& inputs) {
    std::uint32_t mask = 0;
    for (const std::uint8_t input : inputs)
        mask |= 1u << (input - 1);
    return mask;
}

std::uint16_t active_inputs() {
    const Alarm& alarm = scenario->alarm;
    std::uint32_t inputs = mask_of(alarm.stuck);
    for (std::size_t k = 0; k < alarm.wiring.size(); ++k) {
        if (world->alarm_outputs >> k & 1) inputs |= mask_of(alarm.wiring[k]);
    }
    return static_cast<std::uint16_t>(inputs & ~mask_of(alarm.dead));
}

struct AlarmPort final : Device {
    void describe(Keys& keys, Board& board) const override { keys.table("alarm", board.alarm); }

    long control(std::uint32_t request, Argument& argument) const override {
        if (request == kStart) return 0;
        if (request != kGetInputs) return -ENOTTY;
        const std::uint16_t inputs = active_inputs();  // the upper half of the word stays
        return argument.write(&inputs, sizeof inputs);
    }
};

}  // namespace

const Device& alarm_device = AlarmPort{};

void drive_alarm_outputs(std::uint32_t mask) {
    world->alarm_outputs = mask;
    note("alarm", "outputs %X", mask);
}

}  // namespace sim
