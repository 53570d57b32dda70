// prove: simulated boards, one with a defect in each step, through agent, journal and judge.
#include <CLI/CLI.hpp>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>

#include "station/attempt.h"
#include "station/commands.h"
#include "station/dictionary/attempt.h"
#include "station/dictionary/board.h"
#include "station/dictionary/command.h"
#include "station/dictionary/defects.h"
#include "station/index/outbox.h"
#include "station/proof.h"
#include "station/text.h"

namespace station {
namespace {

namespace fs = std::filesystem;
using std::string;

struct ProveOptions {
    ModelFiles model;
    string agent, serial, operator_id = "prove", station = "1", journals = "journals", index;
};

// The defect that shows whether a step is looked at.
struct StepDefect {
    std::string_view step, kind;
};
constexpr StepDefect kDefects[] = {
    {"buzzer", "buzzer.silent"},   {"panel", "panel.blocked"}, {"network", "network.fibre.slow"},
    {"alarm", "alarm.input.open"}, {"rtc", "rtc.wrong"},       {"usb", "usb.disk.missing"},
    {"sata", "sata.disk.absent"},  {"rs485", "rs485.no-echo"}, {"info", "board.field"},
    {"pmp", "pmp.absent"},
};

// A folder for scenarios, FIFO and spool; removed with its owner.
class Workshop {
  public:
    Workshop() {
        string name = (fs::temp_directory_path() / "q7-prove-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr)
            throw std::system_error(errno, std::generic_category(), name);
        folder_ = name;
    }
    ~Workshop() {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }
    Workshop(const Workshop&) = delete;
    Workshop& operator=(const Workshop&) = delete;
    string path(const string& name) const { return (folder_ / name).string(); }

  private:
    fs::path folder_;
};

void write_text(const string& path, const string& text) {
    std::ofstream file(path);
    if (!(file << text).flush()) throw std::runtime_error(path + ": cannot be written");
}

string default_agent() { return (fs::read_symlink("/proc/self/exe").parent_path() / "q7-agent"); }

// Nobody looks at a simulated board: its panel and buzzer answer by what they did.
std::map<string, string> answers_of(const SimulatedAttempt& attempt) {
    std::map<string, string> answers;
    for (const Answer& each : attempt.journal.answers)
        answers[each.question] = each.answer;
    return answers;
}

// "FAIL network summary": the verdict and the items that are not PASS.
string outcome(const Judgement& judgement) {
    string text(name_of(judgement.verdict));
    for (const Item& item : judgement.items)
        if (item.verdict != Verdict::pass) text += " " + item.name;
    return text;
}

// Whether the item of this step, of any command, is not PASS.
bool fails(const Judgement& judgement, const string& step) {
    return std::any_of(judgement.items.begin(), judgement.items.end(), [&](const Item& item) {
        return item.verdict != Verdict::pass && item.name.substr(item.name.rfind('.') + 1) == step;
    });
}

class Prover {
  public:
    explicit Prover(const ProveOptions& options)
        : options_(options),
          plan_text_(read_file(options.model.plan)),
          plan_(Plan::parse(plan_text_, options.model.plan)),
          boards_(options.model.simulator, options.model.board, plan_, plan_text_) {
        proof_.station = options.station;
        proof_.operator_id = options.operator_id;
        proof_.plan_name = plan_.name;
        proof_.plan_sha256 = plan_.sha256;
        proof_.at = now_iso();
        proof_.time_s = seconds_since_1970();
        serial_ = options.serial;
        if (serial_.empty() && !plan_.references.empty()) serial_ = plan_.references.front().serial;
        if (serial_.empty())
            throw std::runtime_error("the plan has no reference board: --serial is wanted");
        if (!plan_.takes_serial(serial_))
            throw std::runtime_error("serial number " + serial_ + " is not like "
                                     + plan_.serial_pattern);
    }

    // 0 = every simulated board got the verdict that it must.
    int run() {
        keep_proof(options_.journals, proof_);
        if (boards_.healthy().judgement.verdict != Verdict::pass)
            throw std::runtime_error("the healthy board does not pass the plan");
        try_board("no defect", "", boards_.healthy());
        for (const PlannedCommand& command : plan_.commands) {
            for (const string& step : command.steps) {
                const bool again = std::find(tried_.begin(), tried_.end(), step) != tried_.end();
                if (!again) try_step(step);
            }
        }
        return report();
    }

  private:
    void try_step(const string& step) {
        tried_.push_back(step);
        const auto* const row =
            std::find_if(std::begin(kDefects), std::end(kDefects),
                         [&](const StepDefect& each) { return each.step == step; });
        if (row == std::end(kDefects)) throw std::runtime_error("no defect is known for " + step);
        for (const Defect& defect : defects_of(boards_.board(), boards_.calls())) {
            if (defect.kind->name != row->kind) continue;
            const string change = boards_.change(defect.apply);
            if (change.empty()) continue;
            const SimulatedAttempt expected = boards_.run(change);
            if (!fails(expected.judgement, step))
                throw std::runtime_error("the plan does not see " + defect.name());
            return try_board(defect.name(), change, expected);
        }
        throw std::runtime_error("the board has no defect " + string(row->kind) + " to show");
    }

