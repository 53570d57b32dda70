// Requests of the control device, /dev/zebio, the board's own driver.
#pragma once

#include <cstdint>

#include "platform/descriptor.h"

enum ControlRequest : std::uint32_t {
    // name                          argument                       result
    ZEBIO_SET_LINE = 0x01,           // line_word(line, level)      not looked at
    ZEBIO_SET_LINE_DIR = 0x03,       // line_word(line, direction)  not looked at
    ZEBIO_GET_HW_INFO = 0x04,        // 256-byte block, filled      0 = success
    ZEBIO_GET_LINE = 0x06,           // line                        its level, non-zero = high
    ZEBIO_RS485_FIRST = 0x07,        // 1                           not looked at
    ZEBIO_RS485_SECOND = 0x08,       // 1, right after the first    not looked at
    ZEBIO_GET_BOOT_PARMS = 0x10,     // parameter block, filled     -1 = failure
    ZEBIO_SET_WDT_TIMEOUT = 0x20,    // seconds                     < 0 = refused
    ZEBIO_STOP_WDT = 0x22,           // 0                           not looked at
    ZEBIO_RESET_PMP = 0x52,          // bridge selector             not looked at
    ZEBIO_SELECT_NET_PORT = 0x81,    // NetPort                     0 = success
    ZEBIO_START_ALARM = 0x40026B91,  // 0                           not looked at
    ZEBIO_GET_ALARM_IN = 0x80026B90  // 32-bit input mask, filled   < 0 = failure
};

enum LineDirection : std::uint32_t { kOutput = 0, kInput = 1 };
enum NetPort : std::uint32_t { kCopperPort = 1, kFibrePort = 2 };

// Argument of the line requests: the line in bits 7-0, its level or direction in bits 15-8.
constexpr std::uint32_t line_word(std::uint32_t line, std::uint32_t item) {
    return item << 8 | line;
}

// Opens the control device, read-write. The result may be a descriptor that is not open.
platform::Descriptor open_control_device();
