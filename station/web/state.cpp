#include "station/web/state.h"

#include <algorithm>

#include "station/catalogue.h"

namespace station::web {
namespace {

using nlohmann::json;

constexpr double kSecond_us = 1e6;

std::string prefix_of(const Plan& plan, std::size_t command) {
    return command == 0 ? "" : plan.commands[command].name + ".";
}

// The step that a fact belongs to, from the first component of its name.
std::string step_of(const Plan& plan, const std::string& fact) {
    std::string prefix;
    std::string_view rest = fact;
    for (std::size_t i = 1; i < plan.commands.size(); ++i) {
        const std::string candidate = prefix_of(plan, i);
        if (!rest.starts_with(candidate)) continue;
        prefix = candidate;
        rest.remove_prefix(candidate.size());
        break;
    }
    const std::string_view first = rest.substr(0, rest.find('.'));
    if (first == "minisas") return prefix + "sata";
    if (first == "sequence" || first == "exit") return prefix + "end";
    return prefix + std::string(first);
}

std::string unit_of(std::string_view fact) {
    const KnownFact* known = find_known(fact);
    return known == nullptr ? "" : std::string(known->unit);
}

bool is_awaited(const Rule& rule) { return !rule.optional && !rule.has_wildcard(); }

json seconds_of(const Learned& learned, const std::string& step) {
    const auto found = learned.find(step);
    return found == learned.end() ? json() : json(found->second);
}

json step_json(const std::string& name, const std::string& state, const Learned& learned) {
    return {{"name", name}, {"state", state}, {"seconds", seconds_of(learned, name)}};
}

const StepSeen* find_step(const Evidence& evidence, const std::string& name) {
    const auto found = std::find_if(evidence.steps.begin(), evidence.steps.end(),
                                    [&](const StepSeen& seen) { return seen.name == name; });
    return found == evidence.steps.end() ? nullptr : &*found;
}

bool asks_about(const Plan& plan, const std::string& step, const std::vector<std::string>& open) {
    return std::any_of(plan.questions.begin(), plan.questions.end(), [&](const Question& question) {
        const std::string name =
            prefix_of(plan, static_cast<std::size_t>(question.command) - 1) + question.step;
        return name == step && std::find(open.begin(), open.end(), question.name) != open.end();
    });
}

// Whether the facts of a step are there and as wanted: "pass", "fail", or "running" where one is
// still to come.
std::string facts_state(const Plan& plan, const Evidence& evidence, const std::string& step) {
    std::string state = "pass";
    for (const Fact& fact : evidence.facts) {
        if (step_of(plan, fact.name) != step) continue;
        const Rule* rule = rule_of(plan, fact.name);
        if (rule != nullptr && !fits(*rule, fact.value)) return "fail";
    }
    for (const Rule& rule : plan.rules) {
        if (is_awaited(rule) && step_of(plan, rule.fact) == step
            && evidence.find(rule.fact) == nullptr) {
            state = "running";
        }
    }
    return state;
}

}  // namespace

std::string state_name(std::string_view verdict) {
    if (verdict == "PASS") return "pass";
    if (verdict == "FAIL") return "fail";
    if (verdict == "NOT PROVEN") return "not-proven";
    return "incomplete";
}

json for_page(json judgement) {
    judgement["verdict"] = state_name(judgement.at("verdict").get<std::string>());
    for (json& item : judgement.at("items")) {
        item["verdict"] = state_name(item.at("verdict").get<std::string>());
        for (json& reason : item.at("reasons"))
            reason["verdict"] = state_name(reason.at("verdict").get<std::string>());
    }
    return judgement;
}

std::vector<std::string> steps_of(const Plan& plan) {
    std::vector<std::string> steps;
    for (std::size_t i = 0; i < plan.commands.size(); ++i) {
        for (const std::string& step : plan.commands[i].steps)
            steps.push_back(prefix_of(plan, i) + step);
    }
    return steps;
}

json plan_json(const Plan& plan) {
    json facts = json::array();
    for (const Rule& rule : plan.rules) {
        if (!is_awaited(rule)) continue;
        facts.push_back({{"name", rule.fact},
                         {"step", step_of(plan, rule.fact)},
                         {"wanted", wanted_text(rule, unit_of(rule.fact))}});
    }
    json questions = json::array();
    for (const Question& question : plan.questions)
        questions.push_back(question.name);
    return {{"name", plan.name},         {"model", plan.model},      {"revision", plan.revision},
            {"sha256", plan.sha256},     {"steps", steps_of(plan)},  {"questions", questions},
            {"scan_out", plan.scan_out}, {"facts", std::move(facts)}};
}

json idle_steps(const Plan& plan, const Learned& learned) {
    json steps = json::array();
    for (const std::string& name : steps_of(plan))
        steps.push_back(step_json(name, "not-yet", learned));
    return steps;
}

json running_steps(const Plan& plan, const Evidence& evidence, const std::vector<std::string>& open,
                   const Learned& learned) {
    json steps = json::array();
    for (const std::string& name : steps_of(plan)) {
        const StepSeen* seen = find_step(evidence, name);
        std::string state = "not-yet";
        if (seen != nullptr && asks_about(plan, name, open)) {
            state = "waits";
        } else if (seen != nullptr) {
            state = seen->finished ? facts_state(plan, evidence, name) : "running";
        }
        steps.push_back(step_json(name, state, learned));
    }
    return steps;
}

json judged_steps(const Plan& plan, const Evidence& evidence, const Judgement& judgement,
                  const Learned& learned) {
    json steps = json::array();
    const bool whole = judgement.verdict != Verdict::incomplete;
    for (const std::string& name : steps_of(plan)) {
        const Item* item = judgement.item(name);
        const StepSeen* seen = find_step(evidence, name);
        std::string state = item == nullptr ? "not-proven" : state_name(name_of(item->verdict));
        if (!whole && seen == nullptr) state = "not-yet";
        if (!whole && seen != nullptr && !seen->finished) state = "incomplete";
        steps.push_back(step_json(name, state, learned));
    }
    return steps;
}

json facts_json(const Plan& plan, const Evidence& evidence) {
    json facts = json::object();
    for (const Fact& fact : evidence.facts) {
        const Rule* rule = rule_of(plan, fact.name);
        if (rule == nullptr) continue;
        facts[fact.name] = {{"state", fits(*rule, fact.value) ? "pass" : "fail"},
                            {"value", to_text(fact.value, fact.unit)},
                            {"wanted", wanted_text(*rule, fact.unit)}};
    }
    return facts;
}

json answers_json(const Journal& journal, const std::vector<std::string>& open) {
    json answers = json::object();
    for (const Answer& answer : journal.answers)
        answers[answer.question] = answer.answer;
    for (const std::string& question : open)
        answers[question] = "waiting";
    return answers;
}

std::string running_step(const Evidence& evidence) {
    const auto found = std::find_if(evidence.steps.rbegin(), evidence.steps.rend(),
                                    [](const StepSeen& seen) { return !seen.finished; });
    return found == evidence.steps.rend() ? "" : found->name;
}

Learned durations(const Evidence& evidence) {
    Learned result;
    for (const CommandSeen& command : evidence.commands) {
        std::int64_t begin_us = command.start_us;
        std::string name;
        const auto close = [&](std::int64_t end_us) {
            if (!name.empty()) result[name] = static_cast<double>(end_us - begin_us) / kSecond_us;
        };
        for (const StepSeen& step : evidence.steps) {
            if (step.command != command.number) continue;
            if (!name.empty()) {
                close(step.time_us);
                begin_us = step.time_us;
            }
            name = step.name;
        }
        close(command.end_us);
    }
    return result;
}

}  // namespace station::web
