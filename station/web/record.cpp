#include "station/web/record.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "station/evidence.h"
#include "station/journal.h"
#include "station/judge.h"
#include "station/text.h"
#include "station/web/server.h"
#include "station/web/state.h"

namespace station::web {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr std::size_t kCompared = 3;  // attempts side by side

bool is_id(const std::string& id) {
    static const Expression pattern("[A-Za-z0-9]{1,16}-[0-9]{8}-[0-9]{4,9}");
    return pattern.matches_whole(id);
}

std::string day_of(const std::string& id) { return id.substr(id.find('-') + 1, 8); }

// What stands in a finished attempt's judgement beside what the judge says: its causes.
json kept_causes(const fs::path& journal) {
    const fs::path path = judgement_path(journal);
    if (!fs::exists(path)) return json::array();
    const json kept = json::parse(read_file(path.string()), nullptr, false);
    return kept.is_object() && kept.contains("causes") ? kept.at("causes") : json::array();
}

std::string says(const Evidence& evidence, const Piece& piece) {
    std::string text;
    for (const std::size_t place : piece.facts) {
        const Fact& fact = evidence.facts[place];
        if (!text.empty()) text += ", ";
        text += fact.name + " = " + to_text(fact.value, fact.unit);
    }
    return text;
}

// Lines that the plan explains are known, like those of the grammar.
json transcript(const Evidence& evidence, const Judgement& judgement) {
    std::set<int> unexplained;
    for (const UnexplainedLine& one : judgement.unexplained)
        unexplained.insert(one.line);
    json lines = json::array();
    const std::int64_t begin_us =
        evidence.commands.empty() ? 0 : evidence.commands.front().start_us;
    constexpr const char* kKinds[] = {"known", "fact", "failure", "unexplained"};
    for (const Piece& piece : evidence.pieces) {
        const bool explained =
            piece.kind == Piece::Kind::unexplained && !unexplained.contains(piece.line);
        const auto kind = static_cast<std::size_t>(explained ? Piece::Kind::known : piece.kind);
        lines.push_back({{"line", piece.line},
                         {"seconds", static_cast<double>(piece.time_us - begin_us) / 1e6},
                         {"channel", name_of(piece.channel)},
                         {"kind", kKinds[kind]},
                         {"step", piece.step},
                         {"text", piece.text},
                         {"says", says(evidence, piece)}});
    }
    return lines;
}

// A local attempt with all that comparisons need.
struct Seen {
    std::string id;
    Journal journal;
    Evidence evidence;
    Plan plan;
};

std::optional<Seen> see(const fs::path& journals, const std::string& id) {
    try {
        Seen seen{id, read_journal(journal_of(journals, id)), {}, {}};
        seen.evidence = take_evidence(seen.journal);
        seen.plan = Plan::parse(seen.journal.identity.plan_text, id);
        return seen;
    } catch (const std::exception&) {
        return std::nullopt;  // of another station, or damaged
    }
}

bool is_open(const Rule* rule) {
    return rule == nullptr
           || (!rule->equal && !rule->min && !rule->max && rule->one_of.empty()
               && rule->pattern.empty());
}

struct Row {
    std::string fact;
    bool ignored = true, wrong = false, differs = false;
    json values = json::array();
};

Row compare(const std::string& name, const std::vector<Seen>& attempts) {
    Row row{name};
    std::optional<std::string> before;
    bool first = true;
    for (const Seen& attempt : attempts) {
        const Fact* fact = attempt.evidence.find(name);
        const Rule* rule = rule_of(attempt.plan, name);
        const std::optional<std::string> value =
            fact == nullptr ? std::nullopt : std::optional(to_text(fact->value, fact->unit));
        row.differs = row.differs || (!first && value != before);
        before = value;
        first = false;
        if (!is_open(rule)) row.ignored = false;
        if (fact == nullptr) continue;
        const bool good = rule == nullptr || fits(*rule, fact->value);
        row.wrong = row.wrong || !good;
        json one{{"id", attempt.id}, {"value", *value}, {"unit", fact->unit}};
        one["state"] = is_open(rule) ? json() : json(good ? "pass" : "fail");
        row.values.push_back(std::move(one));
    }
    return row;
}

// Facts that differ between attempts that follow each other: what was wrong first, what the plan
// ignores last.
json changes(const std::vector<Seen>& attempts) {
    std::vector<std::string> names;
    std::set<std::string> known;
    for (const Seen& attempt : attempts) {
        for (const Fact& fact : attempt.evidence.facts) {
            const bool is_time = fact.name.starts_with("rtc.") && fact.unit.empty();
            if (!is_time && known.insert(fact.name).second) names.push_back(fact.name);
        }
    }
    std::vector<Row> rows;
    for (const std::string& name : names) {
        Row row = compare(name, attempts);
        if (row.differs) rows.push_back(std::move(row));
    }
    Row where{"station", false, false, false};
    std::string before;
    for (const Seen& attempt : attempts) {
        const Identity& who = attempt.journal.identity;
        const std::string value = who.station + " • " + who.operator_id;
        where.differs = where.differs || (!before.empty() && value != before);
        before = value;
        where.values.push_back(
            {{"id", attempt.id}, {"value", value}, {"unit", ""}, {"state", nullptr}});
    }
    if (where.differs) rows.push_back(std::move(where));
    const auto order = [](const Row& row) { return row.wrong ? 0 : row.ignored ? 2 : 1; };
    std::stable_sort(rows.begin(), rows.end(),
                     [&](const Row& a, const Row& b) { return order(a) < order(b); });
    json result = json::array();
    for (Row& row : rows)
        result.push_back(
            {{"fact", row.fact}, {"ignored", row.ignored}, {"values", std::move(row.values)}});
    return result;
}

template <typename Key>
bool all_same(const std::vector<Seen>& attempts, const Key& key) {
    return std::all_of(attempts.begin(), attempts.end(),
                       [&](const Seen& attempt) { return key(attempt) == key(attempts.front()); });
}

json start_member(const Seen& attempt, const char* name) {
    for (const BoardEvent& event : attempt.journal.events)
        if (event.kind == BoardEvent::Kind::start && event.fields.contains(name))
            return event.fields.at(name);
    return nullptr;
}

json checks(const std::vector<Seen>& attempts) {
    bool released = false;
    bool all_scanned = true;
    for (const Seen& one : attempts) {
        if (!one.plan.scan_out
            || judge(one.journal, one.evidence, one.plan).verdict != Verdict::pass)
            continue;
        released = true;
        const auto& remarks = one.journal.remarks;
        all_scanned =
            all_scanned && std::any_of(remarks.begin(), remarks.end(), [](const Remark& remark) {
                return remark.kind == "scan-out";
            });
    }
    return {{"address_same",
             all_same(attempts, [](const Seen& one) { return start_member(one, "addresses"); })},
            {"scanned", released ? json(all_scanned) : json()},
            {"plan_same", all_same(attempts, [](const Seen& one) {
                 const json program = start_member(one, "program");
                 return one.plan.sha256 + (program.is_object() ? program.value("sha256", "") : "");
             })}};
}

// Names of the items that are not PASS.
std::set<std::string> failing(const json& judgement) {
    std::set<std::string> names;
    for (const json& item : judgement.at("items"))
        if (item.at("verdict") != "PASS") names.insert(item.at("name").get<std::string>());
    return names;
}

}  // namespace

