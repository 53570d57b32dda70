// What a simulated device offers to the platform functions. Results are those of a kernel: 0 or
// more is success, a negative value is the negated errno. The state of every device lies in the
// world, its description in the board; a Device itself has none.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sim/process.h"
#include "sim/time.h"

struct termios;

namespace sim {

struct Argument {  // of an ioctl: by value, or a block
    std::uint32_t value;
    void* block;
};

class Device {
  public:
    // Puts what the board describes into the world, before the product starts.
    virtual void start() const {}

    // Which one of its kind lies at this path; -1 when the board has none there.
    virtual int find(std::string_view path) const = 0;

    virtual long open(int, int /*flags*/) const { return 0; }
    virtual void close(int) const {}
    virtual long read(OpenFile&, void*, std::size_t) const { return -EINVAL; }
    virtual long write(OpenFile&, const void*, std::size_t) const { return -EINVAL; }
    virtual long ioctl(OpenFile&, std::uint32_t /*request*/, Argument) const { return -ENOTTY; }
    // Bytes of the block that a request takes and answers, for the event log.
    virtual std::size_t sent_size(std::uint32_t /*request*/) const { return 0; }
    virtual std::size_t answer_size(std::uint32_t /*request*/) const { return 0; }
    virtual std::int64_t size(int) const { return -1; }  // of a file that can be sought; -1 = none
    virtual termios* attributes(int) const { return nullptr; }  // of a serial line

    // First instant, not before the present one, at which the file is ready. kNever = not by
    // itself.
    virtual Microseconds ready_at(const OpenFile&, Direction) const;

    // When it does something by itself, and what.
    virtual Microseconds acts_at() const { return kNever; }
    virtual void act() const {}

    // Appends the names of its nodes in /dev, in directory order.
    virtual void list(std::vector<std::string>&) const {}

  protected:
    ~Device() = default;
};

// The device table. Rows are named by number in OpenFile::device.
const Device& device(int row);
void start_devices();
Microseconds next_act_at();
void act_devices();                                  // those that are due
std::vector<std::string> list_nodes();               // of /dev
int find_device(std::string_view path, int* index);  // row, or -1: the board has no such path

constexpr int kConsoleRow = 0;
constexpr int kDirectoryRow = 1;
constexpr int kSocketRow = 2;
constexpr int kPipeRow = 3;

}  // namespace sim
