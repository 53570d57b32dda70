// The simulation's own promises, shown with small programs that have nothing to do with q7.
#include <gmock/gmock.h>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/platform.h"
#include "sim/supervisor.h"
#include "sim/text.h"

namespace {

using sim::Board;
using sim::Outcome;

void say(const char* text) { ::write(STDOUT_FILENO, text, std::strlen(text)); }

double now_s() { return static_cast<double>(sim::world->now) / 1e6; }

void* tick(void*) {
    for (;;) {
        platform::sleep_ms(10'000);
        std::printf("tick %.3f\n", now_s());
    }
}

int forks_starts_a_thread_and_is_interrupted() {
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    platform::signal(SIGINT, [](int) { say("handler\n"); });
    pthread_t thread;
    platform::create_thread(&thread, tick);
    if (platform::fork() == 0) {
        timeval rest{30, 0};
        const int result = platform::wait_readable(STDIN_FILENO, &rest);
        std::printf("child: %d %s, %ld.%06ld s left\n", result, strerrorname_np(errno), rest.tv_sec,
                    rest.tv_usec);
        platform::sleep_ms(1000);
        platform::exit_at_once(0);
    }
    timeval rest{50, 0};
    while (platform::wait_readable(STDIN_FILENO, &rest) < 0)
        std::printf("main: interrupted\n");
    char line[20];
    const ssize_t count = platform::read(STDIN_FILENO, line, sizeof line);
    std::printf("main: %zd bytes at %.3f s, %ld.%06ld s left\n", count, now_s(), rest.tv_sec,
                rest.tv_usec);
    platform::sleep_ms(20'000);
    int status = 0;
    const pid_t child = platform::waitpid(-1, &status, 1);
    std::printf("child %d ended with %d\n", child, status);
    return 7;
}

Board busy_board() {
    Board board;
    board.person.interrupts = {12.5};
    board.person.lines = {{31.25, "hello\n"}};
    return board;
}

TEST(Simulation, ForkThreadAndInterruptGiveTheSameBytesTwice) {
    const Outcome first = sim::simulate(busy_board(), {forks_starts_a_thread_and_is_interrupted});
    const Outcome second = sim::simulate(busy_board(), {forks_starts_a_thread_and_is_interrupted});
    EXPECT_EQ(first.console,
              "tick 10.000\nhandler\nmain: interrupted\nhandler\n"
              "child: -1 EINTR, 17.500000 s left\ntick 20.000\ntick 30.000\n"
              "main: 6 bytes at 31.250 s, 18.750000 s left\ntick 40.000\ntick 50.000\n"
              "child 101 ended with 0\n");
    EXPECT_EQ(first.status, 7);
    EXPECT_EQ(second.console, first.console);
    EXPECT_EQ(second.world->events_used, first.world->events_used);
    EXPECT_EQ(first.world->now, sim::from_seconds(51.25));
}

Outcome run_alone(const Board& board, int (*program)()) { return sim::simulate(board, {program}); }

TEST(Simulation, SpinningIsStoppedAndExplained) {
    const Outcome got = run_alone({}, [] {
        for (;;)
            platform::open("/dev/nothing", O_RDONLY);
        return 0;
    });
    EXPECT_TRUE(got.stopped);
    EXPECT_EQ(got.reason, "main was spinning: 100000 calls at 0.000000 s, the latest one open");
}

TEST(Simulation, OverrunIsStoppedAndSaysWhatEachActorWaitedFor) {
    Board board;
    board.end = 60;
    const Outcome got = run_alone(board, [] {
        pthread_t thread;
        platform::create_thread(&thread, tick);
        timeval rest{100, 500'000};
        return platform::wait_readable(STDIN_FILENO, &rest);
    });
    EXPECT_EQ(got.reason,
              "the run passed its end of 60.000000 s; its actors waited:"
              "\n  main: for console to become readable, until 100.500000 s"
              "\n  thread1: until 70.000000 s");
}

TEST(Simulation, WatchdogRestartsTheBoardInTheMiddleOfARun) {
    Board board;
    board.control.present = true;
    const auto arm_and_wait = [] {
        const int control = platform::open("/dev/zebio", O_RDWR);
        platform::ioctl_value(control, 0x20, 7);
        platform::sleep_ms(6'999);
        platform::ioctl_value(control, 0x20, 5);  // starts anew
        platform::sleep_ms(6'000);
        return 0;
    };
    const Outcome got = run_alone(board, arm_and_wait);
    EXPECT_TRUE(got.world->restarted);
    EXPECT_EQ(got.reason, "the watchdog restarted the board in the middle of the run");
    EXPECT_EQ(got.world->now, sim::from_ms(11'999));
}

TEST(Simulation, InterruptWithoutHandlerEndsTheProcessAndTheOthersGoOn) {
    Board board;
    board.person.interrupts = {1};
    const Outcome got = run_alone(board, [] {
        if (platform::fork() == 0) {
            platform::signal(SIGINT, [](int) {});
            while (platform::sleep_ms(3'000) != 0)
                say("cut short\n");
            say("child ends\n");
            platform::exit_at_once(0);
        }
        platform::sleep_ms(10'000);
        return 0;
    });
    EXPECT_EQ(got.signal, SIGINT);
    EXPECT_EQ(got.console, "cut short\nchild ends\n");
    EXPECT_EQ(got.world->now, sim::from_seconds(4));
}

TEST(Simulation, CrashIsNoticed) {
    const Outcome got = run_alone({}, [] {
        ::raise(SIGKILL);
        return 0;
    });
    EXPECT_EQ(got.signal, SIGKILL);
}

TEST(Simulation, WorldIsClosed) {
    const Outcome got = run_alone({}, [] {
        std::setvbuf(stdout, nullptr, _IONBF, 0);
        const auto say_result = [](long result) {
            std::printf("%ld %s\n", result, result < 0 ? strerrorname_np(errno) : "");
        };
        say_result(platform::open("/etc/passwd", O_RDONLY));
        say_result(platform::open("/dev/zebio", O_RDWR));
        say_result(platform::remove("/dav2/devCfg.bin"));
        say_result(platform::close(3));
        say_result(platform::write(9, "x", 1));
        say_result(platform::ioctl_value(1, 0x20, 7));
        return 0;
    });
    EXPECT_EQ(got.console, "-1 ENOENT\n-1 ENOENT\n-1 ENOENT\n-1 EBADF\n-1 EBADF\n-1 ENOTTY\n");
}

TEST(Simulation, UnknownControlRequestIsENOTTYAndDescriptorsAreHandedOutLowestFirst) {
    Board board;
    board.control.present = true;
    const Outcome got = run_alone(board, [] {
        const int first = platform::open("/dev/zebio", O_RDWR);
        const int second = platform::open("/dev/zebio", O_RDWR);
        platform::close(first);
        std::printf("%d %d %d ", first, second, platform::open("/dev/zebio", O_RDWR));
        const int result = platform::ioctl_value(second, 0x99, 0);
        std::printf("%d %s", result, strerrorname_np(errno));
        std::fflush(stdout);
        return 0;
    });
    EXPECT_EQ(got.console, "3 4 3 -1 ENOTTY");
}

TEST(Simulation, FaultsTakeThePlaceOfTheCallsThatTheyName) {
    Board board;
    board.files["/a"].bytes = "0123456789";
    board.files["/b"].bytes = "0123456789";
    sim::Fault second{"open", "/b", "", 0, 2, false, sim::Fault::Effect::error, EACCES, 0};
    sim::Fault later{"read", "/a", "", 0, 2, true, sim::Fault::Effect::shorten, 0, 3};
    board.faults = {second, later};
    const Outcome got = run_alone(board, [] {
        char bytes[8];
        std::string text;
        for (int i = 0; i < 3; ++i)
            text += std::to_string(platform::open("/b", O_RDONLY)) + " ";
        const int a = platform::open("/a", O_RDONLY);
        for (int i = 0; i < 3; ++i)
            text += std::to_string(platform::read(a, bytes, 4)) + " ";
        text += strerrorname_np(errno);
        say(text.c_str());
        return 0;
    });
    EXPECT_EQ(got.console, "3 -1 4 4 3 3 EACCES");  // success leaves errno alone
}

TEST(Simulation, ConsoleGivesALineAtATimeAndThenItsEnd) {
    Board board;
    board.person.lines = {{1, "one\n"}, {1, "a line of more than eight\n"}, {2, ""}};
    const Outcome got = run_alone(board, [] {
        std::string text;
        for (int i = 0; i < 7; ++i) {
            timeval rest{9, 0};
            char bytes[8];
            platform::wait_readable(STDIN_FILENO, &rest);
            const ssize_t count = platform::read(STDIN_FILENO, bytes, sizeof bytes);
            text += std::to_string(count) + " ";
        }
        say(text.c_str());
        return 0;
    });
    EXPECT_EQ(got.console, "4 8 8 8 2 0 0 ");
    EXPECT_EQ(got.world->now, sim::from_seconds(2));
}

TEST(Simulation, PacedRunTakesItsRealTime) {
    const auto start = std::chrono::steady_clock::now();
    sim::Live live;
    live.pace = 50;
    const Outcome got =
        sim::simulate(busy_board(), {forks_starts_a_thread_and_is_interrupted}, live);
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(got.status, 7);
    EXPECT_EQ(got.world->now, sim::from_seconds(51.25));
    EXPECT_NEAR(passed.count(), 51.25 / 50, 0.2);
}

#ifdef __SANITIZE_THREAD__
// The clock lets one actor run at a time; that order must not hide a race from the sanitizer.
TEST(ThreadSanitizer, ReportsAPlantedRace) {
    const Outcome got = run_alone({}, [] {
        static int shared = 0;
        pthread_t thread;
        platform::create_thread(&thread, [](void*) -> void* {
            platform::sleep_ms(10);
            ++shared;
            for (;;)
                platform::sleep_ms(1000);
        });
        platform::sleep_ms(20);
        ++shared;
        platform::sleep_ms(10);
        return 0;
    });
    EXPECT_THAT(got.errors, testing::HasSubstr("WARNING: ThreadSanitizer: data race"));
}
#endif

TEST(GbkDecoder, HoldsHalfACharacterBackAndReplacesWhatIsNone) {
    sim::GbkDecoder decoder;
    EXPECT_EQ(decoder.decode("a\xB2"), "a");
    EXPECT_EQ(decoder.decode("\xE2\xCA\xD4!"), "测试!");
    EXPECT_EQ(decoder.decode("\xFF z\xB2"), "\uFFFD z");
    EXPECT_EQ(decoder.finish(), "\uFFFD");
}

}  // namespace
