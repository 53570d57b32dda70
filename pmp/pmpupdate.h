// Firmware update of a port-multiplier bridge from /dav0/zeb321.bin. Prints its progress.
#pragma once

#include <cstdint>

#include "platform/descriptor.h"

extern std::uint32_t g_pmp_updated;  // 1 when the latest pmpupdate wrote new firmware

// Checks bridge, file and flash through the disk behind the bridge, and programs the flash when it
// holds another image or none. Returns 0 when no step failed, else -1. Closes the disk, except when
// the firmware file does not open: then it is left to the caller.
int pmpupdate(platform::Descriptor& disk);
