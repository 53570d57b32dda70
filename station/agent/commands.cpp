#include "station/agent/commands.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace agent {
namespace {

constexpr int kLookEvery_ms = 10;     // at a spool that grows
constexpr int kAliveEvery_ms = 1000;  // while nothing happens
constexpr int kStartTakes_ms = 30'000;

// Longer than a program may take to end by the last signal, and what it left behind.
constexpr int kStopTakes_ms = 40'000;

void pause_ms(int time_ms) { ::poll(nullptr, 0, time_ms); }

int say(const Result& result) {
    if (result.status != kGood) std::fprintf(stderr, "q7-agent: %s\n", result.reason);
    return result.status;
}

Result no_folder(const char* path) {
    return failure(kNoSpool, "%s: %s", path, std::strerror(errno));
}

// A run that has to be there; `result` says why it is not.
Run find_run(const Folder& folder, const char* path, const char* name, Result& result) {
    Run run;
    if (folder.is_open()) run = folder.find(name);
    if (run.number == 0) result = failure(kNoSuchRun, "%s: no such run in %s", name, path);
    return run;
}

// Behind the event "end" a recorder has only to leave. False: it has not, in this time.
bool await_recorder(const SpoolReader& spool) {
    constexpr int leaving_takes_ms = 5000;
    for (int waited_ms = 0; spool.recorder_lives(); ++waited_ms) {
        if (waited_ms == leaving_takes_ms) return false;
        pause_ms(1);
    }
    return true;
}

// --- Following

bool send(std::string_view line) { return write_all(STDOUT_FILENO, line); }

bool send_alive(std::uint64_t last) {
    Line line;
    line.text("event", "alive").number("last", static_cast<std::int64_t>(last));
    return send(line.number("t", monotonic_us()).seal());
}

Result end_of(const SpoolReader& spool, const Run& run) {
    if (!spool.ended()) {
        Line line;
        if (!send(line.text("event", "dead").number("t", monotonic_us()).seal())) {
            return failure(kNoOutput, "standard output cannot be written");
        }
        return failure(kRecorderDead, "run %s: its recorder has died", run.name);
    }
    await_recorder(spool);  // now the next run can start, and this one be released
    if (spool.program_missing()) return failure(kNoProgram, "run %s: no program", run.name);
    if (spool.spool_full()) return failure(kNoSpool, "run %s: the spool was full", run.name);
    return {};
}

// Sends the spool from an event on, until the run has ended.
Result follow_run(const Folder& folder, const Run& run, std::uint64_t from) {
    SpoolReader spool(folder, run);
    if (!spool.is_open()) return failure(kNoSuchRun, "run %s: %s", run.name, std::strerror(errno));
    int silent_ms = 0;
    while (!spool.ended()) {
        const bool lives = spool.recorder_lives();
        bool sent = true, any = false;
        for (std::string_view line; sent && !(line = spool.next()).empty(); any = true)
            if (spool.last() >= from) sent = send(line);
        silent_ms = any ? 0 : silent_ms + kLookEvery_ms;
        if (sent && silent_ms >= kAliveEvery_ms) {
            sent = send_alive(spool.last());
            silent_ms = 0;
        }
        if (!sent) return failure(kNoOutput, "standard output: %s", std::strerror(errno));
        if (!any && !lives) break;
        if (!any) pause_ms(kLookEvery_ms);
    }
    return end_of(spool, run);
}

// --- Starting

void report_to_pipe(int pipe, const Result& result) {
    if (::write(pipe, &result, sizeof result) < 0) { /* nobody waits for it any more */
    }
    ::close(pipe);
}

void report_to_person(int /*unused*/, const Result& result) { say(result); }

// The recorder keeps nothing of the process that starts it: no session, no descriptor.
[[noreturn]] void become_recorder(const RunOptions& options, const Folder& folder, const Run& run,
                                  Descriptor lock, int report) {
    ::signal(SIGHUP, SIG_IGN);
    ::setsid();
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::dup2(null, stream);
    for (int fd = STDERR_FILENO + 1; fd < 1024; ++fd)
        if (fd != report && fd != lock.get() && fd != folder.get()) ::close(fd);
    ::_exit(record(options, folder, run, std::move(lock), report_to_pipe, report));
}

// Returns when the program runs, or cannot.
Result launch(const RunOptions& options, const Folder& folder, const Run& run, Descriptor lock) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return failure(kNoProcess, "no pipe");
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    const pid_t pid = ::fork();
    if (pid < 0) return failure(kNoProcess, "no process: %s", std::strerror(errno));
    if (pid == 0) become_recorder(options, folder, run, std::move(lock), writing.get());
    writing.close();
    Result result;
    pollfd file{reading.get(), POLLIN, 0};
    if (::poll(&file, 1, kStartTakes_ms) <= 0
        || ::read(reading.get(), &result, sizeof result) != sizeof result) {
        return failure(kRecorderDead, "run %s: its recorder does not answer", run.name);
    }
    return result;
}

// The run that is to be: with the name asked for, or one made of time and number.
Run new_run(const RunOptions& options, const Folder& folder) {
    Run run;
    run.number = folder.next_number();
    if (options.name != nullptr) {
        std::snprintf(run.name, sizeof run.name, "%s", options.name);
        return run;
    }
    const time_t now = ::time(nullptr);
    tm utc{};
    ::gmtime_r(&now, &utc);
    char when[32];
    ::strftime(when, sizeof when, "%Y%m%dT%H%M%SZ", &utc);
    std::snprintf(run.name, sizeof run.name, "%s-%u", when, run.number);
    return run;
}

