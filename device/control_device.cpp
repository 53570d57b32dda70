#include "device/control_device.h"

#include <fcntl.h>

platform::Descriptor open_control_device() {
    return platform::Descriptor(platform::open("/dev/zebio", O_RDWR));
}
