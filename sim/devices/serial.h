// The two serial lines, between the product and what is connected to them.
#pragma once

#include <termios.h>

#include <cstdint>

#include "sim/device.h"
#include "sim/queue.h"

namespace sim {

struct SerialPort {
    bool present = false;
    bool blocked = false;  // accepts no byte
    bool hung_up = false;  // reads give 0 bytes and writes EIO
    // As others left it: those of a fresh port.
    termios attributes{0x500, 0x5, 0xCBD, 0x8A3B, 0, {}, 0, 0};
};
void describe(Keys& keys, SerialPort& port);

constexpr int kRs485Line = 0;  // /dev/ttyS0
constexpr int kPanelLine = 1;  // /dev/ttyS2

constexpr Microseconds kByteTime = 1042;  // 10 bits at 9600 baud
constexpr std::size_t kTrigger = 8;       // bytes in a group of the receiver

// Enqueues a byte for the product. It arrives at this time or as soon as the line is free, and
// becomes readable with its group: when the group is full, or after four byte times of silence.
void enqueue(int line, char byte, Microseconds at, std::size_t group_size = kTrigger);

struct ArrivingByte {
    Microseconds readable;
    char value;
};

struct SerialLine {
    termios attributes;
    Microseconds sent_until;      // when the last byte given to it leaves
    Microseconds received_until;  // when the last byte so far arrives
    std::uint32_t group;          // bytes in the receiver's unfinished group
    Queue<ArrivingByte, 1 << 17> arriving;
};

extern const Device& serial_device;

}  // namespace sim
