#include "tests/interrupt.h"

#include <unistd.h>

#include "platform/platform.h"

InterruptLine& InterruptLine::add(const char* text) {
    while (*text != '\0' && length_ < sizeof text_)
        text_[length_++] = *text++;
    return *this;
}

InterruptLine& InterruptLine::add(std::uint32_t number) {
    char digits[11];
    char* first = digits + sizeof digits - 1;
    *first = '\0';
    do {
        *--first = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number != 0);
    return add(first);
}

void InterruptLine::print() const { platform::write(STDOUT_FILENO, text_, length_); }
