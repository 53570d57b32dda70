#include "driver/test_table.h"

#include "device/buzzer.h"
#include "device/watchdog.h"
#include "driver/pmp_test.h"
#include "tests/485testfork.h"
#include "tests/boardinfo.h"
#include "tests/front_board_test.h"
#include "tests/iop_test.h"
#include "tests/nic.h"
#include "tests/rtc_test.h"
#include "tests/sata_test.h"
#include "tests/usb_disk_test.h"

namespace {

constexpr NumberedTest kTests[] = {
    {"No.1 : \t\t\tShow board Info", [] { board_info_test(); }},
    {"No.2 : \t\t\tBuzzer test", [] { buzzer(3); }},
    {"No.3 : \t\t\tFront-board test", front_board_test_if_fitted},
    {"No.4 : \t\t\t485 com test", [] { rs485_test(); }, 10'000},
    {"No.5 : \t\t\tIop test", [] { alarm_io_test(); }},
    {"No.6 : \t\t\tRTC test", [] { rtc_test(); }},
    {"No.7: \t\t\tUSB port test", [] { usb_test(); }},
    {"No.8: \t\t\tSATA test", sata_disk_test},
    {"No.9: \t\t\tWatchdog test,Restart system\n", [] { watchdog_restart(); }},
    {"No.10: \t\t\tpmp test,Restart system\n", pmp_test},
    {"No.11 : \t\t\tNetwork moudel configure show", [] { nic_test(); }},
};

}  // namespace

std::span<const NumberedTest> numbered_tests() { return kTests; }