Result in_the_way(const Folder& folder, const char* holder) {
    const Run run = folder.find(holder);
    if (run.number != 0 && !SpoolReader(folder, run).recorder_lives()) {
        return failure(kInProgress, "a process of run %s still lives", holder);
    }
    return failure(kInProgress, "run %s is in progress", holder);
}

using Launch = Result (*)(const RunOptions&, const Folder&, const Run&, Descriptor lock);

// Finds the run with this name, or launches it. A run of the same name that is just being started
// is waited for; any other one that lives is in the way.
Result obtain(const RunOptions& options, const Folder& folder, Run& run, Launch launch_run) {
    constexpr int attempts = 40, attempts_for_others = 4, between_ms = 50;
    char holder[kLongestName + 1] = "";
    for (int attempt = 0; attempt < attempts; ++attempt) {
        Descriptor lock = folder.lock(holder);
        const int reason = errno;
        if (options.name != nullptr) run = folder.find(options.name);
        if (run.number != 0) return {};
        if (lock.is_open()) {
            run = new_run(options, folder);
            Folder::name_holder(lock, run.name);
            return launch_run(options, folder, run, std::move(lock));
        }
        if (reason != EWOULDBLOCK) {
            return failure(kNoSpool, "%s: %s", options.folder, std::strerror(reason));
        }
        const bool same = options.name != nullptr && std::strcmp(holder, options.name) == 0;
        if (!same && attempt == attempts_for_others) break;
        pause_ms(between_ms);
    }
    return in_the_way(folder, holder);
}

}  // namespace

int run(const RunOptions& options) {
    const Folder folder(options.folder, Folder::Missing::make);
    if (!folder.is_open()) return say(no_folder(options.folder));
    Run run;
    const Result started = obtain(options, folder, run, launch);
    // A program that was not found is an event of its run, too.
    if (started.status != kGood && started.status != kNoProgram) return say(started);
    const Result followed = follow_run(folder, run, 1);
    return say(started.status == kNoProgram ? started : followed);
}

int start(const RunOptions& options) {
    const Folder folder(options.folder, Folder::Missing::make);
    if (!folder.is_open()) return say(no_folder(options.folder));
    Run run;
    const Result started = obtain(options, folder, run, launch);
    if (started.status != kGood) return say(started);
    std::puts(run.name);
    return kGood;
}

int record(const RunOptions& options) {
    const Folder folder(options.folder, Folder::Missing::make);
    if (!folder.is_open()) return say(no_folder(options.folder));
    Run run;
    return say(obtain(
        options, folder, run,
        [](const RunOptions& its, const Folder& place, const Run& next, Descriptor lock) {
            const int status = record(its, place, next, std::move(lock), report_to_person, -1);
            std::exit(status);
            return Result{};
        }));
}

int follow(const char* path, const char* name, std::uint64_t from) {
    const Folder folder(path, Folder::Missing::fail);
    Result result;
    const Run run = find_run(folder, path, name, result);
    if (result.status == kGood) result = follow_run(folder, run, from);
    return say(result);
}

int stop(const char* path, const char* name) {
    const Folder folder(path, Folder::Missing::fail);
    Result result;
    const Run run = find_run(folder, path, name, result);
    if (result.status != kGood) return say(result);
    SpoolReader spool(folder, run);
    const Descriptor control = folder.open(run, kControl, O_WRONLY | O_NONBLOCK);
    if (control.is_open()) write_all(control.get(), "s");
    for (int waited_ms = 0; waited_ms < kStopTakes_ms; waited_ms += kLookEvery_ms) {
        const bool lives = spool.recorder_lives();
        while (!spool.next().empty()) {
        }
        if (spool.ended() && !lives) return kGood;
        if (!lives) return say(failure(kRecorderDead, "run %s: its recorder has died", name));
        pause_ms(kLookEvery_ms);
    }
    return say(failure(kInProgress, "run %s does not end", name));
}

int release(const char* path, const char* name) {
    const Folder folder(path, Folder::Missing::fail);
    Result result;
    const Run run = find_run(folder, path, name, result);
    if (result.status != kGood) return say(result);
    SpoolReader spool(folder, run);
    while (!spool.next().empty()) {
    }
    if (spool.ended() ? !await_recorder(spool) : spool.recorder_lives()) {
        return say(failure(kInProgress, "run %s is in progress", name));
    }
    folder.remove(run);
    folder.sync();
    if (folder.find(name).number != 0) {
        return say(failure(kNoSpool, "run %s: cannot be removed from %s", name, path));
    }
    return kGood;
}

int list(const char* path) {
    const Folder folder(path, Folder::Missing::fail);
    if (!folder.is_open()) return kGood;  // nothing was ever run
    for (Run run = folder.after(0); run.number != 0; run = folder.after(run.number)) {
        SpoolReader spool(folder, run);
        if (!spool.is_open()) continue;  // released meanwhile
        const bool lives = spool.recorder_lives();
        char command[kLongestLine] = "[]";
        for (std::string_view line; !(line = spool.next()).empty();) {
            if (spool.last() > 1) continue;
            const std::string_view words = list_in(line, "command");
            std::memcpy(command, words.data(), words.size());
            command[words.size()] = '\0';
        }
        Line line;
        line.text("run", run.name);
        line.text("state", lives ? "running" : spool.ended() ? "ended" : "dead");
        line.number("events", static_cast<std::int64_t>(spool.last()));
        line.number("bytes", spool.size()).json("command", command);
        if (!send(line.finish()))
            return say(failure(kNoOutput, "standard output: %s", std::strerror(errno)));
    }
    return kGood;
}

}  // namespace agent
