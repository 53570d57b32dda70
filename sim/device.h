// What a simulated device offers to the platform functions. Results are those of a kernel: 0 or
// more is success, a negative value is the negated errno. A Device has no state of its own: what a
// scenario says of it lies in the board, its state in the world.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "sim/process.h"
#include "sim/time.h"

struct termios;

namespace sim {

class Keys;
struct Board;

struct Argument {  // of an ioctl: by value, or a block
    std::uint32_t value;
    std::uint8_t* block;
    std::string_view answer{};  // bytes that the request has written, for the event log

    // Writes these bytes to the block; 0, as of a request that succeeds.
    long write(const void* bytes, std::size_t size);
};

// Is told the places of a device in the order of their indexes, as the two parts of a path: a node in
// /dev has "/dev/" and its name. No name = nothing lies there.
using Places = std::function<void(std::string_view folder, std::string_view name)>;

template <class Map>
void tell_places(const Places& tell, std::string_view folder, const Map& items) {
    for (const auto& [name, item] : items)
        tell(folder, item.present ? std::string_view(name) : std::string_view());
}

class Device {
  public:
    // Reads what a scenario says of it into the board.
    virtual void describe(Keys&, Board&) const {}

    // Puts what the board describes into the world, before the product starts.
    virtual void start() const {}
    // The description is about to change; it is still the old one.
    virtual void before_change() const {}

    virtual void places(const Places& /*tell*/) const {}

    virtual long open(int, int /*flags*/) const { return 0; }
    virtual void close(int) const {}
    virtual long read(OpenFile&, void*, std::size_t) const { return -EINVAL; }
    virtual long write(OpenFile&, const void*, std::size_t) const { return -EINVAL; }
    virtual long ioctl(OpenFile&, std::uint32_t /*request*/, Argument&) const { return -ENOTTY; }
    // A request to the control device; -ENOTTY = this device does not serve it.
    virtual long control(std::uint32_t /*request*/, Argument&) const { return -ENOTTY; }
    // Bytes of the block that a request reads, for the event log.
    virtual std::size_t sent_size(std::uint32_t /*request*/) const { return 0; }
    virtual std::int64_t size(int) const { return -1; }  // of a file that can be sought; -1 = none
    virtual termios* attributes(int) const { return nullptr; }  // of a serial line

    // The instant from which on the file is ready. kNever = not by itself.
    virtual Microseconds ready_at(const OpenFile&, Direction) const { return 0; }

    // When the device next does something by itself, and what.
    virtual Microseconds acts_at() const { return kNever; }
    virtual void act() const {}

  protected:
    ~Device() = default;
};

int index_of(const Device& device, std::string_view path);  // -1 = nothing lies there

struct Place {
    const Device* device;  // null: the board has no such path
    int index;             // which one of its kind
};
Place find_place(std::string_view path);

}  // namespace sim
