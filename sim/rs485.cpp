// The RS-485 fixture: returns every byte that it gets, after its delay, but for those that it
// drops or corrupts. It works only once both switches of the control device are on.
#include "sim/board.h"
#include "sim/serial.h"

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

}  // namespace sim
