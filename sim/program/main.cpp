// q7-sim: q7 on a simulated board.
#include <fcntl.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "driver/q7.h"
#include "sim/devices/console.h"
#include "sim/devices/pipe.h"
#include "sim/event_log.h"
#include "sim/program/keyboard.h"
#include "sim/program/machine.h"
#include "sim/program/screen.h"
#include "sim/scenario/scenario.h"
#include "sim/supervisor.h"

namespace {

constexpr int kBadUsage = 2;
constexpr int kStopped = 120;
constexpr int kNeverCame = 121;  // with --strict

struct Options {
    std::string board = "healthy";
    double pace = 0;
    std::optional<std::string> trace, fifo, summary;
    bool gbk = false, strict = false, script = false, check = false;
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

// The words behind the options, which are q7's. Words after -- are not examined.
std::vector<std::string> q7_words(const CLI::App& app) {
    std::vector<std::string> words = app.remaining();
    if (words.empty()) return words;
    if (words.front() == "--") return {words.begin() + 1, words.end()};
    if (words.front().starts_with("--"))
        refuse(words.front() + " is no option of q7-sim (see --help); words for q7 can follow --");
    for (const std::string& word : words) {
        const std::string name = word.substr(0, word.find('='));
        if (name.starts_with("--") && app.get_option_no_throw(name) != nullptr)
            refuse(name + " is an option of q7-sim: it belongs before " + words.front());
    }
    return words;
}

Options parse_options(int argc, char** argv) {
    Options options;
    bool list = false, keys = false;
    CLI::App app("Runs q7, with the arguments that follow, on a simulated board in virtual time.",
                 "q7-sim");
    app.footer(
        "The first word that is none of these begins q7's own arguments; what follows -- is not\n"
        "looked at. Exit status: that of q7; 2 for bad arguments or a bad scenario, 120 for a run\n"
        "that had to be stopped, 121 with --strict for a fault or change that\n"
        "never came.\n"
        "With --pace at a terminal these keys drive the panel, besides the arrows, Esc, F1 and "
        "F2:\n"
        + sim::panel_key_help());
    app.prefix_command();
    app.set_help_flag("--help", "Show this text");
    app.set_version_flag("--version", "q7-sim " Q7_VERSION, "Show the version");
    app.add_option("--board", options.board,
                   "Board to simulate: a scenario file, or a name that --list shows")
        ->type_name("FILE");
    app.add_option("--pace", options.pace,
                   "Let virtual time pass N times as fast as real time; what is typed reaches q7, "
                   "Ctrl-C is the operator's interrupt")
        ->type_name("N")
        ->check(CLI::Range(1e-3, 1e6));
    app.add_flag("--script", options.script,
                 "With --pace at a terminal, let the scenario press the panel's keys as well");
    app.add_option("--trace", options.trace, "Write the event log, one JSON object a line")
        ->type_name("FILE");
    app.add_option("--fifo", options.fifo,
                   "Write the report records of a net-mode run, as q7 sends them (without it "
                   "their texts are shown on standard error); the reader of a real FIFO is the "
                   "run's reader")
        ->type_name("FILE");
    app.add_flag("--check", options.check,
                 "Run the scenarios that follow and say which keep what their [expect] promises; "
                 "status 1 when not all do");
    app.add_option("--summary", options.summary,
                   "Show what came of the run as a line of JSON, and nothing else")
        ->type_name("json")
        ->check(CLI::IsMember({"json"}));
    app.add_flag("--strict", options.strict,
                 "End with 121 when a fault or change of the scenario never came");
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
    options.q7_arguments = q7_words(app);
    return options;
}

std::ofstream open_output(const std::string& path) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) refuse(path + ": cannot be written: " + std::strerror(errno));
    return file;
}

bool changes_the_reader(sim::Board board) {
    const sim::FifoReader before = board.fifo;
    return std::any_of(board.changes.begin(), board.changes.end(), [&](const sim::Change& change) {
        change.apply(board);
        return board.fifo.reader != before.reader || board.fifo.reading != before.reading;
    });
}

// Opens a FIFO of the host, whose reader is then that of the run.
int open_fifo(const std::string& path, const sim::Board& board) {
    const sim::FifoReader& reader = board.fifo;
    if (!reader.reader || !reader.reading || changes_the_reader(board))
        refuse(path
               + " is a FIFO with a reader of its own, and the scenario describes one as well");
    int fifo = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fifo < 0 && errno == ENXIO) {
        std::cerr << "q7-sim: waiting for a reader of " << path << std::endl;
        fifo = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    }
    if (fifo < 0 || ::fcntl(fifo, F_SETFL, O_WRONLY | O_NONBLOCK) < 0)
        refuse(path + ": cannot be written: " + std::strerror(errno));
    return fifo;
}

// Receives Ctrl-C through a descriptor, to make it the operator's interrupt.
int interrupts_as_descriptor() {
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    sigprocmask(SIG_BLOCK, &interrupt, nullptr);
    return ::signalfd(-1, &interrupt, SFD_CLOEXEC);
}

