// Words in blocks of bytes, little endian and at any address.
#pragma once

#include <cstdint>

constexpr std::uint16_t half_word_at(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

constexpr std::uint32_t word_at(const std::uint8_t* bytes) {
    return half_word_at(bytes) | static_cast<std::uint32_t>(half_word_at(bytes + 2)) << 16;
}

constexpr void put_word(std::uint8_t* bytes, std::uint32_t word) {
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<std::uint8_t>(word >> 8 * i);
}
