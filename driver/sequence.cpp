#include "driver/sequence.h"

#include "device/boot_parameters.h"
#include "device/buzzer.h"
#include "device/capability.h"
#include "device/control_device.h"
#include "device/watchdog.h"
#include "driver/console_line.h"
#include "driver/preparation.h"
#include "driver/report.h"
#include "driver/results.h"
#include "driver/summary.h"
#include "platform/print.h"
#include "tests/485testfork.h"
#include "tests/boardinfo.h"
#include "tests/front_board_test.h"
#include "tests/iop_test.h"
#include "tests/nic.h"
#include "tests/rtc_test.h"
#include "tests/sata_test.h"
#include "tests/usb_disk_test.h"

namespace {

constexpr char kModule[] = "q7";

// Swallows a line that the operator typed ahead, or waits up to one second.
void flush_console() {
    ConsoleLine line{};
    read_console_line(line, 1);
}

// Selects a side of the network ports and examines it. A side that cannot be selected is a fault;
// the caller reports it.
bool select_net_port(int control, NetPort port) {
    if (platform::ioctl_value(control, ZEBIO_SELECT_NET_PORT, port) == 0) return true;
    results.network = 1;
    return false;
}

void examine_net_port() {
    platform::sleep_ms(5000);
    nic_test();
}

void test_network(int control) {
    flush_console();
    print_line("现在测试电口网络");
    if (select_net_port(control, kCopperPort)) {
        examine_net_port();
    } else {
        print_line("切换电口失败");
    }
    platform::sleep_ms(1000);
    print_line("现在测试光口网络");
    if (select_net_port(control, kFibrePort)) {
        examine_net_port();
    } else {
        print_line("切换光口失败");
    }
    platform::ioctl_value(control, ZEBIO_SELECT_NET_PORT, kCopperPort);
}

void test_alarm(int) {
    flush_console();
    alarm_io_test();
}

void test_rtc(int) {
    flush_console();
    rtc_test();
}

void test_usb(int) {
    usb_test();
    if (results.usb_ports_found != g_iUsbNum) return;
    print_line("3.0usb插3.0U盘测试成功,请在10s内将2.0U盘插入3.0usb进行测试");
    usb_test();
}

bool in_net_mode(int) { return !console_mode(); }
bool has_alarm_io(int control) { return check_boot_parameters(control) == 1; }
bool has_rs485(int) { return g_rs485_step != 0; }  // according to the boot parameters

void beep_in_net_mode() {
    if (!console_mode()) buzzer(3);
}

// A step of the sequence. Number and heading are one report, the request to the operator another. A
// step that does not apply gets no number.
struct Step {
    const char* heading;
    const char* request = nullptr;
    void (*run)(int control);
    bool (*applies)(int control) = nullptr;
    void (*before_heading)() = nullptr;
};

constexpr Step kSteps[] = {
    {.heading = "蜂鸣器测试", .run = [](int) { buzzer(3); }, .applies = in_net_mode},
    {.heading = "按键测试\n", .run = [](int) { front_board_test_if_fitted(); }},
    {.heading = "网络状态\n", .run = test_network},
    {.heading = "",
     .request = "报警量测试，请确认已经连接好报警测试装置\n",
     .run = test_alarm,
     .applies = has_alarm_io},
    {.heading = "开始测试RTC\n", .run = test_rtc},
    {.heading = "\nUSB口测试\n", .run = test_usb, .before_heading = beep_in_net_mode},
    {.heading = "\nSATA硬盘测试\n", .run = [](int) { sata_disk_test(); }},
    {.heading = "",
     .request = "485测试\n请确认已经正确连接好485测试装置\n",
     .run = [](int) { rs485_test(); },
     .applies = has_rs485,
     .before_heading = flush_console},
    {.heading = "CPLD信息\n",
     .run = [](int) { board_info_test(); },
     .before_heading = flush_console},
};

void run_steps(int control) {
    int number = 0;
    for (const Step& step : kSteps) {
        if (step.applies != nullptr && !step.applies(control)) continue;
        if (step.before_heading != nullptr) step.before_heading();
        report(kModule, "第%d步:%s", ++number, step.heading);
        if (step.request != nullptr) report(kModule, "%s", step.request);
        step.run(control);
        report(kModule, "\n");
    }
}

void end_net_run() {
    buzzer(3);
    report(kModule, "测试结束\n");
    report(kModule, "Q7TESTEND");
    close_report_fifo();
}

void restore_factory_settings() {
    print_line("测试结束,系统将要重新启动,并恢复出厂设置");
    if (platform::remove("/dav2/devCfg.bin") != 0) {
        print_line("remove /dav2/devCfg.bin ERROR");
    }
    if (platform::remove("/dav2/devCfg_backup.bin") != 0) {
        print_line("remove /dav2/devCfg_backup.bin ERROR");
    }
    watchdog_restart();
}

}  // namespace

void full_sequence() {
    const platform::Descriptor control = prepare_control_device();
    settle_board();
    run_steps(control.get());
    std::uint8_t all_passed = 0;
    result_summary(&all_passed);

    if (!console_mode()) {
        end_net_run();
    } else if (all_passed == 0) {
        print_line("测试结束");
    } else {
        restore_factory_settings();
    }
}
