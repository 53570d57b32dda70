#include "device/watchdog.h"

#include "device/control_device.h"
#include "platform/print.h"

namespace {

constexpr std::uint32_t kRestartTimeout_s = 5;

}  // namespace

int watchdog_restart() {
    const platform::Descriptor control = open_control_device();
    if (!control.is_open()) print_line("failed to open watchdog");
    if (platform::ioctl_value(control.get(), ZEBIO_SET_WDT_TIMEOUT, kRestartTimeout_s) < 0) {
        print_line("set watchdog timeout failed");
    }
    return 0;
}
