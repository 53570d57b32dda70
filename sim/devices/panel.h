// The front panel on its serial line, /dev/ttyS2.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/devices/serial.h"

namespace sim {

constexpr std::size_t kMostFrames = 1024;

struct PanelFrame {
    double at = 0;
    std::string bytes;   // as they are on the wire
    bool whole = false;  // all become readable together, with the last one
};

struct Panel {  // on /dev/ttyS2
    SerialPort port;
    bool connected = true;
    std::vector<PanelFrame> frames;
};

struct PanelState {
    std::uint16_t record[2], network[2], function;  // LED masks
    std::uint32_t frames;                           // valid ones received
    std::uint32_t sent;                             // of the scenario's frames
};

extern const Device& panel_device;

void press_key(std::string_view key);  // by its name, at the present instant
void panel_receives(std::string_view frame);

}  // namespace sim
