#include "tests/485testfork.h"

#include <sys/mman.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>

#include "device/buzzer.h"
#include "device/control_device.h"
#include "driver/report.h"
#include "driver/results.h"
#include "platform/error_text.h"
#include "tests/serial_line.h"

namespace {

constexpr char kModule[] = "485testfork";
constexpr char kDevice[] = "/dev/ttyS0";
constexpr std::size_t kPatternSize = 1024;  // also the bit of a count that has reached it

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

// The receiving process may judge later than the sending one returns, so the verdict lies in a
// page that both share. Without that page a fault would be lost: the verdict is then 1.
void share_verdict() {
    static bool shared = false;
    if (shared) return;
    void* page = platform::map_shared(sizeof *g_rs485_verdict);
    if (page == MAP_FAILED) {
        *g_rs485_verdict = 1;
        return;
    }
    g_rs485_verdict = new (page) std::atomic<std::uint32_t>(g_rs485_verdict->load());
    shared = true;
}

void collect_ended_receivers() {
    while (platform::waitpid(-1, nullptr, WNOHANG) > 0) {
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
        std::printf("open %s failed\n", kDevice);
        platform::exit(-1);
    }
    if (set_up_serial_line(line) < 0) {
        std::puts("tcsetattr failed");
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
        std::fprintf(stderr, "select(): %s\n", error_text(errno));
        return interrupted || pause_within(budget);
    }
    const ssize_t count = platform::write(line, data, size);
    if (count <= 0) return pause_within(budget);
    sent += static_cast<std::size_t>(count);
    return true;
}

void send_pattern(int line, const Pattern& pattern) {
    timeval budget{5, 0};
    if (platform::signal(SIGINT, SIG_DFL) == SIG_ERR) {
        std::puts("signal failed");
        platform::exit(-1);
    }
    std::size_t sent = 0;
    while ((sent & kPatternSize) == 0) {
        if (!send_some(line, pattern.data() + sent, pattern.size() - sent, budget, sent)) {
            std::puts("no more data can write in 5 seconds,exit ");
            return;
        }
    }
    platform::sleep_ms(6000);
}

// One wait and one read, judged as one piece. False when the time is used up.
bool receive_some(int line, const Pattern& pattern, std::size_t& offset, timeval& budget) {
    const int ready = platform::wait_readable(line, &budget);
    if (ready == 0) return false;
    if (ready < 0) {
        const bool interrupted = errno == EINTR;
        std::fprintf(stderr, "read select(): %s\n", error_text(errno));
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
        std::puts("signal failed");
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
    if (g_bad_bytes != 0) *g_rs485_verdict = 1;
    if (!in_time) buzzer(2);
    platform::exit_at_once(0);
}

}  // namespace

int rs485_test() {
    collect_ended_receivers();
    const int line = open_line();
    const Pattern pattern = make_pattern();
    switch_line_to_loopback();
    platform::sleep_ms(100);
    share_verdict();
    if (platform::fork() == 0) receive_pattern(line, pattern);
    send_pattern(line, pattern);
    collect_ended_receivers();
    return 0;
}
