// The keyboard line to the front panel's microcontroller, and its heartbeat.
//
// The main thread, the heartbeat thread and the LED thread write to the line without a lock: every
// frame goes out in one write, from a buffer of its own.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <numeric>

extern int g_keyboard_line;  // descriptor, -1 until the line is open; never closed

// Opens the line and starts the heartbeat thread. Returns 0, or -1 when the thread cannot be
// created: the line is usable all the same. Ends the process when the line cannot be opened or set
// up.
int keyboard_line_start();

// The thread's body: a heartbeat every 10 seconds, for ever.
void* heartbeat_thread(void*);
void send_heartbeat();

// Start byte 0xFF, frame length, payload, and the sum of all these bytes modulo 256.
template <std::size_t kLength>
std::array<std::uint8_t, kLength + 3> build_panel_frame(
    const std::array<std::uint8_t, kLength>& payload) {
    std::array<std::uint8_t, kLength + 3> frame{0xFF, kLength + 3};
    for (std::size_t i = 0; i < kLength; ++i)
        frame[2 + i] = payload[i];
    frame.back() = static_cast<std::uint8_t>(std::accumulate(frame.begin(), frame.end() - 1, 0u));
    return frame;
}
