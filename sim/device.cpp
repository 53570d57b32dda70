#include "sim/device.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "sim/devices/table.h"
#include "sim/world.h"

namespace sim {
namespace {

template <class... Row>
std::array<const Device*, sizeof...(Row)> rows_of(DeviceTable<Row...>) {
    return {&Row::device...};
}

const auto kDevices = rows_of(Devices{});

}  // namespace

long Argument::write(const void* bytes, std::size_t size) {
    std::memcpy(block, bytes, size);
    answer = {reinterpret_cast<const char*>(block), size};
    return 0;
}

Microseconds Device::ready_at(const OpenFile&, Direction) const { return world->now; }

void describe_devices(Keys& keys, Board& board) {
    for (const Device* each : kDevices)
        each->describe(keys, board);
}

void start_devices() {
    for (const Device* each : kDevices)
        each->start();
}

void prepare_devices_for_change() {
    for (const Device* each : kDevices)
        each->before_change();
}

Microseconds next_act_at() {
    Microseconds at = kNever;
    for (const Device* each : kDevices)
        at = std::min(at, each->acts_at());
    return at;
}

void act_devices() {
    for (const Device* each : kDevices)
        if (each->acts_at() <= world->now) each->act();
}

long control_devices(std::uint32_t request, Argument& argument) {
    for (const Device* each : kDevices) {
        const long result = each->control(request, argument);
        if (result != -ENOTTY) return result;
    }
    return -ENOTTY;
}

std::vector<std::string> list_nodes() {
    std::vector<std::string> names{".", ".."};
    for (const Device* each : kDevices)
        each->list(names);
    return names;
}

const Device* find_device(std::string_view path, int* index) {
    for (const Device* each : kDevices) {
        *index = each->find(path);
        if (*index >= 0) return each;
    }
    return nullptr;
}

const Device& device_of(const OpenFile& file) { return *kDevices[file.device]; }

int row_of(const Device& device) {
    return static_cast<int>(std::find(kDevices.begin(), kDevices.end(), &device)
                            - kDevices.begin());
}

}  // namespace sim
