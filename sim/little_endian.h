// Words of the hardware: little endian, at any address.
#pragma once

#include <cstdint>

namespace sim {

inline std::uint32_t get_word(const std::uint8_t* bytes) {
    std::uint32_t word = 0;
    for (int i = 0; i < 4; ++i)
        word |= static_cast<std::uint32_t>(bytes[i]) << 8 * i;
    return word;
}

inline void put_word(std::uint8_t* bytes, std::uint32_t word) {
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<std::uint8_t>(word >> 8 * i);
}

inline void put_half_word(std::uint8_t* bytes, std::uint16_t word) {
    bytes[0] = static_cast<std::uint8_t>(word);
    bytes[1] = static_cast<std::uint8_t>(word >> 8);
}

}  // namespace sim
