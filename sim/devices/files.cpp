// The regular files of the board, which the product reads and removes; /dev/null, on every board; and
// the directory /dev, where every device but /dev/null lists its nodes.
#include "sim/devices/files.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "sim/devices/bridge.h"
#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {

constexpr std::size_t kMostBytes = 1 << 20;

static void describe(Keys& keys, FileContent& file) {
    keys.key("present", file.present, "false: the board does not have this file of its base");
    keys.key("bytes", hexadecimal(file.bytes), "its content");
    keys.key("text", file.bytes, "its content, as text");
    describe_source(keys, file.bytes, kMostBytes);
    keys.one_of({"bytes", "text", "from", "image"});
    std::int64_t size = -1;
    keys.key("size", size, "bytes that it is cut off at or filled up to; -1 = as they are",
             {-1, kMostBytes});
    if (size >= 0) file.bytes.resize(static_cast<std::size_t>(size));
}

namespace {

constexpr Names kPaths{"PATH", "/dav0/zeb321.bin /dav2/devCfg.bin /dav2/devCfg_backup.bin"};
constexpr int kNull = 0;  // index of /dev/null; the files follow

const std::string& bytes_of(int index) {
    return std::next(scenario->files.begin(), index - 1)->second.bytes;
}

struct Files final : Device {
    void describe(Keys& keys, Board& board) const override {
        keys.named("files", kPaths, board.files);
    }

    void start() const override {
        if (scenario->files.size() > kMostFiles) stop_here("more than %zu files", kMostFiles);
    }

    void places(const Places& tell) const override {
        tell("/dev/", "null");
        const bool* removed = world->removed;
        for (const auto& [path, file] : scenario->files) {
            const bool is_here = !*removed++ && file.present;
            tell("", is_here ? std::string_view(path) : std::string_view());
        }
    }

    long read(OpenFile& file, void* data, std::size_t size) const override {
        if (file.index == kNull) return 0;
        const std::string& bytes = bytes_of(file.index);
        const std::size_t offset = std::min(bytes.size(), static_cast<std::size_t>(file.offset));
        const std::size_t count = bytes.copy(static_cast<char*>(data), size, offset);
        file.offset += static_cast<std::int64_t>(count);
        return static_cast<long>(count);
    }

    long write(OpenFile& file, const void*, std::size_t size) const override {
        return file.index == kNull ? static_cast<long>(size) : -EINVAL;
    }

    std::int64_t size(int index) const override {
        return index == kNull ? -1 : std::ssize(bytes_of(index));
    }
};

}  // namespace

const Device& file_device = Files{};

long remove_file(std::string_view path) {
    const int index = index_of(file_device, path);
    if (index <= kNull) return -ENOENT;
    world->removed[index - 1] = true;
    return 0;
}

long open_directory(std::string_view path) {
    return path == "/dev" ? new_descriptor(file_device, kNull, path) : -ENOENT;
}

const char* next_entry(OpenFile& directory) {
    static std::string entry;
    std::vector<std::string> names{".", ".."};
    for (const Device* device : kDevices) {
        if (device == &file_device) continue;
        device->places([&names](std::string_view folder, std::string_view name) {
            if (folder == "/dev/" && !name.empty()) names.emplace_back(name);
        });
    }
    const auto place = static_cast<std::size_t>(directory.offset++);
    if (place >= names.size()) return nullptr;
    entry = names[place];
    return entry.c_str();
}

}  // namespace sim
