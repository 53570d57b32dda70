// The regular files of the board: content from the scenario, read and removed by the product.
#include "sim/devices/files.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "sim/devices/bridge.h"
#include "sim/scenario/keys.h"
#include "sim/scenario/words.h"
#include "sim/world.h"

namespace sim {
namespace {

const FileContent& content(int index) { return std::next(scenario->files.begin(), index)->second; }

// Its bytes; one that somebody writes to while it is read changes its size.
std::string bytes_of(int index) {
    const FileContent& file = content(index);
    std::string bytes = file.bytes;
    const bool resized =
        file.resized_at_read != 0 && world->tree[index].reads >= file.resized_at_read;
    if (resized) bytes.resize(file.resized_to);
    return bytes;
}

class Files final : public Device {
  public:
    void start() const override {
        if (scenario->files.size() > std::size(world->tree))
            stop_here("more than %zu files", std::size(world->tree));
        int index = 0;
        for (const auto& [path, file] : scenario->files)
            world->tree[index++].present = file.present;
    }

    int find(std::string_view path) const override {
        int index = 0;
        for (const auto& [name, file] : scenario->files) {
            if (name == path) return world->tree[index].present ? index : -1;
            ++index;
        }
        return -1;
    }

    long read(OpenFile& file, void* data, std::size_t size) const override {
        ++world->tree[file.index].reads;
        const std::string bytes = bytes_of(file.index);
        const std::size_t offset = std::min(bytes.size(), static_cast<std::size_t>(file.offset));
        const std::size_t count = std::min(size, bytes.size() - offset);
        std::memcpy(data, bytes.data() + offset, count);
        file.offset += static_cast<std::int64_t>(count);
        return static_cast<long>(count);
    }

    std::int64_t size(int index) const override {
        return static_cast<std::int64_t>(bytes_of(index).size());
    }
};

const Files files;

}  // namespace

const Device& file_device = files;

long remove_file(const char* path) {
    const int index = files.find(path);
    if (index < 0) return -ENOENT;
    world->tree[index].present = false;
    return 0;
}

void describe(Keys& keys, FileContent& file, const std::string& folder) {
    keys.key("present", file.present, "false: the board does not have this file of its base");
    keys.key("bytes", hexadecimal(file.bytes), "its content");
    keys.key("text", file.bytes, "its content, as text");
    keys.key("from", from_file(file.bytes, folder, 1 << 20),
             "a file of this machine with its content");
    describe_image(keys, file.bytes);
    keys.one_of({"bytes", "text", "from", "image"});
    keys.key("resized_at_read", file.resized_at_read,
             "read, counted from 1, at which somebody changes its size; 0 = never");
    keys.key("resized_to", file.resized_to, "its size from then on");
    keys.only_if(file.resized_at_read != 0, {"resized_to"}, "resized_at_read");
}

}  // namespace sim
