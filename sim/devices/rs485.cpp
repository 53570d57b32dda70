// The RS-485 fixture echoes each byte after a delay, except those that it drops or corrupts. It works
// only while both switches of the control device are on; they are off at the start.
#include "sim/devices/rs485.h"

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {

static void describe(Keys& keys, Rs485& rs485) {
    describe(keys, rs485.port);
    keys.key("fixture", rs485.fixture, "the loopback fixture is connected");
    keys.key("corrupt", rs485.corrupt, "bytes that come back changed, counted from 0");
    keys.key("drop", rs485.drop, "bytes that do not come back");
    keys.key("repeat", rs485.repeat, "bytes that come back twice");
    keys.key("insert", rs485.insert, "bytes behind which a stray one comes back");
    keys.key("corrupt_every", rs485.corrupt_every, "each so many bytes, one comes back changed");
    keys.key("drop_every", rs485.drop_every, "each so many bytes, one does not come back");
    keys.key("delay", rs485.delay, "seconds from a byte to its echo");
    keys.key("pieces", rs485.pieces, "sizes in which the echo becomes readable, in turn", {1});
}

namespace {

constexpr std::uint32_t kFirstSwitch = 0x07, kSecondSwitch = 0x08;  // of the control device
constexpr char kStray = 0x55;

void send_back(char byte, Microseconds at) {
    const auto& pieces = scenario->rs485.pieces;
    FixtureState& state = world->rs485;
    const std::size_t piece = pieces.empty() ? kTrigger : pieces[state.pieces % pieces.size()];
    enqueue(kRs485Line, byte, at, piece);
    if (world->lines[kRs485Line].group >= piece) ++state.pieces;
}

bool applies(const std::set<std::uint32_t>& places, std::uint32_t every, std::uint32_t place) {
    return places.count(place) != 0 || (every != 0 && (place + 1) % every == 0);
}

struct Fixture final : Device {
    void describe(Keys& keys, Board& board) const override { keys.table("rs485", board.rs485); }

    long control(std::uint32_t request, Argument& argument) const override {
        if (request != kFirstSwitch && request != kSecondSwitch) return -ENOTTY;
        world->rs485.switches[request - kFirstSwitch] = argument.value == 1;
        return 0;
    }
};

}  // namespace

const Device& rs485_device = Fixture{};

void fixture_receives(std::string_view bytes, Microseconds at) {
    const Rs485& fixture = scenario->rs485;
    if (!fixture.fixture || !world->rs485.switches[0] || !world->rs485.switches[1]) return;
    for (const char sent : bytes) {
        const std::uint32_t place = world->rs485.bytes++;
        const Microseconds back = at + from_seconds(fixture.delay);
        at += kByteTime;
        if (applies(fixture.drop, fixture.drop_every, place)) continue;
        const bool wrong = applies(fixture.corrupt, fixture.corrupt_every, place);
        const char byte = static_cast<char>(wrong ? sent ^ 0x10 : sent);
        send_back(byte, back);
        if (fixture.repeat.count(place) != 0) send_back(byte, back);
        if (fixture.insert.count(place) != 0) send_back(kStray, back);
    }
}

}  // namespace sim
