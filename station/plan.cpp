#include "station/plan.h"

#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <functional>

#include "station/catalogue.h"
#include "station/text.h"

namespace station {
namespace {

using std::string;
using std::string_view;

string joined(const std::vector<string_view>& words) {
    string text;
    for (const string_view word : words)
        text += (text.empty() ? "" : ", ") + string(word);
    return text;
}

// How far two names are apart: insertions, deletions and changes.
std::size_t distance(string_view a, string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row[b.size()];
}

// The known names of the same group, the nearest first.
string nearest_names(string_view name) {
    std::vector<std::pair<std::size_t, string_view>> names;
    for (const KnownFact& row : catalogue())
        names.emplace_back(distance(row.name, name), row.name);
    std::stable_sort(names.begin(), names.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<string_view> first;
    for (std::size_t i = 0; i < 8; ++i)
        first.push_back(names[i].second);
    return joined(first);
}

class Parser {
  public:
    Parser(string_view text, const string& file) : file_(file) {
        try {
            root_ = toml::parse(text, file);
        } catch (const toml::parse_error& error) {
            throw PlanError(file + ":" + std::to_string(error.source().begin.line) + ": "
                            + string(error.description()));
        }
        plan_.sha256 = sha256(text);
    }

    Plan parse() {
        check_keys(root_, {"version", "name", "model", "revision", "serial", "signed", "addresses",
                           "scan_out", "limits", "commands", "questions", "facts", "explained",
                           "reference"});
        take_head();
        take_limits();
        take_list("commands", [&](const toml::table& table) { take_command(table); });
        if (plan_.commands.empty()) fail(root_, "a plan needs at least one [[commands]]");
        take_list("questions", [&](const toml::table& table) { take_question(table); });
        if (const toml::node* facts = root_.get("facts")) {
            if (!facts->is_table()) fail(*facts, "facts must be a table");
            take_facts(*facts->as_table(), "");
        }
        take_list("explained", [&](const toml::table& table) { take_explained(table); });
        take_list("reference", [&](const toml::table& table) { take_reference(table); });
        return std::move(plan_);
    }

  private:
    [[noreturn]] void fail(const toml::node& node, const string& what) const {
        fail_at(static_cast<int>(node.source().begin.line), what);
    }
    [[noreturn]] void fail_at(int line, const string& what) const {
        throw PlanError(file_ + ":" + std::to_string(line) + ": " + what);
    }

    void check_keys(const toml::table& table, const std::vector<string_view>& known) const {
        for (const auto& [key, node] : table) {
            if (std::find(known.begin(), known.end(), key.str()) == known.end()) {
                fail_at(static_cast<int>(key.source().begin.line),
                        "unknown key " + string(key.str()) + " (known: " + joined(known) + ")");
            }
        }
    }

    // Values of a table; what is absent leaves `otherwise`, and without it is an error.
    string text_of(const toml::table& table, string_view key,
                   std::optional<string> otherwise = std::nullopt) const {
        const toml::node* node = table.get(key);
        if (node == nullptr && otherwise) return *otherwise;
        if (node == nullptr) fail(table, string(key) + " is missing");
        if (!node->is_string()) fail(*node, string(key) + " must be a text");
        return node->as_string()->get();
    }

    std::int64_t number_of(const toml::table& table, string_view key, std::int64_t low,
                           std::int64_t high, std::int64_t otherwise) const {
        const toml::node* node = table.get(key);
        if (node == nullptr) return otherwise;
        const auto value = node->value_exact<std::int64_t>();
        if (!value || *value < low || *value > high) {
            fail(*node, string(key) + " must be a whole number from " + std::to_string(low) + " to "
                            + std::to_string(high));
        }
        return *value;
    }

    bool flag_of(const toml::table& table, string_view key) const {
        const toml::node* node = table.get(key);
        if (node == nullptr) return false;
        if (!node->is_boolean()) fail(*node, string(key) + " must be true or false");
        return node->as_boolean()->get();
    }

    string word_of(const toml::table& table, string_view key, const std::vector<string_view>& words,
                   const string& otherwise) const {
        string word = text_of(table, key, otherwise);
        if (std::find(words.begin(), words.end(), word) == words.end()) {
            fail(*table.get(key),
                 string(key) + " is \"" + word + "\", but must be one of " + joined(words));
        }
        return word;
    }

    std::vector<string> texts_of(const toml::table& table, string_view key) const {
        const toml::node* node = table.get(key);
        if (node == nullptr) fail(table, string(key) + " is missing");
        const toml::array* array = node->as_array();
        if (array == nullptr) fail(*node, string(key) + " must be a list of texts");
        std::vector<string> texts;
        for (const toml::node& item : *array) {
            if (!item.is_string()) fail(item, string(key) + " must be a list of texts");
            texts.push_back(item.as_string()->get());
        }
        return texts;
    }

    Expression expression_of(const toml::node& node, const string& pattern) const {
        try {
            return Expression(pattern);
        } catch (const std::invalid_argument& reason) {
            fail(node, "\"" + pattern + "\" is no regular expression: " + reason.what());
        }
    }

    template <class Take>
    void take_list(string_view key, const Take& take) {
        const toml::node* node = root_.get(key);
        if (node == nullptr) return;
        const toml::array* array = node->as_array();
        if (array == nullptr) fail(*node, "write [[" + string(key) + "]]");
        for (const toml::node& item : *array) {
            if (!item.is_table()) fail(item, "write [[" + string(key) + "]]");
            take(*item.as_table());
        }
    }

    void take_head() {
        if (number_of(root_, "version", 0, 1'000'000, 0) != 1) {
            fail(root_, "version = 1 is missing: this program knows plans of version 1");
        }
        plan_.name = text_of(root_, "name");
        plan_.model = text_of(root_, "model");
        plan_.revision = static_cast<int>(number_of(root_, "revision", 1, 1'000'000, 1));
        plan_.serial_pattern = text_of(root_, "serial");
        plan_.serial_expression = expression_of(*root_.get("serial"), plan_.serial_pattern);
        plan_.addresses_unique =
            word_of(root_, "addresses", {"unique", "ignored"}, "unique") == "unique";
        plan_.scan_out = flag_of(root_, "scan_out");
        const toml::node* sign = root_.get("signed");
        if (sign == nullptr) return;
        const toml::table* table = sign->as_table();
        if (table == nullptr) fail(*sign, "write signed = {by = \"...\", on = 2026-11-23}");
        check_keys(*table, {"by", "on"});
        plan_.signed_by = text_of(*table, "by");
        const toml::node* on = table->get("on");
        if (plan_.signed_by.empty()) return;
        if (on == nullptr || !on->is_date()) fail(*table, "on must be a date: 2026-11-23");
        const toml::date date = on->as_date()->get();
        char text[32];
        std::snprintf(text, sizeof text, "%04u-%02u-%02u", date.year, date.month, date.day);
        plan_.signed_on = text;
    }

    void take_limits() {
        const toml::node* node = root_.get("limits");
        if (node == nullptr) return;
        const toml::table* table = node->as_table();
        if (table == nullptr) fail(*node, "write limits = {silence_s = 120, ...}");
        check_keys(*table, {"silence_s", "answer_s", "run_s"});
        constexpr std::int64_t kDay_s = 86400;
        plan_.silence_s = static_cast<int>(number_of(*table, "silence_s", 1, kDay_s, 120));
        plan_.answer_s = static_cast<int>(number_of(*table, "answer_s", 1, kDay_s, 60));
        plan_.run_s = static_cast<int>(number_of(*table, "run_s", 1, kDay_s, 1800));
    }

    void check_steps(const toml::node& node, const std::vector<string>& steps) const {
        const std::vector<string>& known = known_steps();
        for (const string& step : steps) {
            if (std::find(known.begin(), known.end(), step) != known.end()) continue;
            fail(node,
                 "unknown step " + step + " (known: " + joined({known.begin(), known.end()}) + ")");
        }
    }

    void take_command(const toml::table& table) {
        check_keys(table, {"name", "words", "steps", "when", "restarts"});
        PlannedCommand command;
        command.name = text_of(table, "name");
        const bool plain =
            !command.name.empty()
            && command.name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-")
                   == string::npos;
        if (!plain) fail(*table.get("name"), "a name is of small letters, digits and -");
        for (const KnownFact& row : catalogue()) {
            if (row.name.substr(0, row.name.find('.')) == command.name) {
                fail(*table.get("name"), command.name + " is the name of a group of facts");
            }
        }
        for (const PlannedCommand& other : plan_.commands) {
            if (other.name == command.name) fail(*table.get("name"), "this name is taken");
        }
        command.words = texts_of(table, "words");
        command.steps = texts_of(table, "steps");
        check_steps(*table.get("steps"), command.steps);
        if (command.steps.empty()) fail(*table.get("steps"), "a command needs a step");
        command.only_when_passed =
            word_of(table, "when", {"always", "passed"}, "always") == "passed";
        command.restarts = flag_of(table, "restarts");
        plan_.commands.push_back(std::move(command));
    }

    void take_question(const toml::table& table) {
        check_keys(table, {"name", "step", "command"});
        Question question;
        question.name = text_of(table, "name");
        word_of(table, "name", {"panel-leds", "panel-keys", "buzzer"}, "");
        question.step = text_of(table, "step");
        const string command = text_of(table, "command", plan_.commands.front().name);
        question.command = 0;
        for (std::size_t i = 0; i < plan_.commands.size(); ++i) {
            if (plan_.commands[i].name == command) question.command = static_cast<int>(i) + 1;
        }
        if (question.command == 0) fail(*table.get("command"), "unknown command " + command);
        const auto& steps = plan_.commands[static_cast<std::size_t>(question.command) - 1].steps;
        if (std::find(steps.begin(), steps.end(), question.step) == steps.end()) {
            fail(*table.get("step"), "the command has no step " + question.step + " (it has: "
                                         + joined({steps.begin(), steps.end()}) + ")");
        }
        if (plan_.question(question.name) != nullptr) {
            fail(*table.get("name"), "this question is asked already");
        }
        plan_.questions.push_back(std::move(question));
    }

    // Tables nest down to a rule: a value, or a table of conditions.
    void take_facts(const toml::table& table, const string& prefix) {
        for (const auto& [key, node] : table) {
            const string name = prefix + string(key.str());
            const toml::table* inner = node.as_table();
            if (inner != nullptr && !is_condition(*inner)) {
                take_facts(*inner, name + ".");
            } else {
                take_rule(name, node, static_cast<int>(key.source().begin.line));
            }
        }
    }

    static bool is_condition(const toml::table& table) {
        constexpr std::array<string_view, 8> kKeys{"equal",   "min",      "max",  "one_of",
                                                   "pattern", "distinct", "open", "optional"};
        return std::any_of(table.begin(), table.end(), [&](const auto& entry) {
            return std::find(kKeys.begin(), kKeys.end(), entry.first.str()) != kKeys.end();
        });
    }

    const KnownFact& known_fact(const string& name, int line) const {
        string_view bare = name;
        const string_view first = bare.substr(0, bare.find('.'));
        for (std::size_t i = 1; i < plan_.commands.size(); ++i) {
            if (plan_.commands[i].name == first) bare.remove_prefix(first.size() + 1);
        }
        if (const KnownFact* known = find_known(bare)) return *known;
        string commands;
        for (std::size_t i = 1; i < plan_.commands.size(); ++i)
            commands += " or begin with " + plan_.commands[i].name + ".";
        fail_at(line, "unknown fact " + name + " (known names are near it: " + nearest_names(bare)
                          + commands + ")");
    }

    void take_rule(const string& name, const toml::node& node, int line) {
        const KnownFact& known = known_fact(name, line);
        Rule rule;
        rule.fact = name;
        rule.line = line;
        const toml::table* table = node.as_table();
        if (table == nullptr) {
            rule.equal = value_of(node, known);
        } else {
            take_conditions(rule, *table, known);
        }
        for (const Rule& other : plan_.rules) {
            if (other.fact == name) fail_at(line, name + " stands here twice");
        }
        plan_.rules.push_back(std::move(rule));
    }

    void take_conditions(Rule& rule, const toml::table& table, const KnownFact& known) const {
        check_keys(table,
                   {"equal", "min", "max", "one_of", "pattern", "distinct", "open", "optional"});
        if (const toml::node* node = table.get("equal")) rule.equal = value_of(*node, known);
        rule.min = bound_of(table, "min", known);
        rule.max = bound_of(table, "max", known);
        if (rule.min && rule.max && *rule.min > *rule.max) {
            fail(table, "impossible range: min " + std::to_string(*rule.min) + " is above max "
                            + std::to_string(*rule.max));
        }
        if (const toml::node* node = table.get("one_of")) {
            const toml::array* array = node->as_array();
            if (array == nullptr || array->empty()) fail(*node, "one_of must be a list of values");
            for (const toml::node& item : *array)
                rule.one_of.push_back(value_of(item, known));
        }
        if (const toml::node* node = table.get("pattern")) {
            if (known.type != KnownFact::Type::text) fail(*node, "a pattern is for a text");
            rule.pattern = text_of(table, "pattern");
            rule.expression = expression_of(*node, rule.pattern);
        }
        rule.distinct = flag_of(table, "distinct");
        rule.optional = flag_of(table, "optional");
        const bool bound = rule.equal || rule.min || rule.max || !rule.one_of.empty()
                           || !rule.pattern.empty() || rule.distinct;
        const bool open = flag_of(table, "open");
        if (open && bound) fail(table, "a fact that is left open has no other condition");
        if (!open && !bound) fail(table, "no condition; a fact that is left open says open = true");
    }

    std::optional<std::int64_t> bound_of(const toml::table& table, string_view key,
                                         const KnownFact& known) const {
        const toml::node* node = table.get(key);
        if (node == nullptr) return std::nullopt;
        if (known.type != KnownFact::Type::number) fail(*node, "a range is for a number");
        return number_of(table, key, known.low, known.high, 0);
    }

    Value value_of(const toml::node& node, const KnownFact& known) const {
        switch (known.type) {
        case KnownFact::Type::number: {
            const auto value = node.value_exact<std::int64_t>();
            if (!value || *value < known.low || *value > known.high) {
                fail(node, string(known.name) + " is a whole number from "
                               + std::to_string(known.low) + " to " + std::to_string(known.high));
            }
            return *value;
        }
        case KnownFact::Type::text: {
            if (!node.is_string()) fail(node, string(known.name) + " is a text");
            const string& text = node.as_string()->get();
            const auto& words = known.words;
            if (!words.empty() && std::find(words.begin(), words.end(), text) == words.end()) {
                fail(node, string(known.name) + " can be " + joined(words) + ", never " + text);
            }
            return text;
        }
        case KnownFact::Type::list:
            break;
        }
        const toml::array* array = node.as_array();
        std::vector<string> texts;
        for (std::size_t i = 0; array != nullptr && i < array->size(); ++i) {
            const toml::node& item = *array->get(i);
            if (!item.is_string()) fail(item, string(known.name) + " is a list of texts");
            texts.push_back(item.as_string()->get());
        }
        if (array == nullptr) fail(node, string(known.name) + " is a list of texts");
        return texts;
    }

    void take_explained(const toml::table& table) {
        check_keys(table, {"text", "pattern", "channel", "reason"});
        Explained line;
        line.reason = text_of(table, "reason");
        line.text = text_of(table, "text", "");
        line.pattern = text_of(table, "pattern", "");
        if (line.text.empty() == line.pattern.empty()) fail(table, "give text or pattern");
        if (!line.pattern.empty()) {
            line.expression = expression_of(*table.get("pattern"), line.pattern);
        }
        const string channel = word_of(table, "channel", {"record", "out", "err", "any"}, "any");
        for (const Channel each : {Channel::record, Channel::out, Channel::err}) {
            if (name_of(each) == channel) line.channel = each;
        }
        plan_.explained.push_back(std::move(line));
    }

    void take_reference(const toml::table& table) {
        check_keys(table, {"serial", "verdict"});
        const string verdict =
            word_of(table, "verdict", {"PASS", "FAIL", "NOT PROVEN", "INCOMPLETE"}, "");
        plan_.references.push_back({text_of(table, "serial"), verdict});
    }

    string file_;
    toml::table root_;
    Plan plan_;
};

}  // namespace

Plan Plan::parse(string_view text, const string& file) { return Parser(text, file).parse(); }

bool Plan::takes_serial(const string& serial) const {
    return serial_expression.matches_whole(serial);
}

const Question* Plan::question(string_view question_name) const {
    for (const Question& question : questions) {
        if (question.name == question_name) return &question;
    }
    return nullptr;
}

std::vector<string> Plan::remarks() const {
    std::vector<string> list;
    if (!is_signed()) list.emplace_back("nobody has signed it off: no board can pass");
    bool no_prefix = true;
    for (const PlannedCommand& command : commands) {
        const string prefix = no_prefix ? "" : command.name + ".";
        no_prefix = false;
        for (const string& step : command.steps) {
            if (step == "buzzer" || step == "watchdog") {
                if (question("buzzer") == nullptr && step == "buzzer") {
                    list.push_back(prefix + "buzzer: no question, and no fact shows a buzzer");
                }
                continue;
            }
            const bool has_fact = std::any_of(rules.begin(), rules.end(), [&](const Rule& rule) {
                return rule.fact.starts_with(prefix + step + ".");
            });
            if (!has_fact) list.push_back(prefix + step + ": the plan asks for no fact of it");
        }
        if (std::count(command.steps.begin(), command.steps.end(), "panel") != 0
            && (question("panel-leds") == nullptr || question("panel-keys") == nullptr)) {
            list.push_back(prefix + "panel: no question for its LEDs or its keys");
        }
    }
    return list;
}

bool fits(const Rule& rule, const Value& value) {
    if (rule.equal && *rule.equal != value) return false;
    const auto* number = std::get_if<std::int64_t>(&value);
    if (rule.min && (number == nullptr || *number < *rule.min)) return false;
    if (rule.max && (number == nullptr || *number > *rule.max)) return false;
    if (!rule.one_of.empty()
        && std::find(rule.one_of.begin(), rule.one_of.end(), value) == rule.one_of.end()) {
        return false;
    }
    if (rule.pattern.empty()) return true;
    const auto* text = std::get_if<string>(&value);
    return text != nullptr && rule.expression.matches_whole(*text);
}

bool explains(const Plan& plan, const Finding& finding) {
    return std::any_of(plan.explained.begin(), plan.explained.end(), [&](const Explained& each) {
        if (each.channel && *each.channel != finding.channel) return false;
        if (!each.text.empty()) return each.text == finding.text;
        return each.expression.matches_whole(finding.text);
    });
}

string wanted_text(const Rule& rule, string_view unit) {
    std::vector<string> parts;
    if (rule.equal) parts.push_back(to_text(*rule.equal, unit));
    if (rule.min && rule.max) {
        parts.push_back(to_text(Value(*rule.min), unit) + " to " + to_text(Value(*rule.max), unit));
    } else if (rule.min) {
        parts.push_back("at least " + to_text(Value(*rule.min), unit));
    } else if (rule.max) {
        parts.push_back("at most " + to_text(Value(*rule.max), unit));
    }
    string words;
    for (const Value& value : rule.one_of)
        words += (words.empty() ? "" : " or ") + to_text(value, unit);
    if (!words.empty()) parts.push_back(words);
    if (!rule.pattern.empty()) parts.push_back("like " + rule.pattern);
    if (rule.distinct) parts.emplace_back("different from the others");
    if (parts.empty()) return "any value";
    string text;
    for (const string& part : parts)
        text += (text.empty() ? "" : ", ") + part;
    return text;
}

const Rule* rule_of(const Plan& plan, string_view fact) {
    const Rule* by_wildcard = nullptr;
    for (const Rule& rule : plan.rules) {
        if (rule.fact == fact) return &rule;
        if (by_wildcard == nullptr && rule.has_wildcard() && name_fits(rule.fact, fact)) {
            by_wildcard = &rule;
        }
    }
    return by_wildcard;
}

}  // namespace station
