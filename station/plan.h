// The plan of a model: which commands an attempt has, which steps must run, what each fact must be
// and what a person is asked. docs/station.md describes the file.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "station/evidence.h"
#include "station/expression.h"

namespace station {

// What a fact must be. Of the conditions that are set, each must hold.
struct Rule {
    std::string fact;  // "*" = any one component: then each such fact that there is
    std::optional<Value> equal;
    std::optional<std::int64_t> min, max;
    std::vector<Value> one_of;
    std::string pattern;  // of the whole text; empty = none
    Expression expression;
    bool distinct = false;  // differs from every other fact whose rule says so
    bool optional = false;  // may be absent
    int line = 0;           // of the plan

    bool has_wildcard() const { return fact.find('*') != std::string::npos; }
};

struct PlannedCommand {
    std::string name;
    std::vector<std::string> words;  // q7's own
    std::vector<std::string> steps;  // that must run, in this order, and no others
    bool only_when_passed = false;
    bool restarts = false;  // the board restarts at its end
};

struct Question {
    std::string name;  // "panel-leds", "panel-keys", "buzzer"
    std::string step;  // due when this step has ended
    int command = 1;
};

struct Explained {
    std::string text;  // a whole line; empty = by pattern
    std::string pattern;
    Expression expression;
    std::optional<Channel> channel;  // none = any
    std::string reason;
};

struct ReferenceBoard {
    std::string serial, verdict;  // "PASS", or another: not "PASS" is a board that is known bad
};

struct Plan {
    // Throws PlanError. `file` is for its messages.
    static Plan parse(std::string_view text, const std::string& file);

    // What is missing in the plan, a line each; empty = nothing.
    std::vector<std::string> remarks() const;

    bool is_signed() const { return !signed_by.empty(); }
    bool takes_serial(const std::string& serial) const;
    const Question* question(std::string_view name) const;

    std::string name, model, sha256;
    int revision = 1;
    std::string serial_pattern;
    Expression serial_expression;
    std::string signed_by, signed_on;
    bool addresses_unique = true, scan_out = false;
    int silence_s = 120, answer_s = 60, run_s = 1800;
    std::vector<PlannedCommand> commands;
    std::vector<Question> questions;
    std::vector<Rule> rules;
    std::vector<Explained> explained;
    std::vector<ReferenceBoard> references;
};

// What makes a plan unusable: "FILE:LINE: what".
class PlanError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Whether the value is as the rule wants it, `distinct` aside.
bool fits(const Rule& rule, const Value& value);

// Whether the plan says that this line means no harm.
bool explains(const Plan& plan, const Finding& finding);

// For people: "1000", ">= 900", "3.0 or 2.0".
std::string wanted_text(const Rule& rule, std::string_view unit);

// The rule of a fact: the one with its own name, else the first that fits by "*"; nullptr = none.
const Rule* rule_of(const Plan& plan, std::string_view fact);

}  // namespace station
