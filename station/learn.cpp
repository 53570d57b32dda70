#include "station/learn.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

#include "station/catalogue.h"
#include "station/evidence.h"

namespace station {
namespace {

using std::string;
using std::string_view;

// Facts that differ from board to board or run to run by their nature. A rule with "*" is written
// once for all of them; the others get these conditions instead of what was seen.
struct ByNature {
    string_view names, rule, comment;
    bool once;
};
constexpr ByNature kByNature[] = {
    {"rtc.*.clock", R"({open = true})", "", true},
    {"rtc.*.system", R"({open = true})", "", true},
    {"rtc.*.difference", R"({min = -1, max = 1})", "the clocks tick at different instants", false},
    {"usb.*.*.free", R"({min = 200})",
     "of the fixture's sticks; less is a full stick or one that was not mounted", true},
    {"sata.*.serial", R"({pattern = '[!-~]([ -~]*[!-~])?', distinct = true})", "", false},
    {"sata.*.model", R"({pattern = '[!-~]([ -~]*[!-~])?'})", "", false},
    {"sata.*.firmware", R"({pattern = '[!-~]([ -~]*[!-~])?'})", "", false},
    {"sata.*.size", R"({min = 1})", "of the fixture's disk", false},
    {"minisas.node", R"({pattern = 'sas1.*'})", "", false},
    {"minisas.serial", R"({pattern = '[!-~]([ -~]*[!-~])?', distinct = true})", "", false},
    {"minisas.model", R"({pattern = '[!-~]([ -~]*[!-~])?'})", "", false},
    {"minisas.firmware", R"({pattern = '[!-~]([ -~]*[!-~])?'})", "", false},
    {"minisas.size", R"({min = 1})", "of the fixture's disk", false},
};

string toml_text(string_view text) {
    string result = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '"' || character == '\\') result += '\\';
        if (byte < 0x20 || byte == 0x7F) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04X", byte);
            result += escape;
        } else {
            result += character;
        }
    }
    return result + '"';
}

string literal(const Value& value, string_view unit) {
    if (const auto* number = std::get_if<std::int64_t>(&value)) {
        return unit == "bits" && *number >= 0 ? to_text(value, unit) : std::to_string(*number);
    }
    if (const auto* text = std::get_if<string>(&value)) return toml_text(*text);
    string list = "[";
    for (const string& item : std::get<std::vector<string>>(value))
        list += (list.size() > 1 ? ", " : "") + toml_text(item);
    return list + "]";
}

string list_of(const std::vector<string>& texts) { return literal(Value(texts), ""); }

// A regular expression for serial numbers that are built like this one.
string pattern_like(const string& serial) {
    string pattern;
    for (std::size_t i = 0; i < serial.size();) {
        const auto is_digit = [&](std::size_t at) {
            return at < serial.size() && serial[at] >= '0' && serial[at] <= '9';
        };
        std::size_t end = i;
        while (is_digit(end))
            ++end;
        if (end > i) {
            pattern += "\\d{" + std::to_string(end - i) + "}";
            i = end;
            continue;
        }
        if (string_view("\\^$.|?*+()[]{}").find(serial[i]) != string_view::npos) pattern += '\\';
        pattern += serial[i++];
    }
    return pattern;
}

// What the journals say of one fact.
struct Seen {
    std::vector<Value> values;  // different ones
    string unit;
    std::size_t journals = 0;
};

// A fact's name without the prefix of its command, which it also gives.
string_view bare_name(string_view name, const std::vector<CommandLine>& commands, string& prefix) {
    prefix.clear();
    for (const CommandLine& command : commands) {
        if (command.number > 1 && name.starts_with(command.name + ".")) prefix = command.name + ".";
    }
    return name.substr(prefix.size());
}

string condition_of(const Seen& seen, bool optional) {
    if (seen.values.size() == 1 && !optional) return literal(seen.values.front(), seen.unit);
    string condition;
    if (seen.values.size() == 1) {
        condition = "equal = " + literal(seen.values.front(), seen.unit);
    } else if (std::holds_alternative<std::int64_t>(seen.values.front())) {
        const auto [low, high] = std::minmax_element(seen.values.begin(), seen.values.end());
        condition = "min = " + literal(*low, seen.unit) + ", max = " + literal(*high, seen.unit);
    } else {
        condition = "one_of = [";
        for (std::size_t i = 0; i < seen.values.size(); ++i)
            condition += (i > 0 ? ", " : "") + literal(seen.values[i], seen.unit);
        condition += "]";
    }
    return "{" + condition + (optional ? ", optional = true" : "") + "}";
}

// A key of TOML: quoted where a component is no bare key.
string key_of(string_view name) {
    return name.find('*') == string_view::npos ? string(name) : toml_text(name);
}

class Writer {
  public:
    Writer(const std::vector<Journal>& journals, const string& model)
        : journals_(journals), first_(journals.front()), model_(model) {}

    string write() {
        gather();
        write_head();
        write_commands();
        write_questions();
        write_facts();
        write_explained();
        return text_;
    }

