// run: one attempt, from the terminal or a script.
#include <CLI/CLI.hpp>

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <iostream>
#include <memory>
#include <sstream>

#include "station/attempt.h"
#include "station/commands.h"
#include "station/dictionary/diagnosis.h"
#include "station/hooks.h"
#include "station/index/index.h"
#include "station/index/outbox.h"
#include "station/progress.h"
#include "station/proof.h"
#include "station/text.h"

namespace station {
namespace {

using std::string;

volatile std::sig_atomic_t interrupted = 0;

struct RunOptions {
    string plan, serial, operator_id, journals = "journals", station = "1", mark = "production";
    string resume, dictionary, shifts = "00:00";
    string index, before, after;  // empty = none
    std::vector<string> answers, words;
    bool json = false;
};

struct Wording {
    const char *question, *text;
};
constexpr Wording kQuestions[] = {
    {"panel-leds", "Did every LED of the front panel light? / 每个灯都亮过吗?"},
    {"panel-keys", "Did every key do what it should? / 每个按键都起作用吗?"},
    {"buzzer", "Did you hear the buzzer? / 听到蜂鸣器响了吗?"},
};

// Shows the run on standard output, and takes answers from a person at the terminal. A scanner
// types digits and Enter: only a whole word is an answer.
class Terminal : public AttemptWatcher {
  public:
    explicit Terminal(bool quiet) : progress_(quiet ? STDERR_FILENO : STDOUT_FILENO) {}

    void begin(Attempt& attempt, string operator_id, Plan plan) {
        attempt_ = &attempt;
        operator_id_ = std::move(operator_id);
        plan_ = std::move(plan);
    }

    bool has_person() const { return ::isatty(STDIN_FILENO) == 1; }

    void changed(const AttemptState& state) override {
        progress_.show(state.evidence, plan_);
        const string due = state.due.empty() ? "" : state.due.front().question;
        if (due == asked_) return;
        asked_ = due;
        for (const Wording& row : kQuestions) {
            if (row.question == due) {
                progress_.note(string("? ") + row.text + "  [yes / no / unsure] ("
                               + std::to_string(static_cast<int>(state.due.front().seconds_left))
                               + " s)");
            }
        }
    }

    void note(const string& text) override { progress_.note(text); }

    int input() override { return has_person() && !input_over_ ? STDIN_FILENO : -1; }

    void tick() override {
        if (interrupted != 0) {
            interrupted = 0;
            attempt_->stop(operator_id_);
        }
        if (input() < 0) return;
        pollfd wait{STDIN_FILENO, POLLIN, 0};
        if (::poll(&wait, 1, 0) <= 0) return;
        char buffer[256];
        const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (count == 0) input_over_ = true;
        if (count > 0) typed_.append(buffer, static_cast<std::size_t>(count));
        for (std::size_t end; (end = typed_.find('\n')) != string::npos; typed_.erase(0, end + 1))
            take_answer(typed_.substr(0, end));
        if (typed_.size() > sizeof buffer) typed_.clear();
    }

    void show(const Judgement& judgement) {
        progress_.show(judgement);
        std::istringstream causes(cause_lines(judgement));
        for (string line; std::getline(causes, line);)
            progress_.note(line);
    }

  private:
    void take_answer(const string& word) {
        if (asked_.empty() || word.empty()) return;
        const bool is_answer = word == "yes" || word == "no" || word == "unsure";
        if (!is_answer) {
            progress_.note("  answer yes, no or unsure");
        } else if (!attempt_->answer(asked_, word, operator_id_, "terminal")) {
            progress_.note("  too late");
        }
    }

