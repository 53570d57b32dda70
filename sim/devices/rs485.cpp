// The RS-485 fixture: returns every byte that it gets, after its delay, but for those that it
// drops or corrupts. It works only once both switches of the control device are on.
#include "sim/devices/rs485.h"

#include "sim/devices/control.h"
#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

std::uint32_t next_piece() {
    const auto& pieces = scenario->rs485.pieces;
    return pieces.empty() ? kTrigger : pieces[world->rs485.pieces % pieces.size()];
}

}  // namespace

void fixture_receives(std::string_view bytes, Microseconds at) {
    const Rs485& fixture = scenario->rs485;
    if (!fixture.fixture || !world->control.rs485_first || !world->control.rs485_second) return;
    for (const char sent : bytes) {
        const std::uint32_t place = world->rs485.bytes++;
        const Microseconds back = at + from_seconds(fixture.delay);
        at += kByteTime;
        if (fixture.drop.count(place) != 0) continue;
        const auto byte = static_cast<std::uint8_t>(sent);
        const std::uint32_t piece = next_piece();
        arrive(kRs485Line, fixture.corrupt.count(place) != 0 ? byte ^ 0x10 : byte, back, piece);
        if (world->lines[kRs485Line].group >= piece) ++world->rs485.pieces;
    }
}

void describe(Keys& keys, Rs485& rs485) {
    describe(keys, rs485.port);
    keys.key("fixture", rs485.fixture, "the loopback fixture is connected");
    keys.key("corrupt", rs485.corrupt, "bytes that come back changed, counted from 0");
    keys.key("drop", rs485.drop, "bytes that do not come back");
    keys.key("delay", rs485.delay, "seconds from a byte to its echo");
    keys.key("pieces", rs485.pieces, "sizes in which the echo becomes readable, in turn", {1});
}

}  // namespace sim
