#include "sim/device.h"

#include <algorithm>
#include <cstring>

#include "sim/devices/table.h"
#include "sim/world.h"

namespace sim {
long Argument::write(const void* bytes, std::size_t size) {
    std::memcpy(block, bytes, size);
    answer = {reinterpret_cast<const char*>(block), size};
    return 0;
}

Microseconds Device::ready_at(const OpenFile&, Direction) const { return world->now; }

int index_of(const Paths& paths, std::string_view path) {
    const auto found = std::find(paths.begin(), paths.end(), path);
    return path.empty() || found == paths.end() ? -1 : static_cast<int>(found - paths.begin());
}

std::span<const Device* const> all_devices() { return kDevices; }

const Device* find_device(std::string_view path, int* index) {
    for (const Device* device : kDevices) {
        *index = index_of(device->paths(), path);
        if (*index >= 0) return device;
    }
    return nullptr;
}

}  // namespace sim
