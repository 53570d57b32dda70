#include "driver/preparation.h"

#include "device/capability.h"
#include "device/control_device.h"
#include "platform/print.h"
#include "tests/keyboard_line.h"

namespace {

constexpr std::uint32_t kTestTimeout_s = 7;

}  // namespace

platform::Descriptor prepare_control_device() {
    platform::Descriptor control = open_control_device();
    if (!control.is_open()) {
        print_line("打开hwInfo设备出错!");
        platform::exit(control.get());
    }
    if (platform::ioctl_value(control.get(), ZEBIO_SET_WDT_TIMEOUT, kTestTimeout_s) < 0) {
        print_line("初始化看门狗失败!");
        platform::exit(control.get());
    }
    platform::ioctl_value(control.get(), ZEBIO_STOP_WDT, 0);
    return control;
}

void settle_board() {
    platform::sleep_ms(2000);
    print_line("no kill avcore");
    if (g_bSupFrontPanel != 0) keyboard_line_start();
}