fs::path journal_of(const fs::path& journals, const std::string& id) {
    if (!is_id(id)) throw Refusal(404, "not-found");
    fs::path path = journals / day_of(id) / (id + ".journal");
    if (!fs::exists(path)) throw Refusal(404, "not-found");
    return path;
}

json attempt_json(const fs::path& journals, const std::string& id) {
    const fs::path path = journal_of(journals, id);
    const Journal journal = read_journal(path);
    const Evidence evidence = take_evidence(journal);
    const Judgement judgement = judge(journal);
    json attempt = for_page(to_json(judgement));
    attempt["causes"] = kept_causes(path);
    attempt["number"] = journal.identity.attempt.value_or(1);
    attempt["lines"] = journal.lines;
    attempt["unexplained"] = attempt.at("unexplained").size();
    attempt["transcript"] = transcript(evidence, judgement);
    return attempt;
}

std::vector<json> judgements_of(const fs::path& journals, const std::string& serial) {
    std::vector<json> found;
    for (const fs::path& path : journals_in(journals)) {
        const fs::path file = judgement_path(path);
        if (!fs::exists(file)) continue;
        const std::string text = read_file(file.string());
        if (text.find(json(serial).dump()) == std::string::npos) continue;
        json judgement = json::parse(text, nullptr, false);
        if (judgement.is_object() && judgement.value("serial", "") == serial)
            found.push_back(std::move(judgement));
    }
    std::stable_sort(found.begin(), found.end(), [](const json& a, const json& b) {
        return a.value("start", "") < b.value("start", "");
    });
    return found;
}

json board_json(const fs::path& journals, const std::string& serial,
                const std::vector<json>& judgements) {
    json attempts = json::array();
    std::set<std::string> stations;
    std::set<std::string> before;
    int number = 0;
    for (const json& judgement : judgements) {
        json shown = for_page(judgement);
        const std::set<std::string> now = failing(judgement);
        shown["number"] = ++number;
        shown["provisional"] = false;
        shown["time"] = judgement.at("start");
        shown["same"] = !now.empty() && now == before;
        if (!shown.contains("shift")) shown["shift"] = nullptr;
        before = now;
        stations.insert(judgement.at("station").get<std::string>());
        attempts.insert(attempts.begin(), std::move(shown));
    }
    json board{{"serial", serial}, {"stations", stations.size()}, {"attempts", attempts}};
    if (attempts.empty()) return board;
    std::vector<Seen> seen;
    for (std::size_t i = 0; i < attempts.size() && seen.size() < kCompared; ++i)
        if (auto one = see(journals, attempts[i].at("id")))
            seen.insert(seen.begin(), std::move(*one));
    board["now"] = attempts.front().at("verdict");
    board["plan"] = attempts.front().at("plan");
    board["changes"] = changes(seen);
    board["checks"] = seen.empty()
                          ? json{{"address_same", true}, {"scanned", nullptr}, {"plan_same", true}}
                          : checks(seen);
    return board;
}

}  // namespace station::web
