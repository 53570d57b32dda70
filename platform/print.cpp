#include "platform/print.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "platform/error_text.h"
#include "platform/platform.h"

namespace {

constexpr std::size_t kTextSize = 1024;

void write_whole(int fd, const char* text, std::size_t size) {
    while (size > 0) {
        const ssize_t count = platform::write_text(fd, text, size);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;
        text += count;
        size -= static_cast<std::size_t>(count);
    }
}

[[gnu::format(printf, 2, 0)]] void print_to(int fd, const char* format, va_list arguments) {
    char text[kTextSize];
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    if (length < 0) return;
    write_whole(fd, text, std::min(static_cast<std::size_t>(length), sizeof text - 1));
}

}  // namespace

void print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    print_to(STDOUT_FILENO, format, arguments);
    va_end(arguments);
}

void print_line(const char* text) { print("%s\n", text); }

void print_error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    print_to(STDERR_FILENO, format, arguments);
    va_end(arguments);
}

void print_system_error(const char* what) { print_error("%s: %s\n", what, error_text(errno)); }
