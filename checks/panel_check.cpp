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

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values)
        text += static_cast<char>(value);
    return text;
}

std::string key(int code, int state = 1) { return bytes({0xFF, 6, 0x20, code, state, 0}); }

const std::string kEsc = key(11);

// A panel that sends each of these at once, a second after the one before.
Board board_sending(const std::vector<std::string>& sent) {
    Board board = healthy();
    board.panel.frames.clear();
    double at = 5;
    for (const std::string& each : sent)
        board.panel.frames.push_back({at++, each, true});
    return board;
}

// What an actor wrote to the panel: "2.100 05 5555", from this instant on.
std::vector<std::string> written(const Outcome& got, const char* actor, double from_s = 0) {
    std::vector<std::string> frames;
    for (const sim::Event& event : got.world->log()) {
        const std::string_view sent = got.world->sent(event);
        if (event.actor < 0 || std::string_view(event.function) != "write"
            || got.world->path_of(event) != "/dev/ttyS2" || event.at < sim::from_seconds(from_s)
            || std::string_view(got.world->actors[event.actor].name) != actor) {
            continue;
        }
        const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(sent[i]); };
        unsigned sum = 0;
        for (std::size_t i = 0; i < 6; ++i)
            sum += byte(i);
        const bool valid = sent.size() == 7 && byte(0) == 0xFF && byte(1) == 7 && byte(2) == 0x30
                           && byte(6) == (sum & 0xFF);
        char text[64];
        std::snprintf(text, sizeof text, "%.3f %02X %02X%02X%s",
                      static_cast<double>(event.at) / 1e6, byte(3), byte(4), byte(5),
                      valid ? "" : " invalid");
        frames.push_back(text);
    }
    return frames;
}

// The texts between the prompt and the end of the test.
std::string said_by_key_loop(const Board& board) {
    const Outcome got = run(board, "-o 3");
    EXPECT_EQ(got.stopped, "");
    const std::size_t prompt_end = got.console.find("ESC退出测试\n");
    EXPECT_NE(prompt_end, std::string::npos);
    return got.console.substr(prompt_end + std::string("ESC退出测试\n").size());
}

TEST(KeyboardLine, SetUpChangesExactlyTheSettingsItNames) {
    const Outcome got = run_piece(healthy(), [] {
        const int line = open_serial_line("/dev/ttyS2");
        termios before, after;
        platform::tcgetattr(line, &before);
        before.c_iflag = before.c_oflag = before.c_lflag = 0xFFFF;
        before.c_cflag = 0xFFF;
        before.c_cc[VMIN] = 7;
        before.c_cc[VTIME] = 9;
        platform::tcsetattr(line, 0, &before);
        set_up_serial_line(line);
        platform::tcgetattr(line, &after);
        std::printf("%x %x %x %x %d %d %d", after.c_iflag, after.c_oflag, after.c_lflag,
                    after.c_cflag & 0xFF0, cfgetospeed(&after) == B9600, after.c_cc[VMIN],
                    after.c_cc[VTIME]);
    });
    EXPECT_EQ(got.console, "ea3f fffe ffe4 eb0 1 7 9");
    EXPECT_THAT(got.calls("/dev/ttyS2"),  // O_RDWR | O_NOCTTY | O_NONBLOCK; TCSANOW
                HasSubstr("open(2306)\n"));
}

TEST(KeyboardLine, HeartbeatLeavesEveryTenSecondsFromItsThreadAlone) {
    const Outcome got = run(healthy(), "-o 4 2");
    EXPECT_THAT(written(got, "thread1"), ElementsAre("12.100 0B 0000", "22.100 0B 0000"));
    EXPECT_THAT(written(got, "child1"), ElementsAre());
    EXPECT_THAT(got.changes("panel", "heartbeat"), ElementsAre(12.1, 22.1));
    const auto frame = build_panel_frame<4>({0x30, 0x0B, 0x00, 0x00});
    EXPECT_THAT(frame, ElementsAre(0xFF, 0x07, 0x30, 0x0B, 0x00, 0x00, 0x41));
    EXPECT_THAT(build_panel_frame<2>({0x80, 0x90}), ElementsAre(0xFF, 0x05, 0x80, 0x90, 0x14));
}

