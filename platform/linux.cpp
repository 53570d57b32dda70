// The real system: each function is the one call that it is named after.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "platform/platform.h"

namespace platform {
namespace {

enum class Direction { read, write };

std::int64_t now_us() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

// Not every C library's select writes the remaining time back, so it is computed here.
int select_one(int fd, Direction direction, timeval* remaining) {
    if (fd < 0 || fd >= FD_SETSIZE) {
        errno = EBADF;
        return -1;
    }
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    fd_set* const to_read = direction == Direction::read ? &set : nullptr;
    fd_set* const to_write = direction == Direction::write ? &set : nullptr;
    const std::int64_t end_us = now_us() + remaining->tv_sec * 1'000'000 + remaining->tv_usec;
    const int result = ::select(fd + 1, to_read, to_write, nullptr, remaining);
    const std::int64_t left_us = result == 0 ? 0 : std::max<std::int64_t>(end_us - now_us(), 0);
    remaining->tv_sec = static_cast<time_t>(left_us / 1'000'000);
    remaining->tv_usec = static_cast<suseconds_t>(left_us % 1'000'000);
    return result;
}

DIR* stream(Directory* directory) { return reinterpret_cast<DIR*>(directory); }

}  // namespace

int open(const char* path, int flags) { return ::open(path, flags); }

int close(int fd) { return ::close(fd); }

ssize_t read(int fd, void* data, std::size_t size) { return ::read(fd, data, size); }

ssize_t pread(int fd, void* data, std::size_t size, off_t offset) {
    return ::pread(fd, data, size, offset);
}

ssize_t write(int fd, const void* data, std::size_t size) { return ::write(fd, data, size); }

ssize_t write_text(int fd, const void* text, std::size_t size) { return ::write(fd, text, size); }

off_t lseek(int fd, off_t offset, int whence) { return ::lseek(fd, offset, whence); }

int open_socket(int domain, int type, int protocol) { return ::socket(domain, type, protocol); }

int open_pipe(int ends[2], int flags) { return ::pipe2(ends, flags); }

int ioctl(int fd, std::uint32_t request, void* block) { return ::ioctl(fd, request, block); }

int ioctl_value(int fd, std::uint32_t request, std::uint32_t value) {
    return ::ioctl(fd, request, static_cast<unsigned long>(value));
}

int wait_readable(int fd, timeval* remaining) { return select_one(fd, Direction::read, remaining); }

int wait_writable(int fd, timeval* remaining) {
    return select_one(fd, Direction::write, remaining);
}

int tcgetattr(int fd, termios* attributes) { return ::tcgetattr(fd, attributes); }

int tcsetattr(int fd, int when, const termios* attributes) {
    return ::tcsetattr(fd, when, attributes);
}

int sleep_ms(unsigned duration_ms) {
    const timespec duration{static_cast<time_t>(duration_ms / 1000),
                            static_cast<long>(duration_ms % 1000) * 1'000'000};
    return ::nanosleep(&duration, nullptr);
}

std::time_t time() { return ::time(nullptr); }

int setuid(uid_t user) { return ::setuid(user); }

pid_t fork() { return ::fork(); }

pid_t waitpid(pid_t process, int* status, int options) {
    return ::waitpid(process, status, options);
}

int create_thread(pthread_t* thread, void* (*body)(void*)) {
    return ::pthread_create(thread, nullptr, body, nullptr);
}

void exit(int status) { ::exit(status); }

void exit_at_once(int status) { ::_exit(status); }

SignalHandler signal(int number, SignalHandler handler) { return ::signal(number, handler); }

int raise(int number) { return ::raise(number); }

int access(const char* path) { return ::access(path, F_OK); }

int mkdir(const char* path, mode_t mode) { return ::mkdir(path, mode); }

int rmdir(const char* path) { return ::rmdir(path); }

int remove(const char* path) { return ::remove(path); }

int mount(const char* device, const char* directory, const char* type) {
    return ::mount(device, directory, type, 0, nullptr);
}

int umount(const char* directory) { return ::umount(directory); }

int statfs(const char* path, struct ::statfs* statistics) { return ::statfs(path, statistics); }

int system(const char* command) { return ::system(command); }

int uname(utsname* names) { return ::uname(names); }

Directory* opendir(const char* path) { return reinterpret_cast<Directory*>(::opendir(path)); }

const char* readdir(Directory* directory) {
    const dirent* entry = ::readdir(stream(directory));
    return entry == nullptr ? nullptr : entry->d_name;
}

int closedir(Directory* directory) { return ::closedir(stream(directory)); }

}  // namespace platform
