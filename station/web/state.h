// The parts of the page's state that follow from a plan and what a run has shown so far.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "station/evidence.h"
#include "station/judge.h"
#include "station/plan.h"

namespace station::web {

// Seconds that a step took in earlier runs; a step that is not in it has not been learned.
using Learned = std::map<std::string, double>;

// "PASS" -> "pass", "NOT PROVEN" -> "not-proven".
std::string state_name(std::string_view verdict);

// The verdicts of a judgement's JSON as the pages write them.
nlohmann::json for_page(nlohmann::json judgement);

// Steps of all the plan's commands, as the judge names them.
std::vector<std::string> steps_of(const Plan& plan);

nlohmann::json plan_json(const Plan& plan);

// Every step as not yet reached.
nlohmann::json idle_steps(const Plan& plan, const Learned& learned);

// Of a run that goes on: `open` are the questions that wait for an answer. A step is good when all
// its facts have come and are as wanted.
nlohmann::json running_steps(const Plan& plan, const Evidence& evidence,
                             const std::vector<std::string>& open, const Learned& learned);

// Of an attempt that is over, as it was judged.
nlohmann::json judged_steps(const Plan& plan, const Evidence& evidence, const Judgement& judgement,
                            const Learned& learned);

// Facts that the plan has a rule for, by name: {state, value, wanted}.
nlohmann::json facts_json(const Plan& plan, const Evidence& evidence);

// The answers of the journal, and "waiting" for open questions.
nlohmann::json answers_json(const Journal& journal, const std::vector<std::string>& open);

// The step that runs, as the judge names it; empty before the first and behind the last.
std::string running_step(const Evidence& evidence);

// How long each step took; the first begins with its command.
Learned durations(const Evidence& evidence);

}  // namespace station::web
