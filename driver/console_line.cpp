#include "driver/console_line.h"

#include <sys/time.h>
#include <unistd.h>

#include "platform/platform.h"

int read_console_line(ConsoleLine& line, int timeout_s) {
    timeval remaining{timeout_s, 0};
    if (platform::wait_readable(STDIN_FILENO, &remaining) <= 0) return 0;
    const ssize_t count = platform::read(STDIN_FILENO, line.data(), line.size());
    if (count == 0) return 0;
    if (count >= 2) line[static_cast<std::size_t>(count) - 1] = '\0';
    return static_cast<int>(count) - 1;
}
