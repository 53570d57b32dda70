#include "tests/485testfork.h"

#include <fcntl.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iterator>

#include "device/buzzer.h"
#include "device/control_device.h"
#include "driver/report.h"
#include "driver/results.h"
#include "platform/print.h"
#include "tests/serial_line.h"

namespace {

constexpr char kModule[] = "485testfork";
constexpr char kDevice[] = "/dev/ttyS0";
constexpr std::size_t kPatternSize = 1024;  // also the bit set in a count that has reached it

using Pattern = std::array<std::uint8_t, kPatternSize>;

// Counted by the receiving process alone, so that each run starts from 0.
std::uint32_t g_good_bytes = 0;
std::uint32_t g_bad_bytes = 0;

Pattern make_pattern() {
    Pattern pattern;
    for (std::size_t i = 0; i < pattern.size(); ++i)
        pattern[i] = static_cast<std::uint8_t>(i);
    return pattern;
}

// Each receiver writes its verdict, 1 for wrong bytes, as a byte into a pipe that all runs share. If
// it cannot, it exits with the verdict as its status.
int g_verdict_pipe[2] = {-1, -1};
constexpr int kFaultStatus = 1;

bool g_verdict_outstanding = false;  // the sender gave up before the receiver had judged

void open_verdict_pipe() {
    int ends[2];
    if (g_verdict_pipe[0] >= 0 || platform::open_pipe(ends, O_NONBLOCK) != 0) return;
    std::copy(std::begin(ends), std::end(ends), std::begin(g_verdict_pipe));
}

// Reads the verdicts in the pipe; false when there are none. A pipe that cannot be read counts as a
// fault, as it may hold one.
bool take_verdicts() {
    if (g_verdict_pipe[0] < 0) return false;
    std::array<std::uint8_t, 64> verdicts{};
    const ssize_t count = platform::read(g_verdict_pipe[0], verdicts.data(), verdicts.size());
    if (count < 0 && errno != EAGAIN) results.rs485 = 1;
    if (std::count(verdicts.begin(), verdicts.end(), 1) > 0) results.rs485 = 1;
    return count > 0;
}

void collect_ended_receivers() {
    int status = 0;
    while (platform::waitpid(-1, &status, WNOHANG) > 0) {
        if (WIFEXITED(status) && WEXITSTATUS(status) == kFaultStatus) results.rs485 = 1;
    }
}

// Waits 10 ms of what remains, so that a line that is ready but useless does not make its side
// spin. False when nothing remains.
bool pause_within(timeval& budget) {
    const std::int64_t remaining_us = std::int64_t{budget.tv_sec} * 1'000'000 + budget.tv_usec;
    if (remaining_us <= 0) return false;
    platform::sleep_ms(10);
    const std::int64_t rest_us = std::max<std::int64_t>(0, remaining_us - 10'000);
    budget.tv_sec = static_cast<time_t>(rest_us / 1'000'000);
    budget.tv_usec = static_cast<suseconds_t>(rest_us % 1'000'000);
    return true;
}

int open_line() {
    const int line = open_serial_line(kDevice);
    if (line < 0) {
        print("open %s failed\n", kDevice);
        platform::exit(-1);
    }
    if (set_up_serial_line(line) < 0) {
        print_line("tcsetattr failed");
        platform::exit(-1);
    }
    return line;
}

void switch_line_to_loopback() {
    platform::Descriptor control = open_control_device();
    platform::ioctl_value(control.get(), ZEBIO_RS485_FIRST, 1);
    platform::ioctl_value(control.get(), ZEBIO_RS485_SECOND, 1);
    control.release();  // stays open for the life of the process
}

// One wait and one write; how many bytes went out. False when the time is used up.
bool send_some(int line, const std::uint8_t* data, std::size_t size, timeval& budget,
               std::size_t& sent) {
    const int ready = platform::wait_writable(line, &budget);
    if (ready == 0) return false;
    if (ready < 0) {
        const bool interrupted = errno == EINTR;
        print_system_error("select()");
        return interrupted || pause_within(budget);
    }
    const ssize_t count = platform::write(line, data, size);
    if (count <= 0) return pause_within(budget);
    sent += static_cast<std::size_t>(count);
    return true;
}

// False when the line did not take the pattern in time.
bool send_pattern(int line, const Pattern& pattern) {
    timeval budget{5, 0};
    if (platform::signal(SIGINT, SIG_DFL) == SIG_ERR) {
        print_line("signal failed");
        platform::exit(-1);
    }
    std::size_t sent = 0;
    while ((sent & kPatternSize) == 0) {
        if (!send_some(line, pattern.data() + sent, pattern.size() - sent, budget, sent)) {
            print_line("no more data can write in 5 seconds,exit ");
            return false;
        }
    }
    platform::sleep_ms(6000);
    return true;
}

// One wait and one read, judged as one piece. False when the time is used up.
bool receive_some(int line, const Pattern& pattern, std::size_t& offset, timeval& budget) {
    const int ready = platform::wait_readable(line, &budget);
    if (ready == 0) return false;
    if (ready < 0) {
        const bool interrupted = errno == EINTR;
        print_system_error("read select()");
        return interrupted || pause_within(budget);
    }
    Pattern received;
    const ssize_t count = platform::read(line, received.data() + offset, received.size() - offset);
    if (count < 1) return pause_within(budget);
    const auto size = static_cast<std::size_t>(count);
    const bool equal = std::memcmp(received.data() + offset, pattern.data() + offset, size) == 0;
    (equal ? g_good_bytes : g_bad_bytes) += static_cast<std::uint32_t>(size);
    offset = (offset + size) % kPatternSize;
    return true;
}

[[noreturn]] void receive_pattern(int line, const Pattern& pattern) {
    timeval budget{5, 0};
    if (platform::signal(SIGINT, [](int) {}) == SIG_ERR) {
        print_line("signal failed");
        platform::exit_at_once(-1);
    }
    std::size_t offset = 0;
    bool in_time = true;
    while (in_time && (g_good_bytes & kPatternSize) == 0) {
        in_time = receive_some(line, pattern, offset, budget);
    }
    if (in_time) {
        report(kModule, "正确:    %d字节  \n错误:    %d字节 \n", g_good_bytes, g_bad_bytes);
    } else {
        report(kModule, "发送  %d字节成功\n    %d字节失败 \n", g_good_bytes, g_bad_bytes);
    }
    const std::uint8_t fault = g_bad_bytes != 0 ? 1 : 0;
    const bool handed_over = platform::write(g_verdict_pipe[1], &fault, sizeof fault) == 1;
    if (!in_time) buzzer(2);
    platform::exit_at_once(handed_over || fault == 0 ? 0 : kFaultStatus);
}

}  // namespace

int rs485_test() {
    collect_ended_receivers();
    const int line = open_line();
    const Pattern pattern = make_pattern();
    switch_line_to_loopback();
    platform::sleep_ms(100);
    open_verdict_pipe();
    if (platform::fork() == 0) receive_pattern(line, pattern);
    const bool sent = send_pattern(line, pattern);
    const bool judged = take_verdicts();
    g_verdict_outstanding = !sent && !judged;
    collect_ended_receivers();
    return 0;
}

void rs485_await_verdict() {
    if (!g_verdict_outstanding) return;
    timeval remaining{0, 100'000};
    if (g_verdict_pipe[0] >= 0) platform::wait_readable(g_verdict_pipe[0], &remaining);
    take_verdicts();
    collect_ended_receivers();
}
