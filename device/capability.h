// The capability table: what the board is fitted with. Process-wide, filled once at start from
// the hardware description; a board that cannot be read keeps the initial values.
#pragma once

#include <cstdint>

extern std::uint32_t g_bSupFrontPanel;  // a front panel is fitted
extern std::uint32_t g_iUsbNum;         // USB ports to expect
extern std::uint32_t g_iCordNo;         // video channels, and network ports to examine
extern std::uint32_t g_iAlarmOutNum;    // alarm outputs; the alarm test may correct it
extern std::uint32_t g_iAlarmInNum;     // alarm inputs
extern std::uint8_t g_sata_port_num;    // SATA ports
extern std::uint8_t g_cESataNum;        // eSATA ports
extern std::uint8_t g_cMiniSASNum;      // miniSAS ports
extern std::uint8_t g_cSataNewRule;     // SATA port numbering follows the new rule

// Fills the table and prints it. Returns 0, or a negative value when the description could not be
// read. After success the control device stays open for the life of the process.
int sysInit();
