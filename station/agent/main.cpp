// q7-agent: runs q7 on the board and keeps all that it says for the station.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "station/agent/commands.h"

namespace {

using namespace agent;

constexpr char kHelp[] =
    "usage: q7-agent run|start [--run NAME] [--fifo PATH] [--spool DIR] [--time-limit SECONDS]\n"
    "                          [--size-limit BYTES] [--] [PROGRAM WORD...]\n"
    "       q7-agent follow RUN [--from N] [--spool DIR]\n"
    "       q7-agent stop RUN | release RUN | list   [--spool DIR]\n"
    "\n"
    "Runs q7 (q7 netQ7test, where no program is given) apart from this connection, and keeps its\n"
    "records and all that it prints in a spool, one JSON object a line. NAME: 1 to 64 of A-Z a-z\n"
    "0-9 . _ -\n"
    "\n"
    "  run      start the run NAME, unless it exists, and send its events to the end\n"
    "  start    the same without sending; prints the run's name\n"
    "  follow   send the events of a run from the N-th on, to its end\n"
    "  stop     end q7: by SIGINT, or, 5 seconds later each, by SIGTERM and SIGKILL\n"
    "  release  remove the spool of a run that has ended\n"
    "  list     show the runs, one JSON object a line\n"
    "\n"
    "Status: 0 sent to the end, 64 bad use, 65 run in progress, 66 no such run, 67 no FIFO, 68 no\n"
    "spool or a full one, 69 recorder dead, 70 no program, 71 no output, 72 no process.\n";

struct CommandLine {
    const char* command = nullptr;
    const char* run = nullptr;  // for commands about one
    std::uint64_t from = 1;
    RunOptions options;
};

[[noreturn]] void refuse(const char* what, const char* word) {
    std::fprintf(stderr, "q7-agent: %s%s (see --help)\n", what, word);
    std::exit(kBadUse);
}

std::int64_t number_of(const char* option, const char* digits) {
    char* end = nullptr;
    const long long value = std::strtoll(digits, &end, 10);
    if (*digits < '0' || *digits > '9' || *end != '\0' || value < 1 || value > 1'000'000'000'000) {
        refuse("a number from 1 on is wanted behind ", option);
    }
    return value;
}

const char* name_of(const char* word) {
    if (!is_name(word)) refuse("no name of a run: ", word);
    return word;
}

bool is(const char* word, const char* other) { return std::strcmp(word, other) == 0; }

bool starts_a_run(const char* command) {
    return is(command, "run") || is(command, "start") || is(command, "record");
}

bool wants_a_run(const char* command) {
    return is(command, "follow") || is(command, "stop") || is(command, "release");
}

void take_option(CommandLine& line, const char* option, const char* value) {
    RunOptions& options = line.options;
    const bool starts = starts_a_run(line.command);
    if (is(option, "--spool")) {
        options.folder = value;
    } else if (is(option, "--from") && is(line.command, "follow")) {
        line.from = static_cast<std::uint64_t>(number_of(option, value));
    } else if (is(option, "--run") && starts) {
        options.name = name_of(value);
    } else if (is(option, "--fifo") && starts) {
        options.fifo = value;
    } else if (is(option, "--time-limit") && starts) {
        options.time_limit_s = number_of(option, value);
    } else if (is(option, "--size-limit") && starts) {
        options.size_limit = number_of(option, value);
    } else {
        refuse("unknown option ", option);
    }
}

CommandLine parse(char** words) {
    static char q7[] = "q7", mode[] = "netQ7test";
    static char* const standard_command[] = {q7, mode, nullptr};
    CommandLine line;
    line.options.command = standard_command;
    line.command = *words++;
    if (line.command == nullptr) refuse("a command is wanted", "");
    if (!starts_a_run(line.command) && !wants_a_run(line.command) && !is(line.command, "list")) {
        refuse("unknown command ", line.command);
    }
    while (*words != nullptr) {
        const bool separator = is(*words, "--");
        if (starts_a_run(line.command) && (separator || **words != '-')) {
            if (separator) ++words;
            if (*words != nullptr) line.options.command = words;
            return line;
        }
        if (**words == '-') {
            if (words[1] == nullptr) refuse("a value is wanted behind ", *words);
            take_option(line, words[0], words[1]);
            words += 2;
        } else if (wants_a_run(line.command) && line.run == nullptr) {
            line.run = name_of(*words++);
        } else {
            refuse("one word too many: ", *words);
        }
    }
    if (wants_a_run(line.command) && line.run == nullptr) refuse("which run? ", line.command);
    return line;
}

int execute(const CommandLine& line) {
    const char* folder = line.options.folder;
    if (is(line.command, "run")) return run(line.options);
    if (is(line.command, "start")) return start(line.options);
    if (is(line.command, "record")) return record(line.options);
    if (is(line.command, "list")) return list(folder);
    if (is(line.command, "follow")) return follow(folder, line.run, line.from);
    return is(line.command, "stop") ? stop(folder, line.run) : release(folder, line.run);
}

}  // namespace

int main(int argc, char** argv) {
    // Nothing that is opened later takes the place of a standard stream that is missing.
    int null = 0;
    do {
        null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    } while (null >= 0 && null <= STDERR_FILENO);
    ::close(null);
    ::signal(SIGPIPE, SIG_IGN);  // whoever reads may leave before the end
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::puts("q7-agent " Q7_VERSION);
        return kGood;
    }
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(kHelp, stdout);
        return kGood;
    }
    return execute(parse(argv + 1));
}
