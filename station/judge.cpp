#include "station/judge.h"

#include <algorithm>
#include <array>
#include <map>

#include "station/catalogue.h"
#include "station/text.h"
#include "station/version.h"

namespace station {
namespace {

using std::string;
using std::string_view;

enum class Extent { whole, so_far };

// The item of a fact or rule: its group, with the prefix of its command.
string item_of(string_view name, string_view prefix) {
    string_view bare = name.substr(prefix.size());
    string repeat;
    if (bare.starts_with("repeat.")) {
        const std::size_t end = bare.find('.', sizeof "repeat." - 1) + 1;
        repeat = bare.substr(0, end);
        bare.remove_prefix(end);
    }
    string group(bare.substr(0, bare.find('.')));
    if (group == "minisas") group = "sata";
    if (group == "sequence" || group == "exit") group = "end";
    return string(prefix) + repeat + group;
}

class Judge {
  public:
    Judge(const Journal& journal, const Evidence& evidence, const Plan& plan, Extent extent)
        : journal_(journal), evidence_(evidence), plan_(plan), extent_(extent) {}

    Judgement judge() {
        fill_head();
        make_items();
        if (extent_ == Extent::whole) judge_damage();
        judge_commands();
        judge_rules();
        judge_other_facts();
        judge_distinct();
        judge_findings();
        judge_answers();
        judge_remarks();
        judge_identity();
        conclude();
        return std::move(judgement_);
    }

  private:
    void fill_head() {
        judgement_.identity = journal_.identity;
        judgement_.repairs = journal_.repairs;
        judgement_.end_at = journal_.end_at;
        judgement_.journal_lines = journal_.lines;
        judgement_.journal_sha256 = journal_.sha256;
        judgement_.plan_name = plan_.name;
        judgement_.plan_revision = plan_.revision;
        judgement_.plan_sha256 = plan_.sha256;
        fill_board();
    }

    // What the agent says of itself and the board at the first command.
    void fill_board() {
        for (const BoardEvent& event : journal_.events) {
            if (event.kind != BoardEvent::Kind::start || event.command != 1) continue;
            judgement_.agent = text_of(event.fields, "agent");
            if (event.fields.contains("program")) {
                judgement_.q7_sha256 = text_of(event.fields["program"], "sha256");
            }
            const auto found = event.fields.find("addresses");
            if (!plan_.addresses_unique || found == event.fields.end()) return;
            for (const auto& address : *found) {
                if (address.is_string()) judgement_.addresses.push_back(address);
            }
            return;
        }
    }

    static string text_of(const nlohmann::json& object, const char* name) {
        const auto found = object.is_object() ? object.find(name) : object.end();
        return found != object.end() && found->is_string() ? found->get<string>() : string();
    }

    string prefix_of(std::size_t command) const {
        return command == 0 ? string{} : plan_.commands[command].name + ".";
    }

    void make_items() {
        for (std::size_t i = 0; i < plan_.commands.size(); ++i) {
            const string prefix = prefix_of(i);
            const auto& steps = plan_.commands[i].steps;
            for (const string& step : steps)
                item(prefix + step);
            item(prefix + "start");
            const bool has_summary =
                std::find(steps.begin(), steps.end(), "info") != steps.end() && steps.size() > 1;
            if (has_summary) item(prefix + "summary");
            item(prefix + "end");
        }
        for (const char* name : {"run", "identity", "transcript", "plan"})
            item(name);
    }

    Item& item(const string& name) {
        for (Item& each : judgement_.items) {
            if (each.name == name) return each;
        }
        judgement_.items.push_back({name, Verdict::pass, {}});
        return judgement_.items.back();
    }

    Reason& give(const string& item_name, const char* code, Verdict verdict, int line,
                 string text = {}) {
        Reason reason;
        reason.code = code;
        reason.verdict = verdict;
        reason.line = line;
        reason.text = std::move(text);
        Item& owner = item(item_name);
        owner.reasons.push_back(std::move(reason));
        return owner.reasons.back();
    }