sim::Live live(const Options& options, sim::Screen& screen, sim::Keyboard& keyboard) {
    sim::Live live;
    live.pace = options.pace;
    live.show = [&](int console, int errors) { screen.show(console, errors); };
    if (options.pace == 0) return live;
    live.inputs.emplace_back(STDIN_FILENO, [&] { return keyboard.read_input(); });
    const int interrupts = interrupts_as_descriptor();
    live.inputs.emplace_back(interrupts, [interrupts] {
        signalfd_siginfo info;
        if (::read(interrupts, &info, sizeof info) == sizeof info) {
            sim::type_interrupt();
        }
        return true;
    });
    return live;
}

// Reports a failed write; the exit status stays that of the run.
void close_output(std::ofstream& file, const std::string& path) {
    file.close();
    if (!file) std::cerr << "q7-sim: " << path << ": not all of it could be written\n";
}

int run_q7(const std::vector<std::string>& words) {
    std::vector<char*> arguments{const_cast<char*>("q7")};
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    return q7_main(static_cast<int>(arguments.size()) - 1, arguments.data());
}

void save_flashes(const sim::Board& board, const sim::World& state) {
    std::size_t place = 0;
    for (const auto& [name, bridge] : board.bridges) {
        const auto& cells = state.bridges[place++].flash.cells;
        if (bridge.save.empty()) continue;
        std::ofstream file = open_output(bridge.save);
        file.write(reinterpret_cast<const char*>(cells), sizeof cells);
        close_output(file, bridge.save);
    }
}

int end_like(const sim::Outcome& outcome) {
    if (outcome.stopped) {
        std::fprintf(stderr, "q7-sim: stopped at %.6f s: %s\n", sim::to_seconds(outcome.world->now),
                     outcome.reason.c_str());
        return kStopped;
    }
    const sim::Microseconds restart = outcome.world->control.watchdog_expires;
    if (restart != sim::kNever) {
        std::fprintf(stderr, "q7-sim: the watchdog restarts the board at %.6f s\n",
                     sim::to_seconds(restart));
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

// Prints the faults and changes of the scenario itself that never came; true if there was any. Those
// of a base or of a built-in board may be meant for another command.
bool report_what_never_came(const sim::Board& board, const sim::World& world) {
    bool any = false;
    const auto report = [&](const char* kind, const sim::Occurrence& what, bool is_of_call,
                            const sim::OccurrenceState& state) {
        if (state.came > 0 || board.file.empty() || !what.place.starts_with(board.file + ":"))
            return;
        any = true;
        std::cerr << "q7-sim: " << what.place << ": this " << kind << " never came";
        if (is_of_call)
            std::cerr << ": " << state.matches << " calls matched, it waits for " << what.nth;
        std::cerr << "\n";
    };
    for (std::size_t i = 0; i < board.faults.size(); ++i)
        report("fault", board.faults[i], true, world.faults[i]);
    for (std::size_t i = 0; i < board.changes.size(); ++i) {
        const bool is_of_call = board.changes[i].trigger == sim::Change::Trigger::call;
        report("change", board.changes[i], is_of_call, world.changes[i]);
    }
    return any;
}

// The whole run, with all requested output.
sim::Outcome simulate(sim::Board& board, const Options& options) {
    std::ofstream trace, records;
    if (options.trace) trace = open_output(*options.trace);
    const bool has_reader = options.fifo && std::filesystem::is_fifo(*options.fifo);
    if (has_reader) sim::use_host_fifo(open_fifo(*options.fifo, board));
    if (options.fifo && !has_reader) records = open_output(*options.fifo);
    const bool paced = options.pace > 0;
    sim::Keyboard keyboard(paced);
    if (keyboard.is_terminal() && !options.script) board.panel.frames.clear();
    sim::Screen screen(records, has_reader ? sim::Records::sent : sim::Records::shown,
                       options.gbk ? sim::Texts::gbk : sim::Texts::utf8, paced);
    sim::Outcome outcome = sim::simulate(board, {[&] { return run_q7(options.q7_arguments); }},
                                         live(options, screen, keyboard));
    screen.finish();
    if (options.trace) {
        for (const sim::Event& event : outcome.world->log.all())
            trace << sim::to_json(event) << '\n';
        close_output(trace, *options.trace);
    }
    save_flashes(board, *outcome.world);
    if (records.is_open()) close_output(records, *options.fifo);
    return outcome;
}

}  // namespace

int main(int argc, char** argv) {
    ::signal(SIGPIPE, SIG_IGN);  // a reader may leave before the end
    try {
        const Options options = parse_options(argc, argv);
        if (options.check) return sim::check_scenarios(options.q7_arguments, run_q7);
        sim::Board board = sim::load_board(options.board);
        if (options.summary) {
            std::puts(sim::summary_json(board, options.q7_arguments, run_q7).c_str());
            return 0;
        }
        const sim::Outcome outcome = simulate(board, options);
        const bool incomplete = report_what_never_came(board, *outcome.world);
        const int status = end_like(outcome);
        return incomplete && options.strict && !outcome.stopped ? kNeverCame : status;
    } catch (const std::exception& error) {
        refuse(error.what());
    }
}
