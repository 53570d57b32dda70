// Every call by which the product reaches the system. Each function is the call named in its
// comment, with the same results and errno; it prints, retries and remembers nothing. q7 links
// linux.cpp, q7-sim the simulated board.
#pragma once

#include <sys/statfs.h>
#include <sys/types.h>
#include <sys/utsname.h>
#include <termios.h>

#include <cstddef>
#include <cstdint>
#include <ctime>

struct timeval;

namespace platform {

// Descriptors. Result: as the call named; -1 is a failure.
int open(const char* path, int flags);
int close(int fd);
ssize_t read(int fd, void* data, std::size_t size);
ssize_t pread(int fd, void* data, std::size_t size, off_t offset);
ssize_t write(int fd, const void* data, std::size_t size);
off_t lseek(int fd, off_t offset, int whence);
ssize_t write_text(int fd, const void* text, std::size_t size);  // write, of what q7 prints
int open_socket(int domain, int type, int protocol);             // socket
int open_pipe(int ends[2], int flags);                           // pipe2

// ioctl with a block that the driver reads or fills, and with an argument by value.
int ioctl(int fd, std::uint32_t request, void* block);
int ioctl_value(int fd, std::uint32_t request, std::uint32_t value);

// select on one descriptor. Result: 1 = ready, 0 = time used up, -1 = failed or interrupted.
// The time that is left is written back into *remaining in each case.
int wait_readable(int fd, timeval* remaining);
int wait_writable(int fd, timeval* remaining);

int tcgetattr(int fd, termios* attributes);
int tcsetattr(int fd, int when, const termios* attributes);

// nanosleep. Result: 0, or -1 with EINTR when a handled signal cut it short.
int sleep_ms(unsigned duration_ms);
std::time_t time();  // system time, seconds since 1970 UTC

// Processes, threads and signals.
int setuid(uid_t user);
pid_t fork();
pid_t waitpid(pid_t process, int* status, int options);
int create_thread(pthread_t* thread, void* (*body)(void*));  // pthread_create: 0 or an errno value
[[noreturn]] void exit(int status);
[[noreturn]] void exit_at_once(int status);  // _exit: no exit handler runs
using SignalHandler = void (*)(int);
SignalHandler signal(int number, SignalHandler handler);  // the previous one; SIG_ERR on failure
int raise(int number);

// Files and file systems. Result: 0 or -1, where not said otherwise.
int access(const char* path);  // with F_OK: 0 = exists
int mkdir(const char* path, mode_t mode);
int rmdir(const char* path);
int remove(const char* path);
int mount(const char* device, const char* directory, const char* type);  // no flags, no data
int umount(const char* directory);
int statfs(const char* path, struct ::statfs* statistics);
int system(const char* command);  // the wait status of the shell, or -1
int uname(utsname* names);

// Directory streams. A null result of readdir is the end where errno was left alone.
struct Directory;
Directory* opendir(const char* path);
const char* readdir(Directory* directory);  // entry name, valid until the next call
int closedir(Directory* directory);

}  // namespace platform
