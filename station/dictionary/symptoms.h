// What is wrong with an attempt, in a form that can be compared: its signature.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "station/judge.h"

namespace station {

// A fact that is not as the plan wants it ("rs485.good" = "0"), a bit of one
// ("alarm.output.2.inputs#6" = "0"), a text ("text ..."), a step, an answer, or something computed
// from facts ("rs485.received" = "fewer").
using Symptoms = std::map<std::string, std::string>;

// What the attempt shows beyond a board that passes; what a person or the station did is left out.
Symptoms symptoms_of(const Judgement& judgement, const Evidence& evidence);

// How a symptom counts when two signatures are compared.
struct Weight {
    enum class Compare : std::uint8_t { exact, magnitude, presence } compare;
    double weight;
    bool shown;  // a fact or text of its own, no part of one and nothing computed
};
Weight weight_of(std::string_view symptom);

// 1 = the same, 0 = nothing in common, in between for numbers of one direction and size.
double likeness(std::string_view symptom, const std::string& a, const std::string& b);
constexpr double kExplained = 0.6;  // the least likeness of numbers of one direction

// The part of the board that a symptom belongs to, by its name: "alarm". Empty = none.
std::string step_of(std::string_view symptom);

}  // namespace station