    void judge_damage() {
        for (const Damage& damage : journal_.damage)
            give("run", damage.code.c_str(), Verdict::incomplete, damage.line, damage.text);
    }

    const CommandSeen* seen(std::size_t command) const {
        for (const CommandSeen& each : evidence_.commands) {
            if (each.number == static_cast<int>(command) + 1) return &each;
        }
        return nullptr;
    }

    // Whether the plan lets this command be absent: it waits for a pass that did not come.
    void judge_commands() {
        for (std::size_t i = 0; i < plan_.commands.size(); ++i) {
            const PlannedCommand& planned = plan_.commands[i];
            const CommandSeen* command = seen(i);
            absent_.push_back(command == nullptr);
            if (command == nullptr) {
                const bool waits = planned.only_when_passed && i > 0;
                if (waits || extent_ == Extent::so_far) {
                    waiting_ = waiting_ || extent_ == Extent::whole;
                    continue;
                }
                give("run", "no-command", Verdict::incomplete, 0, planned.name);
                continue;
            }
            judge_command(planned, *command);
            judge_steps(planned, *command);
        }
        for (const CommandSeen& command : evidence_.commands) {
            if (command.number > static_cast<int>(plan_.commands.size())) {
                give("run", "extra-command", Verdict::incomplete, command.start_line);
            }
        }
    }

    void judge_command(const PlannedCommand& planned, const CommandSeen& command) {
        const auto line =
            std::find_if(journal_.commands.begin(), journal_.commands.end(),
                         [&](const CommandLine& each) { return each.number == command.number; });
        if (line->name != planned.name || line->words != planned.words
            || (command.started && !started_as_planned(planned, command))) {
            give("run", "wrong-command", Verdict::incomplete, line->line, planned.name);
        }
        if (!command.failed.empty()) {
            give("run", "not-run", Verdict::incomplete, command.end_line, command.failed);
        } else if (!command.started || !command.ended) {
            give("run", "cut-off", Verdict::incomplete, 0, planned.name + " has no end");
        } else if (command.signal != 0) {
            give("run", "exit", Verdict::incomplete, command.end_line,
                 "signal " + std::to_string(command.signal));
        }
        if (command.stopped) give("run", "stopped", Verdict::incomplete, command.end_line);
    }

    // The agent says what it has started; its last words are the plan's.
    bool started_as_planned(const PlannedCommand& planned, const CommandSeen& command) const {
        for (const BoardEvent& event : journal_.events) {
            if (event.line != command.start_line) continue;
            const auto found = event.fields.find("command");
            if (found == event.fields.end() || !found->is_array()) return false;
            if (found->size() <= planned.words.size()) return false;
            for (std::size_t i = 0; i < planned.words.size(); ++i) {
                const auto& word = (*found)[found->size() - planned.words.size() + i];
                if (!word.is_string() || word != planned.words[i]) return false;
            }
            return true;
        }
        return false;
    }

    void judge_steps(const PlannedCommand& planned, const CommandSeen& command) {
        const string prefix = command.prefix;
        std::map<string, int> lines;
        for (const StepSeen& step : evidence_.steps) {
            if (step.command != command.number) continue;
            const string bare = step.name.substr(step.name.rfind('.') + 1);
            lines.emplace(bare, step.line);
            const auto& steps = planned.steps;
            if (std::find(steps.begin(), steps.end(), bare) == steps.end()) {
                give(step.name, "extra-step", Verdict::not_proven, step.line);
            }
        }
        for (const string& step : planned.steps) {
            if (lines.count(step) != 0) continue;
            missing_steps_.push_back(prefix + step);
            give(prefix + step, "missing-step", Verdict::not_proven, 0);
        }
    }

    // The command that a rule or fact belongs to, by its prefix.
    std::size_t command_of(string_view name) const {
        for (std::size_t i = 1; i < plan_.commands.size(); ++i) {
            if (name.starts_with(prefix_of(i))) return i;
        }
        return 0;
    }

