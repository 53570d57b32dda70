#include "station/dictionary/attempt.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "station/dictionary/board.h"
#include "station/version.h"

namespace station {
namespace {

// How long the buzzer sounds at most when it works.
constexpr double kLongestBeep_s = 1;
// When an operator looks at the LEDs after a key.
constexpr double kLook_s = 1.9;

// LED masks of the panel: 16 channels twice for recording and network, and the functions.
using Leds = std::array<unsigned, 5>;

bool parse_leds(const std::string& state, Leds& leds) {
    return std::sscanf(state.c_str(), "record %4x %4x network %4x %4x function %4x", &leds[0],
                       &leds[1], &leds[2], &leds[3], &leds[4])
           == 5;
}

Leds leds_ever_lit(const SimulatedCommand& command) {
    Leds ever{}, now{};
    for (const DeviceChange& change : command.changes) {
        if (change.device != "panel" || !parse_leds(change.state, now)) continue;
        for (std::size_t i = 0; i < ever.size(); ++i)
            ever[i] |= now[i];
    }
    return ever;
}

Leds leds_at(const SimulatedCommand& command, double at_s) {
    Leds leds{}, next{};
    for (const DeviceChange& change : command.changes)
        if (change.device == "panel" && change.at_s <= at_s && parse_leds(change.state, next))
            leds = next;
    return leds;
}

// Seconds at which the operator presses a key.
std::vector<double> presses_of(const toml::table& board) {
    std::vector<double> presses;
    if (const toml::array* frames = board["panel"]["frames"].as_array())
        for (const toml::node& frame : *frames)
            if (frame.as_table()->contains("key"))
                presses.push_back((*frame.as_table())["at"].value_or(0.0));
    std::sort(presses.begin(), presses.end());
    return presses;
}

bool every_key_acts(const SimulatedCommand& command, const SimulatedCommand& reference,
                    const std::vector<double>& presses) {
    for (std::size_t i = 0; i < presses.size(); ++i) {
        double look_s = presses[i] + kLook_s;
        if (i + 1 < presses.size()) look_s = std::min(look_s, presses[i + 1] - 0.01);
        if (leds_at(command, look_s) != leds_at(reference, look_s)) return false;
    }
    return true;
}

bool buzzer_is_heard(const SimulatedCommand& command) {
    double on_s = -1;
    bool heard = false;
    for (const DeviceChange& change : command.changes) {
        if (change.device != "line") continue;
        if (change.state == "4=0") on_s = change.at_s;
        if (change.state != "4=1" || on_s < 0) continue;
        if (change.at_s - on_s > kLongestBeep_s) return false;
        on_s = -1;
        heard = true;
    }
    return heard && on_s < 0;
}

// "end = ..." for the first time at which nothing was heard for so long; "" = there is none.
std::string end_of_patience(const SimulatedCommand& command, double silence_s) {
    double before_s = 0;
    for (const double at_s : command.heard_at_s) {
        if (at_s - before_s > silence_s)
            return "end = " + std::to_string(before_s + silence_s) + "\n";
        before_s = at_s;
    }
    return {};
}

// A journal as it is written during an attempt, but in memory.
class JournalMaker {
  public:
    JournalMaker(const Plan& plan, const std::string& plan_text) {
        Identity& identity = journal.identity;
        identity.id = "SIM-20000101-0001";
        identity.station = "SIM";
        identity.serial = "SIMULATED";
        identity.model = plan.model;
        identity.operator_id = "SIMULATED";
        identity.mark = "trial";
        identity.plan_text = plan_text;
        identity.program = kVersion;
        identity.at = "2000-01-01T00:00:00.000+00:00";
        journal.lines = 1;
    }

    void command(const PlannedCommand& planned, const SimulatedCommand& ran) {
        const int number = static_cast<int>(journal.commands.size()) + 1;
        CommandLine line;
        line.number = number;
        line.name = planned.name;
        line.run = journal.identity.id + "-" + std::to_string(number);
        line.words = planned.words;
        line.line = ++journal.lines;
        journal.commands.push_back(std::move(line));
        events_ = 0;
        add(BoardEvent::Kind::start, {}, {{"command", started_words(planned)}});
        for (const std::string& record : ran.records)
            add(BoardEvent::Kind::record, record, {});
        if (!ran.out.empty()) add(BoardEvent::Kind::out, ran.out, {});
        if (!ran.err.empty()) add(BoardEvent::Kind::err, ran.err, {});
        if (ran.stopped) {
            journal.remarks.push_back({"limit", "silence", number, ++journal.lines});
        } else if (ran.signal != 0) {
            add(BoardEvent::Kind::end, {}, {{"signal", ran.signal}});
        } else {
            add(BoardEvent::Kind::end, {}, {{"status", ran.status}});
        }
    }

    void answer(Answer answer) {
        answer.operator_id = journal.identity.operator_id;
        answer.via = "option";
        answer.line = ++journal.lines;
        journal.answers.push_back(std::move(answer));
    }

    void end() {
        ++journal.lines;
        journal.ended = true;
        journal.end_at = journal.identity.at;
    }

