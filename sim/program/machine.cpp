#include "sim/program/machine.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <system_error>
#include <thread>

#include "driver/results.h"
#include "sim/program/text.h"
#include "sim/scenario/scenario.h"
#include "sim/world.h"

namespace sim {
namespace {

using Json = nlohmann::ordered_json;

Json verdicts_of(const Results& slots) {
    return {{"alarm", slots.alarm}, {"minisas", slots.minisas}, {"network", slots.network},
            {"rs485", slots.rs485}, {"rtc", slots.rtc},         {"sata", slots.sata_fault_mask}};
}

// What came of one run, silent.
Json run(const Board& board, const std::vector<std::string>& words, const Product& q7) {
    const Outcome outcome =
        simulate(board, {[&] { return q7(words); },
                         [] {
                             static_assert(sizeof results <= sizeof world->left);
                             std::memcpy(world->left, &results, sizeof results);
                         }});
    const World& state = *outcome.world;
    const bool exited = !outcome.stopped && outcome.signal == 0;
    Json summary;
    summary["arguments"] = words;
    summary["status"] = exited ? Json(outcome.status) : Json();
    summary["signal"] = !outcome.stopped && !exited ? Json(outcome.signal) : Json();
    summary["stopped"] = outcome.stopped ? Json(outcome.reason) : Json();
    summary["seconds"] = to_seconds(state.now);
    summary["verdicts"] = nullptr;
    if (outcome.status >= 0) {  // q7 itself exited
        Results slots;
        std::memcpy(&slots, state.left, sizeof slots);
        summary["verdicts"] = verdicts_of(slots);
        summary["usb_ports_found"] = slots.usb_ports_found;
        summary["sata_disks_found"] = slots.sata_disks_found;
    }
    summary["faults"] = Json::array();
    for (std::size_t i = 0; i < board.faults.size(); ++i)
        summary["faults"].push_back(
            {{"place", board.faults[i].place}, {"came", state.faults[i].came > 0}});
    summary["changes"] = Json::array();
    for (std::size_t i = 0; i < board.changes.size(); ++i)
        summary["changes"].push_back(
            {{"place", board.changes[i].place}, {"came", state.changes[i].came}});
    summary["console"] = gbk_to_utf8(outcome.console);
    summary["errors"] = gbk_to_utf8(outcome.errors);
    summary["records"] = Json::array();
    for (const Event& event : state.log.all())
        if (event.is_report()) summary["records"].push_back(gbk_to_utf8(event.sent.substr(8)));
    return summary;
}

// The expectations that the run did not meet; empty = it holds.
std::string broken_promises(const Expect& expect, const Json& summary) {
    std::string broken;
    const auto add = [&](const std::string& what) {
        broken += (broken.empty() ? "" : "; ") + what;
    };
    const auto shows = [&](const std::string& text) {
        const auto has_text = [&](const Json& where) {
            return where.get_ref<const std::string&>().find(text) != std::string::npos;
        };
        return has_text(summary["console"])
               || std::any_of(summary["records"].begin(), summary["records"].end(), has_text);
    };
    if (summary["stopped"].is_string()) add("stopped: " + summary["stopped"].get<std::string>());
    if (expect.status && summary["signal"].is_number()) add("signal " + summary["signal"].dump());
    if (expect.status && summary["status"].is_number() && summary["status"] != *expect.status)
        add("status " + summary["status"].dump());
    if (expect.verdicts && summary["verdicts"].is_null()) add("no verdicts");
    if (expect.verdicts) {
        for (const auto& [slot, value] : summary["verdicts"].items())
            if ((value != 0) != (expect.verdicts->count(slot) != 0))
                add(slot + (value != 0 ? " shows a fault" : " shows no fault"));
    }
    for (const std::string& text : expect.texts)
        if (!shows(text)) add("no \"" + text + "\"");
    for (const std::string& text : expect.no_texts)
        if (shows(text)) add("\"" + text + "\"");
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
    return run(board, words, q7).dump(-1, ' ', false, Json::error_handler_t::replace);
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
