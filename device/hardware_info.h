// The board's own description of its fittings, read through the control device.
#pragma once

#include <cstdint>

// The decoded hardware block. Fields named after their bits have no known meaning.
struct HardwareInfo {
    std::uint16_t valid;  // low six bits set after a successful decoding
    std::uint32_t board_word;
    std::uint16_t presence;
    std::uint16_t model_code;
    std::uint16_t cpld_date;  // packed: year tens 15-14, year units 13-10, month 9-6,
                              // day tens 5-4, day units 3-0
    // memory word
    std::uint8_t memory_15_13;
    std::uint8_t arm_frequency;
    std::uint8_t memory_frequency;
    std::uint8_t memory_size;
    std::uint8_t flash_type;
    std::uint8_t flash_size;
    std::uint8_t memory_4_3;
    std::uint8_t memory_2_0;
    // second code word
    std::uint8_t second_15_12;
    std::uint8_t second_11_8;
    std::uint8_t channel_count;
    // fitting word
    std::uint8_t sata_layout;
    std::uint8_t fitting_11_10;
    std::uint8_t usb_layout;
    std::uint8_t panel_type;
    std::uint8_t fitting_6_5;
    std::uint8_t device_type;  // 1 = DVS, 2 = NVR, else DVR
    std::uint8_t esata_count;
    std::uint8_t fitting_0;
    std::uint8_t alarm_inputs;
    std::uint8_t alarm_outputs;
    // storage word
    std::uint8_t minisas_count;
    std::uint8_t storage_13_12;
    std::uint8_t storage_11_9;
    std::uint8_t storage_8_6;
};

constexpr unsigned bits(unsigned word, unsigned high, unsigned low) {
    return word >> low & ((2u << (high - low)) - 1);
}
static_assert(bits(0x7000, 15, 12) == 7);

// Reads and decodes the description through the open control device. Returns 0, or -1 when the
// descriptor is -1, the record null, the request refused, or the board says that it has none.
int read_hardware_info(int control, HardwareInfo* info);
