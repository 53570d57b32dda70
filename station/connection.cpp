#include "station/connection.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <system_error>

namespace station {
namespace {

constexpr std::size_t kReadSize = 65536;

bool is_agent(const std::string& word) { return word.substr(word.rfind('/') + 1) == "q7-agent"; }

void close_both(int (&pipe)[2]) {
    ::close(pipe[0]);
    ::close(pipe[1]);
}

void append(std::vector<std::string>& words, const std::vector<std::string>& more) {
    words.insert(words.end(), more.begin(), more.end());
}

std::int64_t now_ms() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

BoardWords BoardWords::parse(const std::vector<std::string>& words) {
    BoardWords board;
    std::size_t i = 0;
    while (i < words.size()
           && !(is_agent(words[i]) && i + 1 < words.size() && words[i + 1] == "run"))
        board.connection.push_back(words[i++]);
    if (i == words.size()) {
        throw std::runtime_error(
            "behind -- must stand: [CONNECTION...] q7-agent run [...] -- "
            "PROGRAM...");
    }
    board.agent = words[i];
    i += 2;
    while (i < words.size() && words[i].starts_with("--") && words[i] != "--") {
        if (i + 1 == words.size()) throw std::runtime_error("a value is wanted behind " + words[i]);
        if (words[i] == "--run") throw std::runtime_error("the station itself names the run");
        if (words[i] == "--spool") board.spool = {words[i], words[i + 1]};
        append(board.options, {words[i], words[i + 1]});
        i += 2;
    }
    if (i < words.size() && words[i] == "--") ++i;
    board.program.assign(words.begin() + static_cast<std::ptrdiff_t>(i), words.end());
    if (board.program.empty()) board.program = {"q7"};
    return board;
}

std::vector<std::string> BoardWords::run(const std::string& name, int time_limit_s,
                                         const std::vector<std::string>& q7_words) const {
    std::vector<std::string> words = connection;
    append(words, {agent, "run", "--run", name});
    const bool limited = std::find(options.begin(), options.end(), "--time-limit") != options.end();
    if (!limited) append(words, {"--time-limit", std::to_string(time_limit_s)});
    append(words, options);
    words.emplace_back("--");
    append(words, program);
    append(words, q7_words);
    return words;
}

std::vector<std::string> BoardWords::follow(const std::string& name, std::uint64_t from) const {
    std::vector<std::string> words = about("follow", name);
    append(words, {"--from", std::to_string(from)});
    return words;
}

std::vector<std::string> BoardWords::about(const char* command, const std::string& name) const {
    std::vector<std::string> words = connection;
    append(words, {agent, command, name});
    append(words, spool);
    return words;
}

Child::Child(const std::vector<std::string>& words) {
    int output[2], errors[2];
    if (::pipe2(output, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    if (::pipe2(errors, O_CLOEXEC) != 0) {
        const int error = errno;
        close_both(output);
        throw std::system_error(error, std::generic_category(), "pipe");
    }
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawnattr_init(&attributes);
    ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&files, output[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&files, errors[1], STDERR_FILENO);
    // A group of its own: Ctrl-C at the station's terminal is for the station.
    sigset_t none;
    ::sigemptyset(&none);
    ::posix_spawnattr_setpgroup(&attributes, 0);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    pid_t pid = -1;
    const int error =
        ::posix_spawnp(&pid, arguments[0], &files, &attributes, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&files);
    ::posix_spawnattr_destroy(&attributes);
    ::close(output[1]);
    ::close(errors[1]);
    if (error != 0) {
        ::close(output[0]);
        ::close(errors[0]);
        throw std::system_error(error, std::generic_category(), words.front());
    }
    pid_ = pid;
    output_ = output[0];
    errors_ = errors[0];
    for (const int fd : {output_, errors_})
        ::fcntl(fd, F_SETFL, O_NONBLOCK);
}

Child::~Child() {
    kill();
    if (output_ >= 0) ::close(output_);
    if (errors_ >= 0) ::close(errors_);
}

bool Child::read_some(int& fd, std::string& bytes) {
    char buffer[kReadSize];
    const ssize_t count = ::read(fd, buffer, sizeof buffer);
    if (count > 0) {
        bytes.append(buffer, static_cast<std::size_t>(count));
        return true;
    }
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) return true;
    ::close(fd);
    fd = -1;
    return false;
}

std::optional<int> Child::wait(int timeout_ms) {
    const std::int64_t until = now_ms() + timeout_ms;
    while (pid_ > 0) {
        int status = 0;
        const pid_t ended = ::waitpid(pid_, &status, WNOHANG);
        if (ended == pid_) {
            pid_ = -1;
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        } else if (ended < 0 && errno != EINTR) {
            pid_ = -1;
            status_ = 255;
        } else if (now_ms() >= until) {
            return std::nullopt;
        } else {
            ::poll(nullptr, 0, 2);
        }
    }
    return status_;
}

void Child::kill() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    status_ = 128 + SIGKILL;
}

int run_to_end(const std::vector<std::string>& words, int timeout_ms, std::string& output) {
    Child child(words);
    const std::int64_t until = now_ms() + timeout_ms;
    std::string errors;
    while (child.output() >= 0 || child.errors() >= 0) {
        pollfd waits[] = {{child.output(), POLLIN, 0}, {child.errors(), POLLIN, 0}};
        const std::int64_t left = until - now_ms();
        if (left <= 0) return -1;
        if (::poll(waits, 2, static_cast<int>(left)) < 0 && errno != EINTR) return -1;
        if (waits[0].revents != 0) child.read_output(output);
        if (waits[1].revents != 0) child.read_errors(errors);
    }
    const std::optional<int> status =
        child.wait(static_cast<int>(std::max<std::int64_t>(0, until - now_ms())));
    return status.value_or(-1);
}

}  // namespace station