    void judge_rules() {
        for (const Rule& rule : plan_.rules) {
            if (rule.has_wildcard()) continue;
            const std::size_t command = command_of(rule.fact);
            if (absent_[command]) continue;
            const string owner = item_of(rule.fact, prefix_of(command));
            const Fact* fact = evidence_.find(rule.fact);
            if (fact != nullptr) {
                judge_fact(*fact, rule, owner);
            } else if (!rule.optional) {
                judge_missing(rule, owner);
            }
        }
    }

    void judge_missing(const Rule& rule, const string& owner) {
        ++judgement_.facts_missing;
        const KnownFact* known =
            find_known(string_view(rule.fact).substr(prefix_of(command_of(rule.fact)).size()));
        const bool step_missing =
            std::find(missing_steps_.begin(), missing_steps_.end(), owner) != missing_steps_.end();
        if (step_missing) return;  // that is reason enough
        Reason& reason = give(owner, "missing-fact", Verdict::not_proven, 0);
        reason.fact = rule.fact;
        reason.unit = known == nullptr ? "" : known->unit;
        reason.wanted = wanted_text(rule, reason.unit);
        set_range(reason, rule);
    }

    void judge_fact(const Fact& fact, const Rule& rule, const string& owner) {
        const auto* number = std::get_if<std::int64_t>(&fact.value);
        if (number != nullptr && rule.min && rule.max) {
            judgement_.measurements.push_back({fact.name, fact.unit, *number});
        }
        if (fits(rule, fact.value)) {
            ++judgement_.facts_good;
            return;
        }
        ++judgement_.facts_wrong;
        // A step that did not run was not tested: that is no fault of the board. Nor is what only
        // seems to be missing, where something was lost.
        const bool unsure =
            is_list_of_steps(fact) || (fact.derived && !is_whole(command_of(fact.name)));
        const Verdict verdict = unsure ? Verdict::not_proven : Verdict::fail;
        Reason& reason = give(owner, "wrong", verdict, fact.line);
        fill(reason, fact, wanted_text(rule, fact.unit));
        set_range(reason, rule);
    }

    // Whether all came that the command said.
    bool is_whole(std::size_t index) const {
        const CommandSeen* command = seen(index);
        const auto tells_of_loss = [&](const Finding& finding) {
            return finding.command == static_cast<int>(index) + 1
                   && finding.kind == Finding::Kind::lost_record;
        };
        return command != nullptr && command->ended
               && std::none_of(evidence_.problems.begin(), evidence_.problems.end(), tells_of_loss)
               && std::none_of(evidence_.findings.begin(), evidence_.findings.end(), tells_of_loss);
    }

    static void set_range(Reason& reason, const Rule& rule) {
        if (rule.min) reason.low = std::to_string(*rule.min);
        if (rule.max) reason.high = std::to_string(*rule.max);
    }

    static bool is_list_of_steps(const Fact& fact) { return fact.name.ends_with("sequence.steps"); }

    static void fill(Reason& reason, const Fact& fact, string wanted) {
        reason.fact = fact.name;
        reason.value = to_text(fact.value, fact.unit);
        reason.unit = fact.unit;
        reason.wanted = std::move(wanted);
    }

    // Facts without a rule of their own name: by wildcard, or nothing accounts for them.
    void judge_other_facts() {
        for (const Fact& fact : evidence_.facts) {
            if (is_list_of_steps(fact)) continue;
            const Rule* rule = rule_of(plan_, fact.name);
            const string owner = item_of(fact.name, prefix_of(command_of(fact.name)));
            if (rule == nullptr) {
                fill(give(owner, "extra-fact", Verdict::not_proven, fact.line), fact, "");
            } else if (rule->has_wildcard()) {
                judge_fact(fact, *rule, owner);
            }
        }
    }

