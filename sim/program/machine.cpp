#include "sim/program/machine.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>
#include <thread>

#include "driver/results.h"
#include "sim/program/text.h"
#include "sim/scenario/scenario.h"
#include "sim/world.h"

namespace sim {
namespace {

struct Finished {
    Outcome outcome;
    std::optional<Results> results;  // none if q7 did not exit by itself
    std::string console;             // UTF-8
    std::vector<std::string> records;
};

// The result slots at the exit of q7, in a page shared with its process.
struct Remains {
    bool written;
    Results results;
};

Finished run(const Board& board, const std::vector<std::string>& words, const Product& q7) {
    void* const page =
        ::mmap(nullptr, sizeof(Remains), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    auto* const remains = static_cast<Remains*>(page);
    Finished finished;
    finished.outcome = simulate(board, {[&] { return q7(words); },
                                        [&] {
                                            *remains = {true, results};
                                        }});
    if (remains->written) finished.results = remains->results;
    ::munmap(page, sizeof(Remains));
    finished.console = gbk_to_utf8(finished.outcome.console);
    const EventLog& log = finished.outcome.world->log;
    for (const Event& event : log.all()) {
        if (log.is_report(event))
            finished.records.push_back(gbk_to_utf8(log.sent(event).substr(8)));
    }
    return finished;
}

std::map<std::string, std::uint32_t> verdicts_of(const Results& slots) {
    return {{"alarm", slots.alarm}, {"minisas", slots.minisas}, {"network", slots.network},
            {"rs485", slots.rs485}, {"rtc", slots.rtc},         {"sata", slots.sata_fault_mask}};
}

bool shows(const Finished& finished, const std::string& text) {
    return finished.console.find(text) != std::string::npos
           || std::any_of(
               finished.records.begin(), finished.records.end(),
               [&](const std::string& record) { return record.find(text) != std::string::npos; });
}

// The expectations that the run did not meet; empty = it holds.
std::string broken_promises(const Expect& expect, const Finished& finished) {
    std::string broken;
    const auto add = [&](const std::string& what) {
        broken += (broken.empty() ? "" : "; ") + what;
    };
    const Outcome& outcome = finished.outcome;
    if (outcome.stopped) add("stopped: " + outcome.reason);
    if (outcome.signal != 0 && expect.status) add("signal " + std::to_string(outcome.signal));
    if (expect.status && outcome.signal == 0 && outcome.status != *expect.status)
        add("status " + std::to_string(outcome.status));
    if (expect.verdicts && !finished.results) add("no verdicts");
    if (expect.verdicts && finished.results) {
        for (const auto& [slot, value] : verdicts_of(*finished.results))
            if ((value != 0) != (expect.verdicts->count(slot) != 0))
                add(slot + (value != 0 ? " shows a fault" : " shows no fault"));
    }
    for (const std::string& text : expect.texts)
        if (!shows(finished, text)) add("no \"" + text + "\"");
    for (const std::string& text : expect.no_texts)
        if (shows(finished, text)) add("\"" + text + "\"");
    return broken;
}

// A line about one scenario: "holds NAME" or "FAILS NAME: why".
std::string check(const std::string& name, const Product& q7) {
    try {
        const Board board = load_board(name);
        if (!board.expect) return "FAILS " + name + ": it has no [expect]";
        const std::string broken =
            broken_promises(*board.expect, run(board, board.expect->arguments, q7));
        return broken.empty() ? "holds " + name : "FAILS " + name + ": " + broken;
    } catch (const std::exception& error) {
        return "FAILS " + name + ": " + error.what();
    }
}

struct Worker {
    pid_t pid;
    FILE* lines;  // its output
};

// A process that runs every n-th scenario.
Worker start_worker(const std::vector<std::string>& names, std::size_t first, std::size_t step,
                    const Product& q7) {
    int ends[2];
    if (::pipe(ends) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    const pid_t pid = ::fork();
    if (pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (pid > 0) {
        ::close(ends[1]);
        return {pid, ::fdopen(ends[0], "r")};
    }
    ::close(ends[0]);
    FILE* const out = ::fdopen(ends[1], "w");
    for (std::size_t i = first; i < names.size(); i += step) {
        std::string line = check(names[i], q7);
        std::replace(line.begin(), line.end(), '\n', ' ');
        std::fprintf(out, "%s\n", line.c_str());
        std::fflush(out);
    }
    std::_Exit(std::fclose(out) == 0 ? 0 : 1);
}

// The next line of a worker; empty if it died.
std::string next_line(const Worker& worker) {
    std::string line;
    for (int byte; (byte = std::fgetc(worker.lines)) != EOF && byte != '\n';)
        line += static_cast<char>(byte);
    return line;
}

}  // namespace

std::string summary_json(const Board& board, const std::vector<std::string>& words,
                         const Product& q7) {
    const Finished finished = run(board, words, q7);
    const Outcome& outcome = finished.outcome;
    nlohmann::ordered_json line;
    line["arguments"] = words;
    line["status"] = nullptr;
    line["signal"] = nullptr;
    line["stopped"] = nullptr;
    if (outcome.stopped) {
        line["stopped"] = outcome.reason;
    } else if (outcome.signal != 0) {
        line["signal"] = outcome.signal;
    } else {
        line["status"] = outcome.status;
    }
    line["seconds"] = to_seconds(outcome.world->now);
    line["verdicts"] = nullptr;
    if (finished.results) {
        line["verdicts"] = verdicts_of(*finished.results);
        line["usb_ports_found"] = finished.results->usb_ports_found;
        line["sata_disks_found"] = finished.results->sata_disks_found;
    }
    line["faults"] = nlohmann::json::array();
    for (std::size_t i = 0; i < board.faults.size(); ++i) {
        const Fault& fault = board.faults[i];
        const bool came = outcome.world->fault_matches[i] >= fault.nth;
        line["faults"].push_back({{"place", fault.place}, {"came", came}});
    }
    line["changes"] = nlohmann::json::array();
    for (std::size_t i = 0; i < board.changes.size(); ++i) {
        line["changes"].push_back(
            {{"place", board.changes[i].place}, {"came", outcome.world->changes[i].came}});
    }
    line["console"] = finished.console;
    line["errors"] = gbk_to_utf8(outcome.errors);
    line["records"] = finished.records;
    return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

int check_scenarios(const std::vector<std::string>& names, const Product& q7) {
    std::fflush(stdout);  // or each worker would print it again
    const std::size_t count =
        std::clamp<std::size_t>(names.size(), 1, std::max(1u, std::thread::hardware_concurrency()));
    std::vector<Worker> workers;
    for (std::size_t i = 0; i < count; ++i)
        workers.push_back(start_worker(names, i, count, q7));
    std::size_t holding = 0;
    for (std::size_t i = 0; i < names.size(); ++i) {
        std::string line = next_line(workers[i % count]);
        if (line.empty()) line = "FAILS " + names[i] + ": the run died";
        holding += line.starts_with("holds ") ? 1 : 0;
        std::puts(line.c_str());
    }
    for (const Worker& worker : workers) {
        std::fclose(worker.lines);
        ::waitpid(worker.pid, nullptr, 0);
    }
    std::printf("%zu of %zu hold\n", holding, names.size());
    return holding == names.size() ? 0 : 1;
}

}  // namespace sim
