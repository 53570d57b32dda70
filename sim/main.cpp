// q7-sim: q7 on a simulated board.
#include <fcntl.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "driver/q7.h"
#include "sim/clock.h"
#include "sim/devices.h"
#include "sim/scenario.h"
#include "sim/supervisor.h"
#include "sim/text.h"
#include "sim/trace.h"

namespace {

constexpr int kBadUsage = 2;
constexpr int kStopped = 120;

struct Options {
    std::string board = "healthy";
    double pace = 0;
    std::optional<std::string> trace, fifo;
    bool gbk = false;
    std::vector<std::string> q7_arguments;
};

[[noreturn]] void refuse(const std::string& why) {
    std::cerr << "q7-sim: " << why << "\n";
    std::exit(kBadUsage);
}

void list_boards() {
    for (const sim::BuiltInBoard& board : sim::built_in_boards()) {
        std::printf("%-24s %s\n", board.name, sim::load_board(board.name).story.c_str());
    }
}

Options parse_options(int argc, char** argv) {
    Options options;
    bool list = false, keys = false;
    CLI::App app("Runs q7, with the arguments that follow, on a simulated board in virtual time.",
                 "q7-sim");
    app.footer(
        "The first word that is none of these begins q7's own arguments; so does what\n"
        "follows --. Exit status: that of q7; 2 for bad arguments or a bad scenario, 120\n"
        "for a run that had to be stopped.");
    app.prefix_command();
    app.set_help_flag("--help", "Show this text");
    app.set_version_flag("--version", "q7-sim " Q7_VERSION, "Show the version");
    app.add_option("--board", options.board,
                   "Board to simulate: a scenario file, or a name that --list shows")
        ->type_name("FILE");
    app.add_option("--pace", options.pace,
                   "Let virtual time pass N times as fast as real time; lines typed here reach "
                   "q7, Ctrl-C is the operator's interrupt")
        ->type_name("N")
        ->check(CLI::Range(1e-3, 1e6));
    app.add_option("--trace", options.trace, "Write the event log, one JSON object a line")
        ->type_name("FILE");
    app.add_option("--fifo", options.fifo,
                   "Write the report records of a net-mode run, as q7 sends them (without it "
                   "their texts are shown on standard error)")
        ->type_name("FILE");
    app.add_flag("--gbk", options.gbk, "Leave q7's texts in GBK");
    app.add_flag("--list", list, "Show the built-in boards");
    app.add_flag("--keys", keys, "Show every key of a scenario file");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) std::exit(app.exit(error));  // --help, --version
        refuse(error.what() + std::string(" (see --help)"));
    }
    if (list) list_boards();
    if (keys) std::fputs(sim::key_reference().c_str(), stdout);
    if (list || keys) std::exit(0);
    options.q7_arguments = app.remaining();
    auto& words = options.q7_arguments;
    if (!words.empty() && words.front() == "--") words.erase(words.begin());
    return options;
}

void write_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(fd, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return;  // whoever read this has gone
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::ofstream open_output(const std::string& path) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) refuse(path + ": cannot be written: " + std::strerror(errno));
    return file;
}

// Shows a run as it goes: console on standard output, errors and records on standard error, in
// the order in which they came.
class Screen {
  public:
    explicit Screen(const Options& options) {
        if (options.fifo) records_ = open_output(*options.fifo);
        if (!options.gbk) decoders_.emplace();
    }

    void show(int console, int errors) {
        for (; next_event_ < sim::world->events_used; ++next_event_) {
            const sim::Event& event = sim::world->events[next_event_];
            if (!is_record(event)) continue;
            if (event.ended < 0) break;
            if (event.result >= 0) {
                print(console, event.printed);
                show_record(sim::world->sent(event));
            }
        }
        print(console, SIZE_MAX);
        std::string text = read_from(errors, errors_shown_, SIZE_MAX);
        write_all(STDERR_FILENO, decoders_ ? decoders_->errors.decode(text) : text);
    }

    void finish() {
        if (!decoders_) return;
        write_all(STDOUT_FILENO, decoders_->console.finish());
        write_all(STDERR_FILENO, decoders_->errors.finish());
    }

  private:
    struct Decoders {
        sim::GbkDecoder console, errors;
    };

    static bool is_record(const sim::Event& event) {
        return std::strcmp(event.function, "write") == 0
               && sim::world->path_of(event) == "/var/q7.fifo";
    }

    static std::string read_from(int fd, std::size_t& position, std::size_t limit) {
        std::string text;
        char buffer[4096];
        while (position < limit) {
            const ssize_t count = ::pread(fd, buffer, std::min(sizeof buffer, limit - position),
                                          static_cast<off_t>(position));
            if (count <= 0) break;
            text.append(buffer, static_cast<std::size_t>(count));
            position += static_cast<std::size_t>(count);
        }
        return text;
    }

