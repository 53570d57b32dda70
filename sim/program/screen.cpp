#include "sim/program/screen.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>

#include "sim/program/text.h"

namespace sim {
namespace {

// An LED or buzzer change as a line; empty for other events.
std::string announcement(const Event& event) {
    const std::string_view device = event.function, state = event.sent;
    if (!event.is_of_board()) return "";
    if (device == "panel" && state.starts_with("record")) {
        return "[LEDs] " + std::string(state) + "\n";
    }
    if (device == "line" && state == "4=0") return "[buzzer] on\n";
    if (device == "line" && state == "4=1") return "[buzzer] off\n";
    return "";
}

}  // namespace

void write_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(fd, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return;  // the reader has gone
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

Screen::Screen(std::ofstream& file, Records records, Texts texts, bool announces_devices)
    : file_(file),
      records_(records),
      texts_(texts),
      announces_devices_(announces_devices),
      leds_(announces_devices),
      console_{STDOUT_FILENO},
      errors_{STDERR_FILENO} {
    if (texts_ == Texts::utf8) gbk_to_utf8("x");  // throws before the run, or never
}

void Screen::show(int console, int errors) {
    for (; next_event_ < world->log.events_used; ++next_event_) {
        const Event& event = world->log.events[next_event_];
        const std::string announced = announces_devices_ ? announcement(event) : "";
        if (announced.empty() && !event.is_report()) continue;
        print(console_, console, event.printed);
        if (!leds_.is_shown()) write_all(STDERR_FILENO, announced);
        if (event.is_report()) show_record(event.sent);
    }
    print(console_, console, SIZE_MAX);
    if (leds_.is_shown()) leds_.draw(world->panel, world->control.level[4] == 0);
    print(errors_, errors, SIZE_MAX);
}

void Screen::finish() {
    if (texts_ == Texts::gbk) return;
    for (const Stream* stream : {&console_, &errors_})
        write_all(stream->shown_on, gbk_to_utf8(stream->rest));
}

void Screen::print(Stream& stream, int fd, std::size_t limit) {
    char buffer[4096];
    while (stream.position < limit) {
        const ssize_t count = ::pread(fd, buffer, std::min(sizeof buffer, limit - stream.position),
                                      static_cast<off_t>(stream.position));
        if (count <= 0) return;
        const std::string_view bytes(buffer, static_cast<std::size_t>(count));
        stream.position += bytes.size();
        write_all(stream.shown_on,
                  texts_ == Texts::gbk ? std::string(bytes) : gbk_to_utf8(bytes, &stream.rest));
    }
}

void Screen::show_record(std::string_view record) const {
    if (records_ == Records::sent) return;
    if (file_.is_open()) {
        file_ << record << std::flush;
        return;
    }
    const std::string_view bytes = record.substr(8);
    std::string text = texts_ == Texts::gbk ? std::string(bytes) : gbk_to_utf8(bytes);
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) {
        text.replace(at, 1, "\\n");
    }
    write_all(STDERR_FILENO, "[record] " + text + "\n");
}

}  // namespace sim
