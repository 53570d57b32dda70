// Holds each platform function to its comment, on the running kernel. A plain program, so that it
// can be linked with any C library. Prints what fails; exit status 0 = nothing did.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <utility>

#include "platform/descriptor.h"
#include "platform/platform.h"

namespace {

using platform::Descriptor;

static_assert(sizeof(time_t) == 8 && sizeof(off_t) == 8);

int holding = 0, failing = 0;

void expect(bool holds, int line = __builtin_LINE()) {
    ++(holds ? holding : failing);
    if (!holds) ::fprintf(stderr, "platform_check.cpp:%d does not hold (errno %d)\n", line, errno);
}

// A call that fails with this errno. errno is made another one first.
template <class Call>
void expect_error(int error, Call call, int line = __builtin_LINE()) {
    errno = 0;
    const bool failed = call() < 0;
    expect(failed && errno == error, line);
}

// What must be there before anything can be checked.
template <class Result>
Result need(Result result, const char* what) {
    if (result >= 0) return result;
    ::perror(what);
    ::_exit(1);
}

double seconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

constexpr double kSlack_s = 1;  // of a loaded machine
bool about(double value, double least) { return value >= least && value < least + kSlack_s; }

struct Pipe {
    Descriptor out, in;  // reading end, writing end

    explicit Pipe(int flags = 0) {
        int ends[2] = {-1, -1};
        need(::pipe(ends), "pipe");
        out = Descriptor(ends[0]), in = Descriptor(ends[1]);
        for (const int end : ends)
            need(::fcntl(end, F_SETFL, flags), "fcntl");
    }
    void fill() const {
        char bytes[4096] = {};
        while (platform::write(in.get(), bytes, sizeof bytes) > 0)
            continue;
    }
};

// Runs the body in a process of its own; returns its wait status.
template <class Body>
int status_of(Body body) {
    const pid_t child = need(platform::fork(), "fork");
    if (child == 0) {
        failing = 0;
        body();
        ::_exit(failing == 0 ? 0 : 99);
    }
    int status = -1;
    expect(platform::waitpid(child, &status, 0) == child);
    return status;
}

bool exited_with(int status, int value) {
    return WIFEXITED(status) && WEXITSTATUS(status) == value;
}

volatile sig_atomic_t signals = 0;
void count_signal(int) { signals = signals + 1; }

void signal_after_ms(int delay_ms) {
    const itimerval timer = {{0, 0}, {0, delay_ms * 1000}};
    need(::setitimer(ITIMER_REAL, &timer, nullptr), "setitimer");
}

char scratch[] = "/tmp/platform-check-XXXXXX";  // a folder of its own, the working directory

// Each call that can fail, once, with the errno that the kernel gave.
void check_failures() {
    const Pipe pipe(O_NONBLOCK);
    const int in = pipe.in.get(), out = pipe.out.get();
    char bytes[8] = {};
    timeval rest = {1, 0};
    termios line{};
    struct statfs statistics {};
    expect_error(ENOENT, [] { return platform::open("missing", O_RDONLY); });
    expect_error(EBADF, [] { return platform::close(-1); });
    expect_error(EAGAIN, [&] { return platform::read(out, bytes, 8); });
    expect_error(ESPIPE, [&] { return platform::pread(out, bytes, 4, 0); });
    expect_error(EBADF, [&] { return platform::write(out, bytes, 8); });
    expect_error(EBADF, [&] { return platform::write_text(out, bytes, 8); });
    expect_error(ESPIPE, [&] { return platform::lseek(out, 0, SEEK_SET); });
    expect_error(EAFNOSUPPORT, [] { return platform::open_socket(99, SOCK_DGRAM, 0); });
    expect_error(EFAULT, [] { return platform::open_pipe(nullptr, O_CLOEXEC); });
    expect_error(ENOTTY, [&] { return platform::ioctl(in, 0x80041272, bytes); });
    expect_error(EBADF, [&] { return platform::ioctl_value(-1, TCFLSH, TCIFLUSH); });
    expect_error(EBADF, [&] { return platform::wait_readable(-1, &rest); });
    expect_error(EBADF, [&] { return platform::wait_writable(FD_SETSIZE, &rest); });
    expect_error(ENOTTY, [&] { return platform::tcgetattr(in, &line); });
    expect_error(ENOTTY, [&] { return platform::tcsetattr(in, TCSANOW, &line); });
    expect_error(ECHILD, [] { return platform::waitpid(-1, nullptr, WNOHANG); });
    expect_error(EINVAL, [] { return platform::raise(999); });
    expect_error(EINVAL,
                 [] { return platform::signal(SIGKILL, count_signal) == SIG_ERR ? -1 : 0; });
    expect_error(ENOENT, [] { return platform::access("missing"); });
    expect_error(ENOENT, [] { return platform::mkdir("missing/folder", 0777); });
    expect_error(ENOTDIR, [] { return platform::rmdir("/dev/null"); });
    expect_error(ENOENT, [] { return platform::remove("missing"); });
    expect_error(ENOENT, [] { return platform::mount("missing", "missing", "vfat"); });
    expect_error(::geteuid() == 0 ? EINVAL : EPERM, [] { return platform::umount("."); });
    expect_error(ENOENT, [&] { return platform::statfs("missing", &statistics); });
    expect_error(EFAULT, [] { return platform::uname(nullptr); });
    expect_error(ENOTDIR, [] { return platform::opendir("/dev/null") == nullptr ? -1 : 0; });
}

void check_reads_and_writes() {
    static char many[1 << 20];
    char bytes[16] = {};
    const Pipe pipe(O_NONBLOCK);
    expect(platform::write(pipe.in.get(), "abc", 3) == 3);
    expect(platform::write_text(pipe.in.get(), "de", 2) == 2);
    expect(platform::read(pipe.out.get(), bytes, 8) == 5 && ::memcmp(bytes, "abcde", 5) == 0);
    const ssize_t taken = platform::write(pipe.in.get(), many, sizeof many);
    expect(taken > 0 && taken < ssize_t{sizeof many});  // a short count
    const int datagrams = platform::open_socket(AF_INET, SOCK_DGRAM, 0);
    expect(datagrams > 2 && platform::close(datagrams) == 0);

    int ends[2] = {-1, -1};
    expect(platform::open_pipe(ends, O_NONBLOCK | O_CLOEXEC) == 0);
    for (const int end : ends) {
        expect((::fcntl(end, F_GETFL) & O_NONBLOCK) != 0);
        expect((::fcntl(end, F_GETFD) & FD_CLOEXEC) != 0);
    }
    expect(platform::close(ends[1]) == 0 && platform::read(ends[0], bytes, 8) == 0);
    platform::close(ends[0]);
}

void check_file_offsets() {
    constexpr off_t kFar = off_t{5} << 30;  // beyond 32 bits
    const Descriptor file(need(::open("file", O_CREAT | O_RDWR, 0600), "file"));
    char bytes[16] = {};
    expect(platform::lseek(file.get(), kFar, SEEK_SET) == kFar);
    expect(platform::write(file.get(), "0123456789", 10) == 10);
    expect(platform::lseek(file.get(), 0, SEEK_END) == kFar + 10);
    expect(platform::pread(file.get(), bytes, 4, kFar + 3) == 4);
    expect(::memcmp(bytes, "3456", 4) == 0);
    expect(platform::lseek(file.get(), 0, SEEK_CUR) == kFar + 10);  // pread moves nothing
}

// A terminal: requests with a block and by value, one whose number has the highest bit set, and
// the attributes of a line.
void check_requests_and_attributes() {
    const Descriptor master(need(platform::open("/dev/ptmx", O_RDWR | O_NOCTTY), "/dev/ptmx"));
    int number = -1, unlocked = 0, queued = -1;
    expect(platform::ioctl(master.get(), TIOCSPTLCK, &unlocked) == 0);
    expect(platform::ioctl(master.get(), TIOCGPTN, &number) == 0 && number >= 0);
    char path[32];
    ::snprintf(path, sizeof path, "/dev/pts/%d", number);
    const Descriptor line(need(platform::open(path, O_RDWR | O_NOCTTY), path));

    termios attributes{}, set{};
    expect(platform::tcgetattr(line.get(), &set) == 0 && (set.c_lflag & ICANON) != 0);
    set.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    cfsetispeed(&set, B9600);
    cfsetospeed(&set, B9600);
    expect(platform::tcsetattr(line.get(), TCSANOW, &set) == 0);
    expect(platform::tcgetattr(line.get(), &attributes) == 0);
    expect(attributes.c_lflag == set.c_lflag && cfgetospeed(&attributes) == B9600);

    expect(platform::write(master.get(), "abc", 3) == 3);
    timeval rest = {2, 0};
    expect(platform::wait_readable(line.get(), &rest) == 1);
    expect(platform::ioctl(line.get(), FIONREAD, &queued) == 0 && queued == 3);
    expect(platform::ioctl_value(line.get(), TCFLSH, TCIFLUSH) == 0);
    expect(platform::ioctl(line.get(), FIONREAD, &queued) == 0 && queued == 0);
}

// This wait takes so long, ends so, and leaves this much of its time.
void expect_wait(int (*wait)(int, timeval*), int fd, timeval rest, int result, double duration_s,
                 int line = __builtin_LINE()) {
    const double budget_s = seconds(rest), begin = seconds();
    expect(wait(fd, &rest) == result, line);
    expect(about(seconds() - begin, duration_s), line);
    const double left_s = budget_s - duration_s;
    expect(seconds(rest) <= left_s && seconds(rest) > left_s - kSlack_s, line);
    expect(result != 0 || seconds(rest) == 0, line);
}

void check_waits() {
    const Pipe pipe(O_NONBLOCK);
    expect_wait(platform::wait_writable, pipe.in.get(), {2, 250'000}, 1, 0);
    expect_wait(platform::wait_readable, pipe.out.get(), {0, 120'000}, 0, 0.12);
    signals = 0;
    signal_after_ms(100);
    expect_wait(platform::wait_readable, pipe.out.get(), {1, 500'000}, -1, 0.1);
    expect(signals == 1 && errno == EINTR);
    pipe.fill();
    expect_wait(platform::wait_writable, pipe.in.get(), {0, 120'000}, 0, 0.12);
    expect_wait(platform::wait_readable, pipe.out.get(), {0, 0}, 1, 0);
}

void check_time() {
    double begin = seconds();
    expect(platform::sleep_ms(0) == 0 && platform::sleep_ms(1050) == 0);
    expect(about(seconds() - begin, 1.05));
    signal_after_ms(100);
    begin = seconds();
    expect_error(EINTR, [] { return platform::sleep_ms(20'000); });
    expect(about(seconds() - begin, 0.1));

    timeval now{};
    ::gettimeofday(&now, nullptr);
    const double difference = static_cast<double>(platform::time()) - seconds(now);
    expect(difference > -1.1 && difference < 1.1);
}

void check_processes() {
    Pipe pipe;
    const pid_t child = need(platform::fork(), "fork");
    if (child == 0) {
        char byte = 0;
        pipe.in.close();
        platform::read(pipe.out.get(), &byte, 1);  // ends with the pipe
        platform::exit_at_once(7);
    }
    int status = -1;
    expect(platform::waitpid(child, &status, WNOHANG) == 0);
    pipe.in.close();
    expect(platform::waitpid(child, &status, 0) == child && exited_with(status, 7));

    const auto exit_handler = [] { ::_exit(42); };
    expect(exited_with(status_of([] { platform::exit(5); }), 5));
    expect(exited_with(status_of([&] { ::atexit(exit_handler), platform::exit(5); }), 42));
    expect(exited_with(status_of([&] { ::atexit(exit_handler), platform::exit_at_once(5); }), 5));
    expect(exited_with(status_of([] {
                           if (::getuid() == 0)
                               expect(platform::setuid(65534) == 0 && ::geteuid() == 65534);
                           expect_error(EPERM, [] { return platform::setuid(0); });
                       }),
                       0));
}

std::atomic<int> written = 0;

// Prints as much as a thread of q7 may.
void* thread_body(void* argument) {
    char text[1024], all[4096];
    ::memset(all, 'x', sizeof all);
    written = ::snprintf(text, sizeof text, "%.*s %d", 4000, all, 12);
    return argument;
}

int held = -1;

void* read_held(void* argument) {
    char byte = 0;
    platform::read(held, &byte, 1);
    return argument;
}

void check_threads() {
    pthread_t thread{};
    expect(platform::create_thread(&thread, thread_body) == 0);
    expect(::pthread_join(thread, nullptr) == 0 && written == 4003);
    // A forked process may go on to print, wait and exit while the parent has threads.
    Pipe pipe;
    held = pipe.out.get();
    expect(platform::create_thread(&thread, read_held) == 0);
    expect(platform::setuid(::getuid()) == 0);  // a matter of every thread
    expect(exited_with(status_of([] {
                           ::puts("platform_check: from a forked process"), ::fflush(stdout);
                           expect(platform::sleep_ms(1) == 0);
                           platform::exit(3);
                       }),
                       3));
    pipe.in.close();
    expect(::pthread_join(thread, nullptr) == 0);
}

void check_signals() {
    expect(platform::signal(SIGUSR1, count_signal) == SIG_DFL);
    signals = 0;
    expect(platform::raise(SIGUSR1) == 0 && signals == 1);
    expect(platform::raise(SIGUSR1) == 0 && signals == 2);  // the handler stays
    expect(platform::signal(SIGUSR1, SIG_IGN) == count_signal);
    expect(platform::raise(SIGUSR1) == 0 && signals == 2);

    // A read goes on after a handled signal.
    Pipe pipe;
    char byte = 0;
    signals = 0;
    const pid_t writer = need(platform::fork(), "fork");
    if (writer == 0) {
        platform::sleep_ms(250);
        ::_exit(platform::write(pipe.in.get(), "x", 1) == 1 ? 0 : 1);
    }
    signal_after_ms(100);
    expect(platform::read(pipe.out.get(), &byte, 1) == 1 && byte == 'x' && signals == 1);
    expect(platform::waitpid(writer, nullptr, 0) == writer);
}

void check_files() {
    ::umask(0);
    struct stat entry {};
    expect(platform::mkdir("folder", 0751) == 0 && platform::access("folder") == 0);
    expect(::stat("folder", &entry) == 0 && (entry.st_mode & 07777) == 0751);
    platform::close(need(::open("folder/file", O_CREAT | O_WRONLY, 0), "folder/file"));
    expect(platform::access("folder/file") == 0);  // there, if not for reading
    expect_error(ENOTEMPTY, [] { return platform::remove("folder"); });
    expect(platform::remove("folder/file") == 0 && platform::rmdir("folder") == 0);
    utsname names{};
    expect(platform::uname(&names) == 0 && ::strcmp(names.sysname, "Linux") == 0);
}

// In a space of mounts of its own, where the kernel grants one.
void check_mounts() {
    struct statfs statistics {};
    expect(platform::statfs("/proc", &statistics) == 0 && statistics.f_type == 0x9FA0);
    expect(exited_with(
        status_of([&] {
            if (::unshare(CLONE_NEWNS) != 0
                || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
                ::perror("platform_check: a successful mount is not checked");
                return;
            }
            expect(platform::mkdir("mnt", 0777) == 0);
            expect_error(ENODEV, [] { return platform::mount("none", "mnt", "nosuchfs"); });
            expect(platform::mount("none", "mnt", "tmpfs") == 0);
            expect(platform::statfs("mnt", &statistics) == 0 && statistics.f_type == 0x01021994);
            expect_error(EBUSY, [] { return platform::rmdir("mnt"); });
            expect(platform::umount("mnt") == 0 && platform::rmdir("mnt") == 0);
        }),
        0));
}

void check_shell() {
    expect(exited_with(platform::system("exit 3"), 3));
    expect(exited_with(platform::system("no-such-command 2>/dev/null"), 127));
    // The interrupt's handler is in force again afterwards.
    platform::signal(SIGINT, count_signal);
    signals = 0;
    expect(exited_with(platform::system("test -d /\n"), 0));
    expect(platform::raise(SIGINT) == 0 && signals == 1);
    platform::signal(SIGINT, SIG_DFL);
}

void check_directories() {
    constexpr int kFiles = 700;  // several reads of the directory
    static bool found[kFiles];
    char path[64];
    expect(platform::mkdir("many", 0777) == 0);
    for (int i = 0; i < kFiles; ++i) {
        ::snprintf(path, sizeof path, "many/%d", i);
        platform::close(need(::open(path, O_CREAT | O_WRONLY, 0600), path));
    }
    int entries = 0, different = 0;
    platform::Directory* directory = platform::opendir("many");
    expect(directory != nullptr);
    for (errno = 77; const char* name = platform::readdir(directory); ++entries) {
        const int number = ::atoi(name);
        if (name[0] != '.' && number < kFiles) different += !std::exchange(found[number], true);
    }
    expect(errno == 77 && entries == kFiles + 2 && different == kFiles);  // with . and ..
    expect(platform::closedir(directory) == 0);
    for (int i = 0; i < kFiles; ++i) {
        ::snprintf(path, sizeof path, "many/%d", i);
        platform::remove(path);
    }
    expect(platform::remove("many") == 0);
}

}  // namespace

int main() {
    need(::mkdtemp(scratch) == nullptr ? -1 : 0, "mkdtemp");
    need(::chdir(scratch), scratch);
    for (const int number : {SIGPIPE, SIGUSR1})
        platform::signal(number, SIG_DFL);
    platform::signal(SIGALRM, count_signal);
    check_failures();
    check_reads_and_writes();
    check_file_offsets();
    check_requests_and_attributes();
    check_waits();
    check_time();
    check_processes();
    check_threads();
    check_signals();
    check_files();
    check_mounts();
    check_shell();
    check_directories();
    platform::remove("file");
    need(::chdir("/"), "/");
    expect(platform::rmdir(scratch) == 0);
    ::printf("platform functions: %d expectations hold, %d do not\n", holding, failing);
    return failing == 0 ? 0 : 1;
}
