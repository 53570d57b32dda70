#include "sim/program/led_view.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <string>

#include "sim/program/screen.h"

namespace sim {
namespace {

constexpr int kPictureRows = 2, kLeastRows = 8;

std::string row(int number) { return "\x1B[" + std::to_string(number) + ";1H\x1B[2K"; }

// The first `count` LEDs. Each is set by two frames, and drawn half lit where they differ.
std::string leds(std::uint16_t one, std::uint16_t other, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        const unsigned lit = (one >> i & 1u) + (other >> i & 1u);
        if (i == 8) text += ' ';
        text += lit == 2 ? "●" : lit == 1 ? "◐" : "○";
    }
    return text;
}

}  // namespace

LedView::LedView(bool wanted) {
    winsize size{};
    const bool terminal =
        wanted && ::isatty(STDOUT_FILENO) == 1 && ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0;
    if (!terminal || size.ws_row < kLeastRows) return;
    rows_ = size.ws_row;
    // Makes room for the picture, and excludes it from the scrolling region.
    write_all(STDERR_FILENO, "\n\n\x1B[2A\x1B" "7\x1B[1;" + std::to_string(rows_ - kPictureRows)
                                 + "r\x1B" "8");
}

LedView::~LedView() {
    if (!is_shown()) return;
    write_all(STDERR_FILENO, "\x1B" "7\x1B[r" + row(rows_ - 1) + row(rows_) + "\x1B" "8");
}

void LedView::draw(const PanelState& panel, bool buzzer_sounds) const {
    write_all(STDERR_FILENO,
              "\x1B" "7" + row(rows_ - 1) + "record  " + leds(panel.record[0], panel.record[1], 16)
                  + "   function " + leds(panel.function, panel.function, 8) + row(rows_)
                  + "network " + leds(panel.network[0], panel.network[1], 16) + "   buzzer   "
                  + (buzzer_sounds ? "sounds" : "silent") + "\x1B" "8");
}

}  // namespace sim