    void judge_distinct() {
        std::map<std::pair<string, Value>, const Fact*> first;  // by last component and value
        for (const Fact& fact : evidence_.facts) {
            const Rule* rule = rule_of(plan_, fact.name);
            if (rule == nullptr || !rule->distinct) continue;
            const string kind =
                prefix_of(command_of(fact.name)) + fact.name.substr(fact.name.rfind('.') + 1);
            const auto [place, is_first] = first.emplace(std::pair(kind, fact.value), &fact);
            if (is_first) continue;
            const string owner = item_of(fact.name, prefix_of(command_of(fact.name)));
            fill(give(owner, "not-distinct", Verdict::fail, fact.line), fact,
                 "different from " + place->second->name);
        }
    }

    void judge_findings() {
        for (const Finding& finding : evidence_.findings) {
            if (finding.kind == Finding::Kind::lost_record) {
                give("run", "records-lost", Verdict::incomplete, finding.line, finding.text);
            } else if (finding.kind == Finding::Kind::interrupted) {
                give("run", "interrupted", Verdict::incomplete, finding.line, finding.text);
            } else if (explains(plan_, finding)) {
                continue;
            } else if (finding.kind == Finding::Kind::failure) {
                give(finding.step.empty() ? "transcript" : finding.step, "failure", Verdict::fail,
                     finding.line, finding.text);
            } else {
                give("transcript", "unexplained", Verdict::not_proven, finding.line, finding.text);
                judgement_.unexplained.push_back({finding.line, finding.text});
            }
        }
        for (const Finding& problem : evidence_.problems)
            give("run", "records-lost", Verdict::incomplete, problem.line, problem.text);
    }

    void judge_answers() {
        for (const Question& question : plan_.questions) {
            const auto command = static_cast<std::size_t>(question.command) - 1;
            if (absent_[command]) continue;
            const string owner = prefix_of(command) + question.step;
            const auto answer =
                std::find_if(journal_.answers.begin(), journal_.answers.end(),
                             [&](const Answer& each) { return each.question == question.name; });
            if (answer == journal_.answers.end() || answer->answer == "none") {
                if (extent_ == Extent::so_far) continue;
                const int line = answer == journal_.answers.end() ? 0 : answer->line;
                give(owner, "answer-missing", Verdict::not_proven, line, question.name);
            } else if (answer->answer == "no") {
                give(owner, "answer-no", Verdict::fail, answer->line, question.name);
            } else if (answer->answer != "yes") {
                give(owner, "answer-unsure", Verdict::not_proven, answer->line, question.name);
            }
        }
    }

    void judge_remarks() {
        for (const Remark& remark : journal_.remarks) {
            if (remark.kind == "limit" && remark.text != "answer") {
                give("run", "time-limit", Verdict::incomplete, remark.line, remark.text);
            } else if (remark.kind == "stopped") {
                give("run", "stopped", Verdict::incomplete, remark.line, remark.text);
            } else if (remark.kind == "failed") {
                give("run", "station-failed", Verdict::incomplete, remark.line, remark.text);
            } else if (remark.kind == "dead") {
                give("run", "recorder-dead", Verdict::incomplete, remark.line, remark.text);
            } else if (remark.kind == "scan-out" && remark.text != journal_.identity.serial) {
                give("identity", "scan-out", Verdict::not_proven, remark.line, remark.text);
            }
        }
    }

    void judge_identity() {
        const Identity& identity = journal_.identity;
        if (!plan_.takes_serial(identity.serial)) {
            Reason& reason = give("identity", "serial-pattern", Verdict::not_proven, 1);
            reason.value = identity.serial;
            reason.wanted = "like " + plan_.serial_pattern;
        }
        if (identity.id.empty() || identity.operator_id.empty() || identity.model != plan_.model) {
            give("identity", "identity", Verdict::incomplete, 1);
        }
        if (!plan_.is_signed()) give("plan", "plan-unsigned", Verdict::not_proven, 1);
        if (plan_.addresses_unique && !absent_[0]) judge_addresses();
    }

