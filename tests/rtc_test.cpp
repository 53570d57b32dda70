#include "tests/rtc_test.h"

#include <fcntl.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>

#include "device/buzzer.h"
#include "driver/report.h"
#include "driver/results.h"
#include "platform/descriptor.h"
#include "platform/print.h"
#include "tests/interrupt.h"

namespace {

constexpr char kModule[] = "rtc_test";
constexpr std::uint32_t kReadTime = 0x80247009;  // RTC_RD_TIME
constexpr std::int64_t kTolerance_s = 2;

// The request fills nine ints, which are the first nine of the broken-down time.
static_assert(offsetof(std::tm, tm_sec) == 0 && offsetof(std::tm, tm_mon) == 4 * sizeof(int)
              && offsetof(std::tm, tm_isdst) == 8 * sizeof(int));

void print_counts_and_die(int signal) {
    InterruptLine()
        .add("read rtc successfully ")
        .add(0u)
        .add(" times : failed ")
        .add(0u)
        .add(" times\n")
        .print();
    platform::raise(signal);
    platform::signal(signal, SIG_DFL);
}

// All zero when the clock cannot be opened or read.
std::tm read_rtc() {
    const platform::Descriptor rtc(platform::open("/dev/rtc", O_RDONLY));
    std::tm time{};
    platform::ioctl(rtc.get(), kReadTime, &time);
    return time;
}

std::tm system_time() {
    const std::time_t now = platform::time();
    std::tm time{};
    gmtime_r(&now, &time);
    return time;
}

void report_time(const std::tm& time) {
    report(kModule, "%04d-%02d-%02d %02d:%02d:%02d\n", time.tm_year + 1900, time.tm_mon + 1,
           time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec);
}

// As if both clocks were set to UTC: their zone, which is the same, cancels out.
std::int64_t to_seconds(std::tm time) { return timegm(&time); }

bool clocks_agree() {
    const std::tm rtc = read_rtc();
    const std::tm system = system_time();
    if (console_mode()) print("时钟时间 ");
    report_time(rtc);
    if (console_mode()) print("系统时间 ");
    report_time(system);
    const std::int64_t rtc_s = to_seconds(rtc);
    const std::int64_t system_s = to_seconds(system);
    return system_s <= rtc_s + kTolerance_s && rtc_s <= system_s + kTolerance_s;
}

}  // namespace

int rtc_test() {
    platform::signal(SIGINT, print_counts_and_die);
    int result = 0;
    for (int i = 0; i < 3; ++i) {
        if (!clocks_agree()) {
            result = 1;
            results.rtc = 1;
            buzzer(2);
        }
        platform::sleep_ms(1000);
    }
    return result;
}
