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

void check_descriptors() {
    expect_error(ENOENT, [] { return platform::open("missing", O_RDONLY); });
    expect_error(ENOTDIR, [] { return platform::open("/dev/null/below", O_RDONLY); });
    const int fd = platform::open("/dev/null", O_RDWR);
    expect(fd > 2 && platform::close(fd) == 0);
    expect_error(EBADF, [&] { return platform::close(fd); });

    const int child = platform::open_socket(AF_INET, SOCK_DGRAM, 0);
    expect(child > 2 && platform::close(child) == 0);
    expect_error(EAFNOSUPPORT, [] { return platform::open_socket(99, SOCK_DGRAM, 0); });
}

void check_reads_and_writes() {
    char bytes[16] = {};
    const Pipe pipe(O_NONBLOCK);
    expect_error(EAGAIN, [&] { return platform::read(pipe.out.get(), bytes, 8); });
    expect(platform::write(pipe.in.get(), "abcde", 5) == 5);
    expect(platform::read(pipe.out.get(), bytes, 8) == 5 && ::memcmp(bytes, "abcde", 5) == 0);
    expect_error(EBADF, [&] { return platform::read(pipe.in.get(), bytes, 8); });
    expect_error(EBADF, [&] { return platform::write(pipe.out.get(), bytes, 8); });
    expect_error(EFAULT, [&] { return platform::write(pipe.in.get(), nullptr, 8); });

    static char many[1 << 20];
    const ssize_t taken = platform::write(pipe.in.get(), many, sizeof many);
    expect(taken > 0 && taken < ssize_t{sizeof many});  // a short count
    expect_error(EAGAIN, [&] { return platform::write(pipe.in.get(), "x", 1); });

    Pipe closed;
    closed.in.close();
    expect(platform::read(closed.out.get(), bytes, 8) == 0);
    Pipe unread;
    unread.out.close();
    expect(platform::signal(SIGPIPE, SIG_IGN) == SIG_DFL);
    expect_error(EPIPE, [&] { return platform::write(unread.in.get(), "x", 1); });
    platform::signal(SIGPIPE, SIG_DFL);
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
    expect(platform::pread(file.get(), bytes, 16, kFar + 8) == 2);
    expect(platform::pread(file.get(), bytes, 16, kFar + 10) == 0);
    expect(platform::lseek(file.get(), 0, SEEK_CUR) == kFar + 10);  // pread moves nothing
    expect_error(EINVAL, [&] { return platform::lseek(file.get(), -1, SEEK_SET); });
    const Pipe pipe;
    expect_error(ESPIPE, [&] { return platform::lseek(pipe.out.get(), 0, SEEK_SET); });
    expect_error(ESPIPE, [&] { return platform::pread(pipe.out.get(), bytes, 4, 0); });
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
    const Pipe pipe;

    termios attributes{}, set{};
    expect(platform::tcgetattr(line.get(), &attributes) == 0 && (attributes.c_lflag & ICANON) != 0);
    set = attributes;
    set.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    cfsetispeed(&set, B9600);
    cfsetospeed(&set, B9600);
    expect(platform::tcsetattr(line.get(), TCSANOW, &set) == 0);
    attributes = {};
    expect(platform::tcgetattr(line.get(), &attributes) == 0);
    expect(attributes.c_lflag == set.c_lflag && cfgetospeed(&attributes) == B9600);
    expect_error(ENOTTY, [&] { return platform::tcgetattr(pipe.in.get(), &attributes); });
    expect_error(ENOTTY, [&] { return platform::tcsetattr(pipe.in.get(), TCSANOW, &set); });

    expect(platform::write(master.get(), "abc", 3) == 3);
    timeval rest = {2, 0};
    expect(platform::wait_readable(line.get(), &rest) == 1);
    expect(platform::ioctl(line.get(), FIONREAD, &queued) == 0 && queued == 3);
    expect(platform::ioctl_value(line.get(), TCFLSH, TCIFLUSH) == 0);
    expect(platform::ioctl(line.get(), FIONREAD, &queued) == 0 && queued == 0);
    expect_error(ENOTTY, [&] { return platform::ioctl(pipe.in.get(), 0x80041272, &queued); });
    expect_error(EBADF, [&] { return platform::ioctl_value(-1, TCFLSH, TCIFLUSH); });
}

