#include "device/buzzer.h"

#include "device/control_device.h"
#include "platform/print.h"

namespace {

constexpr std::uint32_t kBuzzerLine = 4;  // active low: level 0 sounds

void make_output(int control) {
    platform::ioctl_value(control, ZEBIO_SET_LINE_DIR, line_word(kBuzzerLine, kOutput));
}

void set_level(int control, BuzzerLevel level) {
    const std::uint32_t line_level = level == BuzzerLevel::sounding ? 0 : 1;
    platform::ioctl_value(control, ZEBIO_SET_LINE, line_word(kBuzzerLine, line_level));
}

}  // namespace

void buzzer(int count) {
    if (count <= 0) return;
    const platform::Descriptor control = open_control_device();
    if (!control.is_open()) {
        print_line("open hwInfo error!");
        return;
    }
    make_output(control.get());
    for (int i = 0; i < count; ++i) {
        set_level(control.get(), BuzzerLevel::sounding);
        platform::sleep_ms(200);
        set_level(control.get(), BuzzerLevel::silent);
        platform::sleep_ms(200);
    }
}

void buzzer_level(BuzzerLevel level) {
    const platform::Descriptor control = open_control_device();
    make_output(control.get());
    set_level(control.get(), level);
}
