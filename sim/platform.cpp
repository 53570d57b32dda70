// The functions of platform.h on the simulated board. Of the host they use only threads, processes,
// signals and the product's standard output and error.
#include "platform/platform.h"

#include <pthread.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "sim/call.h"
#include "sim/clock.h"
#include "sim/devices/files.h"
#include "sim/devices/network.h"
#include "sim/devices/pipe.h"
#include "sim/devices/usb.h"
#include "sim/process.h"
#include "sim/supervisor.h"
#include "sim/world.h"

using namespace sim;

namespace {

long open_path(const char* path, int flags) {
    int index = 0;
    const Device* const device = find_device(path, &index);
    if (device == nullptr) return -ENOENT;
    const long opened = device->open(index, flags);
    return opened < 0 ? opened : new_descriptor(*device, index, path);
}

// Runs the body of a call that needs an open descriptor.
template <class Body>
long on_file(Call& call, Body body) {
    return call.run([&]() -> long {
        OpenFile* file = call.file();
        return file == nullptr ? -EBADF : body(*file);
    });
}

// Runs the body of a call without a descriptor; without a body it succeeds.
template <class Body = long (*)()>
int run(
    const char* function, std::string_view path, std::int64_t argument,
    Body body = [] { return 0L; }) {
    Call call(function, path, argument);
    return static_cast<int>(call.run(body));
}

int select_one(const char* function, int fd, Direction direction, timeval* remaining) {
    const Microseconds budget = remaining->tv_sec * 1'000'000 + Microseconds{remaining->tv_usec};
    Call call(function, Fd{fd}, budget);
    return static_cast<int>(on_file(call, [&](OpenFile& file) -> long {
        const Microseconds until = world->now + budget;
        const Wake wake = wait_until(until, static_cast<int>(&file - world->files), direction);
        const Microseconds rest = until - world->now;
        remaining->tv_sec = static_cast<time_t>(rest / 1'000'000);
        remaining->tv_usec = static_cast<suseconds_t>(rest % 1'000'000);
        return wake == Wake::interrupt ? -EINTR : wake == Wake::ready ? 1 : 0;
    }));
}

int control(int fd, std::uint32_t request, Argument argument) {
    Call call("ioctl", Fd{fd}, argument.value, request);
    const OpenFile* const open = call.file();
    if (open != nullptr) call.sent(argument.block, open->device->sent_size(request));
    return static_cast<int>(on_file(call, [&](OpenFile& file) {
        const long result = file.device->ioctl(file, request, argument);
        call.got(argument.answer.data(), argument.answer.size());
        return result;
    }));
}

// Threads and processes.

struct Thread {
    int actor;
    void* (*body)(void*);
};

void* run_thread(void* argument) {
    const Thread thread = *static_cast<Thread*>(argument);
    delete static_cast<Thread*>(argument);
    self = thread.actor;
    {
        const HiddenFromThreadSanitizer hidden;
        await_turn();
    }
    void* result = thread.body(nullptr);
    const HiddenFromThreadSanitizer hidden;
    end_thread();
    pass_turn();
    return result;
}

[[noreturn]] void leave(const char* function, int status) {
    run(function, kNoPath, status);
    leave_process(status);
}

int descriptor_of(platform::Directory* directory) {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(directory)) - 1;
}

}  // namespace