    void judge_addresses() {
        std::size_t addresses = 0;
        for (const BoardEvent& event : journal_.events) {
            if (event.kind != BoardEvent::Kind::start || event.command != 1) continue;
            const auto found = event.fields.find("addresses");
            if (found != event.fields.end() && found->is_object()) addresses = found->size();
        }
        if (extent_ == Extent::whole && (addresses == 0 || journal_.lookups.size() < addresses)) {
            give("identity", "no-address", Verdict::incomplete, 0);
        }
        for (const AddressLookup& lookup : journal_.lookups) {
            if (lookup.serials.empty()) continue;
            Reason& reason =
                give("identity", "address-seen", Verdict::not_proven, lookup.line, lookup.address);
            for (const string& serial : lookup.serials)
                reason.value += (reason.value.empty() ? "" : ", ") + serial;
            reason.wanted = journal_.identity.serial;
        }
    }

    void conclude() {
        judgement_.verdict = Verdict::pass;
        for (Item& each : judgement_.items) {
            std::stable_sort(
                each.reasons.begin(), each.reasons.end(), [](const Reason& a, const Reason& b) {
                    return a.verdict != b.verdict ? a.verdict > b.verdict : a.line < b.line;
                });
            if (!each.reasons.empty()) each.verdict = each.reasons.front().verdict;
            judgement_.verdict = std::max(judgement_.verdict, each.verdict);
        }
        // A command that waited for a pass: with the pass, its absence is a gap.
        if (waiting_ && judgement_.verdict == Verdict::pass) {
            give("run", "no-command", Verdict::incomplete, 0);
            item("run").verdict = judgement_.verdict = Verdict::incomplete;
        }
    }