    Journal journal;

  private:
    static std::vector<std::string> started_words(const PlannedCommand& planned) {
        std::vector<std::string> words{"q7"};
        words.insert(words.end(), planned.words.begin(), planned.words.end());
        return words;
    }

    void add(BoardEvent::Kind kind, const std::string& bytes, nlohmann::json fields) {
        BoardEvent event;
        event.kind = kind;
        event.line = ++journal.lines;
        event.command = static_cast<int>(journal.commands.size());
        event.number = ++events_;
        event.bytes = bytes;
        event.fields = std::move(fields);
        journal.events.push_back(std::move(event));
    }

    std::uint64_t events_ = 0;
};

}  // namespace

AttemptSimulator::AttemptSimulator(const std::filesystem::path& program,
                                   const std::filesystem::path& scenario, Plan plan,
                                   std::string plan_text, const Change& variation)
    : simulator_(program, scenario),
      plan_(std::move(plan)),
      plan_text_(std::move(plan_text)),
      scenario_(load_board(scenario)),
      board_(scenario_) {
    // A simulated board has no label, no addresses, and nothing to do with who signed the plan.
    plan_.serial_pattern = ".*";
    plan_.serial_expression = Expression(plan_.serial_pattern);
    plan_.addresses_unique = plan_.scan_out = false;
    if (!plan_.is_signed()) plan_.signed_by = "simulated";
    if (variation) variation(board_);
    std::vector<SimulatedCommand> commands;
    reference_ = simulator_.run(change_of(scenario_, board_), "", plan_.commands.at(0).words,
                                Simulator::Log::devices);
    healthy_ = attempt(change_of(scenario_, board_), Simulator::Log::all, commands);
    for (const SimulatedCommand& command : commands)
        for (const auto& [call, count] : command.calls)
            calls_[call] = std::max(calls_[call], count);
}

std::string AttemptSimulator::change(const Change& defect) const {
    toml::table changed = board_;
    defect(changed);
    return change_of(scenario_, changed);
}

SimulatedAttempt AttemptSimulator::run(const Change& defect) const { return run(change(defect)); }

SimulatedAttempt AttemptSimulator::run(const std::string& change) const {
    std::vector<SimulatedCommand> commands;
    return attempt(change, Simulator::Log::devices, commands);
}

SimulatedAttempt AttemptSimulator::attempt(const std::string& change, Simulator::Log log,
                                           std::vector<SimulatedCommand>& commands) const {
    // A flash keeps its content from one command of the attempt to the next.
    std::vector<std::pair<std::string, MemoryFile>> flashes;
    if (const toml::table* bridges = board_["bridges"].as_table(); plan_.commands.size() > 1)
        for (const auto& [name, bridge] : bridges != nullptr ? *bridges : toml::table{})
            flashes.emplace_back(name, MemoryFile());
    std::string kept;

    JournalMaker maker(plan_, plan_text_);
    SimulatedAttempt made;
    for (const PlannedCommand& planned : plan_.commands) {
        if (planned.only_when_passed
            && judge_so_far(maker.journal, take_evidence(maker.journal), plan_) != Verdict::pass)
            break;
        std::string saved;
        for (const auto& [name, flash] : flashes) {
            const std::string file = std::to_string(flash.descriptor());
            saved.append("bridges.").append(name).append(".save = '").append(file).append("'\n");
        }
        const bool asked = commands.empty() && !plan_.questions.empty();
        const Simulator::Log kept_log =
            log == Simulator::Log::all || asked ? log : Simulator::Log::none;
        const std::string state = kept + saved;
        commands.push_back(simulator_.run(change, state, planned.words, kept_log));
        if (const std::string end = end_of_patience(commands.back(), plan_.silence_s); !end.empty())
            commands.back() = simulator_.run(change, state + end, planned.words, kept_log);
        maker.command(planned, commands.back());
        if (asked)
            for (Answer& answer : answers_to(commands.back()))
                maker.answer(std::move(answer));
        if (commands.back().stopped) break;
        kept.clear();
        for (const auto& [name, flash] : flashes)
            kept.append("bridges.")
                .append(name)
                .append(".from = '")
                .append(std::to_string(flash.descriptor()))
                .append("'\n");
    }
    maker.end();
    made.journal = std::move(maker.journal);
    made.evidence = take_evidence(made.journal);
    made.judgement = judge(made.journal, made.evidence, plan_);
    return made;
}

std::vector<Answer> AttemptSimulator::answers_to(const SimulatedCommand& command) const {
    std::vector<Answer> answers;
    for (const Question& question : plan_.questions) {
        bool good = true;
        if (question.name == "panel-leds")
            good = leds_ever_lit(command) == leds_ever_lit(reference_);
        if (question.name == "panel-keys")
            good = every_key_acts(command, reference_, presses_of(board_));
        if (question.name == "buzzer") good = buzzer_is_heard(command);
        Answer answer;
        answer.question = question.name;
        answer.answer = good ? "yes" : "no";
        answers.push_back(std::move(answer));
    }
    return answers;
}

}  // namespace station