    // The whole way of a board: the agent starts the simulator as it would start q7.
    void try_board(const string& name, const string& change, const SimulatedAttempt& expected) {
        const Workshop workshop;
        write_simulator(workshop, change);
        AttemptSetup setup;
        setup.plan = plan_;
        setup.plan_text = plan_text_;
        setup.journals = options_.journals;
        setup.answers = answers_of(expected);
        setup.identity.serial = serial_;
        setup.identity.station = options_.station;
        setup.identity.operator_id = options_.operator_id;
        setup.identity.mark = "reference";
        setup.identity.shift = proof_.number;
        setup.board =
            BoardWords::parse({options_.agent, "run", "--fifo", workshop.path("fifo"), "--spool",
                               workshop.path("spool"), "--", workshop.path("simulator")});
        // A simulated board has the addresses of this computer.
        setup.serials_of_address = [](const string&) { return std::vector<string>(); };
        Attempt attempt(std::move(setup));
        AttemptWatcher nobody;
        const Judgement judgement = attempt.run(nobody);
        if (!options_.index.empty())
            index::Outbox(fs::path(options_.journals) / "unsent", options_.index)
                .store(index::record_of(judgement));
        proof_.simulated.push_back(
            {name, serial_, attempt.id(), outcome(expected.judgement), outcome(judgement)});
        keep_proof(options_.journals, proof_);
        const ProofRun& run = proof_.simulated.back();
        std::printf("%-4s %-32s %-28s %s\n", run.is_as_wanted() ? "ok" : "BAD", name.c_str(),
                    run.verdict.c_str(), run.id.c_str());
        std::fflush(stdout);
    }

    // A flash keeps its content from one command of the attempt to the next.
    void write_simulator(const Workshop& workshop, const string& change) const {
        const string base =
            "base = '" + fs::absolute(options_.model.board).string() + "'\n" + change;
        string saved, kept;
        if (const toml::table* bridges = boards_.board()["bridges"].as_table();
            bridges != nullptr && plan_.commands.size() > 1) {
            for (const auto& [key, bridge] : *bridges) {
                const string name(key.str());
                saved += "bridges." + name + ".save = '" + workshop.path("flash-" + name) + "'\n";
                kept += "bridges." + name + ".from = '" + workshop.path("flash-" + name) + "'\n";
            }
        }
        write_text(workshop.path("changed.toml"), base);
        const string changed = "base = '" + workshop.path("changed.toml") + "'\n";
        write_text(workshop.path("first.toml"), changed + saved);
        write_text(workshop.path("later.toml"), changed + saved + kept);
        const string script = workshop.path("simulator");
        write_text(script, "#!/bin/sh\ncd '" + workshop.path("")
                               + "'\nset -- --gbk --fifo fifo --board \"$([ -e ran ] && echo "
                                 "later.toml || echo first.toml)\" \"$@\"\n: >ran\nexec '"
                               + fs::absolute(options_.model.simulator).string() + "' \"$@\"\n");
        fs::permissions(script, fs::perms::owner_all);
    }

    int report() const {
        const ProofState state = state_of(proof_, plan_);
        if (state == ProofState::failed) {
            std::printf("%s failed: this station does not see every fault\n",
                        proof_.number.c_str());
            return 1;
        }
        std::printf("%s: every simulated fault is seen\n", proof_.number.c_str());
        for (const ReferenceBoard& board : plan_.references)
            std::printf("next: test the reference board %s, which must be %s\n",
                        board.serial.c_str(), board.verdict.c_str());
        return 0;
    }

    const ProveOptions& options_;
    const string plan_text_;
    const Plan plan_;
    const AttemptSimulator boards_;
    string serial_;
    Proof proof_;
    std::vector<string> tried_;
};

}  // namespace

void add_prove(CLI::App& app, int& status) {
    auto options = std::make_shared<ProveOptions>();
    CLI::App* command = app.add_subcommand(
        "prove", "Begin the proof of a shift: simulated faults, then the plan's reference boards");
    add_model_files(*command, options->model);
    command->add_option("--agent", options->agent, "q7-agent of this computer");
    command->add_option("--serial", options->serial,
                        "Serial number of the simulated boards; by default the first reference "
                        "board's");
    command->add_option("--operator", options->operator_id, "Who begins the proof")
        ->capture_default_str();
    command->add_option("--station", options->station, "Name of this station")
        ->capture_default_str();
    command->add_option("--journals", options->journals, "Folder of the journals")
        ->capture_default_str();
    command->add_option("--index", options->index,
                        "Index that keeps the attempts too: a file, or postgresql://...");
    command->callback([options, &status] {
        if (options->agent.empty()) options->agent = default_agent();
        status = Prover(*options).run();
    });
}

}  // namespace station