    void print(int console, std::size_t limit) {
        const std::string text = read_from(console, console_shown_, limit);
        write_all(STDOUT_FILENO, decoders_ ? decoders_->console.decode(text) : text);
    }

    void show_record(std::string_view record) {
        if (records_.is_open()) {
            records_ << record << std::flush;
            return;
        }
        const std::string_view bytes = record.substr(8);
        std::string text = decoders_ ? sim::gbk_to_utf8(bytes) : std::string(bytes);
        for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) {
            text.replace(at, 1, "\\n");
        }
        write_all(STDERR_FILENO, "[record] " + text + "\n");
    }

    std::ofstream records_;
    std::optional<Decoders> decoders_;
    std::size_t next_event_ = 0, console_shown_ = 0, errors_shown_ = 0;
};

bool take_typed_lines() {
    static std::string partial;
    char buffer[4096];
    const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (count <= 0) {
        sim::type_line("");
        return false;
    }
    partial.append(buffer, static_cast<std::size_t>(count));
    for (std::size_t end; (end = partial.find('\n')) != std::string::npos;) {
        sim::type_line(std::string_view(partial).substr(0, end + 1));
        partial.erase(0, end + 1);
    }
    return true;
}

// Ctrl-C as a descriptor, so that it becomes the operator's interrupt.
int interrupts_as_descriptor() {
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    sigprocmask(SIG_BLOCK, &interrupt, nullptr);
    return ::signalfd(-1, &interrupt, SFD_CLOEXEC);
}

sim::Live live(const Options& options, Screen& screen) {
    sim::Live live;
    live.pace = options.pace;
    live.show = [&](int console, int errors) { screen.show(console, errors); };
    if (options.pace == 0) return live;
    live.inputs.emplace_back(STDIN_FILENO, take_typed_lines);
    const int interrupts = interrupts_as_descriptor();
    live.inputs.emplace_back(interrupts, [interrupts] {
        signalfd_siginfo info;
        if (::read(interrupts, &info, sizeof info) == sizeof info) {
            sim::world->typed_interrupt = sim::world->now;
        }
        return true;
    });
    return live;
}

int run_q7(const Options& options) {
    std::vector<char*> arguments{const_cast<char*>("q7")};
    for (const std::string& argument : options.q7_arguments) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    return q7_main(static_cast<int>(arguments.size()) - 1, arguments.data());
}

void save_flashes(const sim::Board& board, const sim::World& state) {
    std::size_t place = 0;
    for (const auto& [name, bridge] : board.bridges) {
        const auto& cells = state.bridges[place++].flash.cells;
        if (bridge.save.empty()) continue;
        open_output(bridge.save).write(reinterpret_cast<const char*>(cells), sizeof cells);
    }
}

int end_like(const sim::Outcome& outcome) {
    const auto seconds = [](sim::Microseconds at) { return static_cast<double>(at) / 1e6; };
    if (outcome.stopped) {
        std::fprintf(stderr, "q7-sim: stopped at %.6f s: %s\n", seconds(outcome.world->now),
                     outcome.reason.c_str());
        return kStopped;
    }
    const sim::Microseconds restart = outcome.world->control.watchdog_expires;
    if (restart != sim::kNever) {
        std::fprintf(stderr, "q7-sim: the watchdog restarts the board at %.6f s\n",
                     seconds(restart));
    }
    if (outcome.signal == 0) return outcome.status;
    std::fprintf(stderr, "q7-sim: q7 ended by signal %d (%s)\n", outcome.signal,
                 strsignal(outcome.signal));
    ::signal(outcome.signal, SIG_DFL);
    sigset_t own;
    sigemptyset(&own);
    sigaddset(&own, outcome.signal);
    sigprocmask(SIG_UNBLOCK, &own, nullptr);
    ::raise(outcome.signal);
    return 128 + outcome.signal;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Options options = parse_options(argc, argv);
        const sim::Board board = sim::load_board(options.board);
        std::ofstream trace;
        if (options.trace) trace = open_output(*options.trace);
        Screen screen(options);
        const sim::Outcome outcome =
            sim::simulate(board, {[&] { return run_q7(options); }}, live(options, screen));
        screen.finish();
        for (const sim::Event& event : outcome.world->log()) {
            if (trace.is_open()) trace << sim::to_json(*outcome.world, event) << '\n';
        }
        save_flashes(board, *outcome.world);
        return end_like(outcome);
    } catch (const std::exception& error) {
        refuse(error.what());
    }
}
