// The functions of platform.h over the simulated board. Nothing here reaches the host, but for
// threads, processes, signals and the text that the product prints.
#include "platform/platform.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>
#include <utility>

#include "sim/call.h"
#include "sim/clock.h"
#include "sim/devices.h"
#include "sim/supervisor.h"

using namespace sim;

namespace {

long open_path(const char* path, int flags) {
    int index = 0;
    const int row = find_device(path, &index);
    if (row < 0) return -ENOENT;
    const long opened = device(row).open(index, flags);
    return opened < 0 ? opened : new_descriptor(row, index, path);
}

// Runs the body of a call that needs an open descriptor.
template <class Body>
long on_file(Call& call, Body body) {
    return call.run([&]() -> long {
        OpenFile* file = call.file();
        return file == nullptr ? -EBADF : body(*file, device(file->device));
    });
}

template <class Body>
int on_path(const char* function, const char* path, Body body) {
    Call call(function, path, 0);
    return static_cast<int>(call.run(body));
}

int select_one(const char* function, int fd, Direction direction, timeval* remaining) {
    const Microseconds budget = remaining->tv_sec * 1'000'000 + Microseconds{remaining->tv_usec};
    Call call(function, Fd{fd}, budget);
    return static_cast<int>(on_file(call, [&](OpenFile& file, const Device&) -> long {
        const Microseconds until = world->now + budget;
        const Wake wake = wait_until(until, static_cast<int>(&file - world->files), direction);
        const Microseconds rest = until - world->now;
        remaining->tv_sec = static_cast<time_t>(rest / 1'000'000);
        remaining->tv_usec = static_cast<suseconds_t>(rest % 1'000'000);
        return wake == Wake::interrupt ? -EINTR : wake == Wake::ready ? 1 : 0;
    }));
}

constexpr std::uint32_t kBridgeRequest = 0x197B;  // the one whose 16 bytes the event log keeps

int control(Call& call, std::uint32_t request, Argument argument) {
    if (request == kBridgeRequest) call.sent(argument.block, 16);
    return static_cast<int>(on_file(call, [&](OpenFile& file, const Device& device) {
        const long result = device.ioctl(file, request, argument);
        if (request == kBridgeRequest) call.got(argument.block, 16);
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
    world->actors[self].state = Actor::State::ended;
    pass_turn();
    return result;
}

int count_actors(const char* kind) {
    const std::span actors = world->all_actors();
    return static_cast<int>(std::count_if(actors.begin(), actors.end(), [&](const Actor& actor) {
        return std::strncmp(actor.name, kind, std::strlen(kind)) == 0;
    }));
}

int add_child(const Process& parent) {
    const int place = static_cast<int>(world->processes_used);
    Process& child = world->processes[place];
    child = parent;
    child.pid = 0;  // until it is forked: the supervisor must not take it for its parent
    child.interrupt_pending = false;
    child.alive = true;
    for (const std::int16_t file : child.files) {
        if (file >= 0) ++world->files[file].users;
    }
    child.main_actor =
        static_cast<std::int16_t>(add_actor(place, "child", count_actors("child") + 1));
    ++world->processes_used;
    return place;
}

constexpr pid_t kFirstPid = 100;  // what the product sees; the host's numbers differ each time

[[noreturn]] void leave(const char* function, int status) {
    {
        Call call(function, kNoPath, status);
        call.run([] { return 0L; });
    }
    leave_process(status);
}

int descriptor_of(platform::Directory* directory) {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(directory)) - 1;
}

}  // namespace

namespace platform {

int open(const char* path, int flags) {
    Call call("open", path, flags);
    return static_cast<int>(call.run([&] { return open_path(path, flags); }));
}

int close(int fd) {
    Call call("close", Fd{fd});
    const long closed = close_descriptor(fd);  // also where close then reports an error
    return static_cast<int>(call.run([&] { return closed; }));
}

ssize_t read(int fd, void* data, std::size_t size) {
    Call call("read", Fd{fd}, static_cast<std::int64_t>(size));
    return on_file(call, [&](OpenFile& file, const Device& device) {
        const long count = device.read(file, data, call.shortened(size));
        if (count > 0) call.got(data, static_cast<std::size_t>(count));
        return count;
    });
}

ssize_t pread(int fd, void* data, std::size_t size, off_t offset) {
    Call call("pread", Fd{fd}, offset);
    return on_file(call, [&](OpenFile& file, const Device& device) {
        OpenFile place = file;
        place.offset = offset;
        return device.read(place, data, call.shortened(size));
    });
}

ssize_t write(int fd, const void* data, std::size_t size) {
    Call call("write", Fd{fd}, static_cast<std::int64_t>(size));
    call.sent(data, size);
    return on_file(call, [&](OpenFile& file, const Device& device) {
        return device.write(file, data, call.shortened(size));
    });
}

// No event: the events count the bytes printed before them.
ssize_t write_text(int fd, const void* text, std::size_t size) { return ::write(fd, text, size); }

off_t lseek(int fd, off_t offset, int whence) {
    Call call("lseek", Fd{fd}, offset);
    return on_file(call, [&](OpenFile& file, const Device& device) -> long {
        const std::int64_t size = device.size(file.index);
        const std::int64_t from = whence == SEEK_SET ? 0 : whence == SEEK_END ? size : file.offset;
        if (size < 0) return -ESPIPE;
        if (from + offset < 0) return -EINVAL;
        file.offset = from + offset;
        return static_cast<long>(file.offset);
    });
}

int open_socket(int domain, int type, int protocol) {
    Call call("socket", kNoPath, domain);
    return static_cast<int>(call.run([&]() -> long {
        if (domain != AF_INET) return -EAFNOSUPPORT;
        if (type != SOCK_DGRAM || protocol != 0) return -EPROTONOSUPPORT;
        return new_descriptor(kSocketRow, 0, "socket");
    }));
}

int open_pipe(int ends[2], int flags) {
    Call call("pipe", kNoPath, flags);
    return static_cast<int>(call.run([&] { return sim::open_pipe(ends, flags); }));
}

int ioctl(int fd, std::uint32_t request, void* block) {
    Call call("ioctl", Fd{fd}, 0, request);
    return control(call, request, {0, block});
}

int ioctl_value(int fd, std::uint32_t request, std::uint32_t value) {
    Call call("ioctl", Fd{fd}, value, request);
    return control(call, request, {value, nullptr});
}

int wait_readable(int fd, timeval* remaining) {
    return select_one("wait_readable", fd, Direction::read, remaining);
}

int wait_writable(int fd, timeval* remaining) {
    return select_one("wait_writable", fd, Direction::write, remaining);
}

int tcgetattr(int fd, termios* attributes) {
    Call call("tcgetattr", Fd{fd});
    return static_cast<int>(on_file(call, [&](OpenFile& file, const Device& device) -> long {
        const termios* line = device.attributes(file.index);
        if (line != nullptr) *attributes = *line;
        return line == nullptr ? -ENOTTY : 0;
    }));
}

int tcsetattr(int fd, int when, const termios* attributes) {
    Call call("tcsetattr", Fd{fd}, when);
    return static_cast<int>(on_file(call, [&](OpenFile& file, const Device& device) -> long {
        termios* line = device.attributes(file.index);
        if (line != nullptr) *line = *attributes;
        return line == nullptr ? -ENOTTY : 0;
    }));
}

int sleep_ms(unsigned duration_ms) {
    Call call("sleep", kNoPath, duration_ms);
    return static_cast<int>(call.run([&]() -> long {
        return wait_until(world->now + from_ms(duration_ms)) == Wake::interrupt ? -EINTR : 0;
    }));
}

std::time_t time() {
    Call call("time", kNoPath, 0);
    return static_cast<std::time_t>(call.run(
        [] { return static_cast<long>(scenario->start.seconds + world->now / 1'000'000); }));
}

int setuid(uid_t user) {
    Call call("setuid", kNoPath, user);
    return static_cast<int>(call.run([&]() -> long { return scenario->root ? 0 : -EPERM; }));
}

pid_t fork() {
    Call call("fork", kNoPath, 0);
    return static_cast<pid_t>(call.run([&]() -> long {
        const Process& parent = world->processes[world->actors[self].process];
        const int place = add_child(parent);
        const pid_t pid = ::fork();
        if (pid < 0) {
            const int error = errno;
            end_process(place);
            world->processes[place].collected = true;  // there is nothing to collect
            stop_run("the host refused a process: %s", std::strerror(error));
            return -error;
        }
        if (pid == 0) {
            call.abandon();
            self = world->processes[place].main_actor;
            await_turn();
            deliver_interrupt();
            return 0;
        }
        world->processes[place].pid = pid;
        wake_supervisor();
        return kFirstPid + place;
    }));
}

pid_t waitpid(pid_t process, int* status, int options) {
    Call call("waitpid", kNoPath, process);
    return static_cast<pid_t>(call.run([&]() -> long {
        if (options != WNOHANG) return -EINVAL;  // the product waits for no process
        bool any_child = false;
        for (int i = world->actors[self].process + 1; i < static_cast<int>(world->processes_used);
             ++i) {
            const Process& child = world->processes[i];
            if (child.collected || (process > 0 && process != kFirstPid + i)) continue;
            any_child = true;
            if (child.alive || ::waitpid(child.pid, status, 0) != child.pid) continue;
            world->processes[i].collected = true;
            return kFirstPid + i;
        }
        return any_child ? 0 : -ECHILD;
    }));
}

int create_thread(pthread_t* thread, void* (*body)(void*)) {
    long result = 0;
    int actor = -1;
    {
        Call call("pthread_create", kNoPath, 0);
        const int saved_errno = errno;
        result = call.run([&]() -> long {
            actor = add_actor(world->actors[self].process, "thread", count_actors("thread") + 1);
            return actor < 0 ? -EAGAIN : 0;
        });
        if (result != 0) result = std::exchange(errno, saved_errno);
    }
    if (result != 0) return static_cast<int>(result);
    return ::pthread_create(thread, nullptr, run_thread, new Thread{actor, body});
}

void exit(int status) { leave("exit", status); }

void exit_at_once(int status) { leave("_exit", status); }

SignalHandler signal(int number, SignalHandler handler) {
    Call call("signal", kNoPath, number);
    if (call.run([] { return 0L; }) != 0) return SIG_ERR;
    return ::signal(number, handler);
}

int raise(int number) {
    Call call("raise", kNoPath, number);
    if (call.run([] { return 0L; }) != 0) return -1;
    save_coverage();
    return ::raise(number);
}

int uname(utsname* names) {
    Call call("uname", kNoPath, 0);
    return static_cast<int>(call.run([&] {
        *names = {};
        std::snprintf(names->sysname, sizeof names->sysname, "Linux");
        std::snprintf(names->release, sizeof names->release, "%s",
                      scenario->kernel_release.c_str());
        return 0L;
    }));
}

int access(const char* path) {
    return on_path("access", path, [&]() -> long {
        int index = 0;
        return find_device(path, &index) < 0 ? -ENOENT : 0;
    });
}

int mkdir(const char* path, mode_t) {
    return on_path("mkdir", path, [&] { return make_directory(path); });
}

int rmdir(const char* path) {
    return on_path("rmdir", path, [&] { return remove_directory(path); });
}

int mount(const char* device, const char* directory, const char* type) {
    return on_path("mount", device, [&] {
        take_time(from_seconds(scenario->usb.mount_time));
        return mount_disk(device, directory, type, false);
    });
}

int umount(const char* directory) {
    return on_path("umount", directory, [&] { return unmount(directory); });
}

int statfs(const char* path, struct ::statfs* statistics) {
    return on_path("statfs", path, [&] { return sim::statistics(path, *statistics); });
}

int system(const char* command) {
    return on_path("system", command, [&]() -> long {
        const bool killed = take_time_of_shell(from_seconds(scenario->usb.shell_time));
        return killed ? SIGINT : run_shell(command);
    });
}

Directory* opendir(const char* path) {
    const long fd = on_path("opendir", path, [&] { return open_directory(path); });
    return fd < 0 ? nullptr : reinterpret_cast<Directory*>(fd + 1);
}

const char* readdir(Directory* directory) {
    Call call("readdir", Fd{descriptor_of(directory)});
    const char* name = nullptr;
    on_file(call, [&](OpenFile& file, const Device&) -> long {
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
    return on_path("remove", path, [&] { return remove_file(path); });
}

}  // namespace platform