namespace platform {

int open(const char* path, int flags) {
    return run("open", path, flags, [&] { return open_path(path, flags); });
}

int close(int fd) {
    Call call("close", Fd{fd});
    const long closed = close_descriptor(fd);  // even if close then reports an error
    return static_cast<int>(call.run([&] { return closed; }));
}

ssize_t read(int fd, void* data, std::size_t size) {
    Call call("read", Fd{fd}, static_cast<std::int64_t>(size));
    return on_file(call, [&](OpenFile& file) {
        const long count = file.device->read(file, data, call.shortened(size));
        if (count > 0) call.got(data, static_cast<std::size_t>(count));
        return count;
    });
}

ssize_t pread(int fd, void* data, std::size_t size, off_t offset) {
    Call call("pread", Fd{fd}, offset);
    return on_file(call, [&](OpenFile& file) {
        OpenFile place = file;
        place.offset = offset;
        return file.device->read(place, data, call.shortened(size));
    });
}

ssize_t write(int fd, const void* data, std::size_t size) {
    Call call("write", Fd{fd}, static_cast<std::int64_t>(size));
    call.sent(data, size);
    return on_file(
        call, [&](OpenFile& file) { return file.device->write(file, data, call.shortened(size)); });
}

// Not an event: each event counts the bytes printed before it.
ssize_t write_text(int fd, const void* text, std::size_t size) { return ::write(fd, text, size); }

off_t lseek(int fd, off_t offset, int whence) {
    Call call("lseek", Fd{fd}, offset);
    return on_file(call, [&](OpenFile& file) -> long {
        const std::int64_t size = file.device->size(file.index);
        const std::int64_t from = whence == SEEK_SET ? 0 : whence == SEEK_END ? size : file.offset;
        if (size < 0) return -ESPIPE;
        if (from + offset < 0) return -EINVAL;
        file.offset = from + offset;
        return static_cast<long>(file.offset);
    });
}

int open_socket(int domain, int type, int protocol) {
    return run("socket", kNoPath, domain, [&] { return sim::open_socket(domain, type, protocol); });
}

int open_pipe(int ends[2], int flags) {
    return run("pipe", kNoPath, flags, [&] { return sim::open_pipe(ends, flags); });
}

int ioctl(int fd, std::uint32_t request, void* block) {
    return control(fd, request, {0, static_cast<std::uint8_t*>(block)});
}

int ioctl_value(int fd, std::uint32_t request, std::uint32_t value) {
    return control(fd, request, {value, nullptr});
}

int wait_readable(int fd, timeval* remaining) {
    return select_one("wait_readable", fd, Direction::read, remaining);
}

int wait_writable(int fd, timeval* remaining) {
    return select_one("wait_writable", fd, Direction::write, remaining);
}

int tcgetattr(int fd, termios* attributes) {
    Call call("tcgetattr", Fd{fd});
    return static_cast<int>(on_file(call, [&](OpenFile& file) -> long {
        const termios* line = file.device->attributes(file.index);
        if (line != nullptr) *attributes = *line;
        return line == nullptr ? -ENOTTY : 0;
    }));
}

int tcsetattr(int fd, int when, const termios* attributes) {
    Call call("tcsetattr", Fd{fd}, when);
    return static_cast<int>(on_file(call, [&](OpenFile& file) -> long {
        termios* line = file.device->attributes(file.index);
        if (line != nullptr) *line = *attributes;
        return line == nullptr ? -ENOTTY : 0;
    }));
}

int sleep_ms(unsigned duration_ms) {
    return run("sleep", kNoPath, duration_ms, [&]() -> long {
        return wait_until(world->now + from_ms(duration_ms)) == Wake::interrupt ? -EINTR : 0;
    });
}

std::time_t time() {
    Call call("time", kNoPath, 0);
    return static_cast<std::time_t>(call.run(
        [] { return static_cast<long>(scenario->start.seconds + world->now / 1'000'000); }));
}

int setuid(uid_t user) {
    return run("setuid", kNoPath, user, [&]() -> long { return scenario->root ? 0 : -EPERM; });
}

pid_t fork() {
    Call call("fork", kNoPath, 0);
    return static_cast<pid_t>(call.run([&]() -> long {
        Process& child = world->processes[add_child()];
        const pid_t pid = ::fork();
        if (pid < 0) stop_here("the host refused a process: %s", std::strerror(errno));
        if (pid == 0) {
            call.abandon();
            self = child.main_actor;
            await_turn();
            deliver_interrupt();
            return 0;
        }
        child.pid = pid;
        wake_supervisor();
        return pid_of(child);
    }));
}

pid_t waitpid(pid_t process, int* status, int options) {
    return run("waitpid", kNoPath, process, [&]() -> long {
        // The product waits for no process, and asks for none by its number.
        if (process != -1 || options != WNOHANG) return -EINVAL;
        Process* child = nullptr;
        if (!find_ended_child(&child)) return -ECHILD;
        if (child == nullptr) return 0;
        if (::waitpid(child->pid, status, 0) != child->pid) return -ECHILD;
        const pid_t pid = pid_of(*child);
        forget_process(*child);
        return pid;
    });
}

int create_thread(pthread_t* thread, void* (*body)(void*)) {
    const int saved_errno = errno;
    int actor = -1;
    const int result = run("pthread_create", kNoPath, 0, [&] {
        actor = add_thread();
        return 0L;
    });
    if (result != 0) return std::exchange(errno, saved_errno);
    const int error = ::pthread_create(thread, nullptr, run_thread, new Thread{actor, body});
    if (error != 0) stop_here("the host refused a thread: %s", std::strerror(error));
    return 0;
}

void exit(int status) { leave("exit", status); }

void exit_at_once(int status) { leave("_exit", status); }

SignalHandler signal(int number, SignalHandler handler) {
    return run("signal", kNoPath, number) == 0 ? ::signal(number, handler) : SIG_ERR;
}

int raise(int number) {
    if (run("raise", kNoPath, number) != 0) return -1;
    save_coverage();
    return ::raise(number);
}

int uname(utsname* names) {
    return run("uname", kNoPath, 0, [&] {
        *names = {};
        std::string_view("Linux").copy(names->sysname, sizeof names->sysname);
        scenario->kernel_release.copy(names->release, sizeof names->release - 1);
        return 0L;
    });
}

int access(const char* path) {
    return run("access", path, 0, [&]() -> long {
        int index = 0;
        return find_device(path, &index) == nullptr ? -ENOENT : 0;
    });
}

int mkdir(const char* path, mode_t) {
    return run("mkdir", path, 0, [&] { return make_directory(path); });
}

int rmdir(const char* path) {
    return run("rmdir", path, 0, [&] { return remove_directory(path); });
}

int mount(const char* device, const char* directory, const char* type) {
    return run("mount", device, 0, [&] {
        spend_time(from_seconds(scenario->usb.mount_time));
        return mount_disk(device, directory, type, false);
    });
}

int umount(const char* directory) {
    return run("umount", directory, 0, [&] { return unmount(directory); });
}

int statfs(const char* path, struct ::statfs* statistics) {
    Call call("statfs", path, 0);
    return static_cast<int>(call.run([&] {
        const long result = sim::statistics(path, *statistics);
        // The structure differs by machine, the log does not.
        const std::uint64_t known[] = {static_cast<std::uint64_t>(statistics->f_bsize),
                                       statistics->f_bfree};
        if (result == 0) call.got(known, sizeof known);
        return result;
    }));
}

int system(const char* command) {
    return run("system", command, 0, [&]() -> long {
        const bool killed = spend_time_in_shell(from_seconds(scenario->usb.shell_time));
        return killed ? SIGINT : run_shell(command);
    });
}

Directory* opendir(const char* path) {
    const long fd = run("opendir", path, 0, [&] { return open_directory(path); });
    return fd < 0 ? nullptr : reinterpret_cast<Directory*>(fd + 1);
}

const char* readdir(Directory* directory) {
    Call call("readdir", Fd{descriptor_of(directory)});
    const char* name = nullptr;
    on_file(call, [&](OpenFile& file) -> long {
        name = next_entry(file);
        if (name != nullptr) call.got(name, std::strlen(name));
        return name != nullptr ? 1 : 0;
    });
    return name;
}

int closedir(Directory* directory) {
    Call call("closedir", Fd{descriptor_of(directory)});
    const long closed = close_descriptor(descriptor_of(directory));
    return static_cast<int>(call.run([&] { return closed; }));
}

int remove(const char* path) {
    return run("remove", path, 0, [&] { return remove_file(path); });
}

}  // namespace platform
