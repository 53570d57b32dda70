// Port-multiplier bridges with their SPI flash, behind the pass-through request of a disk.
//
// A request advances the clock and then executes the register block: a register read, or one SPI
// command. Unknown commands are ignored.
//
// Flash: ready -> write enable sets the latch -> write status, chip erase or page program need the
// latch, clear it, and keep the flash busy for their time -> ready. A busy flash answers only the
// status read. Erase and program do nothing while a block is protected; programming only clears
// bits. Status: bit 0 busy, bit 1 latch, bits 2 to 4 block protection.
//
// A bridge runs the firmware that its flash held when it was last reset.
#include "sim/devices/bridge.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "sim/clock.h"
#include "sim/little_endian.h"
#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

constexpr std::uint32_t kReset = 0x52;  // of the control device

constexpr Names kNames{"NAME", "[1-4]"};
constexpr std::uint8_t kProtectionBits = 0x1C;
constexpr std::uint32_t kPageSize = 256;

// SPI commands: transfer code and opcode.
constexpr int kWriteStatus = 0x0401;
constexpr int kPageProgram = 0xE502;
constexpr int kReadData = 0xE903;
constexpr int kReadStatus = 0x0805;
constexpr int kWriteEnable = 0x0006;
constexpr int kChipErase = 0x00C7;

struct Request {
    std::uint8_t* block;

    std::uint32_t address() const { return get_word(block + 10); }
    std::uint32_t data() const { return get_word(block + 2); }
    void answer(std::uint32_t value) const { put_word(block + 2, value); }
};

std::uint32_t register_value(const Bridge& bridge, std::uint32_t address) {
    const auto found = bridge.registers.find(address);
    return found == bridge.registers.end() ? 0 : found->second;
}

bool is_busy(const Flash& flash) { return world->now < flash.busy_until; }

// Begins a command that changes the flash; false when the latch is not set.
bool begin(Flash& flash, double time_s) {
    if (!flash.write_enabled) return false;
    flash.write_enabled = false;
    flash.busy_until = world->now + from_seconds(time_s);
    return true;
}

void fail_bad_cells(const Bridge& bridge, Flash& flash) {
    for (const std::uint32_t cell : bridge.bad_cells)
        flash.cells[cell] = 0;
}

void write_status(const Bridge& bridge, Flash& flash, std::uint32_t value) {
    if (!begin(flash, bridge.status_time)) return;
    if (bridge.unlocks) flash.protection = value & kProtectionBits;
}

void chip_erase(const Bridge& bridge, Flash& flash) {
    if (flash.protection != 0 || !begin(flash, bridge.erase_time)) return;
    if (bridge.erases) std::memset(flash.cells, 0xFF, sizeof flash.cells);
    fail_bad_cells(bridge, flash);
}

void page_program(const Bridge& bridge, BridgeState& state, const Request& request) {
    Flash& flash = state.flash;
    if (flash.protection != 0 || !begin(flash, bridge.program_time)) return;
    ++state.programmed_words;
    for (std::uint32_t i = 0; i < 4 && bridge.programs; ++i) {
        flash.cells[(request.address() + i) % sizeof flash.cells] &=
            static_cast<std::uint8_t>(request.data() >> 8 * i);
    }
    for (const std::uint32_t cell : bridge.disturbed) {
        const bool beside = cell - request.address() >= 4;  // unsigned: before it as well
        if (beside && cell / kPageSize == request.address() / kPageSize) flash.cells[cell] &= 0xFE;
    }
    fail_bad_cells(bridge, flash);
}

std::uint32_t read_word(const Flash& flash, std::uint32_t address) {
    std::uint8_t bytes[4];
    for (std::uint32_t i = 0; i < 4; ++i)
        bytes[i] = flash.cells[(address + i) % sizeof flash.cells];
    return get_word(bytes);
}

void transfer(const Bridge& bridge, BridgeState& state, const Request& request) {
    Flash& flash = state.flash;
    const int command = request.block[9] << 8 | request.block[1];
    if (command == kReadStatus) {  // changes one byte of the block
        request.block[2] = static_cast<std::uint8_t>(
            flash.protection | (flash.write_enabled ? 2 : 0) | (is_busy(flash) ? 1 : 0));
    }
    if (is_busy(flash)) return;
    switch (command) {
    case kWriteEnable:
        flash.write_enabled = true;
        break;
    case kWriteStatus:
        write_status(bridge, flash, request.data());
        break;
    case kReadData:
        request.answer(read_word(flash, request.address()));
        break;
    case kChipErase:
        chip_erase(bridge, flash);
        break;
    case kPageProgram:
        page_program(bridge, state, request);
        break;
    default:
        break;
    }
}

void reset(std::uint32_t selector) {
    BridgeState* state = world->bridges;
    for (const auto& [name, bridge] : scenario->bridges) {
        if (bridge.reset_selector == selector) {
            std::memcpy(state->running, state->flash.cells, sizeof state->running);
            ++state->resets;
            note("bridge", "%s reset", name.c_str());
        }
        ++state;
    }
}