void check_waits() {
    const Pipe pipe(O_NONBLOCK);
    timeval rest = {2, 250'000};
    expect(platform::wait_writable(pipe.in.get(), &rest) == 1);
    expect(seconds(rest) > 2.25 - kSlack_s && seconds(rest) <= 2.25);

    rest = {0, 120'000};
    double begin = seconds();
    expect(platform::wait_readable(pipe.out.get(), &rest) == 0);
    expect(about(seconds() - begin, 0.12) && seconds(rest) == 0);
    pipe.fill();
    rest = {0, 120'000};
    begin = seconds();
    expect(platform::wait_writable(pipe.in.get(), &rest) == 0);
    expect(about(seconds() - begin, 0.12) && seconds(rest) == 0);
    rest = {0, 0};
    expect(platform::wait_readable(pipe.out.get(), &rest) == 1 && seconds(rest) == 0);

    const Pipe quiet;
    signals = 0;
    rest = {1, 500'000};
    signal_after_ms(100);
    begin = seconds();
    expect_error(EINTR, [&] { return platform::wait_readable(quiet.out.get(), &rest); });
    expect(signals == 1 && about(seconds() - begin, 0.1));
    expect(seconds(rest) > 1.4 - kSlack_s && seconds(rest) <= 1.4);

    rest = {1, 0};
    expect_error(EBADF, [&] { return platform::wait_readable(-1, &rest); });
    expect_error(EBADF, [&] { return platform::wait_writable(FD_SETSIZE, &rest); });
    Pipe closed;
    const int fd = closed.out.get();
    closed.out.close();
    expect_error(EBADF, [&] { return platform::wait_readable(fd, &rest); });
}

// Bytes every 50 ms do not prolong a budget that is passed on from wait to wait.
void check_wait_that_is_resumed() {
    Pipe pipe;
    const pid_t writer = need(platform::fork(), "fork");
    if (writer == 0) {
        pipe.out.close();
        platform::signal(SIGPIPE, SIG_DFL);
        while (platform::write(pipe.in.get(), "x", 1) == 1)
            platform::sleep_ms(50);
        ::_exit(0);
    }
    timeval rest = {0, 500'000};
    const double begin = seconds();
    int waits = 0;
    char byte = 0;
    while (platform::wait_readable(pipe.out.get(), &rest) == 1 && waits < 100) {
        platform::read(pipe.out.get(), &byte, 1);
        ++waits;
    }
    expect(about(seconds() - begin, 0.5) && waits > 2 && waits < 15 && seconds(rest) == 0);
    pipe.out.close();
    int status = 0;
    expect(platform::waitpid(writer, &status, 0) == writer);
    expect(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE);
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
    expect_error(ECHILD, [] { return platform::waitpid(-1, nullptr, WNOHANG); });
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

    expect(exited_with(status_of([] { platform::exit(5); }), 5));
    const auto exit_handler = [] { ::_exit(42); };
    expect(exited_with(status_of([&] { ::atexit(exit_handler), platform::exit(5); }), 42));
    expect(exited_with(status_of([&] { ::atexit(exit_handler), platform::exit_at_once(5); }), 5));

    expect(platform::setuid(::getuid()) == 0);
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

void check_pipes() {
    int ends[2] = {-1, -1};
    char byte = 0;
    expect(platform::open_pipe(ends, O_NONBLOCK | O_CLOEXEC) == 0);
    for (const int end : ends) {
        expect((::fcntl(end, F_GETFL) & O_NONBLOCK) != 0);
        expect((::fcntl(end, F_GETFD) & FD_CLOEXEC) != 0);
    }
    expect_error(EAGAIN, [&] { return platform::read(ends[0], &byte, 1); });
    expect(platform::write_text(ends[1], "t", 1) == 1);
    expect(platform::read(ends[0], &byte, 1) == 1 && byte == 't');
    platform::close(ends[0]);
    platform::close(ends[1]);
    expect_error(EFAULT, [] { return platform::open_pipe(nullptr, O_CLOEXEC); });
}

void check_signals() {
    expect(platform::signal(SIGUSR1, count_signal) == SIG_DFL);
    signals = 0;
    expect(platform::raise(SIGUSR1) == 0 && signals == 1);
    expect(platform::raise(SIGUSR1) == 0 && signals == 2);  // the handler stays
    expect(platform::signal(SIGUSR1, SIG_IGN) == count_signal);
    expect(platform::raise(SIGUSR1) == 0 && signals == 2);
    expect(platform::signal(SIGUSR1, SIG_DFL) == SIG_IGN);
    errno = 0;
    expect(platform::signal(SIGKILL, count_signal) == SIG_ERR && errno == EINVAL);
    expect_error(EINVAL, [] { return platform::raise(999); });
    const int status = status_of([] {
        platform::signal(SIGINT, SIG_DFL);  // a background job has it ignored
        platform::raise(SIGINT);
    });
    expect(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT);

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
    expect(platform::mkdir("folder", 0751) == 0);
    expect(::stat("folder", &entry) == 0 && (entry.st_mode & 07777) == 0751);
    expect_error(EEXIST, [] { return platform::mkdir("folder", 0777); });
    expect_error(ENOENT, [] { return platform::mkdir("missing/folder", 0777); });
    expect(platform::access("folder") == 0);
    expect_error(ENOENT, [] { return platform::access("missing"); });
    platform::close(need(::open("folder/file", O_CREAT | O_WRONLY, 0), "folder/file"));
    expect(platform::access("folder/file") == 0);
    expect_error(ENOTEMPTY, [] { return platform::rmdir("folder"); });
    expect_error(ENOTEMPTY, [] { return platform::remove("folder"); });
    expect_error(ENOTDIR, [] { return platform::rmdir("folder/file"); });
    expect(platform::remove("folder/file") == 0 && platform::rmdir("folder") == 0);
    expect_error(ENOENT, [] { return platform::remove("folder/file"); });
    expect_error(ENOENT, [] { return platform::rmdir("folder"); });
}

// In a space of mounts of its own, where the kernel grants one.
void check_mounts() {
    struct statfs statistics {};
    expect(platform::statfs("/proc", &statistics) == 0 && statistics.f_type == 0x9FA0);
    expect_error(ENOENT, [&] { return platform::statfs("missing", &statistics); });
    expect_error(ENOENT, [&] { return platform::mount("missing", "missing", "vfat"); });
    const int umount_error = ::geteuid() == 0 ? EINVAL : EPERM;
    expect_error(umount_error, [] { return platform::umount("."); });
    expect(exited_with(
        status_of([&] {
            if (::unshare(CLONE_NEWNS) != 0
                || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
                ::perror("platform_check: a successful mount is not checked");
                return;
            }
            expect(platform::mkdir("mnt", 0777) == 0);
            expect_error(ENODEV, [] { return platform::mount("none", "mnt", "nosuchfs"); });
            errno = 0;
            expect(platform::mount("/dev/null", "mnt", "ext4") < 0);
            expect(errno == ENOTBLK || errno == ENODEV);  // ENODEV: a kernel without ext4
            expect(platform::mount("none", "mnt", "tmpfs") == 0);
            expect(platform::statfs("mnt", &statistics) == 0 && statistics.f_type == 0x01021994);
            expect(statistics.f_bsize > 0 && statistics.f_bfree <= statistics.f_blocks);
            expect_error(EBUSY, [] { return platform::rmdir("mnt"); });
            expect(platform::umount("mnt") == 0 && platform::rmdir("mnt") == 0);
        }),
        0));
}

void check_shell_and_names() {
    expect(exited_with(platform::system("exit 3"), 3));
    expect(exited_with(platform::system("test -d /\n"), 0));
    expect(exited_with(platform::system("no-such-command 2>/dev/null"), 127));
    // The interrupt's handler is in force again afterwards.
    platform::signal(SIGINT, count_signal);
    signals = 0;
    expect(exited_with(platform::system(":"), 0));
    expect(platform::raise(SIGINT) == 0 && signals == 1);
    expect(platform::signal(SIGINT, SIG_DFL) == count_signal);
    utsname names{};
    expect(platform::uname(&names) == 0 && ::strcmp(names.sysname, "Linux") == 0);
    expect(names.release[0] >= '1' && names.release[0] <= '9');
}

void check_directories() {
    constexpr int kFiles = 700;  // several reads of the directory
    expect(platform::mkdir("many", 0777) == 0);
    char path[64];
    for (int i = 0; i < kFiles; ++i) {
        ::snprintf(path, sizeof path, "many/entry%d", i);
        platform::close(need(::open(path, O_CREAT | O_WRONLY, 0600), path));
    }
    static bool found[kFiles];
    int entries = 0;
    platform::Directory* directory = platform::opendir("many");
    expect(directory != nullptr);
    errno = 77;
    while (const char* name = platform::readdir(directory)) {
        int number = -1;
        if (::strncmp(name, "entry", 5) == 0) number = ::atoi(name + 5);
        if (number >= 0 && number < kFiles) found[number] = true;
        ++entries;
    }
    expect(errno == 77 && entries == kFiles + 2);  // with . and ..
    expect(platform::closedir(directory) == 0);
    for (int i = 0; i < kFiles; ++i) {
        ::snprintf(path, sizeof path, "many/entry%d", i);
        if (!found[i] || platform::remove(path) != 0) expect(false);
    }
    expect(platform::remove("many") == 0);
    const auto open = [](const char* name) { return platform::opendir(name) == nullptr ? -1 : 0; };
    expect_error(ENOENT, [&] { return open("many"); });
    expect_error(ENOTDIR, [&] { return open("/dev/null"); });
}

}  // namespace

int main() {
    need(::mkdtemp(scratch) == nullptr ? -1 : 0, "mkdtemp");
    need(::chdir(scratch), scratch);
    for (const int number : {SIGPIPE, SIGUSR1})
        platform::signal(number, SIG_DFL);
    platform::signal(SIGALRM, count_signal);
    check_descriptors();
    check_reads_and_writes();
    check_file_offsets();
    check_requests_and_attributes();
    check_waits();
    check_wait_that_is_resumed();
    check_time();
    check_processes();
    check_threads();
    check_pipes();
    check_signals();
    check_files();
    check_mounts();
    check_shell_and_names();
    check_directories();
    platform::remove("file");
    need(::chdir("/"), "/");
    expect(platform::rmdir(scratch) == 0);
    ::printf("platform functions: %d expectations hold, %d do not\n", holding, failing);
    return failing == 0 ? 0 : 1;
}
