// A healthy board below the C library, for the board's static program: these functions take the
// place of the library's, so that the product and platform/linux.cpp above them are as on the board.
// Serial lines, waits, threads and processes are the running kernel's. Sleeps take a
// twentieth of their time. The console is that of `q7-sim --board bench/played_devices.toml`; at the
// end standard error gets the resident memory and the number of heap blocks taken.
#include <dirent.h>
#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace {

constexpr int kFasterThanReal = 20;

int heap_blocks = 0;

int really_open(const char* path, int flags) { return ::openat(AT_FDCWD, path, flags, 0600); }

// All at their most here: nothing is given back but what a directory has taken. The kernel's own
// figure of the peak is only about right for a program this small.
void print_memory() {
    char text[1024] = {};
    const int file = really_open("/proc/self/smaps_rollup", O_RDONLY);
    const char* line =
        ::read(file, text, sizeof text - 1) > 0 ? std::strstr(text, "\nRss:") : nullptr;
    const long resident_kib = line == nullptr ? -1 : std::strtol(line + 5, nullptr, 10);
    std::fprintf(stderr, "%ld KiB resident, %d heap blocks\n", resident_kib, heap_blocks);
}

[[gnu::constructor]] void print_memory_at_exit() { std::atexit(print_memory); }

// A FIFO that is open for both: what is written comes back.
int open_loop() {
    char path[32];
    std::snprintf(path, sizeof path, "/tmp/q7-played-%d", ::getpid());
    if (::mkfifo(path, 0600) != 0) return -1;
    const int line = really_open(path, O_RDWR | O_NONBLOCK);
    ::unlink(path);
    return line;
}

// UP, DOWN, ENTER and ESC have been pressed already.
int open_panel() {
    constexpr std::uint8_t kPressed[] = {0xFF, 6,    0x20, 0x14, 1,    0x3A, 0xFF, 6,
                                         0x20, 0x15, 1,    0x3B, 0xFF, 6,    0x20, 0x22,
                                         1,    0x48, 0xFF, 6,    0x20, 0x0B, 1,    0x31};
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return -1;
    return ::write(ends[1], kPressed, sizeof kPressed) < 0 ? -1 : ends[0];
}

// A file without a name; what the alarm outputs are given stands in it.
int open_control() {
    char path[32];
    std::snprintf(path, sizeof path, "/tmp/q7-played-%d", ::getpid());
    const int file = really_open(path, O_CREAT | O_RDWR);
    ::unlink(path);
    return file;
}

// Each output drives every fourth input.
std::uint16_t alarm_inputs(int control) {
    std::uint32_t outputs = 0;
    const off_t end = ::lseek(control, 0, SEEK_CUR);
    const off_t size = sizeof outputs;
    if (end >= size && ::pread(control, &outputs, sizeof outputs, end - size) != size) std::abort();
    return static_cast<std::uint16_t>(outputs * 0x1111);
}

void put_word(std::uint8_t* block, int offset, unsigned value) {
    block[offset] = static_cast<std::uint8_t>(value);
    block[offset + 1] = static_cast<std::uint8_t>(value >> 8);
}

void fill_description(std::uint8_t* block) {
    put_word(block, 4, 1);        // presence
    put_word(block, 14, 0xB000);  // model
    put_word(block, 20, 0x4DD5);  // date of the CPLD
    put_word(block, 24, 4);       // network ports
    put_word(block, 26, 0x5002);  // five SATA ports, one of them outside
    put_word(block, 28, 0x1004);  // 16 alarm inputs, 4 outputs
}

void answer_ethtool(ifreq& request) {
    auto* const link = reinterpret_cast<ethtool_value*>(request.ifr_data);
    if (link->cmd == ETHTOOL_GLINK) {
        link->data = 1;
        return;
    }
    auto* const settings = reinterpret_cast<ethtool_cmd*>(request.ifr_data);
    settings->speed = 1000;
    settings->duplex = 1;
}

void fill_rtc(void* block) {
    const time_t now = ::time(nullptr);
    tm broken_down{};
    ::gmtime_r(&now, &broken_down);
    std::memcpy(block, &broken_down, 9 * sizeof(int));
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    if (std::strcmp(path, "/dev") == 0) return really_open("/", flags);  // see readdir
    if (std::strcmp(path, "/dev/zebio") == 0) return open_control();
    if (std::strcmp(path, "/dev/ttyS0") == 0) return open_loop();
    if (std::strcmp(path, "/dev/ttyS2") == 0) return open_panel();
    return really_open("/dev/null", flags);  // disks and clock: all that matters is their requests
}

int ioctl(int fd, int request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* block = va_arg(arguments, void*);
    va_end(arguments);
    switch (static_cast<std::uint32_t>(request)) {
    case 0x04:
        fill_description(static_cast<std::uint8_t*>(block));
        break;
    case 0x80026B90: {
        const std::uint16_t inputs = alarm_inputs(fd);
        std::memcpy(block, &inputs, sizeof inputs);
        break;
    }
    case SIOCETHTOOL:
        answer_ethtool(*static_cast<ifreq*>(block));
        break;
    case 0x031F:  // the data of IDENTIFY DEVICE: blanks
        std::memset(static_cast<char*>(block) + 4, ' ', 512);
        break;
    case 0x80041272:
        *static_cast<std::uint64_t*>(block) = 1'000'204'886'016;
        break;
    case 0x80247009:
        fill_rtc(block);
        break;
    default:  // accepted, without an answer
        break;
    }
    return 0;
}

dirent* readdir(DIR*) {
    static dirent entry;
    static std::size_t next = 0;
    constexpr const char* kNodes[] = {"msa", "msa1", "msb1", "msc1", "msd1"};
    if (next == std::size(kNodes)) {
        next = 0;
        return nullptr;
    }
    std::snprintf(entry.d_name, sizeof entry.d_name, "%s", kNodes[next++]);
    return &entry;
}

int tcgetattr(int, termios*) { return 0; }
int tcsetattr(int, int, const termios*) { return 0; }

int nanosleep(const timespec* duration, timespec*) {
    const auto real_ms = duration->tv_sec * 1000 + duration->tv_nsec / 1'000'000;
    return ::poll(nullptr, 0, static_cast<int>(real_ms / kFasterThanReal));
}

// A second passes from one reading of the clocks to the next.
time_t time(time_t*) {
    static int readings = 0;
    return 1'795'420'831 + readings++ / 2;
}

int setuid(uid_t) { return 0; }
int access(const char* path, int) {
    return std::strncmp(path, "/sys/bus/usb/devices/4-", 23) == 0 ? 0 : -1;
}
int mkdir(const char*, mode_t) { return 0; }
int rmdir(const char*) { return 0; }
int remove(const char*) { return 0; }
int mount(const char*, const char*, const char*, unsigned long, const void*) { return 0; }
int umount(const char*) { return 0; }
int system(const char*) { std::abort(); }

int statfs(const char*, struct statfs* statistics) {
    *statistics = {};
    statistics->f_bsize = 4096;
    statistics->f_bfree = 1'000'000;
    return 0;
}

void* __real_malloc(size_t size);

void* __wrap_malloc(size_t size) {
    ++heap_blocks;
    return __real_malloc(size);
}
}
