#include "sim/supervisor.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <map>
#include <stdexcept>
#include <system_error>

#include "platform/platform.h"
#include "sim/clock.h"
#include "sim/device.h"
#include "sim/occurrence.h"

#ifdef Q7_COVERAGE
extern "C" void __gcov_dump();
extern "C" void __gcov_reset();
#endif

namespace sim {
namespace {

using RealClock = std::chrono::steady_clock;

std::function<void()> at_exit_of_main;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

class RealFile {  // owns a descriptor of the host
  public:
    RealFile(int fd, const char* what) : fd_(fd) {
        if (fd < 0) fail(what);
    }
    ~RealFile() { ::close(fd_); }
    RealFile(const RealFile&) = delete;
    RealFile& operator=(const RealFile&) = delete;
    int get() const { return fd_; }

  private:
    int fd_;
};

std::string content_of(const RealFile& file) {
    std::string text(static_cast<std::size_t>(::lseek(file.get(), 0, SEEK_END)), '\0');
    const ssize_t count = ::pread(file.get(), text.data(), text.size(), 0);
    if (count != static_cast<ssize_t>(text.size())) fail("pread");
    return text;
}

std::shared_ptr<World> new_world() {
    void* mapping = ::mmap(nullptr, sizeof(World), PROT_READ | PROT_WRITE,
                           MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapping == MAP_FAILED) fail("mmap");
    return {static_cast<World*>(mapping), [](World* made) { ::munmap(made, sizeof *made); }};
}

// One run, from the fork to the death of the last process.
class Run {
  public:
    Run(const Board& description, const Program& program, const Live& live)
        : live_(live),
          console_(::memfd_create("console", 0), "memfd_create"),
          errors_(::memfd_create("errors", 0), "memfd_create"),
          wake_(::eventfd(0, EFD_NONBLOCK), "eventfd") {
        outcome_.world = new_world();
        world = outcome_.world.get();
        world->supervisor = ::getpid();
        self = nullptr;
        console_stream = console_.get();
        world->wake_supervisor = wake_.get();
        world->paced = live.pace > 0;
        start_first_process();
        start_occurrences(description);
        for (const Device* device : kDevices)
            device->start();
        if (world->stopped) throw std::length_error(world->stop_reason);
        ::prctl(PR_SET_CHILD_SUBREAPER, 1);
        const pid_t pid = ::fork();
        if (pid < 0) fail("fork");
        if (pid == 0) become_product(program);
        ::setpgid(pid, pid);
        leader_ = pid;
        world->processes[0].pid = pid;
    }

    Outcome finish() {
        watch_new_processes();
        while (!watched_.empty() && !world->stopped)
            poll_once();
        // The group's leader is our child and has not been reaped, so its number cannot be reused.
        ::kill(-leader_, SIGKILL);
        collect_all();
        outcome_.stopped = world->stopped && !(world->restarted && exited_);
        if (outcome_.stopped) outcome_.reason = world->stop_reason;
        if (live_.show) live_.show(console_.get(), errors_.get());
        outcome_.console = content_of(console_);
        outcome_.errors = content_of(errors_);
        return std::move(outcome_);
    }

  private:
    struct Watched {
        Process* process;
        std::uint32_t number;
        std::unique_ptr<RealFile> handle;
    };

    [[noreturn]] void become_product(const Program& program) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::setpgid(0, 0);  // Ctrl-C at the host's terminal must not reach the product
        ::dup2(console_.get(), STDOUT_FILENO);
        ::dup2(errors_.get(), STDERR_FILENO);
        console_stream = STDOUT_FILENO;
        for (const int number : {SIGINT, SIGPIPE, SIGCHLD})
            ::signal(number, SIG_DFL);
        sigset_t none;
        sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        ::setenv("TZ", scenario->time_zone.c_str(), 1);
        ::tzset();
        at_exit_of_main = program.at_exit;
        self = world->processes[0].main_actor;
        platform::exit(program.run());
    }

    // The processes run meanwhile: a slot may be given to the next one at any moment.
    void watch_new_processes() {
        for (Process& process : world->processes) {
            std::int64_t& latest = latest_watched_.try_emplace(&process, -1).first->second;
            const std::atomic_ref number(process.number);
            const std::uint32_t expected = number.load();
            const pid_t pid = std::atomic_ref(process.pid).load();
            if (!process.is_used() || pid <= 0 || expected <= latest) continue;
            const int fd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
            if (fd < 0 && errno == ESRCH) continue;  // exited and reaped already
            auto handle = std::make_unique<RealFile>(fd, "pidfd_open");
            if (number.load() != expected) continue;  // its own fork wakes us again
            latest = expected;
            watched_.push_back({&process, expected, std::move(handle)});
        }
    }

