#include "driver/q7.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "device/capability.h"
#include "driver/preparation.h"
#include "driver/report.h"
#include "driver/sequence.h"
#include "driver/test_table.h"
#include "platform/platform.h"
#include "platform/print.h"

#if defined(__GNUC__) && !defined(__clang__)
static_assert(sizeof "测" == 3, "the texts must be compiled to GBK (-fexec-charset=GBK)");
#endif

namespace {

constexpr char kModule[] = "q7";

int last_test() { return static_cast<int>(numbered_tests().size()); }

void print_usage() {
    print_line("q7 ver1.02(2009-4-3)");
    print_line("this program will excute the follow test");
    for (const NumberedTest& test : numbered_tests())
        print_line(test.usage);
    print_line("q7 -h or q7 --help for help information");
    print_line("If you want to do all the tests, please run q7 ");
    print_line("If you want to do only one test of them ,please run q7 -o  <No.> ");
    print_line("        eg. q7 -o 4   then only test 485 port");
}

bool is_digit(char character) { return character >= '0' && character <= '9'; }

std::optional<int> refuse_number() {
    print("请选择测试序号(1~%d)\n", last_test());
    return std::nullopt;
}

// The number in the first two characters of the text; an empty text is number 0. A longer text
// only gets a hint, one that is not a number is refused.
std::optional<int> parse_test_number(const char* text) {
    if (std::strlen(text) > 2) print("请选择测试序号(1~%d)\n", last_test());
    if (text[0] == '\0') return 0;
    if (!is_digit(text[0])) return refuse_number();
    if (text[1] == '\0') return text[0] - '0';
    if (!is_digit(text[1])) return refuse_number();
    return 10 * (text[0] - '0') + (text[1] - '0');
}

// As strtol with a 32-bit long, like the board's, on every build.
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
    if (number < 1 || number > last_test()) {
        print("请输入正确的测试序号.(1~%d)", last_test());
        return;
    }
    prepare_control_device().close();
    settle_board();
    repeat(numbered_tests()[static_cast<std::size_t>(number - 1)], count);
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

// An open file gets the lowest free descriptor. If that were a missing 0, 1 or 2, printed text would
// go to the FIFO or the control device. So /dev/null is opened until the standard descriptors are
// taken; if it cannot be opened, they stay missing.
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
