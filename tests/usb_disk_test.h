// Test 7: USB disks, mice and the two rear ports.
#pragma once

#include <cstddef>

// Counts mice and disks, reports the free space of each disk, and says what the rear ports carry.
// Returns 0, or -1 when no disk was found or /dev could not be read; the count is in the result
// slots.
int usb_test();

// The disks to examine, in directory order: a partition rather than its disk, the later one of
// two partitions that are neighbours.
struct DiskNames {
    static constexpr std::size_t kCapacity = 8;
    char names[kCapacity][50];
    std::size_t count;

    bool is_full() const { return count == kCapacity; }
};

// Takes the next name of /dev into the table, if it is one of a USB disk. The table is not full.
void take_disk_name(DiskNames& disks, const char* name);

bool has_digit(const char* name);  // false for a missing name
