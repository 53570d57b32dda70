// The regular files of the board. The product reads and removes them.
#include "sim/devices/files.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "sim/devices/bridge.h"
#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

constexpr Names kPaths{"PATH", "/dav0/zeb321.bin /dav2/devCfg.bin /dav2/devCfg_backup.bin"};

const FileContent& content(int index) { return std::next(scenario->files.begin(), index)->second; }

std::string bytes_of(int index) {
    const FileContent& file = content(index);
    std::string bytes = file.bytes;
    if (file.size >= 0) bytes.resize(static_cast<std::size_t>(file.size));
    return bytes;
}

void describe_file(Keys& keys, FileContent& file) {
    keys.key("present", file.present, "false: the board does not have this file of its base");
    keys.key("bytes", hexadecimal(file.bytes), "its content");
    keys.key("text", file.bytes, "its content, as text");
    keys.key("from", from_file(keys.folder(), file.bytes, kMostFileBytes),
             "a file of this machine with its content");
    describe_image(keys, file.bytes);
    keys.one_of({"bytes", "text", "from", "image"});
    keys.key("size", file.size, "bytes that it is cut off at or filled up to; -1 = as they are",
             {-1, kMostFileBytes});
}

class Files final : public Device {
  public:
    void describe(Keys& keys, Board& board) const override {
        keys.named("files", kPaths, board.files, describe_file);
    }

    void start() const override {
        if (scenario->files.size() > std::size(world->tree))
            stop_here("more than %zu files", std::size(world->tree));
    }

    int find(std::string_view path) const override {
        int index = 0;
        for (const auto& [name, file] : scenario->files) {
            if (name == path) return file.present && !world->tree[index].removed ? index : -1;
            ++index;
        }
        return -1;
    }

    long read(OpenFile& file, void* data, std::size_t size) const override {
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

const Device& FilesRow::device = files;

long remove_file(const char* path) {
    const int index = files.find(path);
    if (index < 0) return -ENOENT;
    world->tree[index].removed = true;
    return 0;
}

}  // namespace sim
