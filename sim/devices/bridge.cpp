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

static void describe(Keys& keys, Bridge& bridge) {
    keys.start_only({"flash", "from", "image", "protection", "save"});
    keys.key("presence", bridge.registers.at(0xFC00), "register 0xFC00; 0x8F or 0xF8 = it answers");
    keys.key("revision", bridge.registers.at(0xFC03), "register 0xFC03");
    keys.key("bonding_high", bridge.registers.at(0xFAFD), "register 0xFAFD");
    keys.key("bonding_low", bridge.registers.at(0xFAFC), "register 0xFAFC");
    keys.key("reset_selector", bridge.reset_selector, "selector that resets it: 256 or 128");
    keys.key("request_time", bridge.request_time, "seconds that a request takes");
    keys.key("erase_time", bridge.erase_time, "seconds that the flash is busy after an erase");
    keys.key("program_time", bridge.program_time, "seconds that it is busy after a word");
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
    describe_source(keys, bridge.flash, kFlashSize);
    keys.one_of({"flash", "from", "image"});
    keys.key("save", bridge.save, "a file of this machine for the flash as the run leaves it");
    if (keys.says("save")) bridge.save = keys.folder() + bridge.save;
}

namespace {

constexpr std::uint32_t kReset = 0x52;  // of the control device

constexpr Names kNames{"NAME", "[1-4]"};
constexpr std::uint8_t kProtectionBits = 0x1C;
constexpr std::uint32_t kPageSize = 256;
constexpr double kStatusTime_s = 10e-6;  // busy after a status write

// SPI commands: transfer code and opcode.
constexpr int kWriteStatus = 0x0401;
constexpr int kPageProgram = 0xE502;
constexpr int kReadData = 0xE903;
constexpr int kReadStatus = 0x0805;
constexpr int kWriteEnable = 0x0006;
constexpr int kChipErase = 0x00C7;

// Bytes of the register block: the data and the address have four.
constexpr int kOpcode = 1, kData = 2, kPort = 6, kUnit = 7, kTransfer = 9, kAddress = 10;

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

void chip_erase(const Bridge& bridge, Flash& flash) {
    if (flash.protection != 0 || !begin(flash, bridge.erase_time)) return;
    if (bridge.erases) std::memset(flash.cells, 0xFF, sizeof flash.cells);
    fail_bad_cells(bridge, flash);
}

void page_program(const Bridge& bridge, Flash& flash, std::uint32_t address,
                  const std::uint8_t* data) {
    if (flash.protection != 0 || !begin(flash, bridge.program_time)) return;
    for (std::uint32_t i = 0; i < 4 && bridge.programs; ++i)
        flash.cells[(address + i) % kFlashSize] &= data[i];
    for (const std::uint32_t cell : bridge.disturbed) {
        const bool beside = cell - address >= 4;  // unsigned: before it as well
        if (beside && cell / kPageSize == address / kPageSize) flash.cells[cell] &= 0xFE;
    }
    fail_bad_cells(bridge, flash);
}

void transfer(const Bridge& bridge, Flash& flash, std::uint8_t* block) {
    std::uint8_t* const data = block + kData;
    const std::uint32_t address = get_word(block + kAddress);
    const int command = block[kTransfer] << 8 | block[kOpcode];
    const bool busy = world->now < flash.busy_until;
    if (command == kReadStatus) {  // changes one byte of the block
        data[0] = static_cast<std::uint8_t>(flash.protection | (flash.write_enabled ? 2 : 0)
                                            | (busy ? 1 : 0));
    }
    if (busy) return;
    if (command == kWriteEnable) flash.write_enabled = true;
    if (command == kWriteStatus && begin(flash, kStatusTime_s) && bridge.unlocks)
        flash.protection = data[0] & kProtectionBits;
    for (std::uint32_t i = 0; i < 4 && command == kReadData; ++i)
        data[i] = flash.cells[(address + i) % kFlashSize];
    if (command == kChipErase) chip_erase(bridge, flash);
    if (command == kPageProgram) page_program(bridge, flash, address, data);
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

struct Bridges final : Device {
    void describe(Keys& keys, Board& board) const override {
        keys.named("bridges", kNames, board.bridges);
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

}  // namespace

const Device& bridge_device = Bridges{};

std::string firmware_image(std::uint32_t size) {
    std::vector<std::uint8_t> image(std::max(size, 16u));
    for (std::uint32_t i = 0; i < size; ++i)
        image[i] = static_cast<std::uint8_t>(i * 37 + (i >> 8));
    const auto registers = Bridge().registers;
    image[0] = 0x7B;
    image[1] = 0x19;
    image[2] = registers.at(0xFC03);
    image[3] = 0x32;
    image[4] = static_cast<std::uint8_t>(registers.at(0xFAFC) | registers.at(0xFAFD) << 2);
    put_half_word(&image[8], static_cast<std::uint16_t>(size / 2));
    put_half_word(&image[12], static_cast<std::uint16_t>(size - size / 2));
    return {image.begin(), image.begin() + size};
}

long pass_through(const std::string& name, Argument& argument) {
    std::uint8_t* const block = argument.block;
    argument.answer = {reinterpret_cast<const char*>(block), kRegisterBlock};
    const auto bridge = scenario->bridges.find(name);
    if (bridge == scenario->bridges.end()) {
        put_word(block + kData, 0);  // no bridge answers
        return 0;
    }
    spend_time(from_seconds(bridge->second.request_time));
    const bool control_port =
        block[kPort] == 0x8F && block[kOpcode] == 0x84 && block[kTransfer] == 0;
    if (block[kUnit] == 0xE4 && control_port) {
        const auto& registers = bridge->second.registers;
        const auto found = registers.find(get_word(block + kAddress));
        put_word(block + kData, found == registers.end() ? 0 : found->second);
    }
    const auto place = std::distance(scenario->bridges.begin(), bridge);
    const bool first_flash = block[kPort] == 0x80;
    if (block[kUnit] == 0xF7 && first_flash)
        transfer(bridge->second, world->bridges[place].flash, block);
    return 0;
}

void describe_source(Keys& keys, std::string& bytes, std::size_t most) {
    keys.key("from", from_file(keys.folder(), bytes, most),
             "a file of this machine with its content");
    std::uint32_t size = 0;
    keys.key("image", size, "a valid firmware image of this many bytes", {0, 131'072});
    if (size != 0) bytes = firmware_image(size);
}

}  // namespace sim
