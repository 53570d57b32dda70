// SATA, eSATA and miniSAS disks.
#pragma once

#include "sim/device.h"

namespace sim {

struct Disk {  // by the name of its node: "sda", "esda", "sas1"
    bool present = true;
    bool identify = true;             // it answers IDENTIFY DEVICE
    bool size64 = true, size = true;  // it answers BLKGETSIZE64, BLKGETSIZE
    std::string identify_data;        // its 512 bytes, instead of the texts below
    std::string model = "Simulated disk", serial = "0001", firmware = "1.0";
    std::uint64_t bytes = 1'000'204'886'016;
    double request_time = 0;  // of each request but the pass-through
    std::string bridge;       // that it lies behind; empty = none
};

extern const Device& disk_device;

}  // namespace sim