TEST(KeyboardLine, LostHeartbeatIsSilentAndTheNextFollows) {
    Board board = healthy();
    board.faults = {failing("write", "/dev/ttyS2", 1)};
    const Outcome got = run(board, "-o 2 20");
    EXPECT_THAT(got.changes("panel", "heartbeat"), ElementsAre(22.1));
    EXPECT_EQ(got.console.find("error"), std::string::npos);
}

TEST(KeyboardLine, WithoutPanelThereIsNeitherLineNorThread) {
    const Outcome got = run_with(bare_board(), {"-o", "3", "2"}, [] { g_bSupFrontPanel = 0; });
    EXPECT_EQ(got.console, "no kill avcore\n\n第1次测试\n\n第2次测试\n");
    EXPECT_EQ(got.count("pthread_create") + got.count("open", "/dev/ttyS2"), 0);
    EXPECT_DOUBLE_EQ(got.end_s, 2);
}

TEST(KeyboardLine, FailuresAtItsStart) {
    Board missing = healthy(), refusing = healthy(), threadless = healthy();
    missing.panel.port.present = false;
    refusing.faults = {failing("tcsetattr", "/dev/ttyS2")};
    threadless.faults = {failing("pthread_create")};
    const struct {
        const Board& board;
        const char* said;
        int status;
    } rows[] = {
        {missing, "open /dev/ttyS2 failed, errno:2,No such file or directory\n", 255},
        {refusing, "tcsetattr failed\n", 255},
        {threadless, "can not creat HB thread\n", 0},
    };
    for (const auto& row : rows) {
        for (const auto& arguments : {std::vector<std::string>{"-o", "2"}, {}}) {
            const Outcome got = run_with(row.board, arguments);
            EXPECT_THAT(got.console, HasSubstr(std::string("no kill avcore\n") + row.said));
            EXPECT_EQ(got.status, row.status);
        }
    }
    // Without its heartbeat the line still serves the test.
    EXPECT_THAT(written(run(threadless, "-o 3"), "main").size(), testing::Gt(4u));
}

TEST(PanelTest, EachKeyCausesItsFramesAtTheirInstants) {
    Board board = board_sending(
        {key(13), key(19), key(22), key(23), key(20), key(21), key(34, 0), key(34, 1)});
    board.panel.frames.push_back({15, kEsc, true});
    const Outcome got = run(board, "-o 3");
    const std::vector<std::string> start{"2.100 05 5555", "2.200 27 5555", "4.200 05 AAAA",
                                         "4.300 27 AAAA"};
    const std::vector<std::string> keys{
        "5.006 09 004F",  "5.006 09 004F",  "5.006 09 004F",  "5.006 09 004F",  "5.006 09 004F",
        "5.006 09 004F",                    // A
        "6.006 09 0000",                    // #
        "7.006 06 FFFF",  "7.106 28 FFFF",  // LEFT
        "8.006 06 0000",  "8.106 28 0000",  // RIGHT
        "9.006 05 FFFF",  "9.106 27 FFFF",  // UP
        "9.206 09 004F",  "9.206 09 004F",  "9.206 09 004F",  "9.206 09 004F",  "9.206 09 004F",
        "9.206 09 004F",  "10.006 05 0000", "10.106 27 0000", "10.206 09 0000",  // DOWN
        "12.006 05 5555", "12.106 27 5555", "14.106 05 AAAA", "14.206 27 AAAA",  // ENTER, pressed
    };
    std::vector<std::string> expected = start;
    expected.insert(expected.end(), keys.begin(), keys.end());
    EXPECT_EQ(written(got, "main"), expected);
    EXPECT_THAT(got.changes("panel", "record 0000 0000 network 0000 0000 function 0000"),
                ElementsAre(testing::DoubleNear(10.206, 0.001)));
    EXPECT_NEAR(got.end_s, 15.006 + 1, 0.001);  // ESC, and a second of console drain
}

