#include "device/capability.h"

#include <array>

#include "device/control_device.h"
#include "device/hardware_info.h"
#include "platform/print.h"

std::uint32_t g_bSupFrontPanel = 1;
std::uint32_t g_iUsbNum = 0;
std::uint32_t g_iCordNo = 1;
std::uint32_t g_iAlarmOutNum = 0;
std::uint32_t g_iAlarmInNum = 0;
std::uint8_t g_sata_port_num = 0;
std::uint8_t g_cESataNum = 1;
std::uint8_t g_cMiniSASNum = 0;
std::uint8_t g_cSataNewRule = 0;

namespace {

// SATA ports by layout code; codes 11 to 15 are not layouts, and give none.
constexpr std::array<std::uint8_t, 16> kSataPorts{0, 1, 2, 3, 4, 5, 8, 9, 17, 18, 25};

constexpr std::uint8_t kThreeUsbPorts = 2;  // USB layout code

void fill_table(const HardwareInfo& info) {
    g_bSupFrontPanel = 1;
    g_iUsbNum = info.usb_layout == kThreeUsbPorts ? 3 : 4;
    g_iCordNo = info.channel_count;
    g_iAlarmOutNum = info.alarm_outputs;
    g_iAlarmInNum = info.alarm_inputs;
    g_sata_port_num = kSataPorts[info.sata_layout];
    g_cESataNum = info.esata_count;
    g_cMiniSASNum = info.minisas_count;
    g_cSataNewRule = 1;
}

}  // namespace

int sysInit() {
    platform::Descriptor control = open_control_device();
    if (!control.is_open()) {
        print_line("sysInit 1 Fatal");
        return -1;
    }
    HardwareInfo info;
    if (read_hardware_info(control.get(), &info) != 0) return -1;
    platform::sleep_ms(100);
    fill_table(info);
    print(
        "g_bSupFrontPanel[%d],g_iUsbNum[%d],g_iCordNo[%d],g_iAlarmOutNum[%d],g_iAlarmInNum[%d],"
        "g_sata_port_num[%d],g_cESataNum[%d],g_cMiniSASNum[%d],g_cSataNewRule[%d]\n",
        g_bSupFrontPanel, g_iUsbNum, g_iCordNo, g_iAlarmOutNum, g_iAlarmInNum, g_sata_port_num,
        g_cESataNum, g_cMiniSASNum, g_cSataNewRule);
    control.release();  // stays open for the life of the process
    return 0;
}
