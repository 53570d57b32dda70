#include "sim/device.h"

#include <array>
#include <cstring>

#include "sim/devices/table.h"
#include "sim/world.h"

namespace sim {
namespace {

template <class... Row>
std::array<const Device*, sizeof...(Row)> devices_of(DeviceTable<Row...>) {
    return {&Row::device...};
}

const auto kDevices = devices_of(Devices{});

}  // namespace

long Argument::write(const void* bytes, std::size_t size) {
    std::memcpy(block, bytes, size);
    answer = {reinterpret_cast<const char*>(block), size};
    return 0;
}

Microseconds Device::ready_at(const OpenFile&, Direction) const { return world->now; }

std::span<const Device* const> all_devices() { return kDevices; }

const Device* find_device(std::string_view path, int* index) {
    for (const Device* device : kDevices) {
        *index = device->find(path);
        if (*index >= 0) return device;
    }
    return nullptr;
}

}  // namespace sim
