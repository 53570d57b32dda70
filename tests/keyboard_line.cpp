#include "tests/keyboard_line.h"

#include <cerrno>

#include "platform/error_text.h"
#include "platform/platform.h"
#include "platform/print.h"
#include "tests/serial_line.h"

int g_keyboard_line = -1;

namespace {

constexpr char kDevice[] = "/dev/ttyS2";
constexpr unsigned kHeartbeatPeriod_ms = 10'000;

pthread_t g_heartbeat;  // neither joined nor detached: it runs until the process ends

}  // namespace

int keyboard_line_start() {
    g_keyboard_line = open_serial_line(kDevice);
    if (g_keyboard_line < 0) {
        const int error = errno;
        print("open %s failed, errno:%d,%s\n", kDevice, error, error_text(error));
        platform::exit(-1);
    }
    if (set_up_serial_line(g_keyboard_line) < 0) {
        print_line("tcsetattr failed");
        platform::exit(-1);
    }
    if (platform::create_thread(&g_heartbeat, heartbeat_thread) != 0) {
        print_line("can not creat HB thread");
        return -1;
    }
    return 0;
}

void* heartbeat_thread(void*) {
    for (;;) {
        platform::sleep_ms(kHeartbeatPeriod_ms);
        send_heartbeat();
    }
}

void send_heartbeat() {
    const auto frame = build_panel_frame<4>({0x30, 0x0B, 0x00, 0x00});
    platform::write(g_keyboard_line, frame.data(), frame.size());
}
