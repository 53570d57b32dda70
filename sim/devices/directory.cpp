// An open /dev: every device lists its nodes, in directory order.
#include "sim/devices/directory.h"

#include "sim/process.h"
#include "sim/world.h"

namespace sim {
namespace {

class Directory final : public Device {};

const Directory directory;

}  // namespace

const Device& DirectoryRow::device = directory;

long open_directory(std::string_view path) {
    if (path != "/dev") return -ENOENT;
    return new_descriptor(directory, 0, path);
}

const char* next_entry(OpenFile& open) {
    static std::string entry;
    std::vector<std::string> names{".", ".."};
    for (const Device* device : all_devices())
        device->list(names);
    const auto place = static_cast<std::size_t>(open.offset++);
    if (place >= names.size()) return nullptr;
    entry = names[place];
    return entry.c_str();
}

}  // namespace sim
