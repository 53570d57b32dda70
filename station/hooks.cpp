#include "station/hooks.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace station {
namespace {

constexpr std::size_t kSaidAtMost = 4096;
constexpr int kTick_ms = 10;  // how often the end of the command is looked for

class Descriptor {
  public:
    explicit Descriptor(int number = -1) : number_(number) {}
    ~Descriptor() { close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return number_; }
    void reset(int number) {
        close();
        number_ = number;
    }
    void close() {
        if (number_ >= 0) ::close(number_);
        number_ = -1;
    }

  private:
    int number_;
};

// A file in memory with this text, at its beginning: nobody has to feed it to the command.
bool make_file(Descriptor& file, std::string_view text) {
    file.reset(memfd_create("input", MFD_CLOEXEC));
    while (file.get() >= 0 && !text.empty()) {
        const ssize_t count = write(file.get(), text.data(), text.size());
        if (count <= 0) return false;
        text.remove_prefix(std::size_t(count));
    }
    return file.get() >= 0 && lseek(file.get(), 0, SEEK_SET) == 0;
}

bool make_pipe(Descriptor& reading, Descriptor& writing) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    reading.reset(ends[0]);
    writing.reset(ends[1]);
    return fcntl(reading.get(), F_SETFL, O_NONBLOCK) == 0;
}

// Starts the shell in a group of its own. Returns its pid; below 1 = it was not started.
pid_t start(const std::string& command, int input, int output) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    if (posix_spawn_file_actions_init(&actions) != 0) return -1;
    if (posix_spawnattr_init(&attributes) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return -1;
    }
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGINT);
    const char* const words[] = {"sh", "-c", command.c_str(), nullptr};
    pid_t pid = -1;
    const bool ready =
        posix_spawn_file_actions_adddup2(&actions, input, 0) == 0
        && posix_spawn_file_actions_adddup2(&actions, output, 1) == 0
        && posix_spawn_file_actions_adddup2(&actions, output, 2) == 0
        && posix_spawnattr_setpgroup(&attributes, 0) == 0
        && posix_spawnattr_setsigmask(&attributes, &none) == 0
        && posix_spawnattr_setsigdefault(&attributes, &defaults) == 0
        && posix_spawnattr_setflags(
               &attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF)
               == 0;
    if (!ready
        || posix_spawn(&pid, "/bin/sh", &actions, &attributes, const_cast<char**>(words), environ)
               != 0) {
        pid = -1;
    }
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// Takes what the command has said, and waits for it for at most a tick.
void listen(Descriptor& from, std::string& said) {
    pollfd output{from.get(), POLLIN, 0};
    if (poll(&output, 1, kTick_ms) <= 0) return;
    char bytes[kSaidAtMost];
    const ssize_t count = read(from.get(), bytes, sizeof bytes);
    if (count > 0) {
        said.append(bytes, std::min(std::size_t(count), kSaidAtMost - said.size()));
    } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
        from.close();
    }
}

}  // namespace

std::string start_question(const Identity& identity, const std::string& plan_sha256) {
    const nlohmann::ordered_json about{
        {"serial", identity.serial},   {"model", identity.model},
        {"station", identity.station}, {"operator", identity.operator_id},
        {"mark", identity.mark},       {"plan", plan_sha256}};
    return about.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

std::string words_of(const HookResult& result) {
    switch (result.end) {
    case HookResult::End::late:
        return "no answer in time";
    case HookResult::End::not_started:
        return "the command cannot be started";
    default:
        break;
    }
    std::string said = result.said;
    while (!said.empty() && (said.back() == '\n' || said.back() == '\r'))
        said.pop_back();
    return said.empty() ? "status " + std::to_string(result.status) : said;
}

HookResult run_hook(const std::string& command, const std::string& input,
                    std::chrono::milliseconds limit) {
    HookResult result;
    Descriptor file, from, to;
    if (!make_file(file, input) || !make_pipe(from, to)) return result;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    const pid_t pid = start(command, file.get(), to.get());
    if (pid <= 1) return result;
    to.close();
    int status = 0;
    pid_t ended = 0;
    while ((ended = waitpid(pid, &status, WNOHANG)) == 0
           && std::chrono::steady_clock::now() < deadline) {
        listen(from, result.said);
    }
    if (ended == 0) {
        // Not waited for yet, so the pid and its group are still ours.
        kill(-pid, SIGKILL);
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        result.end = HookResult::End::late;
        return result;
    }
    listen(from, result.said);     // what it said last
    if (ended < 0) return result;  // somebody else has waited for it
    result.end = WIFEXITED(status) ? HookResult::End::exited : HookResult::End::signalled;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
    return result;
}

}  // namespace station
