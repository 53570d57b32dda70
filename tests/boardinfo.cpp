#include "tests/boardinfo.h"

#include <cstdio>

#include "device/boot_parameters.h"
#include "device/capability.h"
#include "device/control_device.h"
#include "device/hardware_info.h"
#include "driver/report.h"
#include "platform/print.h"

namespace {

constexpr char kModule[] = "boardinfo";
constexpr unsigned kKnownModel = 0xB000;

const char* device_type_suffix(unsigned type) {
    return type == 2 ? "(NVR)" : type == 1 ? "(DVS)" : "(DVR)";
}

void show_model(const HardwareInfo& info) {
    char model[64] = "QM-45270";
    if (info.model_code != kKnownModel) {
        std::snprintf(model, sizeof model, "QM%04X", info.model_code);
        report(kModule, "无法识别的CPLD信息(%s)\n", model);
    }
    report(kModule, "\n设备类型 : %s%s\n", model, device_type_suffix(info.device_type));
}

void show_panel(unsigned type) {
    if (type == 0) {
        report(kModule, "面板类型:带LCD按键面板\n");
    } else if (type == 1) {
        report(kModule, "面板类型:不带LCD按键面板\n");
    } else {
        report(kModule, "面板类型:%#x未知\n", type);
    }
}

void show_clocks_and_memory(const HardwareInfo& info) {
    report(kModule, "ARM主频  : %s\n",
           info.arm_frequency == 0   ? "1.3G"
           : info.arm_frequency == 1 ? "1.6G"
                                     : "N/A");
    report(kModule, "内存频率 : %s\n",
           info.memory_frequency == 0   ? "667MHz"
           : info.memory_frequency == 1 ? "800MHz"
                                        : "N/A");
    report(kModule, "内存大小 : %s\n", info.memory_size == 0 ? "3GB" : "N/A");
    report(kModule, "FLASH大小: %s\n", info.flash_size == 0 ? "2MB+256MB" : "N/A");
}

void show_cpld_date(unsigned date) {
    report(kModule, "CPLD版本 : 20%d%d年%02d月%d%d日\n", bits(date, 15, 14), bits(date, 13, 10),
           bits(date, 9, 6), bits(date, 5, 4), bits(date, 3, 0));
}

void display(const HardwareInfo& info) {
    show_model(info);
    show_panel(info.panel_type);
    show_clocks_and_memory(info);
    g_iCordNo = info.channel_count;
    show_cpld_date(info.cpld_date);
    g_iAlarmOutNum = info.alarm_outputs;
    g_iAlarmInNum = info.alarm_inputs;
    if (g_alarm_io_present != 0) {
        report(kModule, "报警 I/O : %d/%d\n", g_iAlarmInNum, g_iAlarmOutNum);
    }
}

}  // namespace

int board_info_test() {
    HardwareInfo info{};
    const platform::Descriptor control = open_control_device();
    if (!control.is_open()) {
        print_line("sysInit 1 Fatal");
        return -1;
    }
    if (read_hardware_info(control.get(), &info) != 0) return -1;
    platform::sleep_ms(100);
    display(info);
    return 0;
}
