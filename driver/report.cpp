#include "driver/report.h"

#include <fcntl.h>

#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "device/little_endian.h"
#include "platform/platform.h"
#include "platform/print.h"

namespace {

constexpr std::size_t kTextSize = 1024;
constexpr std::size_t kHeaderSize = 8;

// One record: type and length as little-endian words, then the text. The type is always 0.
struct Record {
    std::uint8_t bytes[kHeaderSize + kTextSize];
};

std::uint32_t g_console_flag = 1;
int g_fifo = -1;
Record g_record;

ssize_t send(const char* text) {
    const std::size_t length = std::strlen(text);
    put_word(g_record.bytes, 0);
    put_word(g_record.bytes + 4, static_cast<std::uint32_t>(length));
    std::memcpy(g_record.bytes + kHeaderSize, text, length);
    return platform::write(g_fifo, g_record.bytes, kHeaderSize + length);
}

}  // namespace

void report(Site site, const char* format, ...) {
    char text[kTextSize] = {};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (console_mode()) {
        print("%s", text);
        return;
    }
    if (send(text) < 0) {
        print("write error file = %s ,line = %d \n", site.module, site.line);
    }
}

bool console_mode() { return g_console_flag != 0; }

int open_report_fifo() {
    g_fifo = platform::open("/var/q7.fifo", O_WRONLY | O_NONBLOCK);
    if (g_fifo < 0) return -1;
    platform::signal(SIGPIPE, SIG_IGN);
    g_console_flag = 0;
    return 0;
}

void close_report_fifo() {
    platform::close(g_fifo);
    g_fifo = -1;
}
