// What the index answers. Yields come from the tallies, lists from boards and attempts.
#include <algorithm>
#include <map>
#include <unordered_map>

#include "station/index/database.h"
#include "station/index/index.h"

namespace station::index {
namespace {

using Integer = long long;
using Text = std::string;

// A WHERE clause and its values. A ? in a condition stands for the value.
class Where {
  public:
    void add(const std::string& condition) {
        text_ += (text_.empty() ? " WHERE " : " AND ") + condition;
    }
    void add(std::string condition, Value value) {
        values_.push_back(std::move(value));
        condition.replace(condition.find('?'), 1, ":v" + std::to_string(values_.size()));
        add(condition);
    }
    // Only where the text is not empty.
    void add_if(const std::string& condition, const std::string& value) {
        if (!value.empty()) add(condition, value);
    }
    const std::string& text() const { return text_; }
    const std::vector<Value>& values() const { return values_; }

  private:
    std::string text_;
    std::vector<Value> values_;
};

void restrict_to(Where& where, const Filter& filter) {
    if (filter.from_day != 0) where.add("day >= ?", Integer(filter.from_day));
    if (filter.to_day != 0) where.add("day <= ?", Integer(filter.to_day));
    where.add_if("model = ?", filter.model);
    where.add_if("station = ?", filter.station);
    where.add_if("plan = (SELECT number FROM plans WHERE hash = ?)", filter.plan_hash);
}

Where tallies_of(const char* kind, const Filter& filter) {
    Where where;
    where.add("kind = ?", std::string(kind));
    restrict_to(where, filter);
    return where;
}

const char* column_of(By by) {
    switch (by) {
    case By::day:
        return "day";
    case By::model:
        return "model";
    case By::station:
        return "station";
    }
    return "";
}

const std::string kSum = "CAST(SUM(boards) AS BIGINT)";

std::string sum_where(const std::string& condition) {
    return "CAST(COALESCE(SUM(CASE WHEN " + condition + " THEN boards END), 0) AS BIGINT)";
}

// Boards whose first attempt failed first at the filter's item.
Where boards_at_item(const Filter& filter) {
    Where where;
    restrict_to(where, filter);
    where.add("verdict <> 'PASS'");
    where.add("item = ?", filter.item);
    return where;
}

// Leaves of the failures those at the filter's item.
void keep_item(Database& database, const std::string& column, const Filter& filter,
               std::map<std::string, Yield>& groups) {
    for (auto& [key, yield] : groups) {
        yield.first_pass = yield.final_pass = yield.boards;
        yield.first_fail = yield.first_not_proven = 0;
    }
    const Where where = boards_at_item(filter);
    select<Text, Integer, Integer, Integer>(
        database,
        "SELECT CAST(" + column
            + " AS TEXT), CAST(COUNT(*) AS BIGINT),"
              " CAST(SUM(CASE WHEN verdict = 'FAIL' THEN 1 ELSE 0 END) AS BIGINT),"
              " CAST(SUM(CASE WHEN final <> 'PASS' THEN 1 ELSE 0 END) AS BIGINT) FROM boards"
            + where.text() + " GROUP BY 1",
        where.values(), [&](Text& key, Integer count, Integer fail, Integer not_final) {
            Yield& yield = groups[key];
            yield.first_pass -= count;
            yield.first_fail = fail;
            yield.first_not_proven = count - fail;
            yield.final_pass -= not_final;
        });
}

// The yields under the values of a column, in its order.
std::map<std::string, Yield> yields(Database& database, const std::string& column,
                                    const Filter& filter) {
    std::map<std::string, Yield> groups;
    const std::string group = " GROUP BY 1 HAVING SUM(boards) <> 0";
    const std::string board_key = column == "day" ? "name" : column;  // the order of the rows
    const Where boards = tallies_of("board", filter);
    select<Text, Integer, Integer, Integer, Integer, Integer>(
        database,
        "SELECT " + board_key + ", " + kSum + ", " + sum_where("verdict = 'PASS'") + ", "
            + sum_where("verdict = 'FAIL'") + ", " + sum_where("verdict = 'NOT PROVEN'") + ", "
            + sum_where("final = 'PASS'") + " FROM tallies" + boards.text() + group,
        boards.values(),
        [&](Text& key, Integer count, Integer pass, Integer fail, Integer not_proven,
            Integer final_pass) {
            groups[key] = {key, count, pass, fail, not_proven, final_pass, 0, 0, 0};
        });
    const Where left_out = tallies_of("left-out", filter);
    select<Text, Integer, Integer, Integer>(
        database,
        "SELECT CAST(" + column + " AS TEXT), " + sum_where("name = 'INCOMPLETE'") + ", "
            + sum_where("name = 'reference'") + ", " + sum_where("name = 'trial'") + " FROM tallies"
            + left_out.text() + group,
        left_out.values(), [&](Text& key, Integer incomplete, Integer reference, Integer trial) {
            Yield& yield = groups[key];
            yield.key = key;
            yield.incomplete = incomplete;
            yield.reference = reference;
            yield.trial = trial;
        });
    if (!filter.item.empty()) keep_item(database, column, filter, groups);
    return groups;
}

const char* const kAttemptColumns =
    "number, id, serial, model, station, operator, started, started_zone, ended, ended_zone,"
    " verdict, mark, proof, p.name, p.hash, p.revision, journal, program, agent, q7, unexplained,"
    " (SELECT COUNT(*) FROM attempts e WHERE e.serial = a.serial AND e.model = a.model"
    " AND (e.started < a.started OR (e.started = a.started AND e.id <= a.id)))";

struct Numbered {
    Integer number;
    AttemptRecord record;
};

// The attempts that "SELECT number FROM attempts" with this behind it chooses, in that order too,
// without what belongs to them.
std::vector<Numbered> bare_attempts(Database& database, const Where& where,
                                    const std::string& order) {
    std::vector<Numbered> found;
    select<Integer, Text, Text, Text, Text, Text, Integer, int, Integer, int, Text, Text, Text, Text,
           Text, Integer, Text, Text, Text, Text, Integer, Integer>(
        database,
        std::string("SELECT a.") + kAttemptColumns
            + " FROM attempts a JOIN (SELECT number AS p_number, name, hash, revision FROM plans) p"
              " ON p.p_number = a.plan WHERE a.number IN (SELECT number FROM attempts"
            + where.text() + order + ")" + order.substr(0, order.find(" LIMIT")),
        where.values(),
        [&](Integer number, Text& id, Text& serial, Text& model, Text& station, Text& operator_id,
            Integer started, int started_zone, Integer ended, int ended_zone, Text& verdict,
            Text& mark, Text& proof, Text& plan, Text& hash, Integer revision, Text& journal,
            Text& program, Text& agent, Text& q7, Integer unexplained, Integer attempt) {
            AttemptRecord record;
            record.id = id;
            record.serial = serial;
            record.model = model;
            record.station = station;
            record.operator_id = operator_id;
            record.start = {started, started_zone};
            record.end = {ended, ended_zone};
            record.verdict = verdict;
            record.mark = mark;
            record.proof = proof;
            record.plan = plan;
            record.plan_hash = hash;
            record.plan_revision = revision;
            record.journal_hash = journal;
            record.station_version = program;
            record.agent_version = agent;
            record.q7_hash = q7;
            record.unexplained = unexplained;
            record.attempt = attempt;
            found.push_back({number, std::move(record)});
        });
    return found;
}

// Items and reasons of the attempts in this list of numbers.
void add_items(Database& database, std::unordered_map<Integer, AttemptRecord*>& records,
               const std::string& among) {
    select<Integer, Text, Text>(
        database, "SELECT attempt, name, verdict FROM items" + among + " ORDER BY attempt, place",
        {}, [&](Integer attempt, Text& name, Text& verdict) {
            records[attempt]->items.push_back({name, verdict, {}});
        });
    select<Integer, Integer, Text, Text, Text, Text, Text, Text, Text, Text, Text, Integer>(
        database,
        "SELECT attempt, item, code, verdict, fact, text, value, wanted, unit, low, high, line"
        " FROM reasons"
            + among + " ORDER BY attempt, item, place",
        {},
        [&](Integer attempt, Integer item, Text& code, Text& verdict, Text& fact, Text& text,
            Text& value, Text& wanted, Text& unit, Text& low, Text& high, Integer line) {
            records[attempt]
                ->items.at(std::size_t(item))
                .reasons.push_back(
                    {code, verdict, fact, text, value, wanted, unit, low, high, line});
        });
}

void add_the_rest(Database& database, std::unordered_map<Integer, AttemptRecord*>& records,
                  const std::string& among) {
    select<Integer, Text, Integer, Text>(
        database,
        "SELECT attempt, defect, exact, look_at FROM causes" + among + " ORDER BY attempt, place",
        {}, [&](Integer attempt, Text& defect, Integer exact, Text& check) {
            records[attempt]->causes.push_back({defect, exact != 0, check});
        });
    select<Integer, Text, Text, Integer>(
        database,
        "SELECT attempt, fact, unit, value FROM measurements" + among + " ORDER BY attempt, fact",
        {}, [&](Integer attempt, Text& fact, Text& unit, Integer value) {
            records[attempt]->measurements.push_back({fact, unit, value});
        });
    select<Integer, Text, Text, Text, Text, Integer, int>(
        database,
        "SELECT attempt, of_id, defect, text, operator, at, at_zone FROM repairs" + among
            + " ORDER BY attempt, place",
        {},
        [&](Integer attempt, Text& of, Text& defect, Text& text, Text& by, Integer at, int zone) {
            records[attempt]->repairs.push_back({of, defect, text, by, {at, zone}});
        });
    select<Integer, Text>(
        database, "SELECT attempt, address FROM addresses" + among + " ORDER BY attempt, address",
        {},
        [&](Integer attempt, Text& address) { records[attempt]->addresses.push_back(address); });
}

std::vector<AttemptRecord> attempts_where(Database& database, const Where& where,
                                          const std::string& order) {
    std::vector<Numbered> found = bare_attempts(database, where, order);
    std::vector<AttemptRecord> attempts;
    if (found.empty()) return attempts;
    std::unordered_map<Integer, AttemptRecord*> records;
    std::string among;
    for (Numbered& each : found) {
        records[each.number] = &each.record;
        among += (among.empty() ? " WHERE attempt IN (" : ",") + std::to_string(each.number);
    }
    among += ')';
    add_items(database, records, among);
    add_the_rest(database, records, among);
    attempts.reserve(found.size());
    for (Numbered& each : found)
        attempts.push_back(std::move(each.record));
    return attempts;
}

template <class Type, class... Columns>
std::vector<Type> all(Database& database, const std::string& text,
                      const std::vector<Value>& values = {}) {
    std::vector<Type> found;
    select<Columns...>(database, text, values,
                       [&](Columns&... columns) { found.push_back(Type{columns...}); });
    return found;
}

Integer number(Database& database, const std::string& text, const std::vector<Value>& values = {}) {
    Integer found = 0;
    select<Integer>(database, text, values, [&](Integer value) { found = value; });
    return found;
}

}  // namespace

std::vector<AttemptRecord> Index::history(const std::string& serial, const std::string& model) {
    Where where;
    where.add("serial = ?", serial);
    where.add_if("model = ?", model);
    return attempts_where(*database_, where, " ORDER BY started, id");
}

void Index::for_each(const Filter& filter, const std::function<bool(const AttemptRecord&)>& each) {
    constexpr std::size_t kAtOnce = 500;
    Integer started = 0;
    std::string id;
    for (bool first = true;; first = false) {
        Where where;
        restrict_to(where, filter);
        if (!first) {
            where.add("started >= ?", started);
            where.add("(started > " + std::to_string(started) + " OR id > ?)", id);
        }
        const auto attempts = attempts_where(
            *database_, where, " ORDER BY started, id LIMIT " + std::to_string(kAtOnce));
        for (const AttemptRecord& attempt : attempts) {
            if (!each(attempt)) return;
        }
        if (attempts.size() < kAtOnce) return;
        started = attempts.back().start.utc_ms;
        id = attempts.back().id;
    }
}

std::int64_t Index::next_attempt(const std::string& serial, const std::string& model) {
    return 1
           + number(*database_, "SELECT COUNT(*) FROM attempts WHERE serial = :v1 AND model = :v2",
                    {serial, model});
}

std::int64_t Index::same_failures(const std::string& serial, const std::string& model,
                                  const std::string& failing) {
    return number(*database_,
                  "SELECT COUNT(*) FROM attempts WHERE serial = :v1 AND model = :v2"
                  " AND failing = :v3 AND mark = 'production'",
                  {serial, model, failing});
}

std::vector<std::string> Index::other_serials(const std::string& address,
                                              const std::string& serial) {
    return all<std::string, Text>(
        *database_,
        "SELECT DISTINCT serial FROM attempts WHERE number IN"
        " (SELECT attempt FROM addresses WHERE address = :v1) AND serial <> :v2 ORDER BY 1",
        {address, serial});
}

Yield Index::yield(const Filter& filter) {
    Yield total;
    for (const auto& [day, yield] : yields(*database_, "day", filter)) {
        total.boards += yield.boards;
        total.first_pass += yield.first_pass;
        total.first_fail += yield.first_fail;
        total.first_not_proven += yield.first_not_proven;
        total.final_pass += yield.final_pass;
        total.incomplete += yield.incomplete;
        total.reference += yield.reference;
        total.trial += yield.trial;
    }
    return total;
}

std::vector<Yield> Index::yield_by(By by, const Filter& filter) {
    std::vector<Yield> list;
    for (auto& [key, yield] : yields(*database_, column_of(by), filter)) {
        list.push_back(std::move(yield));
    }
    return list;
}

std::vector<FailingItem> Index::failing_items(const Filter& filter) {
    Where where = tallies_of("item", filter);
    where.add_if("name = ?", filter.item);
    auto list = all<FailingItem, Text, Integer, Integer>(
        *database_,
        "SELECT name, " + sum_where("verdict = 'FAIL'") + ", " + sum_where("verdict <> 'FAIL'")
            + " FROM tallies" + where.text() + " GROUP BY name HAVING SUM(boards) <> 0 ORDER BY 1",
        where.values());
    std::stable_sort(list.begin(), list.end(), [](const FailingItem& a, const FailingItem& b) {
        return a.fail + a.not_proven > b.fail + b.not_proven;
    });
    return list;
}

std::vector<LikelyCause> Index::likely_causes(const Filter& filter) {
    const bool of_item = !filter.item.empty();
    const Where where = of_item ? boards_at_item(filter) : tallies_of("cause", filter);
    std::map<std::string, LikelyCause> causes;
    select<Text, Text, Integer>(
        *database_,
        of_item ? "SELECT cause, station, CAST(COUNT(*) AS BIGINT) FROM boards" + where.text()
                      + " GROUP BY cause, station"
                : "SELECT name, station, " + kSum + " FROM tallies" + where.text()
                      + " GROUP BY name, station HAVING SUM(boards) <> 0",
        where.values(), [&](Text& defect, Text& station, Integer count) {
            LikelyCause& cause = causes[defect];
            cause.defect = defect;
            cause.boards += count;
            if (count <= cause.boards_there) return;
            cause.station = station;
            cause.boards_there = count;
        });
    std::vector<LikelyCause> list;
    list.reserve(causes.size());
    for (auto& [defect, cause] : causes)
        list.push_back(std::move(cause));
    std::stable_sort(list.begin(), list.end(), [](const LikelyCause& a, const LikelyCause& b) {
        return a.boards > b.boards;
    });
    return list;
}

std::vector<DriftCell> Index::drift(const std::string& fact, const Filter& filter) {
    Where where = tallies_of("drift", filter);
    where.add("name = ?", fact);
    return all<DriftCell, int, Integer, Integer>(
        *database_,
        "SELECT day, value, " + kSum + " FROM tallies" + where.text()
            + " GROUP BY 1, 2 HAVING SUM(boards) <> 0 ORDER BY 1, 2",
        where.values());
}

std::vector<BoardLine> Index::boards(const Filter& filter, const Behind& behind) {
    Where where;
    restrict_to(where, filter);
    const auto add_verdict = [&](const std::string& column, const std::string& verdict) {
        if (verdict == "not PASS") {
            where.add(column + " <> 'PASS'");
        } else {
            where.add_if(column + " = ?", verdict);
        }
    };
    add_verdict("verdict", behind.first);
    add_verdict("final", behind.final);
    const bool by_cause = !behind.cause.empty() || behind.cause_unknown;
    if (!behind.item.empty() || by_cause) where.add("verdict <> 'PASS'");
    where.add_if("item = ?", behind.item);
    if (!behind.without_item.empty())
        where.add(std::string("NOT (verdict <> 'PASS' AND item = ?")
                      + (behind.or_passed_later ? " AND final <> 'PASS')" : ")"),
                  behind.without_item);
    if (by_cause) where.add("cause = ?", behind.cause_unknown ? std::string() : behind.cause);
    if (!behind.fact.empty()) {
        where.add("EXISTS (SELECT 1 FROM measurements m WHERE m.attempt = first AND m.value = "
                      + std::to_string(behind.value) + " AND m.fact = ?)",
                  behind.fact);
    }
    return all<BoardLine, Text, Text, Text, Text, Text, int, Text, Text, Text, Text>(
        *database_,
        "SELECT serial, model, station, first_id, last_id, day, verdict, final, item, cause"
        " FROM boards"
            + where.text() + " ORDER BY day DESC, serial LIMIT " + std::to_string(behind.limit)
            + " OFFSET " + std::to_string(behind.offset),
        where.values());
}

std::vector<AttemptRecord> Index::left_out(const std::string& kind, const Filter& filter,
                                           int limit) {
    Where where;
    restrict_to(where, filter);
    where.add("(verdict = 'INCOMPLETE' OR mark <> 'production')");
    if (kind == "INCOMPLETE") {
        where.add("verdict = 'INCOMPLETE' AND mark = 'production'");
    } else {
        where.add("mark = ?", kind);
    }
    return attempts_where(*database_, where,
                          " ORDER BY day DESC, started DESC LIMIT " + std::to_string(limit));
}

Hits Index::cause_hits() {
    const auto found = all<Hits, Integer, Integer>(
        *database_,
        "SELECT COUNT(*), COALESCE(SUM(CASE WHEN c.defect = r.defect THEN 1 ELSE 0 END), 0)"
        " FROM repairs r JOIN attempts a ON a.id = r.of_id"
        " LEFT JOIN causes c ON c.attempt = a.number AND c.place = 0 WHERE r.defect <> ''");
    return found.front();
}

std::vector<std::string> Index::models() {
    return all<std::string, Text>(*database_,
                                  "SELECT name FROM choices WHERE kind = 'model' ORDER BY 1");
}

std::vector<std::string> Index::stations() {
    return all<std::string, Text>(*database_,
                                  "SELECT name FROM choices WHERE kind = 'station' ORDER BY 1");
}

std::vector<PlanLine> Index::plans() {
    return all<PlanLine, Text, Text, Integer>(
        *database_, "SELECT name, hash, revision FROM plans ORDER BY name, revision, number");
}

std::vector<MeasuredFact> Index::measured_facts() {
    return all<MeasuredFact, Text, Text>(
        *database_, "SELECT name, unit FROM choices WHERE kind = 'fact' ORDER BY 1");
}

// Numbers have no gaps, for nothing is deleted.
std::int64_t Index::attempts() {
    return number(*database_, "SELECT COALESCE(MAX(number), 0) FROM attempts");
}

Time Index::indexed_until() {
    return {number(*database_,
                   "SELECT indexed FROM attempts WHERE number ="
                   " (SELECT MAX(number) FROM attempts)"),
            0};
}

}  // namespace station::index
