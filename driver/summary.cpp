#include "driver/summary.h"

#include <array>
#include <cstdio>

#include "device/buzzer.h"
#include "device/capability.h"
#include "driver/report.h"
#include "driver/results.h"
#include "platform/platform.h"
#include "platform/print.h"
#include "tests/485testfork.h"

namespace {

constexpr char kModule[] = "q7";

bool usb_ports_missing() { return results.usb_ports_found != g_iUsbNum; }

// In net mode a person judges the clock, so its verdict does not count.
bool board_passed() {
    return results.network == 0 && results.rs485 == 0 && results.alarm == 0
           && (!console_mode() || results.rtc == 0) && !usb_ports_missing()
           && results.sata_fault_mask == 0 && results.minisas == 0;
}

// The ports of the SATA fault mask, counted from 1: "1,3". Shifts the mask until it is 0.
std::array<char, 256> take_missing_ports() {
    std::array<char, 256> list{};
    std::size_t length = 0;
    for (int port = 1; results.sata_fault_mask != 0; ++port) {
        if (results.sata_fault_mask & 1) {
            length += static_cast<std::size_t>(
                std::snprintf(list.data() + length, list.size() - length, "%d,", port));
        }
        results.sata_fault_mask >>= 1;
    }
    if (length > 0) list[length - 1] = '\0';
    return list;
}

const char* outcome(bool fault) { return fault ? "失败" : "成功"; }

void send_items() {
    report(kModule, "网络状态      : %s  \n", outcome(results.network != 0));
    report(kModule, "485口       : %s  \n", outcome(results.rs485 != 0));
    report(kModule, "报警口      : %s  \n", outcome(results.alarm != 0));
    report(kModule, "USB口       : %s  \n", outcome(usb_ports_missing()));
    if (results.sata_fault_mask != 0) {
        report(kModule, "SATA口       : 端口%s无连接\n", take_missing_ports().data());
    } else {
        report(kModule, "SATA口       : 成功  \n");
    }
    print_line(results.minisas != 0 ? "miniSAS口异常" : "miniSAS口正常");
    report(kModule, "Rtc时钟       : %s  \n", "由检测人员判断");
}

void print_faults() {
    constexpr char kFault[] = "error occured!";
    if (results.network != 0) print("网络状态    : %s  \n", kFault);
    if (results.rs485 != 0) print("485口       : %s  \n", kFault);
    if (results.alarm != 0) print("报警口      : %s  \n", kFault);
    if (results.rtc != 0) print("Rtc时钟     : %s  \n", kFault);
    if (usb_ports_missing()) print("USB口       : %s  \n", kFault);
    if (results.sata_fault_mask != 0) {
        print("SATA口      : 端口%s无连接\n", take_missing_ports().data());
    }
    if (results.minisas != 0) print_line("miniSAS口异常");
}

void sound_three_times(unsigned on_ms, unsigned off_ms) {
    for (int i = 0; i < 3; ++i) {
        buzzer_level(BuzzerLevel::sounding);
        platform::sleep_ms(on_ms);
        buzzer_level(BuzzerLevel::silent);
        platform::sleep_ms(off_ms);
    }
}

void success_pattern() {
    for (int i = 0; i < 2; ++i) {
        sound_three_times(300, 100);
        sound_three_times(100, 100);
        platform::sleep_ms(2000);
    }
}

void failure_tone() {
    buzzer_level(BuzzerLevel::sounding);
    platform::sleep_ms(3000);
    buzzer_level(BuzzerLevel::silent);
}

}  // namespace

void result_summary(std::uint8_t* all_passed) {
    rs485_await_verdict();
    report(kModule,
           "----------------------------------------------------------------\n"
           "Q7测试结果如下:\n");
    report(kModule, "USB口       : %d  \nSATA口      : %d  \n", results.usb_ports_found,
           results.sata_disks_found);
    const bool passed = board_passed();
    if (all_passed != nullptr) *all_passed = passed ? 1 : 0;
    if (!console_mode()) {
        send_items();
    } else if (passed) {
        report(kModule, "测试结果:  OK!\n");
        success_pattern();
    } else {
        print_faults();
        failure_tone();
    }
    report(kModule, "----------------------------------------------------------------\n");
}
