// The front panel's microcontroller on its serial line.
//
// It sends the scenario's frames at their times. It accepts frames FF 07 30 command data data
// checksum, and sets its LEDs by the command: 0x05 and 0x27 the record LEDs, 0x06 and 0x28 the
// network LEDs, 0x09 the function LEDs; 0x0B is a heartbeat. Anything else is noted as garbage.
#include "sim/devices/panel.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <utility>

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

constexpr std::size_t kFrameSize = 7;

bool is_valid(std::string_view frame) {
    unsigned sum = 0;
    for (std::size_t i = 0; i + 1 < kFrameSize; ++i)
        sum += static_cast<std::uint8_t>(frame[i]);
    return frame[0] == '\xFF' && frame[1] == 7 && frame[2] == 0x30
           && static_cast<std::uint8_t>(frame[6]) == (sum & 0xFF);
}

std::uint16_t* leds_of(std::uint8_t command) {
    PanelState& panel = world->panel;
    const std::pair<int, std::uint16_t*> leds[] = {{0x05, &panel.record[0]},
                                                   {0x27, &panel.record[1]},
                                                   {0x06, &panel.network[0]},
                                                   {0x28, &panel.network[1]},
                                                   {0x09, &panel.function}};
    for (const auto& [number, mask] : leds) {
        if (number == command) return mask;
    }
    return nullptr;
}

void accept(std::string_view frame) {
    ++world->panel.frames;
    const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(frame[at]); };
    if (byte(3) == 0x0B) note("panel", "heartbeat");
    std::uint16_t* leds = leds_of(byte(3));
    if (leds == nullptr) return;
    const auto mask = static_cast<std::uint16_t>(byte(4) << 8 | byte(5));
    if (*leds == mask) return;
    *leds = mask;
    const PanelState& panel = world->panel;
    note("panel", "record %04X %04X network %04X %04X function %04X", panel.record[0],
         panel.record[1], panel.network[0], panel.network[1], panel.function);
}

void send(std::string_view bytes, std::uint32_t group) {
    if (!scenario->panel.connected) return;
    for (const char byte : bytes)
        enqueue(kPanelLine, static_cast<std::uint8_t>(byte), world->now + kByteTime, group);
}

// Keys by their code.
constexpr const char* kKeys[] = {"AN0",  "AN1",  "AN2",   "AN3",   "AN4",  "AN5",  "AN6",  "AN7",
                                 "AN8",  "AN9",  "MENU",  "ESC",   "EDIT", "A",    "VOIP", "PLAY",
                                 "REC",  "PAN",  "INFO",  "#",     "UP",   "DOWN", "LEFT", "RIGHT",
                                 "AN10", "AN11", "AN12",  "AN13",  "AN14", "AN15", "AN16", "",
                                 "",     "",     "ENTER", "POWER", "F1",   "F2"};

// The name of a key, which stands for its frame.
Codec panel_key(std::string& bytes, bool pressed) {
    return word("one of " + key_names(), "", [&bytes, pressed](const std::string& name) {
        bytes = key_frame(name, pressed);
        return !bytes.empty();
    });
}

void describe_frame(Keys& keys, PanelFrame& frame) {
    keys.key("at", frame.at, "second at which the panel begins to send");
    keys.key("key", panel_key(frame.bytes, true), "it sends that this key is pressed");
    keys.key("release", panel_key(frame.bytes, false), "it sends that this key is released");
    keys.key("bytes", hexadecimal(frame.bytes), "it sends these bytes");
    keys.key("whole", frame.whole, "they become readable all at once");
    keys.one_of({"key", "release", "bytes"});
}

void describe_panel(Keys& keys, Panel& panel) {
    describe_port(keys, panel.port);
    keys.key("connected", panel.connected, "false: the panel neither sends nor receives");
    keys.start_only({"frames"});
    keys.list("frames", panel.frames, describe_frame, kMostFrames);
    keys.ascending("frames", panel.frames);
}

class FrontPanel final : public Device {
  public:
    void describe(Keys& keys, Board& board) const override {
        keys.table("panel", board.panel, describe_panel);
    }

    Microseconds acts_at() const override {
        const auto& frames = scenario->panel.frames;
        const std::uint32_t next = world->panel.sent;
        return next < frames.size() ? from_seconds(frames[next].at) : kNever;
    }

    void act() const override {
        const PanelFrame& frame = scenario->panel.frames[world->panel.sent++];
        send(frame.bytes, frame.whole ? static_cast<std::uint32_t>(frame.bytes.size()) : kTrigger);
    }
};

const FrontPanel front_panel;

}  // namespace

const Device& PanelRow::device = front_panel;

std::string key_frame(const std::string& key, bool pressed) {
    const auto* const found = std::find(std::begin(kKeys), std::end(kKeys), key);
    if (key.empty() || found == std::end(kKeys)) return "";
    std::string frame{'\xFF', 6, 0x20, static_cast<char>(found - kKeys),
                      static_cast<char>(pressed)};
    return frame + static_cast<char>(std::accumulate(frame.begin(), frame.end(), 0));
}

std::string key_names() {
    std::string names;
    for (const std::string key : kKeys)
        if (!key.empty()) names += (names.empty() ? "" : ", ") + key;
    return names;
}

void press_key(const std::string& key) {
    const std::string frame = key_frame(key, true);
    send(frame, static_cast<std::uint32_t>(frame.size()));
}

void panel_receives(std::string_view bytes) {
    if (!scenario->panel.connected) return;
    if (bytes.size() == kFrameSize && is_valid(bytes)) {
        accept(bytes);
    } else {
        note("panel", "garbage of %zu bytes", bytes.size());
    }
}

}  // namespace sim