void describe_bridge(Keys& keys, Bridge& bridge) {
    keys.start_only({"flash", "from", "image", "protection", "save"});
    keys.key("presence", bridge.registers.at(0xFC00), "register 0xFC00; 0x8F or 0xF8 = it answers");
    keys.key("revision", bridge.registers.at(0xFC03), "register 0xFC03");
    keys.key("bonding_high", bridge.registers.at(0xFAFD), "register 0xFAFD");
    keys.key("bonding_low", bridge.registers.at(0xFAFC), "register 0xFAFC");
    keys.key("reset_selector", bridge.reset_selector, "selector that resets it: 256 or 128");
    keys.key("request_time", bridge.request_time, "seconds that a request takes");
    keys.key("erase_time", bridge.erase_time, "seconds that the flash is busy after an erase");
    keys.key("program_time", bridge.program_time, "seconds that it is busy after a word");
    keys.key("status_time", bridge.status_time, "seconds that it is busy after a status write");
    keys.key("protection", bridge.protection, "block protection, bits 2 to 4 of the status");
    keys.key("unlocks", bridge.unlocks, "writing the status changes them");
    keys.key("erases", bridge.erases, "the flash obeys the erase");
    keys.key("programs", bridge.programs, "the flash obeys the programming");
    keys.key("bad_cells", bridge.bad_cells, "addresses of cells that are always 0",
             {0, kFlashSize - 1});
    keys.key(
        "disturbed", bridge.disturbed,
        "addresses of cells that lose their lowest bit when a word is programmed beside them in "
        "their page of 256 bytes",
        {0, kFlashSize - 1});
    keys.key("flash", hexadecimal(bridge.flash, kFlashSize), "content of the flash from address 0");
    keys.key("from", from_file(keys.folder(), bridge.flash, kFlashSize),
             "a file of this machine with its content");
    describe_image(keys, bridge.flash);
    keys.one_of({"flash", "from", "image"});
    const auto set_save = [&bridge, folder = keys.folder()](const std::string& path) {
        bridge.save = folder + path;
        return true;
    };
    keys.key("save", word("path", "", set_save),
             "a file of this machine for the flash as the run leaves it");
}

class Bridges final : public Device {
  public:
    void describe(Keys& keys, Board& board) const override {
        keys.named("bridges", kNames, board.bridges, describe_bridge);
    }

    void start() const override {
        BridgeState* state = world->bridges;
        for (const auto& [name, bridge] : scenario->bridges) {
            if (state == std::end(world->bridges))
                stop_here("more than %zu bridges", std::size(world->bridges));
            std::memset(state->flash.cells, 0xFF, sizeof state->flash.cells);
            std::memcpy(state->flash.cells, bridge.flash.data(),
                        std::min(bridge.flash.size(), sizeof state->flash.cells));
            std::memcpy(state->running, state->flash.cells, sizeof state->running);
            fail_bad_cells(bridge, state->flash);
            state->flash.protection = bridge.protection & kProtectionBits;
            ++state;
        }
    }

    long control(std::uint32_t request, Argument& argument) const override {
        if (request != kReset) return -ENOTTY;
        reset(argument.value);
        return 0;
    }
};

const Bridges bridges;

}  // namespace

const Device& BridgeRow::device = bridges;

std::string firmware_image(std::uint32_t size) {
    std::string image(size, '\0');
    for (std::uint32_t i = 0; i < size; ++i)
        image[i] = static_cast<char>(i * 37 + (i >> 8));
    const auto registers = Bridge().registers;
    const unsigned bonding =
        registers.at(0xFAFC) | static_cast<unsigned>(registers.at(0xFAFD)) << 2;
    const std::uint32_t first = size / 2, second = size - first;
    const std::pair<std::size_t, unsigned> header[] = {
        {0, 0x7B},       {1, 0x19},           {2, registers.at(0xFC03)},
        {3, 0x32},       {4, bonding},        {8, first & 0xFF},
        {9, first >> 8}, {12, second & 0xFF}, {13, second >> 8}};
    for (const auto& [place, value] : header) {
        if (place < size) image[place] = static_cast<char>(value);
    }
    return image;
}

long pass_through(const std::string& name, Argument& argument) {
    std::uint8_t* const block = argument.block;
    const Request request{block};
    argument.answer = {reinterpret_cast<const char*>(block), kRegisterBlock};
    const auto bridge = scenario->bridges.find(name);
    if (bridge == scenario->bridges.end()) {
        request.answer(0);  // no bridge answers
        return 0;
    }
    spend_time(from_seconds(bridge->second.request_time));
    BridgeState& state = world->bridges[std::distance(scenario->bridges.begin(), bridge)];
    const bool control_port = block[6] == 0x8F && block[1] == 0x84 && block[9] == 0;
    if (block[7] == 0xE4 && control_port) {
        request.answer(register_value(bridge->second, request.address()));
    }
    const bool first_flash = block[6] == 0x80;
    if (block[7] == 0xF7 && first_flash) transfer(bridge->second, state, request);
    return 0;
}

void describe_image(Keys& keys, std::string& bytes) {
    std::uint32_t size = 0;
    keys.key("image", size, "a valid firmware image of this many bytes", {0, 131'072});
    if (size != 0) bytes = firmware_image(size);
}

}  // namespace sim
