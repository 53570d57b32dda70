// The front panel's microcontroller on its serial line.
//
// It sends the scenario's frames at their times. It accepts frames FF 07 30 command data data
// checksum, and sets its LEDs by the command: 0x05 and 0x27 the record LEDs, 0x06 and 0x28 the
// network LEDs, 0x09 the function LEDs; 0x0B is a heartbeat. Anything else is noted as garbage.
#include "sim/devices/panel.h"

#include <map>
#include <numeric>
#include <utility>

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {

// Keys by their code.
constexpr const char* kKeys[] = {"AN0",  "AN1",  "AN2",   "AN3",   "AN4",  "AN5",  "AN6",  "AN7",
                                 "AN8",  "AN9",  "MENU",  "ESC",   "EDIT", "A",    "VOIP", "PLAY",
                                 "REC",  "PAN",  "INFO",  "#",     "UP",   "DOWN", "LEFT", "RIGHT",
                                 "AN10", "AN11", "AN12",  "AN13",  "AN14", "AN15", "AN16", "",
                                 "",     "",     "ENTER", "POWER", "F1",   "F2"};

static char checksum(std::string_view bytes) {
    return static_cast<char>(std::accumulate(bytes.begin(), bytes.end(), 0));
}

// The names of the keys, each with the frame that it sends.
static std::vector<std::pair<std::string, std::string>> key_frames(bool pressed) {
    std::vector<std::pair<std::string, std::string>> frames;
    for (char code = 0; const std::string name : kKeys) {
        std::string frame{'\xFF', 6, 0x20, code++, static_cast<char>(pressed)};
        frame += checksum(frame);
        if (!name.empty()) frames.emplace_back(name, frame);
    }
    return frames;
}

static void describe(Keys& keys, PanelFrame& frame) {
    keys.key("at", frame.at, "second at which the panel begins to send");
    keys.key("key", choice(frame.bytes, key_frames(true)), "it sends that this key is pressed");
    keys.key("release", choice(frame.bytes, key_frames(false)),
             "it sends that this key is released");
    keys.key("bytes", hexadecimal(frame.bytes), "it sends these bytes");
    keys.key("whole", frame.whole, "they become readable all at once");
    keys.one_of({"key", "release", "bytes"});
}

static void describe(Keys& keys, Panel& panel) {
    describe(keys, panel.port);
    keys.key("connected", panel.connected, "false: the panel neither sends nor receives");
    keys.start_only({"frames"});
    keys.list("frames", panel.frames, kMostFrames);
    keys.ascending("frames", panel.frames);
}

namespace {

constexpr std::size_t kFrameSize = 7;

bool is_valid(std::string_view frame) {
    return frame.size() == kFrameSize && frame.starts_with("\xFF\x07\x30")
           && frame.back() == checksum(frame.substr(0, kFrameSize - 1));
}

void send(std::string_view bytes, std::size_t group) {
    if (!scenario->panel.connected) return;
    for (const char byte : bytes)
        enqueue(kPanelLine, byte, world->now + kByteTime, group);
}

struct FrontPanel final : Device {
    void describe(Keys& keys, Board& board) const override { keys.table("panel", board.panel); }

    Microseconds acts_at() const override {
        const auto& frames = scenario->panel.frames;
        const std::uint32_t next = world->panel.sent;
        return next < frames.size() ? from_seconds(frames[next].at) : kNever;
    }

    void act() const override {
        const PanelFrame& frame = scenario->panel.frames[world->panel.sent++];
        send(frame.bytes, frame.whole ? frame.bytes.size() : kTrigger);
    }
};

}  // namespace

const Device& panel_device = FrontPanel{};

void press_key(std::string_view key) {
    for (const auto& [name, frame] : key_frames(true))
        if (name == key) send(frame, frame.size());
}

void panel_receives(std::string_view frame) {
    if (!scenario->panel.connected) return;
    if (!is_valid(frame)) {
        note("panel", "garbage of %zu bytes", frame.size());
        return;
    }
    PanelState& panel = world->panel;
    const std::map<char, std::uint16_t*> leds = {{0x05, &panel.record[0]},
                                                 {0x27, &panel.record[1]},
                                                 {0x06, &panel.network[0]},
                                                 {0x28, &panel.network[1]},
                                                 {0x09, &panel.function}};
    ++panel.frames;
    if (frame[3] == 0x0B) note("panel", "heartbeat");
    const auto found = leds.find(frame[3]);
    const auto mask = static_cast<std::uint16_t>(static_cast<std::uint8_t>(frame[4]) << 8
                                                 | static_cast<std::uint8_t>(frame[5]));
    if (found == leds.end() || *found->second == mask) return;
    *found->second = mask;
    note("panel", "record %04X %04X network %04X %04X function %04X", panel.record[0],
         panel.record[1], panel.network[0], panel.network[1], panel.function);
}

}  // namespace sim