  private:
    void gather() {
        for (const Journal& journal : journals_) {
            if (!journal.damage.empty() || !journal.ended) {
                throw std::runtime_error(journal.identity.id + ": the journal has no end");
            }
            const bool same = std::equal(journal.commands.begin(), journal.commands.end(),
                                         first_.commands.begin(), first_.commands.end(),
                                         [](const CommandLine& a, const CommandLine& b) {
                                             return a.name == b.name && a.words == b.words;
                                         });
            if (!same) throw std::runtime_error(journal.identity.id + ": it has other commands");
            Evidence evidence = take_evidence(journal);
            for (const CommandSeen& command : evidence.commands) {
                if (!command.ended || !command.failed.empty()) {
                    throw std::runtime_error(journal.identity.id + ": q7 did not come to its end");
                }
            }
            for (const Fact& fact : evidence.facts)
                note(fact);
            for (const Finding& finding : evidence.findings)
                findings_.insert({string(name_of(finding.channel)), finding.text});
            if (evidence_.facts.empty()) evidence_ = std::move(evidence);
        }
    }

    void note(const Fact& fact) {
        if (fact.name.ends_with("sequence.steps")) return;  // the commands name their steps
        auto [place, is_new] = facts_.try_emplace(fact.name);
        if (is_new) order_.push_back(fact.name);
        Seen& seen = place->second;
        seen.unit = fact.unit;
        ++seen.journals;
        if (std::find(seen.values.begin(), seen.values.end(), fact.value) == seen.values.end()) {
            seen.values.push_back(fact.value);
        }
    }

    void line(const string& text) { text_ += text + "\n"; }

    void write_head() {
        const string model = model_.empty() ? first_.identity.model : model_;
        line("# Learned from " + std::to_string(journals_.size())
             + (journals_.size() == 1 ? " journal." : " journals.")
             + " Read every line, then sign it off.");
        line("version = 1");
        line("name = " + toml_text(model));
        line("model = " + toml_text(model));
        line("revision = 1");
        line("serial = '" + pattern_like(first_.identity.serial) + "'");
        line("signed = {by = \"\", on = " + first_.identity.at.substr(0, 10) + "}");
        line("addresses = \"unique\"");
        line("scan_out = false");
        line("limits = {silence_s = 120, answer_s = 60, run_s = 1800}");
    }

    std::vector<string> steps_of(const CommandLine& command) const {
        std::vector<string> steps;
        for (const StepSeen& step : evidence_.steps) {
            const string bare = step.name.substr(step.name.rfind('.') + 1);
            const bool known = std::find(steps.begin(), steps.end(), bare) != steps.end();
            if (step.command == command.number && !known) steps.push_back(bare);
        }
        return steps;
    }

    void write_commands() {
        for (const CommandLine& command : first_.commands) {
            line("\n[[commands]]");
            line("name = " + toml_text(command.name));
            line("words = " + list_of(command.words));
            line("steps = " + list_of(steps_of(command)));
            if (command.number > 1) line("when = \"passed\"");
        }
    }

    void write_questions() {
        constexpr std::pair<const char*, const char*> kQuestions[] = {
            {"buzzer", "buzzer"}, {"panel-leds", "panel"}, {"panel-keys", "panel"}};
        const std::vector<string> steps = steps_of(first_.commands.front());
        for (const auto& [name, step] : kQuestions) {
            if (std::find(steps.begin(), steps.end(), step) == steps.end()) continue;
            line("\n[[questions]]");
            line(string("name = \"") + name + "\"");
            line(string("step = \"") + step + "\"");
        }
    }

    // The facts of a command together, and of these the groups in the catalogue's order.
    std::pair<int, std::size_t> place_of(const string& name) const {
        string prefix;
        string_view bare = bare_name(name, first_.commands, prefix);
        int command = 0;
        for (const CommandLine& each : first_.commands) {
            if (!prefix.empty() && each.name + "." == prefix) command = each.number;
        }
        const KnownFact* known = find_known(bare);
        const string_view group = known->name.substr(0, known->name.find('.'));
        std::size_t place = 0;
        while (!catalogue()[place].name.starts_with(group))
            ++place;
        return {command, place};
    }

    void write_facts() {
        line("\n[facts]");
        std::stable_sort(order_.begin(), order_.end(), [&](const string& a, const string& b) {
            return place_of(a) < place_of(b);
        });
        std::set<string> written;
        for (const string& name : order_) {
            const Seen& seen = facts_.at(name);
            string prefix;
            const string_view bare = bare_name(name, first_.commands, prefix);
            const bool optional = seen.journals < journals_.size();
            const ByNature* nature = nullptr;
            for (const ByNature& row : kByNature) {
                if (name_fits(row.names, bare)) nature = &row;
            }
            if (nature == nullptr) {
                const string unit =
                    seen.unit.empty() || seen.unit == "bits" ? "" : "  # " + seen.unit;
                line(key_of(name) + " = " + condition_of(seen, optional) + unit);
                continue;
            }
            const string key = nature->once ? prefix + string(nature->names) : name;
            if (!written.insert(key).second) continue;
            const string comment = nature->comment.empty() ? "" : "  # " + string(nature->comment);
            line(key_of(key) + " = " + string(nature->rule) + comment);
        }
    }

    void write_explained() {
        for (const auto& [channel, finding] : findings_) {
            line("\n# Is this harmless? Then say why, and take the signs away.");
            line("#[[explained]]");
            line("#channel = " + toml_text(channel));
            line("#text = " + toml_text(finding));
            line("#reason = \"\"");
        }
    }

    const std::vector<Journal>& journals_;
    const Journal& first_;
    string model_, text_;
    Evidence evidence_;  // of the first journal
    std::map<string, Seen> facts_;
    std::vector<string> order_;
    std::set<std::pair<string, string>> findings_;
};

}  // namespace

string learn_plan(const std::vector<Journal>& journals, const string& model) {
    if (journals.empty()) throw std::runtime_error("no journal to learn from");
    return Writer(journals, model).write();
}

}  // namespace station
