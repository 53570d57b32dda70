#include <cstdlib>
#include <random>

#include "checks/harness.h"
#include "device/capability.h"
#include "platform/platform.h"
#include "tests/front_board_test.h"
#include "tests/keyboard_line.h"
#include "tests/serial_line.h"

namespace {

using namespace checks;

// Frames and reads are written in hexadecimal.
constexpr char kEsc[] = "FF06200B0100";
constexpr char kPanel[] = "control pannel is pressed\n";

std::string hex(int byte) {
    char text[12];
    std::snprintf(text, sizeof text, "%02X", byte);
    return text;
}

std::string key(int code, int state = 1) { return "FF0620" + hex(code) + hex(state) + "00"; }

// A panel that sends each of these in one piece, a second apart.
std::string sending(const std::vector<std::string>& reads) {
    std::string frames;
    for (std::size_t i = 0; i < reads.size(); ++i) {
        frames += "{at = " + std::to_string(5 + i) + ", whole = true, bytes = '" + reads[i] + "'},";
    }
    return "panel.frames = [" + frames + "]\n";
}

// The texts between the prompt and the end of the test, which ESC ends.
std::string said_by_key_loop(std::vector<std::string> reads) {
    reads.push_back(kEsc);
    const std::string said = run("-o 3", sending(reads)).said(), prompt_end = "ESC退出测试\n";
    return said.substr(said.find(prompt_end) + prompt_end.size());
}

// What an actor wrote to the panel, command and data of each frame: "2.100 05 5555 | ".
std::string written(const Outcome& got, std::string_view actor) {
    std::string list;
    for (const sim::Event& event : got.world->log.all()) {
        if (!event.is_call("write") || event.path != "/dev/ttyS2" || event.actor != actor) {
            continue;
        }
        const auto* frame = reinterpret_cast<const std::uint8_t*>(event.sent.data());
        char text[40];
        std::snprintf(text, sizeof text, "%.3f %02X %02X%02X | ",
                      static_cast<double>(event.at) / 1e6, frame[3], frame[4], frame[5]);
        list += text;
    }
    // The panel ignores frames with another start, length, type or checksum.
    EXPECT_EQ(got.count("write", "/dev/ttyS2"), static_cast<int>(got.world->panel.frames));
    return list;
}

// The function LEDs are switched on six times at once.
std::string functions_on(const std::string& at) {
    std::string list;
    for (int i = 0; i < 6; ++i)
        list += at + " 09 004F | ";
    return list;
}

TEST(KeyboardLine, SetUpChangesExactlyTheSettingsItNames) {
    const Outcome got = run_piece(healthy(), [] {
        const int line = open_serial_line("/dev/ttyS2");
        termios settings;
        platform::tcgetattr(line, &settings);
        settings.c_iflag = settings.c_oflag = settings.c_lflag = 0xFFFF;
        settings.c_cflag = 0xFFF;
        settings.c_cc[VMIN] = 7;
        settings.c_cc[VTIME] = 9;
        platform::tcsetattr(line, 0, &settings);
        set_up_serial_line(line);
        platform::tcgetattr(line, &settings);
        std::printf("%x %x %x %x %d %d %d", settings.c_iflag, settings.c_oflag, settings.c_lflag,
                    settings.c_cflag & 0xFF0, cfgetospeed(&settings) == B9600, settings.c_cc[VMIN],
                    settings.c_cc[VTIME]);
    });
    EXPECT_EQ(got.console, "ea3f fffe ffe4 eb0 1 7 9");
    // O_RDWR | O_NOCTTY | O_NONBLOCK
    EXPECT_THAT(got.calls("/dev/ttyS2"), HasSubstr("open(2306)\n"));
}

TEST(KeyboardLine, HeartbeatLeavesEveryTenSecondsFromItsThreadAlone) {
    const Outcome got = run("-o 4 2");
    EXPECT_EQ(written(got, "thread1"), "12.100 0B 0000 | 22.100 0B 0000 | ");
    EXPECT_EQ(written(got, "child1"), "");
    EXPECT_THAT(build_panel_frame<2>({0x80, 0x90}), ElementsAre(0xFF, 0x05, 0x80, 0x90, 0x14));
}

TEST(KeyboardLine, WithoutPanelThereIsNeitherLineNorThread) {
    const Outcome got = run_with(bare_board(), {"-o", "3", "2"}, [] { g_bSupFrontPanel = 0; });
    EXPECT_EQ(got.said(), "\n第1次测试\n\n第2次测试\n");
    EXPECT_EQ(got.count("pthread_create") + got.count("open", "/dev/ttyS2"), 0);
    EXPECT_DOUBLE_EQ(got.end_s, 2);
}

TEST(PanelTest, EachKeyCausesItsFramesAtTheirInstants) {
    const Outcome got = run("-o 3", sending({key(13), key(19), key(22), key(23), key(20), key(21),
                                             key(34, 0), key(34), key(0), key(0), kEsc}));
    EXPECT_EQ(written(got, "main"),
              "2.100 05 5555 | 2.200 27 5555 | 4.200 05 AAAA | 4.300 27 AAAA | "    // at first
                  + functions_on("5.006")                                           // A
                  + "6.006 09 0000 | "                                              // #
                    "7.006 06 FFFF | 7.106 28 FFFF | "                              // LEFT
                    "8.006 06 0000 | 8.106 28 0000 | "                              // RIGHT
                    "9.006 05 FFFF | 9.106 27 FFFF | " + functions_on("9.206")      // UP
                  + "10.006 05 0000 | 10.106 27 0000 | 10.206 09 0000 | "           // DOWN
                    "12.006 05 5555 | 12.106 27 5555 | "                            // ENTER
                    "14.106 05 AAAA | 14.206 27 AAAA | ");
    EXPECT_NEAR(got.end_s, 15.006 + 1, 0.001);  // ESC, and a second of console drain
}

TEST(PanelTest, OtherKeysAreAcceptedSilentlyAndOtherCodesAreUnknown) {
    std::vector<std::string> reads(4);  // a read takes 512 bytes
    std::string said;
    for (int code = 0; code < 256; ++code) {
        if (code != 11) reads[static_cast<std::size_t>(code / 64)] += key(code, 0);
        if (code > 37) said += "unknow key\n";
    }
    EXPECT_EQ(said_by_key_loop(reads), said);
}

TEST(PanelTest, EachLengthIsJudgedAgainstTheDataAndThenItsRange) {
    for (int length = 0; length < 256; ++length) {
        // 32 bytes: a frame that says this length, padded with filler. Passed over byte by byte,
        // the length byte itself begins a frame of length 0x21 = 33.
        const bool valid = length >= 5 && length <= 14;
        EXPECT_EQ(said_by_key_loop({"FF" + hex(length) + "21" + std::string(58, '0')}),
                  valid ? kPanel : "");
    }
}

TEST(PanelTest, ReplyCounterCarries) {
    const Board board =
        healthy(sending({"FF05300000FF05300000FF05300000"}) + "operator.interrupts = [8]");
    const Outcome got = run_with(board, {"-o", "3"}, [] {
        g_panel_replies_high = 0xFFFFFFFE;
        g_panel_replies_low = 0xFFFFFFFD;
    });
    EXPECT_THAT(got.console, EndsWith("receive 4294967295:1 replies\n"));
}

TEST(PanelTest, InNetModeTheLedsGoOffFirstAndCycleAfterwards) {
    const Outcome got = run("netQ7test");
    EXPECT_EQ(got.console.find("面板输入"), std::string::npos);
    EXPECT_THAT(written(got, "main"),
                StartsWith("3.400 05 0000 | 3.500 27 0000 | 3.600 09 0000 | 3.700 06 0000 | "
                           "3.800 28 0000 | 3.900 05 5555 | "));
    // ESC is read at 14.010; the thread starts there.
    EXPECT_THAT(written(got, "thread2"),
                StartsWith("14.110 05 0000 | 14.210 27 0000 | 14.310 09 0000 | 14.410 06 0000 | "
                           "14.510 28 0000 | "                                      // all off
                           "14.610 05 FFFF | 14.710 27 FFFF | "                     // record on
                           + functions_on("14.810")                                 // function on
                           + "17.310 05 0000 | 17.410 27 0000 | 17.510 09 0000 | "  // both off
                             "18.010 06 FFFF | 18.110 28 FFFF | "                   // network on
                             "20.610 06 0000 | 20.710 28 0000 | "                   // network off
                             "20.810 05 FFFF | 20.910 27 FFFF | 21.010 09 004F | "));  // again
}

TEST(FrameWalk, SurvivesRandomReads) {
    const int reads = full_form() ? 10'000'000 : 100'000;
    const Outcome got = run_piece({}, [&] {
        std::mt19937 random(42);
        for (int read = 0; read < reads; ++read) {
            // On the heap and of exactly this size, so that AddressSanitizer sees a byte beyond.
            std::vector<std::uint8_t> data(random() % 64);
            for (std::uint8_t& byte : data)
                byte = static_cast<std::uint8_t>(random() % (random() % 4 == 0 ? 16 : 256));
            g_panel_exit = 0;
            walk_panel_frames(-1, data);
            if (read % 100 == 0 && std::fseek(stdout, 0, SEEK_SET) != 0) std::abort();
        }
    });
    EXPECT_EQ(got.status, 0);
    std::printf("%d random reads\n", reads);
}

}  // namespace