    Progress progress_;
    Attempt* attempt_ = nullptr;
    Plan plan_;
    string operator_id_, asked_, typed_;
    bool input_over_ = false;
};

std::map<string, string> parse_answers(const std::vector<string>& words, const Plan& plan) {
    std::map<string, string> answers;
    for (const string& word : words) {
        const std::size_t at = word.find('=');
        const string question = word.substr(0, at);
        const string answer = at == string::npos ? "" : word.substr(at + 1);
        if (plan.question(question) == nullptr) {
            string known;
            for (const Question& each : plan.questions)
                known.append(" ").append(each.name);
            throw std::runtime_error(
                string("the plan does not ask ").append(question).append(" (it asks:") + known
                + ")");
        }
        if (answer != "yes" && answer != "no" && answer != "unsure") {
            throw std::runtime_error("an answer is yes, no or unsure: " + word);
        }
        answers[question] = answer;
    }
    return answers;
}

// The plan of the journal that is to go on, or of a file.
void take_plan(AttemptSetup& setup, const RunOptions& options) {
    if (!options.resume.empty()) {
        setup.plan_text = read_journal(options.resume).identity.plan_text;
        setup.plan = Plan::parse(setup.plan_text, options.resume);
        return;
    }
    if (options.plan.empty() || options.serial.empty()) {
        throw std::runtime_error("--plan and --serial are wanted, or --resume");
    }
    setup.plan_text = read_file(options.plan);
    setup.plan = Plan::parse(setup.plan_text, options.plan);
    if (!setup.plan.takes_serial(options.serial)) {
        throw std::runtime_error("serial number " + options.serial + " is not like "
                                 + setup.plan.serial_pattern + " of " + options.plan);
    }
    for (const string& remark : setup.plan.remarks())
        std::fprintf(stderr, "q7-station: %s: %s\n", options.plan.c_str(), remark.c_str());
}

AttemptSetup make_setup(const RunOptions& options) {
    AttemptSetup setup;
    take_plan(setup, options);
    setup.board = BoardWords::parse(options.words);
    setup.answers = parse_answers(options.answers, setup.plan);
    setup.diagnose = diagnosis_by(options.dictionary, setup.plan);
    setup.journals = options.journals;
    setup.identity.serial = options.serial;
    setup.identity.operator_id = options.operator_id;
    setup.identity.station = options.station;
    setup.identity.mark = options.mark;
    return setup;
}

std::unique_ptr<Attempt> open_attempt(const RunOptions& options, AttemptSetup setup) {
    if (options.resume.empty()) return std::make_unique<Attempt>(std::move(setup));
    return Attempt::resume(options.resume, std::move(setup));
}

void watch_interrupts() {
    struct sigaction action = {};
    action.sa_handler = [](int) { interrupted = 1; };
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
}

std::filesystem::path unsent_folder(const RunOptions& options) {
    return std::filesystem::path(options.journals) / "unsent";
}

// Asks the index for the number of the attempt and for network addresses. The folder of journals
// answers for what the index does not have.
void ask_index(AttemptSetup& setup, const RunOptions& options) {
    if (options.index.empty()) return;
    const string serial =
        options.resume.empty() ? options.serial : read_journal(options.resume).identity.serial;
    try {
        const auto index = std::make_shared<index::Index>(options.index);
        setup.identity.attempt = static_cast<int>(index->next_attempt(serial, setup.plan.model));
        setup.serials_of_address = [index, options, serial](const string& address) {
            try {
                if (index::count_waiting(unsent_folder(options)) == 0) {
                    return index->other_serials(address, serial);
                }
            } catch (const std::exception& error) {
                std::fprintf(stderr, "q7-station: %s\n", error.what());
            }
            return serials_in_folder(options.journals, address, serial);
        };
    } catch (const std::exception& error) {
        std::fprintf(stderr, "q7-station: %s\n", error.what());
    }
}

// Enters the proof of the shift into the attempt. Throws std::runtime_error when production with
// this plan is locked.
void look_at_proof(AttemptSetup& setup, const RunOptions& options) {
    if (!options.resume.empty()) return;
    const Plan& plan = setup.plan;
    const auto proof =
        latest_proof(options.journals, options.station, plan.sha256,
                     shift_begin(parse_shifts(options.shifts), seconds_since_1970()));
    if (proof) setup.identity.shift = proof->number;
    const ProofState state = state_of(proof, plan);
    const bool is_wanted = !plan.references.empty() || state == ProofState::failed;
    if (options.mark != "production" || !is_wanted || state == ProofState::good) return;
    if (state == ProofState::failed) throw std::runtime_error("the proof of the shift has failed");
    throw std::runtime_error(state == ProofState::none
                                 ? string("no proof of this shift: run q7-station prove")
                                 : "the proof of the shift lacks the reference board "
                                       + next_reference(*proof, plan)->serial);
}

// The verdict of a reference board becomes part of the proof.
void note_proof(const Judgement& judgement, const Plan& plan, const RunOptions& options) {
    if (options.mark != "reference" || judgement.identity.shift.empty()) return;
    auto proof = latest_proof(options.journals, options.station, plan.sha256, 0);
    if (proof && proof->number == judgement.identity.shift)
        note_reference(options.journals, *proof, plan, judgement.identity.serial,
                       judgement.identity.id, name_of(judgement.verdict));
}

// Throws std::runtime_error when the factory's command refuses the start.
void ask_factory(const AttemptSetup& setup, const RunOptions& options) {
    if (options.before.empty() || !options.resume.empty()) return;
    Identity identity = setup.identity;
    identity.model = setup.plan.model;
    const HookResult result = run_hook(options.before, start_question(identity, setup.plan.sha256));
    if (!result.agrees()) {
        throw std::runtime_error("the factory refuses the start: " + words_of(result));
    }
}

// Returns when the attempt is in the index or its copy waits for it.
void keep_in_index(const Judgement& judgement, const RunOptions& options, Terminal& terminal) {
    if (options.index.empty()) return;
    index::Outbox outbox(unsent_folder(options), options.index);
    const auto stored = outbox.store(index::record_of(judgement));
    terminal.note(stored.committed
                      ? "in the index, unsent " + std::to_string(stored.unsent)
                      : "not in the index yet, unsent " + std::to_string(stored.unsent));
}

void tell_factory(const string& judgement, const RunOptions& options) {
    if (options.after.empty()) return;
    const HookResult result = run_hook(options.after, judgement + "\n");
    if (!result.agrees()) {
        std::fprintf(stderr, "q7-station: the command after the verdict failed: %s\n",
                     result.said.c_str());
    }
}

int run_attempt(const RunOptions& options) {
    AttemptSetup setup = make_setup(options);
    Terminal terminal(options.json);
    setup.somebody_answers = terminal.has_person();
    look_at_proof(setup, options);
    ask_factory(setup, options);
    ask_index(setup, options);
    const Plan plan = setup.plan;
    watch_interrupts();
    try {
        const std::unique_ptr<Attempt> attempt = open_attempt(options, std::move(setup));
        terminal.begin(*attempt, options.operator_id, plan);
        terminal.note("attempt " + attempt->id());
        const Judgement judgement = attempt->run(terminal);
        keep_in_index(judgement, options, terminal);
        note_proof(judgement, plan, options);
        terminal.show(judgement);
        const string json = to_json(judgement).dump();
        tell_factory(json, options);
        if (options.json) std::cout << json << std::endl;
        return exit_status(judgement.verdict);
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "q7-station: the attempt cannot be kept, so there is no verdict: %s\n",
                     error.what());
        return exit_status(Verdict::incomplete);
    }
}

}  // namespace