    const Journal& journal_;
    const Evidence& evidence_;
    const Plan& plan_;
    const Extent extent_;
    Judgement judgement_;
    std::vector<bool> absent_;  // by command of the plan
    std::vector<string> missing_steps_;
    bool waiting_ = false;
};

Judgement unusable(const Journal& journal, const char* code, const string& text) {
    Judgement judgement;
    judgement.identity = journal.identity;
    judgement.end_at = journal.end_at;
    judgement.journal_lines = journal.lines;
    judgement.journal_sha256 = journal.sha256;
    Item run{"run", Verdict::incomplete, {}};
    for (const Damage& damage : journal.damage) {
        Reason reason;
        reason.code = damage.code;
        reason.verdict = Verdict::incomplete;
        reason.line = damage.line;
        reason.text = damage.text;
        run.reasons.push_back(std::move(reason));
    }
    if (run.reasons.empty()) {
        Reason reason;
        reason.code = code;
        reason.verdict = Verdict::incomplete;
        reason.line = 1;
        reason.text = text;
        run.reasons.push_back(std::move(reason));
    }
    judgement.items.push_back(std::move(run));
    return judgement;
}

bool is_altered(const Journal& journal) {
    return std::any_of(journal.damage.begin(), journal.damage.end(),
                       [](const Damage& damage) { return damage.code != "cut-off"; });
}

nlohmann::ordered_json reason_to_json(const Reason& reason) {
    nlohmann::ordered_json object{{"code", reason.code}, {"verdict", name_of(reason.verdict)}};
    if (!reason.fact.empty()) object["fact"] = reason.fact;
    if (!reason.value.empty() || !reason.fact.empty()) object["value"] = reason.value;
    if (!reason.wanted.empty()) object["wanted"] = reason.wanted;
    if (!reason.unit.empty()) object["unit"] = reason.unit;
    if (!reason.low.empty()) object["low"] = reason.low;
    if (!reason.high.empty()) object["high"] = reason.high;
    if (!reason.text.empty()) object["text"] = reason.text;
    object["line"] = reason.line;
    return object;
}

}  // namespace

string_view name_of(Verdict verdict) {
    constexpr std::array<string_view, 4> kNames{"PASS", "NOT PROVEN", "INCOMPLETE", "FAIL"};
    return kNames.at(static_cast<std::size_t>(verdict));
}

int exit_status(Verdict verdict) {
    constexpr std::array<int, 4> kStatuses{0, 3, 4, 1};
    return kStatuses.at(static_cast<std::size_t>(verdict));
}

const Item* Judgement::item(string_view name) const {
    for (const Item& each : items) {
        if (each.name == name) return &each;
    }
    return nullptr;
}

Judgement judge(const Journal& journal) {
    if (is_altered(journal)) return unusable(journal, "altered", "");
    // Journals of one model follow each other: its plan is parsed once.
    thread_local std::optional<std::pair<string, Plan>> latest;
    try {
        const string& text = journal.identity.plan_text;
        if (!latest || latest->first != text) {
            latest.reset();
            latest.emplace(text, Plan::parse(text, "plan of the journal"));
        }
        return judge(journal, take_evidence(journal), latest->second);
    } catch (const PlanError& error) {
        return unusable(journal, "plan", error.what());
    }
}

Judgement judge(const Journal& journal, const Evidence& evidence, const Plan& plan) {
    if (is_altered(journal)) return unusable(journal, "altered", "");
    return Judge(journal, evidence, plan, Extent::whole).judge();
}

Verdict judge_so_far(const Journal& journal, const Evidence& evidence, const Plan& plan) {
    return Judge(journal, evidence, plan, Extent::so_far).judge().verdict;
}

nlohmann::ordered_json to_json(const Judgement& judgement) {
    using Json = nlohmann::ordered_json;
    const Identity& identity = judgement.identity;
    Json items = Json::array(), unexplained = Json::array();
    for (const Item& item : judgement.items) {
        Json reasons = Json::array();
        for (const Reason& reason : item.reasons)
            reasons.push_back(reason_to_json(reason));
        items.push_back(
            {{"name", item.name}, {"verdict", name_of(item.verdict)}, {"reasons", reasons}});
    }
    for (const UnexplainedLine& line : judgement.unexplained)
        unexplained.push_back({{"line", line.line}, {"text", line.text}});
    Json object;
    object["version"] = 1;
    object["id"] = identity.id;
    object["serial"] = identity.serial;
    object["attempt"] = identity.attempt ? Json(*identity.attempt) : Json(nullptr);
    object["verdict"] = name_of(judgement.verdict);
    object["items"] = items;
    object["unexplained"] = unexplained;
    object["causes"] = judgement.causes;
    if (!judgement.dictionary.is_null()) object["dictionary"] = judgement.dictionary;
    object["station"] = identity.station;
    object["operator"] = identity.operator_id;
    object["model"] = identity.model;
    object["mark"] = identity.mark;
    object["start"] = identity.at;
    object["end"] = judgement.end_at.empty() ? Json(nullptr) : Json(judgement.end_at);
    object["facts"] = {{"good", judgement.facts_good},
                       {"wrong", judgement.facts_wrong},
                       {"missing", judgement.facts_missing}};
    object["plan"] = {{"name", judgement.plan_name},
                      {"revision", judgement.plan_revision},
                      {"sha256", judgement.plan_sha256}};
    object["journal"] = {{"lines", judgement.journal_lines}, {"sha256", judgement.journal_sha256}};
    object["program"] = kVersion;
    object["shift"] = identity.shift.empty() ? Json(nullptr) : Json(identity.shift);
    object["agent"] = judgement.agent;
    object["q7"] = judgement.q7_sha256;
    object["addresses"] = judgement.addresses;
    object["drift"] = Json::array();
    for (const Measurement& each : judgement.measurements) {
        object["drift"].push_back(
            {{"fact", each.fact}, {"value", each.value}, {"unit", each.unit}});
    }
    for (const Repair& each : judgement.repairs) {
        object["repairs"].push_back({{"of", each.of},
                                     {"defect", each.defect},
                                     {"text", each.text},
                                     {"operator", each.operator_id},
                                     {"at", each.at}});
    }
    return object;
}

}  // namespace station
