// The result slots: the verdicts that the tests leave for the summary. Process-wide; a verdict is
// 0 for no fault and 1 for a fault.
#pragma once

#include <cstdint>

struct Results {
    std::uint32_t network;          // a port could not be selected or failed its test
    std::uint32_t rs485;            // wrong bytes came back
    std::uint32_t alarm;            // an input did not follow the outputs
    std::uint32_t rtc;              // the clocks differed
    std::uint32_t usb_ports_found;  // devices that the USB test found working
    std::int32_t sata_disks_found;  // shown only; repeated runs accumulate
    std::uint32_t sata_fault_mask;  // bit i: SATA port i+1 has no connection
    std::uint32_t minisas;          // the miniSAS port failed
};

extern Results results;
