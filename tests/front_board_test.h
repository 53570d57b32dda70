// Test 3: keys and LEDs of the front panel.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>

// Shows LED patterns, answers the panel's keys until ESC or 5 seconds of silence; in net mode then
// leaves a thread behind that cycles the LEDs. Needs an open keyboard line.
void front_board_test();
void front_board_test_if_fitted();  // nothing on a board without front panel

// Acts on the frames among the bytes of one read, in order. Stops at ESC, which sets the exit
// flag, and at a frame that is cut off.
void walk_panel_frames(int line, std::span<const std::uint8_t> bytes);

extern std::uint32_t g_panel_exit;  // exit flag: 1 once ESC was received

// Reply counter: when the low word reaches 0xFFFFFFFF it starts again and the high one counts.
// The interrupt handler reads it.
extern std::atomic<std::uint32_t> g_panel_replies_high, g_panel_replies_low;
