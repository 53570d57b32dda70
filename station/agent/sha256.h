#pragma once

#include <cstddef>
#include <cstdint>

namespace agent {

// SHA-256 (FIPS 180-4) of bytes that are given piece by piece.
class Sha256 {
  public:
    void add(const void* bytes, std::size_t size);

    // Pads, and writes the hash as 64 lower-case hexadecimal digits and a zero.
    void finish(char (&hex)[65]);

  private:
    void take_block();

    std::uint32_t state_[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                               0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    unsigned char block_[64];
    std::uint64_t size_ = 0;  // bytes taken so far
};

}  // namespace agent