TEST(PanelTest, OtherKeysAreAcceptedSilentlyAndOtherCodesAreUnknown) {
    std::string known, unknown;
    for (int code = 0; code < 256; ++code) {
        if (code == 11) continue;
        (code <= 37 ? known : unknown) += key(code, 0);
    }
    EXPECT_EQ(said_by_key_loop(board_sending({known, kEsc})), "");
    std::string lines;
    for (int code = 38; code < 256; ++code)
        lines += "unknow key\n";
    // A read takes 512 bytes: 85 frames, and two bytes of a frame that is then cut off.
    std::vector<std::string> reads;
    for (std::size_t at = 0; at < unknown.size(); at += 60 * 6) {
        reads.push_back(unknown.substr(at, 60 * 6));
    }
    reads.push_back(kEsc);
    EXPECT_EQ(said_by_key_loop(board_sending(reads)), lines);
}

TEST(PanelTest, FramesOfAReadAreTakenInOrderAndGarbageIsPassedOver) {
    const std::string panel = bytes({0xFF, 5, 0x21, 0, 0}), board = bytes({0x01, 5, 0x22, 0, 0});
    const std::string other = bytes({0x7F, 14, 0x23, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    const std::string said_panel = "control pannel is pressed\n";
    const std::string said_board = "main control keyboard is pressed\n";
    const std::string said_other = "other messages is received\n";
    const struct {
        std::string read, said;
    } rows[] = {
        {panel + board + other, said_panel + said_board + said_other},
        {bytes({0x00, 0x80, 0x00}) + panel + bytes({0x80}) + board, said_panel + said_board},
        {bytes({0x00, 0x80}), ""},
        {bytes({0xFF}), ""},  // no length byte
        {panel + bytes({0xFF}), said_panel},
        {panel + bytes({0xFF, 5, 0x22, 0}), said_panel},  // cut off
        {bytes({0xFF, 200}) + panel, ""},                 // longer than the rest
        {bytes({0xFF, 4}) + panel, ""},                   // 04 then takes FF for its length
        {bytes({0xFF, 0}) + panel, said_panel},
        // 15 is too long: passed over byte by byte, until a valid frame is found inside.
        {bytes({0xFF, 15}) + panel + bytes({0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), ""},
        {bytes({0xFF, 15, 0, 0, 0, 0}) + panel + bytes({0, 0, 0, 0, 0, 0, 0, 0, 0}), said_panel},
        {kEsc + panel, ""},
        {panel + kEsc + board, said_panel},
    };
    for (const auto& row : rows) {
        std::vector<std::string> reads{row.read};
        if (row.read.find(kEsc) == std::string::npos) reads.push_back(kEsc);
        EXPECT_EQ(said_by_key_loop(board_sending(reads)), row.said)
            << testing::PrintToString(row.read);
    }
}

TEST(PanelTest, EachLengthIsJudgedAgainstTheDataAndThenItsRange) {
    for (int length = 0; length < 256; ++length) {
        // 32 bytes: a frame that says this length, padded with filler.
        std::string read = bytes({0xFF, length, 0x21});
        read.resize(32, '\0');
        const bool valid = length >= 5 && length <= 14;
        // Passed over byte by byte, the length byte itself begins a frame of length 0x21 = 33.
        EXPECT_EQ(said_by_key_loop(board_sending({read, kEsc})),
                  valid ? "control pannel is pressed\n" : "")
            << length;
    }
}

TEST(PanelTest, FrameSplitOverTwoReadsIsDropped) {
    Board board = board_sending({});
    board.panel.frames = {{5, bytes({0xFF, 5, 0x21, 0}), false},
                          {5.1, bytes({0}), false},
                          {6, bytes({0xFF, 5, 0x21, 0, 0}) + bytes({0xFF, 5, 0x22, 0, 0}), false},
                          {7, kEsc, false}};
    // Ten bytes in a row are read as eight and two.
    EXPECT_EQ(said_by_key_loop(board), "control pannel is pressed\n");
}

TEST(PanelTest, SilenceOfFiveSecondsEndsItAndEachReadStartsThemAnew) {
    Board silent = board_sending({});
    EXPECT_NEAR(run(silent, "-o 3").end_s, 4.3 + 5 + 1, 0.001);
    Board slow = board_sending({});
    slow.panel.frames = {{9, key(0), true}, {13.9, key(0), true}, {18.8, key(0), true}};
    EXPECT_NEAR(run(slow, "-o 3").end_s, 18.8 + 0.006 + 5 + 1, 0.001);
    Board unconnected = board_sending({kEsc});
    unconnected.panel.connected = false;
    EXPECT_NEAR(run(unconnected, "-o 3").end_s, 4.3 + 5 + 1, 0.001);
}

TEST(PanelTest, DrainSwallowsBareEnterPresses) {
    Board board = board_sending({kEsc});
    const double without = run(board, "-o 3").end_s;
    board.person.lines = {{4.5, "\n"}, {4.6, "\n"}, {5.5, "\n"}};
    EXPECT_NEAR(run(board, "-o 3").end_s, 5.5 + 1, 0.001);
    board.person.lines = {{4.5, "\n"}, {4.6, "text\n"}};
    EXPECT_NEAR(run(board, "-o 3").end_s, 5.006, 0.001);
    board.person.lines = {{4.5, ""}};  // end of input
    EXPECT_NEAR(run(board, "-o 3").end_s, 5.006, 0.001);
    EXPECT_NEAR(without, 6.006, 0.001);
}

TEST(PanelTest, HungUpLineSaysReadFailedAndStaysInterruptible) {
    Board board = board_sending({});
    board.panel.port.hangs_up = 5;
    board.person.interrupts = {5.35};
    const Outcome got = run(board, "-o 3");
    EXPECT_THAT(got.console, EndsWith("ESC退出测试\nread failed\nread failed\nread failed\n"
                                      "read failed\nreceive 0:0 replies\n"));
    EXPECT_EQ(got.signal, SIGINT);
}

TEST(PanelTest, InterruptPrintsTheReplyCounterOnceAndEndsTheProcess) {
    const std::string reply = bytes({0xFF, 5, 0x30, 0, 0});
    Board board = board_sending({reply + reply, reply});
    board.person.interrupts = {8};
    const Outcome got = run(board, "-o 3");
    EXPECT_THAT(got.console, EndsWith("ESC退出测试\nreceive 0:3 replies\n"));
    EXPECT_EQ(got.signal, SIGINT);
    EXPECT_NEAR(got.end_s, 8, 1e-6);

    const Outcome carried = run_with(board, {"-o", "3"}, [] {
        g_panel_replies_high = 0xFFFFFFFE;
        g_panel_replies_low = 0xFFFFFFFD;
    });
    EXPECT_THAT(carried.console, EndsWith("receive 4294967295:1 replies\n"));
}

TEST(PanelTest, HandlerStaysForTheStepsThatFollow) {
    Board board = healthy();
    board.faults = {failing_request(0x10)};
    board.person.interrupts = {15.5};  // after the key step, before the next one's handler
    const Outcome got = run(board, "");
    EXPECT_THAT(got.console, EndsWith("receive 0:0 replies\n"));
    EXPECT_EQ(got.signal, SIGINT);
}

TEST(PanelTest, RefusedHandlerEndsTheProcess) {
    Board board = board_sending({kEsc});
    board.faults = {failing("signal", {}, 2)};
    const Outcome got = run(board, "-o 3");
    EXPECT_THAT(got.console, EndsWith("ESC退出测试\nsignal failed\n"));
    EXPECT_EQ(got.status, 255);
}

TEST(PanelTest, InNetModeTheLedsGoOffFirstAndCycleAfterwards) {
    const Outcome got = run(healthy(), "netQ7test");
    EXPECT_EQ(got.console.find("面板输入"), std::string::npos);
    const std::vector<std::string> off{"3.400 05 0000", "3.500 27 0000", "3.600 09 0000",
                                       "3.700 06 0000", "3.800 28 0000", "3.900 05 5555"};
    const std::vector<std::string> start = written(got, "main");
    EXPECT_THAT(std::vector(start.begin(), start.begin() + 6), off);

    // ESC is read at 14.010; the thread starts there.
    const std::vector<std::string> cycle = written(got, "thread2");
    ASSERT_GT(cycle.size(), 30u);
    const std::vector<std::string> first(cycle.begin(), cycle.begin() + 23);
    EXPECT_THAT(first,
                ElementsAre("14.110 05 0000", "14.210 27 0000", "14.310 09 0000", "14.410 06 0000",
                            "14.510 28 0000",                    // all off
                            "14.610 05 FFFF", "14.710 27 FFFF",  // record on
                            "14.810 09 004F", "14.810 09 004F", "14.810 09 004F", "14.810 09 004F",
                            "14.810 09 004F", "14.810 09 004F",                      // function on
                            "17.310 05 0000", "17.410 27 0000",                      // record off
                            "17.510 09 0000",                                        // function off
                            "18.010 06 FFFF", "18.110 28 FFFF",                      // network on
                            "20.610 06 0000", "20.710 28 0000",                      // network off
                            "20.810 05 FFFF", "20.910 27 FFFF", "21.010 09 004F"));  // again
}

TEST(PanelTest, RefusedLedThreadIsReported) {
    Board board = healthy();
    board.faults = {failing("pthread_create", {}, 2)};
    const Outcome got = run(board, "netQ7test");
    EXPECT_THAT(got.records, testing::Contains("led_test_func error\n"));
    EXPECT_EQ(got.records.back(), "Q7TESTEND");
}

using Random = std::mt19937;

int below(Random& random, unsigned limit) { return static_cast<int>(random() % limit); }

// Frames of the types 0x21 and 0x22 with filler before each; says what the walk must print.
std::vector<std::uint8_t> frames_among_filler(Random& random, std::string& expected) {
    std::vector<std::uint8_t> data;
    for (int frames = below(random, 12); frames > 0; --frames) {
        data.resize(data.size() + random() % 4, frames % 2 ? 0x00 : 0x80);
        const int length = 5 + below(random, 10);
        const bool panel = random() % 2 == 0;
        for (const int byte : {1 + below(random, 127), length, panel ? 0x21 : 0x22}) {
            data.push_back(static_cast<std::uint8_t>(byte));
        }
        for (int i = 3; i < length; ++i)
            data.push_back(static_cast<std::uint8_t>(random()));
        expected += panel ? "control pannel is pressed\n" : "main control keyboard is pressed\n";
    }
    return data;
}

TEST(FrameWalk, FindsEveryFrameAmongFiller) {
    const Outcome got = run_piece({}, [] {
        Random random(20261122);
        std::string expected;
        for (int read = 0; read < 10'000; ++read) {
            walk_panel_frames(-1, frames_among_filler(random, expected));
        }
        platform::write(STDERR_FILENO, expected.data(), expected.size());
    });
    EXPECT_GT(got.console.size(), 1'000'000u);
    EXPECT_TRUE(got.console == got.errors);
}

TEST(FrameWalk, SurvivesRandomReads) {
    const int reads = full_form() ? 10'000'000 : 100'000;
    const Outcome got = run_piece({}, [&] {
        Random random(42);
        for (int read = 0; read < reads; ++read) {
            // On the heap and of exactly this size, so that AddressSanitizer sees a byte beyond.
            std::vector<std::uint8_t> data(random() % 64);
            for (std::uint8_t& byte : data) {
                byte = static_cast<std::uint8_t>(random() % 4 == 0 ? random() % 16 : random());
            }
            g_panel_exit = 0;
            walk_panel_frames(-1, data);
            if (read % 100 == 0 && std::fseek(stdout, 0, SEEK_SET) != 0) std::abort();
        }
    });
    EXPECT_EQ(got.status, 0);
    std::printf("%d random reads\n", reads);
}

}  // namespace
