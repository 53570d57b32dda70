#include "driver/q7.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>

#include "device/buzzer.h"
#include "device/capability.h"
#include "device/watchdog.h"
#include "driver/pmp_test.h"
#include "driver/preparation.h"
#include "driver/report.h"
#include "driver/sequence.h"
#include "platform/platform.h"
#include "platform/print.h"
#include "tests/485testfork.h"
#include "tests/boardinfo.h"
#include "tests/front_board_test.h"
#include "tests/iop_test.h"
#include "tests/nic.h"
#include "tests/rtc_test.h"
#include "tests/sata_test.h"
#include "tests/usb_disk_test.h"

#if defined(__GNUC__) && !defined(__clang__)
static_assert(sizeof "测" == 3, "the texts must be compiled to GBK (-fexec-charset=GBK)");
#endif

namespace {

constexpr char kModule[] = "q7";

struct NumberedTest {
    int number;
    unsigned pause_ms;  // once, before the first repetition
    void (*run)();
};

constexpr NumberedTest kTests[] = {
    {1, 0, [] { board_info_test(); }},  {2, 0, [] { buzzer(3); }},
    {3, 0, front_board_test_if_fitted}, {4, 10'000, [] { rs485_test(); }},
    {5, 0, [] { alarm_io_test(); }},    {6, 0, [] { rtc_test(); }},
    {7, 0, [] { usb_test(); }},         {8, 0, sata_disk_test},
    {9, 0, [] { watchdog_restart(); }}, {10, 0, pmp_test},
    {11, 0, [] { nic_test(); }},
};
constexpr int kLastTest = std::size(kTests);

void print_usage() {
    print_line("q7 ver1.02(2009-4-3)");
    print_line("this program will excute the follow test");
    print_line("No.1 : \t\t\tShow board Info");
    print_line("No.2 : \t\t\tBuzzer test");
    print_line("No.3 : \t\t\tFront-board test");
    print_line("No.4 : \t\t\t485 com test");
    print_line("No.5 : \t\t\tIop test");
    print_line("No.6 : \t\t\tRTC test");
    print_line("No.7: \t\t\tUSB port test");
    print_line("No.8: \t\t\tSATA test");
    print_line("No.9: \t\t\tWatchdog test,Restart system\n");
    print_line("No.10: \t\t\tpmp test,Restart system\n");
    print_line("No.11 : \t\t\tNetwork moudel configure show");
    print_line("q7 -h or q7 --help for help information");
    print_line("If you want to do all the tests, please run q7 ");
    print_line("If you want to do only one test of them ,please run q7 -o  <No.> ");
    print_line("        eg. q7 -o 4   then only test 485 port");
}

bool is_digit(char character) { return character >= '0' && character <= '9'; }

std::optional<int> refuse_number() {
    print("请选择测试序号(1~%d)\n", kLastTest);
    return std::nullopt;
}

// The number in the first two characters of the text; an empty text is number 0. A longer text
// is only hinted at, one that is no number is refused.
std::optional<int> parse_test_number(const char* text) {
    if (std::strlen(text) > 2) print("请选择测试序号(1~%d)\n", kLastTest);
    if (text[0] == '\0') return 0;
    if (!is_digit(text[0])) return refuse_number();
    if (text[1] == '\0') return text[0] - '0';
    if (!is_digit(text[1])) return refuse_number();
    return 10 * (text[0] - '0') + (text[1] - '0');
}

// As strtol with the board's 32-bit long has it, on every build.
std::uint32_t parse_count(const char* text) {
    const long long value = std::strtoll(text, nullptr, 10);
    return static_cast<std::uint32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

void repeat(const NumberedTest& test, std::uint32_t count) {
    if (test.pause_ms > 0) platform::sleep_ms(test.pause_ms);
    for (std::uint32_t i = 0; i != count; ++i) {
        if (count > 1) print("\n第%d次测试\n", i + 1);
        test.run();
    }
}

void run_test(int number, std::uint32_t count) {
    if (number < 1 || number > kLastTest) {
        print("请输入正确的测试序号.(1~%d)", kLastTest);
        return;
    }
    prepare_control_device().close();
    settle_board();
    for (const NumberedTest& test : kTests) {
        if (test.number == number) repeat(test, count);
    }
}

void run_single_test(int argc, char** argv) {
    if (std::strcmp(argv[1], "-o") != 0 && std::strcmp(argv[1], "-O") != 0) {
        print_line("参数非法");
        return;
    }
    const std::optional<int> number = parse_test_number(argv[2]);
    if (!number) return;
    run_test(*number, argc == 4 ? parse_count(argv[3]) : 1);
}

bool asks_for_help(const char* argument) {
    return std::strcmp(argument, "-h") == 0 || std::strcmp(argument, "--help") == 0;
}

// A file that is opened gets the lowest free descriptor. Were that a missing 0, 1 or 2, printed text
// would land in the FIFO or the control device. So /dev/null is opened until the standard
// descriptors are taken; where it cannot be opened, nothing can be done.
void occupy_standard_descriptors() {
    int fd;
    do {
        fd = platform::open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) platform::close(fd);
}

}  // namespace

int q7_main(int argc, char** argv) {
    occupy_standard_descriptors();
    if (platform::setuid(0) != 0) {
        print_line("切换到超级用户失败，可能会对Q7的某些项测试有影响");
    }
    sysInit();
    if (argc > 1 && std::strcmp(argv[1], "netQ7test") == 0 && open_report_fifo() != 0) {
        report(kModule, "打开命名管道出错\n");
        return 0;
    }
    if (argc == 2 && asks_for_help(argv[1])) {
        print_usage();
    } else if (argc == 3 || argc == 4) {
        run_single_test(argc, argv);
    } else {
        full_sequence();
    }
    return 0;
}
