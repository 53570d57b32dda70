#include "tests/front_board_test.h"

#include <sys/time.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <iterator>

#include "device/capability.h"
#include "driver/console_line.h"
#include "driver/report.h"
#include "platform/platform.h"
#include "platform/print.h"
#include "tests/interrupt.h"
#include "tests/keyboard_line.h"

std::uint32_t g_panel_exit = 0;
std::atomic<std::uint32_t> g_panel_replies_high, g_panel_replies_low;

namespace {

constexpr char kModule[] = "front_board_test";

// LED actions.

enum LedAction {
    kNoAction = 0,
    kFunctionOn = 1,
    kFunctionOff = 2,
    kRecordOn = 3,
    kRecordOff = 4,
    kNetworkOn = 6,
    kNetworkOff = 7,
    kOddThenEven = 8
};

struct LedFrame {
    std::uint8_t command, first, second;
    unsigned pause_ms;  // after the frame
};

// Record LEDs take the commands 0x05 and 0x27, network LEDs 0x06 and 0x28, function LEDs 0x09.
constexpr LedFrame kFunctionOnFrames[] = {{0x09, 0x00, 0x4F, 0}, {0x09, 0x00, 0x4F, 0},
                                          {0x09, 0x00, 0x4F, 0}, {0x09, 0x00, 0x4F, 0},
                                          {0x09, 0x00, 0x4F, 0}, {0x09, 0x00, 0x4F, 0}};
constexpr LedFrame kFunctionOffFrames[] = {{0x09, 0x00, 0x00, 0}};
constexpr LedFrame kRecordOnFrames[] = {{0x05, 0xFF, 0xFF, 100}, {0x27, 0xFF, 0xFF, 0}};
constexpr LedFrame kRecordOffFrames[] = {{0x05, 0x00, 0x00, 100}, {0x27, 0x00, 0x00, 0}};
constexpr LedFrame kNetworkOnFrames[] = {{0x06, 0xFF, 0xFF, 100}, {0x28, 0xFF, 0xFF, 0}};
constexpr LedFrame kNetworkOffFrames[] = {{0x06, 0x00, 0x00, 100}, {0x28, 0x00, 0x00, 0}};
constexpr LedFrame kOddThenEvenFrames[] = {{0x05, 0x55, 0x55, 100},
                                           {0x27, 0x55, 0x55, 2000},
                                           {0x05, 0xAA, 0xAA, 100},
                                           {0x27, 0xAA, 0xAA, 0}};

constexpr struct {
    LedAction action;
    std::span<const LedFrame> frames;
} kLedActions[] = {
    {kFunctionOn, kFunctionOnFrames},   {kFunctionOff, kFunctionOffFrames},
    {kRecordOn, kRecordOnFrames},       {kRecordOff, kRecordOffFrames},
    {kNetworkOn, kNetworkOnFrames},     {kNetworkOff, kNetworkOffFrames},
    {kOddThenEven, kOddThenEvenFrames},
};

void write_leds(int line, LedAction action) {
    for (const auto& row : kLedActions) {
        if (row.action != action) continue;
        for (const LedFrame& led : row.frames) {
            const auto frame = build_panel_frame<4>({0x30, led.command, led.first, led.second});
            platform::write(line, frame.data(), frame.size());
            if (led.pause_ms > 0) platform::sleep_ms(led.pause_ms);
        }
    }
}

void all_leds_off(int line) {
    platform::sleep_ms(100);
    for (const LedAction action : {kRecordOff, kFunctionOff, kNetworkOff}) {
        write_leds(line, action);
        platform::sleep_ms(100);
    }
}

// Keys.

constexpr const char* kKeyNames[] = {
    "AN0",  "AN1",  "AN2",  "AN3",   "AN4",   "AN5",   "AN6",  "AN7",  "AN8",  "AN9",
    "MENU", "ESC",  "EDIT", "A",     "VOIP",  "PLAY",  "REC",  "PAN",  "INFO", "#",
    "UP",   "DOWN", "LEFT", "RIGHT", "AN10",  "AN11",  "AN12", "AN13", "AN14", "AN15",
    "AN16", "",     "",     "",      "ENTER", "POWER", "F1",   "F2"};
static_assert(std::size(kKeyNames) == 38);

constexpr struct {
    const char* key;
    LedAction action, action_after_100_ms;
} kKeyActions[] = {
    {"A", kFunctionOn, kNoAction},      {"#", kFunctionOff, kNoAction},
    {"UP", kRecordOn, kFunctionOn},     {"DOWN", kRecordOff, kFunctionOff},
    {"LEFT", kNetworkOn, kNoAction},    {"RIGHT", kNetworkOff, kNoAction},
    {"ENTER", kOddThenEven, kNoAction},
};

void press_key(int line, std::int8_t code, std::uint8_t state) {
    if (code < 0 || code >= static_cast<int>(std::size(kKeyNames))) {
        print_line("unknow key");
        return;
    }
    const char* name = kKeyNames[code];
    if (std::strcmp(name, "ESC") == 0) g_panel_exit = 1;
    if (std::strcmp(name, "ENTER") == 0 && state == 0) return;
    for (const auto& row : kKeyActions) {
        if (std::strcmp(row.key, name) != 0) continue;
        write_leds(line, row.action);
        if (row.action_after_100_ms == kNoAction) continue;
        platform::sleep_ms(100);
        write_leds(line, row.action_after_100_ms);
    }
}

// Frames from the panel.

enum MessageType : std::uint8_t {
    kKeyMessage = 0x20,
    kControlPanelMessage = 0x21,
    kMainKeyboardMessage = 0x22,
    kReplyMessage = 0x30
};

void count_reply() {
    if (++g_panel_replies_low != 0xFFFFFFFF) return;
    ++g_panel_replies_high;
    g_panel_replies_low = 0;
}

void act_on_frame(int line, std::span<const std::uint8_t> frame) {
    switch (frame[2]) {
    case kKeyMessage:
        press_key(line, static_cast<std::int8_t>(frame[3]), frame[4]);
        break;
    case kControlPanelMessage:
        print_line("control pannel is pressed");
        break;
    case kMainKeyboardMessage:
        print_line("main control keyboard is pressed");
        break;
    case kReplyMessage:
        count_reply();
        break;
    default:
        print_line("other messages is received");
    }
}

void print_replies_and_die(int signal) {
    InterruptLine()
        .add("receive ")
        .add(g_panel_replies_high)
        .add(":")
        .add(g_panel_replies_low)
        .add(" replies\n")
        .print();
    platform::raise(signal);
    platform::signal(signal, SIG_DFL);
}

// Ends with ESC, or when the line has been silent for 5 seconds.
void key_loop(int line) {
    if (platform::signal(SIGINT, print_replies_and_die) == SIG_ERR) {
        print_line("signal failed");
        platform::exit(-1);
    }
    while (g_panel_exit == 0) {
        timeval remaining{5, 0};
        if (platform::wait_readable(line, &remaining) <= 0) return;
        std::array<std::uint8_t, 512> bytes;
        const ssize_t count = platform::read(line, bytes.data(), bytes.size());
        if (count <= 0) {
            print_line("read failed");
            platform::sleep_ms(100);  // a hung-up line is always readable
            continue;
        }
        walk_panel_frames(line, std::span(bytes).first(static_cast<std::size_t>(count)));
    }
}

void show_prompt() {
    print(
        "面板输入ENTER点亮1.3.5.7 奇数通道灯再点亮2.4.6.8偶数通道灯\n"
        "面板输入UP点亮所有录象灯+所有功能灯\n"
        "面板输入DOWN关闭所有录象灯+所有功能灯\n"
        "面板输入LEFT点亮所有网络连接显示灯\n"
        "面板输入RIGHT关闭所有网络连接显示灯\n"
        "面板输入ESC退出测试\n");
}

// Discards bare Enter presses typed during the test.
void drain_console() {
    ConsoleLine line;
    int length = 0;
    do {
        line[0] = '\0';  // a time-out leaves it unchanged
        length = read_console_line(line, 1);
    } while (length == 0 && line[0] == '\n');
}

pthread_t g_led_thread;  // the latest one; none is joined

void* led_test_func(void*) {
    const int line = g_keyboard_line;
    all_leds_off(line);
    for (;;) {
        write_leds(line, kRecordOn);
        platform::sleep_ms(100);
        write_leds(line, kFunctionOn);
        platform::sleep_ms(2500);
        write_leds(line, kRecordOff);
        platform::sleep_ms(100);
        write_leds(line, kFunctionOff);
        platform::sleep_ms(500);
        write_leds(line, kNetworkOn);
        platform::sleep_ms(2500);
        write_leds(line, kNetworkOff);
        platform::sleep_ms(100);
    }
}

}  // namespace

void walk_panel_frames(int line, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const bool filler = (bytes[0] & 0x7F) == 0;
        if (filler) {
            bytes = bytes.subspan(1);
            continue;
        }
        if (bytes.size() < 2) return;  // cut off before its length
        const std::size_t length = bytes[1];
        if (length > bytes.size()) return;
        if (length < 5 || length > 14) {
            bytes = bytes.subspan(1);
            continue;
        }
        act_on_frame(line, bytes.first(length));
        if (g_panel_exit != 0) return;
        bytes = bytes.subspan(length);
    }
}

void front_board_test() {
    g_panel_exit = 0;
    if (!console_mode()) all_leds_off(g_keyboard_line);
    write_leds(g_keyboard_line, kOddThenEven);
    if (console_mode()) show_prompt();
    key_loop(g_keyboard_line);
    if (console_mode()) {
        drain_console();
    } else if (platform::create_thread(&g_led_thread, led_test_func) != 0) {
        report(kModule, "led_test_func error\n");
    }
}

void front_board_test_if_fitted() {
    if (g_bSupFrontPanel != 0) front_board_test();
}
