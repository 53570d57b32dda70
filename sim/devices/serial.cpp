// The serial lines.
//
// Sending: the line buffers up to 4096 bytes and sends them at 9600 baud. Receiving: the bytes of a
// group become readable together, and a read returns all readable ones.
// A line whose settings do not match its other end carries garbage in both directions. A fresh line
// has canonical mode, echo and output processing on. Attributes survive close and open.
#include "sim/devices/serial.h"

#include <algorithm>
#include <string>

#include "sim/devices/panel.h"
#include "sim/devices/rs485.h"
#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

constexpr std::uint32_t kSendBuffer = 4096;

const SerialPort& port(int line) {
    return line == kRs485Line ? scenario->rs485.port : scenario->panel.port;
}

// Whether the product has set the line up as its other end expects.
bool is_set_up(int line) {
    const termios& attributes = world->lines[line].attributes;
    const tcflag_t framing = CSIZE | CSTOPB | PARENB | CREAD | CLOCAL;
    return cfgetospeed(&attributes) == B9600
           && (attributes.c_cflag & framing) == (CS8 | CREAD | CLOCAL)
           && (attributes.c_lflag & (ISIG | ICANON | ECHO)) == 0
           && (attributes.c_iflag & (INLCR | IGNCR | ICRNL | IXON | IXOFF)) == 0
           && (attributes.c_oflag & OPOST) == 0;
}

// A byte as it passes the line.
char passed(int line, char byte) {
    return is_set_up(line) ? byte : static_cast<char>(static_cast<std::uint8_t>(byte) << 1 ^ 0xA5);
}

// When the send buffer next has room for a byte.
Microseconds has_room_at(const SerialLine& line) {
    return line.sent_until - (kSendBuffer - 1) * kByteTime;
}

struct SerialNode final : Device {
    void start() const override {
        for (const int line : {kRs485Line, kPanelLine}) {
            termios& attributes = world->lines[line].attributes;
            attributes = port(line).attributes;
            attributes.c_cc[VMIN] = 1;
            ::cfsetspeed(&attributes, attributes.c_cflag & CBAUD);
        }
    }

    void places(const Places& tell) const override {
        tell("/dev/", port(kRs485Line).present ? "ttyS0" : "");
        tell("/dev/", port(kPanelLine).present ? "ttyS2" : "");
    }

    termios* attributes(int line) const override { return &world->lines[line].attributes; }

    long read(OpenFile& file, void* data, std::size_t size) const override {
        if (port(file.index).hung_up) return 0;
        auto& queue = world->lines[file.index].arriving;
        std::size_t count = 0;
        while (count < size && !queue.is_empty() && queue.front().readable <= world->now)
            static_cast<char*>(data)[count++] = passed(file.index, queue[queue.head++].value);
        return count > 0 ? static_cast<long>(count) : -EAGAIN;
    }

    long write(OpenFile& file, const void* data, std::size_t size) const override {
        SerialLine& line = world->lines[file.index];
        if (port(file.index).hung_up) return -EIO;
        if (port(file.index).blocked || has_room_at(line) > world->now) return -EAGAIN;
        const Microseconds start = std::max(line.sent_until, world->now);
        const auto queued = static_cast<std::size_t>((start - world->now) / kByteTime);
        std::string bytes(static_cast<const char*>(data), std::min(size, kSendBuffer - queued));
        line.sent_until = start + static_cast<Microseconds>(bytes.size()) * kByteTime;
        for (char& byte : bytes)
            byte = passed(file.index, byte);
        if (file.index == kRs485Line) fixture_receives(bytes, start + kByteTime);
        if (file.index == kPanelLine) panel_receives(bytes);
        return static_cast<long>(bytes.size());
    }

    Microseconds ready_at(const OpenFile& file, Direction direction) const override {
        const SerialLine& line = world->lines[file.index];
        if (port(file.index).hung_up) return 0;
        if (direction == Direction::write)
            return port(file.index).blocked ? kNever : has_room_at(line);
        return line.arriving.is_empty() ? kNever : line.arriving.front().readable;
    }
};

}  // namespace

const Device& serial_device = SerialNode{};

void enqueue(int number, char byte, Microseconds at, std::size_t group_size) {
    SerialLine& line = world->lines[number];
    auto& queue = line.arriving;
    if (queue.room() == 0)
        stop_here("more than %zu bytes on a serial line", std::size(queue.items));
    at = std::max(at, line.received_until + kByteTime);
    const bool after_a_gap = at > line.received_until + 4 * kByteTime;
    if (after_a_gap || line.group >= group_size) line.group = 0;
    line.received_until = at;
    queue[queue.tail++] = {at, byte};
    ++line.group;
    const Microseconds readable = line.group >= group_size ? at : at + 4 * kByteTime;
    for (std::uint32_t i = 1; i <= line.group; ++i)
        queue[queue.tail - i].readable = readable;
}

void describe(Keys& keys, SerialPort& port) {
    keys.key("present", port.present, "the serial port exists");
    keys.key("blocked", port.blocked, "the port takes no byte");
    keys.start_only({"iflag", "oflag", "cflag", "lflag"});
    keys.key("iflag", port.attributes.c_iflag, "input modes, as others left them");
    keys.key("oflag", port.attributes.c_oflag, "output modes");
    keys.key("cflag", port.attributes.c_cflag, "control modes, with the speed");
    keys.key("lflag", port.attributes.c_lflag, "local modes");
    keys.key("hung_up", port.hung_up, "the line has hung up");
}

}  // namespace sim
