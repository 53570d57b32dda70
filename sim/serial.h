// The two serial lines, between the product and what is connected to them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "sim/world.h"

namespace sim {

constexpr int kRs485Line = 0;  // /dev/ttyS0
constexpr int kPanelLine = 1;  // /dev/ttyS2

constexpr Microseconds kByteTime = 1042;  // 10 bits at 9600 baud
constexpr std::uint32_t kTrigger = 8;     // bytes in a group of the receiver

// One byte for the product, the last bit of it at this time or as soon as the line is free. It
// becomes readable with its group: when that is full, or when the line has been idle for the time
// of four bytes.
void arrive(int line, std::uint8_t byte, Microseconds at, std::uint32_t group_size = kTrigger);

// Whether the product has set the line up as its other end expects it.
bool is_set_up(int line);

// The other ends: they get what the product has sent; its first byte is complete at this time.
void panel_start();
// A key of the panel, by its name, at the present instant: before the frames still to come.
void press_key(const std::string& key);
void panel_receives(std::string_view bytes);
void fixture_receives(std::string_view bytes, Microseconds at);

}  // namespace sim