    // Passes on the turn of a process that died without doing so.
    void reap(const Watched& dead) {
        const bool crashed = is_alive(*dead.process, dead.number);
        if (dead.number == 0 && !crashed) exited_ = true;
        if (!crashed) return;
        const Actor* const running = world->running;  // others may run meanwhile
        const bool held_turn = running != nullptr && running->process == dead.process;
        end_process(*dead.process);
        if (held_turn) pass_turn();
    }

    // Reaps the main process and its orphans.
    void collect_all() {
        int status = 0;
        for (pid_t pid; (pid = ::waitpid(-leader_, &status, 0)) > 0;) {
            if (pid != leader_) continue;
            if (WIFEXITED(status)) outcome_.status = WEXITSTATUS(status);
            if (WIFSIGNALED(status)) outcome_.signal = WTERMSIG(status);
        }
    }

    // Virtual time that has passed for the person in front of a paced run.
    Microseconds present() const {
        const std::chrono::duration<double> passed = RealClock::now() - start_;
        return from_seconds(passed.count() * live_.pace);
    }

    // Takes the steps that are due in a paced run; returns how long to wait for the next.
    int step_in_pace() {
        while (world->paced && world->running == nullptr && !world->stopped && anyone_alive()) {
            if (live_.show) live_.show(console_.get(), errors_.get());
            const Step step = next_step();
            if (step.at == kNever) return -1;
            const Microseconds ahead = step.at - present();
            if (ahead > 0) {
                const double wait_ms = static_cast<double>(ahead) / 1000 / live_.pace;
                return static_cast<int>(std::min(wait_ms, 1e6)) + 1;
            }
            run_step(step);
        }
        return -1;
    }

    void poll_once() {
        const int timeout_ms = step_in_pace();
        std::vector<pollfd> files{{wake_.get(), POLLIN, 0}};
        for (const auto& [fd, typed] : live_.inputs)
            files.push_back({fd, POLLIN, 0});
        for (const Watched& process : watched_)
            files.push_back({process.handle->get(), POLLIN, 0});
        if (::poll(files.data(), files.size(), timeout_ms) < 0 && errno != EINTR) fail("poll");

        std::uint64_t wakes = 0;
        if (::read(wake_.get(), &wakes, sizeof wakes) < 0 && errno != EAGAIN) fail("read");
        for (std::size_t i = files.size(); i-- > 1 + live_.inputs.size();) {
            if (files[i].revents == 0) continue;
            const auto dead = watched_.begin() + static_cast<long>(i - 1 - live_.inputs.size());
            reap(*dead);
            watched_.erase(dead);
        }
        watch_new_processes();
        for (std::size_t i = 0; i < live_.inputs.size(); ++i) {
            if (files[1 + i].revents == 0 || world->running != nullptr) continue;
            world->now = std::clamp(present(), world->now, std::max(world->now, next_step().at));
            if (!live_.inputs[i].second()) live_.inputs[i].first = -1;
        }
    }

    Live live_;
    Outcome outcome_;
    RealFile console_, errors_, wake_;
    std::vector<Watched> watched_;                           // living processes
    std::map<const Process*, std::int64_t> latest_watched_;  // number of the latest one, by slot
    pid_t leader_ = 0;     // the main process; it leads the group of all processes of the run
    bool exited_ = false;  // the main process exited by itself
    RealClock::time_point start_ = RealClock::now();
};

}  // namespace

Outcome simulate(const Board& description, const Program& program, const Live& live) {
    return Run(description, program, live).finish();
}

// The coverage build counts in memory, and a process that is killed would lose its counts.
void save_coverage() {
#ifdef Q7_COVERAGE
    __gcov_dump();
    __gcov_reset();
#endif
}

void leave_process(int status) {
    if (self->process == world->processes && at_exit_of_main) at_exit_of_main();
    save_coverage();
    end_process(*self->process);
    pass_turn();
    ::_exit(status);
}

void wake_supervisor() {
    const std::uint64_t one = 1;
    if (::write(world->wake_supervisor, &one, sizeof one) < 0) ::_exit(127);
}

}  // namespace sim
