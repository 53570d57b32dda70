// ATA commands and sizes of disks, by the path of their device node. Failures are printed, never
// reported.
#pragma once

#include <array>
#include <cstdint>

// The data of IDENTIFY DEVICE, 256 little-endian words.
using IdentifyBlock = std::array<std::uint8_t, 512>;

constexpr std::uint64_t kNoSize = ~std::uint64_t{0};

// Reads the disk's IDENTIFY block, its text fields put into reading order. Returns 0, or -1 when
// the path is null, the node cannot be opened or the disk does not answer. Then the block keeps
// what the caller put there; only of a disk that does not answer the text fields are put in order.
int ata_identify(const char* path, IdentifyBlock& block);

// The running kernel as major * 65536 + minor * 256 + patch level; 0 when its release does not
// begin with three numbers. Asked once in the life of the process.
std::uint32_t kernel_version();

// Size of an open block device in bytes. Returns 0, or -1 on failure.
int blk_size64(int fd, std::uint64_t* size);

// Size of the block device at path in bytes, kNoSize on failure.
std::uint64_t disk_size(const char* path);
