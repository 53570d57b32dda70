#include "device/boot_parameters.h"

#include <algorithm>
#include <array>

#include "device/control_device.h"
#include "device/little_endian.h"
#include "platform/print.h"

std::uint32_t g_rs485_step = 1;
std::uint32_t g_alarm_io_present = 0;

namespace {

constexpr std::size_t kDeviceTypeOffset = 100;

// On these devices line 25, when high, says that alarm I/O is not fitted.
constexpr std::array<std::uint16_t, 4> kTypesWithoutRs485{0x4487, 0x448F, 0x4497, 0x449F};
constexpr std::uint32_t kNoAlarmIoLine = 25;

std::array<std::uint8_t, 4096> boot_parameters;

std::uint16_t device_type() { return half_word_at(&boot_parameters[kDeviceTypeOffset]); }

}  // namespace

int check_boot_parameters(int control) {
    boot_parameters.fill(0);
    if (platform::ioctl(control, ZEBIO_GET_BOOT_PARMS, boot_parameters.data()) == -1) {
        print_line("ioctl ZEBIO_GET_BOOT_PARMS error");
        return 0;
    }
    if (std::count(kTypesWithoutRs485.begin(), kTypesWithoutRs485.end(), device_type()) == 0) {
        g_alarm_io_present = 1;
        return 1;
    }
    g_rs485_step = 0;
    platform::ioctl_value(control, ZEBIO_SET_LINE_DIR, line_word(kNoAlarmIoLine, kInput));
    const int level = platform::ioctl_value(control, ZEBIO_GET_LINE, kNoAlarmIoLine);
    g_alarm_io_present = level != 0 ? 0 : 1;
    return g_alarm_io_present != 0 ? 1 : 0;
}
