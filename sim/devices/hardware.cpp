#include "sim/devices/hardware.h"

#include <cstring>

#include "sim/little_endian.h"
#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

constexpr std::uint32_t kGetHardware = 0x04;

// A field of the 256-byte block that the request answers, little endian.
struct Field {
    const char* key;
    int offset, high, low;  // of its word in the block; its bits in that word
    std::uint32_t preset;
    const char* meaning;

    std::uint32_t most() const { return 0xFFFFFFFFu >> (31 - high + low); }
};

constexpr Field kFields[] = {
    // key           offset  bits    preset  meaning
    {"board_word", 0, 31, 0, 0, "bytes 0 to 3 of the hardware block"},
    {"presence", 4, 15, 0, 1, "presence word; 0xFFFF = no description"},
    {"model", 14, 15, 0, 0xB000, "model code; 0xB000 is a QM-45270"},
    {"memory", 16, 15, 0, 0xE09F, "memory word, where no key below names its bits"},
    {"arm_frequency", 16, 12, 12, 0, "0 = 1.3G, 1 = 1.6G"},
    {"memory_frequency", 16, 11, 11, 0, "0 = 667MHz, 1 = 800MHz"},
    {"memory_size", 16, 10, 8, 0, "0 = 3GB"},
    {"flash_size", 16, 6, 5, 0, "0 = 2MB+256MB"},
    {"second", 18, 15, 0, 0xFFFF, "second code word"},
    {"cpld_date", 20, 15, 0, 0, "packed date; 0x4DD5 is 2013-07-15"},
    {"channels", 24, 3, 0, 1, "channel count, also of network ports"},
    {"fitting", 26, 15, 0, 0x0C61, "fitting word, where no key below names its bits"},
    {"sata_layout", 26, 15, 12, 0,
     "SATA ports: 0 to 5 as they are, 6 = 8, 7 = 9, 8 = 17, 9 = 18, 10 = 25"},
    {"usb_layout", 26, 9, 8, 0, "2 = three USB ports, else four"},
    {"panel_type", 26, 7, 7, 0, "0 = with LCD, 1 = without"},
    {"device_type", 26, 4, 3, 0, "1 = DVS, 2 = NVR, else DVR"},
    {"esata", 26, 2, 1, 0, "eSATA ports"},
    {"alarm_inputs", 28, 15, 8, 0, "alarm inputs"},
    {"alarm_outputs", 28, 6, 0, 0, "alarm outputs"},
    {"storage", 32, 15, 0, 0x3FFF, "storage word, where minisas does not name its bits"},
    {"minisas", 32, 15, 14, 0, "miniSAS ports"},
};

struct HardwareBlock final : Device {
    void describe(Keys& keys, Board& board) const override {
        keys.table("hardware", board.hardware, [](Keys& sub, auto& hardware) {
            for (const Field& field : kFields)
                sub.key(field.key, hardware.at(field.key), field.meaning, {0, field.most()});
        });
    }

    long control(std::uint32_t request, Argument& argument) const override {
        if (request != kGetHardware) return -ENOTTY;
        std::uint8_t block[256];
        std::memset(block, 0xFF, sizeof block);  // what has no meaning is not 0
        for (const Field& field : kFields) {
            std::uint8_t* const word = block + field.offset;
            const std::uint32_t mask = field.most() << field.low;
            const std::uint32_t value = scenario->hardware.at(field.key) << field.low;
            put_word(word, (get_word(word) & ~mask) | value);
        }
        return argument.write(block, sizeof block);
    }
};

}  // namespace

const Device& hardware_device = HardwareBlock{};

std::map<std::string, std::uint32_t> preset_hardware() {
    std::map<std::string, std::uint32_t> hardware;
    for (const Field& field : kFields)
        hardware[field.key] = field.preset;
    return hardware;
}

}  // namespace sim
