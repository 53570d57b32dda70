#include "station/dictionary/simulator.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <nlohmann/json.hpp>
#include <system_error>

namespace station {
namespace {

constexpr int kLimit_ms = 60'000;
constexpr int kRefused = 2, kStopped = 120;  // statuses of q7-sim

[[noreturn]] void fail(const std::string& what, int error = errno) {
    throw std::system_error(error, std::generic_category(), what);
}

// A started process, which is ended and reaped if nobody waits for it.
class Process {
  public:
    Process(std::vector<std::string> words, int out, int err) {
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        if (const int error = posix_spawn_file_actions_init(&actions)) fail("posix_spawn", error);
        int error = posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        if (error == 0) error = posix_spawn_file_actions_adddup2(&actions, out, 1);
        if (error == 0) error = posix_spawn_file_actions_adddup2(&actions, err, 2);
        if (error == 0)
            error = posix_spawn(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (error != 0)
            throw SimulatorError(words[0] + ": " + std::generic_category().message(error));
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process() {
        if (reaped_) return;
        ::kill(pid_, SIGKILL);
        int status;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
    }

    // Its wait status; throws SimulatorError when it takes too long.
    int wait() {
        const int handle = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
        if (handle < 0) fail("pidfd_open");
        pollfd ended{handle, POLLIN, 0};
        int ready;
        do {
            ready = ::poll(&ended, 1, kLimit_ms);
        } while (ready < 0 && errno == EINTR);
        ::close(handle);
        if (ready <= 0) throw SimulatorError("the simulator does not end");
        int status;
        while (::waitpid(pid_, &status, 0) < 0)
            if (errno != EINTR) fail("waitpid");
        reaped_ = true;
        return status;
    }

  private:
    pid_t pid_ = 0;
    bool reaped_ = false;
};

std::uint32_t word_at(std::string_view bytes, std::size_t at) {
    std::uint32_t word = 0;
    for (std::size_t i = 4; i-- > 0;)
        word = word << 8 | static_cast<unsigned char>(bytes[at + i]);
    return word;
}

// Records are a type, a length and a text each.
std::vector<std::string> records_of(std::string_view bytes) {
    std::vector<std::string> records;
    while (bytes.size() >= 8) {
        const std::size_t length = word_at(bytes, 4);
        if (length > bytes.size() - 8) break;
        records.emplace_back(bytes.substr(8, length));
        bytes.remove_prefix(8 + length);
    }
    if (!bytes.empty()) throw SimulatorError("the simulator wrote a record that is cut off");
    return records;
}

// Without what q7-sim says itself, also behind a line of q7 that has no end.
std::string without_remarks(std::string text) {
    for (;;) {
        const std::size_t from = text.find("q7-sim: ");
        if (from == std::string::npos) return text;
        const std::size_t end = text.find('\n', from);
        text.erase(from, end == std::string::npos ? end : end + 1 - from);
    }
}

void read_log(const std::string& log, SimulatedCommand& command) {
    for (std::size_t from = 0; from < log.size();) {
        const std::size_t end = std::min(log.find('\n', from), log.size());
        const nlohmann::json event = nlohmann::json::parse(log.substr(from, end - from));
        from = end + 1;
        if (event.contains("device")) {
            command.changes.push_back({event.at("at"), event.at("device"), event.at("state")});
            continue;
        }
        const auto word = [&](const char* key) { return event.value(key, std::string()); };
        ++command.calls[{word("call"), word("path"), word("request")}];
    }
}

// Of the log of changes alone: most lines are calls, and need no parsing.
std::string device_lines(const std::string& log) {
    std::string lines;
    for (std::size_t from = 0; from < log.size();) {
        const std::size_t end = std::min(log.find('\n', from), log.size() - 1);
        const std::string_view line(log.data() + from, end + 1 - from);
        if (line.substr(0, 40).find("\"device\":") != std::string_view::npos) lines += line;
        from = end + 1;
    }
    return lines;
}

// When a record was sent, the count of printed bytes had changed, or the last call was made.
std::vector<double> heard_at(const std::string& log) {
    std::vector<double> heard_s;
    double at_s = 0;
    std::string printed_before = "0";
    for (std::size_t from = 0; from < log.size();) {
        const std::size_t end = std::min(log.find('\n', from), log.size() - 1);
        const std::string_view line(log.data() + from, end + 1 - from);
        from = end + 1;
        constexpr std::string_view kAt = "{\"at\":", kPrinted = "\"printed\":";
        if (line.starts_with(kAt)) at_s = std::strtod(line.data() + kAt.size(), nullptr);
        const std::size_t count = line.find(kPrinted);
        if (count == std::string_view::npos) continue;
        const std::string_view rest = line.substr(count + kPrinted.size());
        const std::string_view printed = rest.substr(0, rest.find_first_not_of("0123456789"));
        const bool is_record = line.find("\"call\":\"write\"") != std::string_view::npos
                               && line.find("\"path\":\"/var/q7.fifo\"") != std::string_view::npos;
        if (is_record || printed != printed_before) heard_s.push_back(at_s);
        printed_before = printed;
    }
    heard_s.push_back(at_s);
    return heard_s;
}

}  // namespace

MemoryFile::MemoryFile() : file_(::memfd_create("board", MFD_CLOEXEC)) {
    if (file_ < 0) fail("memfd_create");
}

MemoryFile::MemoryFile(MemoryFile&& other) noexcept : file_(other.file_) { other.file_ = -1; }

MemoryFile::~MemoryFile() {
    if (file_ >= 0) ::close(file_);
}

std::string MemoryFile::path() const {
    return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(file_);
}

void MemoryFile::write(std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(file_, text.data(), text.size());
        if (count < 0 && errno != EINTR) fail("write");
        if (count > 0) text.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::string MemoryFile::content() const {
    std::string text;
    char buffer[65536];
    for (;;) {
        const ssize_t count =
            ::pread(file_, buffer, sizeof buffer, static_cast<off_t>(text.size()));
        if (count < 0 && errno != EINTR) fail("read");
        if (count == 0) return text;
        if (count > 0) text.append(buffer, static_cast<std::size_t>(count));
    }
}

Simulator::Simulator(const std::filesystem::path& program, const std::filesystem::path& scenario)
    : program_(std::filesystem::absolute(program).string()),
      scenario_(std::filesystem::absolute(scenario).string()) {}

SimulatedCommand Simulator::run(const std::string& change, const std::string& state,
                                const std::vector<std::string>& words, Log log) const {
    MemoryFile changed, board, out, err, records, trace;
    changed.write("base = '" + scenario_ + "'\n" + change);
    board.write("base = '" + std::to_string(changed.descriptor()) + "'\n" + state);  // beside it
    std::vector<std::string> arguments{program_,     "--gbk",  "--board",
                                       board.path(), "--fifo", records.path()};
    if (log != Log::none) arguments.insert(arguments.end(), {"--trace", trace.path()});
    arguments.insert(arguments.end(), words.begin(), words.end());
    Process process(std::move(arguments), out.descriptor(), err.descriptor());
    const int status = process.wait();

    SimulatedCommand command;
    command.err = err.content();
    if (WIFEXITED(status) && WEXITSTATUS(status) == kRefused)
        throw SimulatorError("the simulator refuses\n" + change + command.err);
    command.status = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    command.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    command.stopped = command.status == kStopped;
    command.err = without_remarks(std::move(command.err));
    command.out = out.content();
    command.records = records_of(records.content());
    if (log == Log::none) return command;
    const std::string calls = trace.content();
    command.heard_at_s = heard_at(calls);
    read_log(log == Log::all ? calls : device_lines(calls), command);
    return command;
}

}  // namespace station