void add_run(CLI::App& app, int& status) {
    auto options = std::make_shared<RunOptions>();
    CLI::App* command = app.add_subcommand("run", "Test one board");
    command->add_option("--plan", options->plan, "Plan of the model")->check(CLI::ExistingFile);
    command->add_option("--serial", options->serial, "Serial number of the board");
    command->add_option("--resume", options->resume, "Go on with the journal of a killed station")
        ->check(CLI::ExistingFile)
        ->excludes("--plan")
        ->excludes("--serial");
    command->add_option("--operator", options->operator_id, "Who tests it")->required();
    command->add_option("--answer", options->answers, "QUESTION=yes|no|unsure, given beforehand");
    command->add_option("--dictionary", options->dictionary, "Fault dictionary, for the causes")
        ->check(CLI::ExistingFile);
    command->add_option("--journals", options->journals, "Folder of the journals")
        ->capture_default_str();
    command->add_option("--index", options->index,
                        "Index that keeps the attempt too: a file, or postgresql://...");
    command->add_option("--before", options->before,
                        "The factory's command that may refuse the start");
    command->add_option("--after", options->after, "The factory's command after the verdict");
    command->add_option("--station", options->station, "Name of this station")
        ->capture_default_str();
    command->add_option("--mark", options->mark, "What the attempt is for")
        ->check(CLI::IsMember({"production", "reference", "trial"}))
        ->capture_default_str();
    command->add_option("--shifts", options->shifts, "When shifts begin: 08:00,20:00")
        ->capture_default_str();
    command->add_flag("--json", options->json, "Print the judgement as one object on one line");
    command
        ->add_option("WORDS", options->words, "-- [CONNECTION...] q7-agent run [...] -- PROGRAM...")
        ->required();
    command->positionals_at_end();
    command->callback([options, &status] { status = run_attempt(*options); });
}

}  // namespace station
