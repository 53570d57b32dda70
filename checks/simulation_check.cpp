// The simulation itself, checked with small programs unrelated to q7.
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>

#include "checks/harness.h"
#include "platform/platform.h"
#include "sim/program/text.h"
#include "sim/scenario/scenario.h"

namespace {

using namespace checks;

Outcome run_on(const char* board, const std::function<void()>& program) {
    return run_piece(sim::parse_board(board, "board"), program);
}

int open_control() { return platform::open("/dev/zebio", O_RDWR); }

// A result, such as "3 " or "-1 EBADF ".
void show(long result) {
    std::printf("%ld ", result);
    if (result < 0) std::printf("%s ", strerrorname_np(errno));
}

void wait_for_console(timeval& rest) {
    show(platform::wait_readable(STDIN_FILENO, &rest));
    std::printf("with %ld.%06ld s left\n", rest.tv_sec, rest.tv_usec);
}

void* tick(void*) {
    for (;;) {
        platform::sleep_ms(10'000);
        std::printf("tick %.1f\n", static_cast<double>(sim::world->now) / 1e6);
    }
}

void fork_start_a_thread_and_be_interrupted() {
    platform::signal(SIGINT, [](int) { ::write(STDOUT_FILENO, "handler\n", 8); });
    pthread_t thread;
    platform::create_thread(&thread, tick);
    timeval rest{50, 0};
    if (platform::fork() == 0) {
        rest.tv_sec = 30;
        wait_for_console(rest);
        platform::sleep_ms(1000);
        platform::exit_at_once(0);
    }
    wait_for_console(rest);
    wait_for_console(rest);
    char line[20];
    show(platform::read(STDIN_FILENO, line, sizeof line));
    platform::sleep_ms(20'000);
    int status = -1;
    show(platform::waitpid(-1, &status, 1));
    show(status);
    platform::exit(7);
}

TEST(Simulation, ForkThreadAndInterruptShareTheConsoleAndTheClock) {
    const char* board =
        R"(operator = {interrupts = [12.5], lines = [{at = 31.25, text = "hi\n"}]})";
    const Outcome got = run_on(board, fork_start_a_thread_and_be_interrupted);
    EXPECT_EQ(got.console,
              "tick 10.0\nhandler\n-1 EINTR with 37.500000 s left\n"
              "handler\n-1 EINTR with 17.500000 s left\ntick 20.0\ntick 30.0\n"
              "1 with 18.750000 s left\n3 tick 40.0\ntick 50.0\n101 0 ");
    EXPECT_EQ(got.status, 7);
    EXPECT_EQ(got.end_s, 51.25);
}

TEST(Simulation, SpinningAndOverrunAreStoppedAndExplained) {
    Outcome got = run_on("", [] {
        for (;;)
            platform::open("/dev/nothing", O_RDONLY);
    });
    EXPECT_EQ(got.stopped, "main was spinning: 100000 calls at 0.000000 s, the latest one open");
    got = run_on("end = 60", [] {
        pthread_t thread;
        platform::create_thread(&thread, tick);
        timeval rest{100, 500'000};
        wait_for_console(rest);
    });
    EXPECT_EQ(got.stopped,
              "the run passed its end of 60.000000 s; its actors waited:"
              "\n  main: for console to become readable, until 100.500000 s"
              "\n  thread1: until 70.000000 s");
}

TEST(Simulation, WatchdogRestartsTheBoardInTheMiddleOfARun) {
    const Outcome got = run_on("control.present = true", [] {
        const int control = open_control();
        platform::ioctl_value(control, 0x20, 7);
        platform::sleep_ms(6'999);
        platform::ioctl_value(control, 0x20, 5);  // starts anew
        platform::sleep_ms(6'000);
    });
    EXPECT_TRUE(got.world->restarted);
    EXPECT_EQ(got.stopped, "the watchdog restarted the board in the middle of the run");
    EXPECT_DOUBLE_EQ(got.end_s, 11.999);
}

TEST(Simulation, InterruptWithoutHandlerEndsTheProcessAndTheOthersGoOn) {
    const Outcome got = run_on("operator.interrupts = [1]", [] {
        if (platform::fork() == 0) {
            platform::signal(SIGINT, [](int) {});
            while (platform::sleep_ms(3'000) != 0)
                std::printf("cut short\n");
            std::printf("child ends\n");
            platform::exit_at_once(0);
        }
        platform::sleep_ms(10'000);
    });
    EXPECT_EQ(got.signal, SIGINT);
    EXPECT_EQ(got.console, "cut short\nchild ends\n");
    EXPECT_EQ(got.end_s, 4);
}

// The host refuses to start processes for the caller from here on.
void refuse_processes() {
    const sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_clone, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAGAIN),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{std::size(filter), const_cast<sock_filter*>(filter)};
    ASSERT_EQ(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
}

TEST(Simulation, ForkThatTheHostRefusesStopsTheRunAndHarmsNobody) {
    const Outcome got = run_on("", [] {
        refuse_processes();
        platform::fork();
        platform::waitpid(-1, nullptr, 1);
        platform::sleep_ms(1000);
        std::printf("goes on");
    });
    EXPECT_EQ(got.console, "");
    EXPECT_EQ(got.stopped, "the host refused a process: Resource temporarily unavailable");
}

template <class Call>
void repeat(int count, Call call) {
    while (count-- > 0)
        call();
}

void start_thread(void* (*body)(void*)) {
    pthread_t thread;
    platform::create_thread(&thread, body);
    platform::sleep_ms(1);
}

void fork_child(const std::function<void()>& body) {
    if (platform::fork() == 0) {
        body();
        platform::exit_at_once(0);
    }
    platform::sleep_ms(1);
}

void feed_serial_line(int bytes) {
    for (const std::uint32_t request : {0x07u, 0x08u})
        platform::ioctl_value(open_control(), request, 1);
    const int line = platform::open("/dev/ttyS0", O_RDWR);
    const std::string block(1024, 'x');
    for (; bytes > 0; bytes -= 1024) {
        platform::write(line, block.data(), static_cast<std::size_t>(std::min(bytes, 1024)));
        platform::sleep_ms(1100);
    }
}

// What ends and is closed again gives its slots back.
void use_and_release_slots() {
    repeat(200, [] {
        int ends[2];
        start_thread([](void*) -> void* { return nullptr; });
        fork_child([] { repeat(100, open_control); });
        platform::waitpid(-1, nullptr, 1);
        platform::open_pipe(ends, O_NONBLOCK);
        platform::close(ends[0]);
        platform::close(ends[1]);
    });
}

// Each capacity of the simulated board: at its limit, and one beyond.
TEST(Simulation, CapacityThatARunExceedsEndsItWithAMessage) {
    const auto sleep = [] { platform::sleep_ms(100'000); };
    const auto open_all = [&] { repeat(1021, open_control), sleep(); };
    const auto open_pipe = [] {
        int ends[2];
        platform::open_pipe(ends, O_NONBLOCK);
    };
    const auto fork_eight = [&] { repeat(8, [&] { fork_child(open_all); }); };
    const struct {
        int most;
        std::function<void(int)> use;
        const char* error;
    } rows[] = {
        {63, [](int n) { repeat(n, [] { start_thread(tick); }); }, "64 threads and processes"},
        {63, [&](int n) { repeat(n, [&] { fork_child(sleep); }); }, "64 processes"},
        {21, [&](int n) { fork_eight(), repeat(n, open_control); }, "8192 open files"},
        {64, [&](int n) { repeat(n, open_pipe); }, "64 pipes"},
        {131'072, feed_serial_line, "131072 bytes on a serial line"},
        {399'999, [](int n) { repeat(n, [] { platform::sleep_ms(1); }); }, "400000 events"},
    };
    for (const auto& row : rows) {
        for (const int beyond : {0, 1}) {
            const Outcome got = run_on("control.present = true\nrs485.present = true", [&] {
                if (row.most <= 64) use_and_release_slots();
                row.use(row.most + beyond);
            });
            EXPECT_EQ(got.stopped, beyond == 0 ? "" : std::string("more than ") + row.error);
        }
    }
}

TEST(Simulation, ProcessHasAsManyDescriptorsAsOnARealKernel) {
    const Outcome got = run_on("control.present = true", [] {
        repeat(1020, open_control);
        show(open_control());
        show(open_control());
    });
    EXPECT_EQ(got.console, "1023 -1 EMFILE ");
}

TEST(Simulation, CrashIsNoticed) {
    EXPECT_EQ(run_on("", [] { ::raise(SIGKILL); }).signal, SIGKILL);
}

TEST(Simulation, WorldIsClosedAndDescriptorsAreHandedOutLowestFirst) {
    const Outcome got = run_on("control.present = true", [] {
        show(platform::open("/etc/passwd", O_RDONLY));
        show(platform::open("/dev/rtc", O_RDWR));
        show(platform::remove("/dav2/devCfg.bin"));
        show(platform::close(3));
        show(platform::write(9, "x", 1));
        show(platform::ioctl_value(1, 0x20, 7));
        show(open_control());
        show(open_control());
        show(platform::close(3));
        show(open_control());
        show(platform::ioctl_value(4, 0x99, 0));  // an unknown request
    });
    EXPECT_EQ(got.console,
              "-1 ENOENT -1 ENOENT -1 ENOENT -1 EBADF -1 EBADF -1 ENOTTY 3 4 0 3 -1 ENOTTY ");
}

TEST(Simulation, FaultsTakeThePlaceOfTheCallsThatTheyName) {
    const char* board = R"(
files = {'/dav2/devCfg.bin' = {text = 'more than three times four'}, '/dav0/zeb321.bin' = {}}
faults = [{call = 'open', path = '/dav0/zeb321.bin', nth = 2, errno = 'EACCES'},
          {call = 'read', path = '/dav2/devCfg.bin', nth = 2, onwards = true, effect = 'short', count = 3}])";
    const Outcome got = run_on(board, [] {
        char bytes[8];
        const char *one = "/dav0/zeb321.bin", *other = "/dav2/devCfg.bin";
        for (const char* path : {one, one, one, other})
            show(platform::open(path, O_RDONLY));
        for (int i = 0; i < 3; ++i)
            show(platform::read(5, bytes, 4));
        std::printf("%s", strerrorname_np(errno));  // unchanged by success
    });
    EXPECT_EQ(got.console, "3 -1 EACCES 4 5 4 3 3 EACCES");
}

// By time, once and repeated, and by the n-th call; in every process of the run.
TEST(Simulation, ChangesComeWhenTheirTriggerDoes) {
    const char* board = R"(
control = {present = true, high_lines = []}
disks.sda = {}
[[changes]]
at = 1
every = 2
control.high_lines = [7]
[[changes]]
at = 2
every = 2
control.high_lines = []
[[changes]]
call = "ioctl"
request = 0x1260
nth = 2
disks.sda.present = false)";
    const Outcome got = run_on(board, [] {
        const int control = open_control();
        const int disk = platform::open("/dev/sda", O_RDONLY);
        platform::ioctl_value(control, 0x03, 7 | 1 << 8);
        unsigned long sectors = 0;
        for (int i = 0; i < 2; ++i)
            show(platform::ioctl(disk, 0x1260, &sectors));
        show(platform::open("/dev/sda", O_RDONLY));
        if (platform::fork() == 0) {
            platform::sleep_ms(500);
            for (int i = 0; i < 4; ++i) {
                show(platform::ioctl_value(control, 0x06, 7));
                platform::sleep_ms(1000);
            }
            platform::exit_at_once(0);
        }
        platform::sleep_ms(9000);
    });
    EXPECT_EQ(got.console, "0 -1 ENODEV -1 ENOENT 0 1 0 1 ");
    EXPECT_EQ(got.world->changes[0].came, 5u);
    EXPECT_EQ(got.changes("change", "board:12").size(), 1u);
}

// As measured on a real kernel, from here on.
TEST(Simulation, OfWaitsThatEndTogetherTheFirstBegunEndsFirst) {
    const Outcome got = run_on("", [] {
        pthread_t thread;
        platform::create_thread(&thread, tick);  // waits for 10 s
        platform::sleep_ms(5'000);
        platform::sleep_ms(5'000);
        std::printf("main\n");
    });
    EXPECT_EQ(got.console, "tick 10.0\nmain\n");
}

TEST(Simulation, FifoIsFullByPages) {
    const Outcome got = run_on("fifo = {present = true, reader = true, reading = false}", [] {
        const int fifo = platform::open("/var/q7.fifo", O_WRONLY | O_NONBLOCK);
        const std::string record(255, 'x');
        int taken = 0;
        while (platform::write(fifo, record.data(), record.size()) > 0)
            ++taken;
        std::printf("%d %s", taken * 255, strerrorname_np(errno));
    });
    EXPECT_EQ(got.console, "65280 EAGAIN");
}

TEST(Simulation, FreshSerialPortAndOneThatOthersLeft) {
    const char* board = R"(
panel.present = true
rs485 = {present = true, iflag = 1, oflag = 2, cflag = 0xB2, lflag = 3})";
    const Outcome got = run_on(board, [] {
        for (const char* path : {"/dev/ttyS2", "/dev/ttyS0"}) {
            termios line;
            platform::tcgetattr(platform::open(path, O_RDWR), &line);
            std::printf("%x %x %x %x %d %d %d\n", line.c_iflag, line.c_oflag, line.c_cflag,
                        line.c_lflag, line.c_cc[VMIN], line.c_cc[VTIME],
                        cfgetospeed(&line) == B9600);
        }
    });
    EXPECT_EQ(got.console, "500 5 cbd 8a3b 1 0 1\n1 2 b2 3 1 0 0\n");
}

// Each setting that the other end does not expect garbles the bytes in both directions.
TEST(Simulation, SerialLineThatIsNotSetUpCarriesGarbage) {
    const Outcome got = run_on("control.present = true\nrs485.present = true", [] {
        const int control = open_control();
        const int fd = platform::open("/dev/ttyS0", O_RDWR);
        for (const std::uint32_t request : {0x07u, 0x08u})
            platform::ioctl_value(control, request, 1);
        termios good{};
        cfsetspeed(&good, B9600);
        good.c_cflag |= CS8 | CREAD | CLOCAL;
        std::vector<termios> others(11, good);
        cfsetspeed(&others[0], B19200);
        others[1].c_cflag |= CSTOPB;
        others[2].c_cflag |= PARENB;
        others[3].c_cflag &= ~static_cast<tcflag_t>(CSIZE);
        std::size_t next = 4;
        for (const tcflag_t flag : {ISIG, ICANON, ECHO})
            others[next++].c_lflag |= flag;
        for (const tcflag_t flag : {ICRNL, INLCR, IXON})
            others[next++].c_iflag |= flag;
        others[next].c_oflag |= OPOST;
        const auto echo = [fd](const termios& sending, const termios& receiving) {
            char byte = 'A';
            platform::tcsetattr(fd, 0, &sending);
            platform::write(fd, &byte, 1);
            platform::sleep_ms(100);
            platform::tcsetattr(fd, 0, &receiving);
            platform::read(fd, &byte, 1);
            std::printf("%c", byte);
        };
        echo(good, good);
        for (const termios& other : others) {
            echo(other, good);
            echo(good, other);
        }
        char buffer[4000] = {};
        show(platform::read(fd, buffer, 1));
        for (int i = 0; i < 3; ++i)
            show(platform::write(fd, buffer, sizeof buffer));
    });
    EXPECT_EQ(got.console, "A" + std::string(22, '\x27') + "-1 EAGAIN 4000 96 -1 EAGAIN ");
}

TEST(Simulation, StatusReadOfTheFlashAnswersOneByte) {
    const Outcome got = run_on("bridges.1 = {protection = 0x1C}\ndisks.sda.bridge = '1'", [] {
        std::uint8_t block[16] = {0, 5, 0xA1, 0xA2, 0xA3, 0xA4, 0x80, 0xF7, 0, 8};
        platform::ioctl(platform::open("/dev/sda", O_RDONLY), 0x197B, block);
        std::printf("%x %x %x %x", block[2], block[3], block[4], block[5]);
    });
    EXPECT_EQ(got.console, "1c a2 a3 a4");
}

TEST(Simulation, PipesAndMountPointsAnswerAsThoseOfAKernel) {
    const Outcome got = run_on("usb.disks.msa1 = {}", [] {
        int ends[2];
        char bytes[8];
        show(platform::open_pipe(ends, O_NONBLOCK));
        show(platform::read(ends[0], bytes, sizeof bytes));
        show(platform::write(ends[1], "abc", 3));
        show(platform::read(ends[0], bytes, 2));
        show(platform::close(ends[1]));
        show(platform::read(ends[0], bytes, sizeof bytes));
        show(platform::read(ends[0], bytes, sizeof bytes));
        std::printf("\n");
        show(platform::mkdir("/mnt/msa1", 0777));
        for (int i = 0; i < 2; ++i)
            show(platform::mount("/dev/msa1", "/mnt/msa1", "vfat"));
        show(platform::rmdir("/mnt/msa1"));
        for (int i = 0; i < 2; ++i)
            show(platform::umount("/mnt/msa1"));
        for (int i = 0; i < 2; ++i)
            show(platform::rmdir("/mnt/msa1"));
    });
    EXPECT_EQ(got.console,
              "0 -1 EAGAIN 3 2 0 1 0 \n"
              "0 0 -1 EBUSY -1 EBUSY 0 -1 EINVAL 0 -1 ENOENT ");
}

TEST(Simulation, ConsoleGivesALineAtATimeAndThenItsEnd) {
    const char* board = R"(operator.lines = [
    {at = 1, text = "one\n"}, {at = 1, text = "a line of more than eight\n"}, {at = 2, text = ""}])";
    const Outcome got = run_on(board, [] {
        for (int i = 0; i < 7; ++i) {
            timeval rest{9, 0};
            char bytes[8];
            platform::wait_readable(STDIN_FILENO, &rest);
            const ssize_t count = platform::read(STDIN_FILENO, bytes, sizeof bytes);
            std::printf("%.*s|", static_cast<int>(count), bytes);
        }
    });
    EXPECT_EQ(got.console, "one\n|a line o|f more t|han eigh|t\n|||");
    EXPECT_EQ(got.end_s, 2);
}

TEST(Simulation, PacedRunTakesItsRealTime) {
    const auto start = std::chrono::steady_clock::now();
    const auto two_sleeps = [] {
        platform::sleep_ms(12'500);
        return platform::sleep_ms(12'500);
    };
    sim::simulate({}, {two_sleeps}, {.pace = 50});
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(passed.count(), 0.5);
    EXPECT_LT(passed.count(), 5);  // a busy machine is late
}

#ifdef __SANITIZE_THREAD__
// The order in which the clock runs the actors must not hide a race from the sanitizer.
TEST(ThreadSanitizer, ReportsAPlantedRace) {
    const auto race = [] {
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
    };
    const std::string errors = sim::simulate({}, {race}).errors;
    EXPECT_THAT(errors, HasSubstr("WARNING: ThreadSanitizer: data race"));
}
#endif

TEST(GbkText, KeepsHalfACharacterForTheNextPieceAndReplacesWhatIsNone) {
    std::string rest;
    EXPECT_EQ(sim::gbk_to_utf8("a\xB2", &rest), "a");
    EXPECT_EQ(sim::gbk_to_utf8("\xE2\xCA\xD4!", &rest), "测试!");
    EXPECT_EQ(sim::gbk_to_utf8("\xFF z\xB2", &rest), "\uFFFD z");
    EXPECT_EQ(sim::gbk_to_utf8(rest), "\uFFFD");
}

}  // namespace
