// Access to a port-multiplier bridge, and to the SPI flash behind it, through a private request of
// the board's SATA driver on an open disk behind the bridge. Failures are printed.
#pragma once

#include <cstdint>

// The process-wide record of the current bridge. Fields that a request does not set keep the values
// of the request before it.
struct BridgeAccess {
    int disk;               // open disk node behind the bridge
    std::uint16_t command;  // register command, or SPI opcode and transfer code
    std::uint32_t data;     // sent, and returned by the bridge
    std::uint32_t address;  // of a bridge register or in the flash; returned by the bridge
    std::uint8_t flash;     // which flash behind the bridge; messages show it plus 1
    std::uint8_t revision;  // of the chip
    int firmware;           // firmware file
    std::uint32_t length;   // of the firmware file, in bytes
};

extern BridgeAccess g_bridge;
extern std::uint8_t g_pm_port;  // the port multiplier's control port

enum BridgeMode { kRegisterRead = 0, kSpiCommand = 2 };

// Sends command, data and address, and takes back data and address, also after a failure. Returns
// the request's result: 0 or more is success, a negative one leaves errno.
int pmprw(BridgeMode mode);

// Reads a bridge register into the low byte of the data word. Result as of pmprw.
int read_bridge_register(std::uint32_t address);

// The SPI flash commands. Results as of pmprw.
int spiWREN();                                         // write enable
int spiRDSR();                                         // status into the low byte of the data word
int spiWRSR(std::uint32_t value);                      // write status
int spiREAD(std::uint32_t address);                    // 32-bit word into the data word
int spiCE();                                           // chip erase
int spiPP(std::uint32_t address, std::uint32_t word);  // page program

// Resets bridges through the control device; the selector says which. Returns 0 always.
int pmpreset(std::uint32_t selector);
