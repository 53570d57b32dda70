#include "station/index/index.h"

#include <chrono>
#include <map>
#include <set>
#include <stdexcept>

#include "station/index/database.h"

namespace station::index {
namespace {

using Integer = long long;

// A counted attempt, as far as a board's summary needs it.
struct Counted {
    Integer number = 0, started = 0, day = 0, plan = 0;
    std::string id, station, verdict, item, item_verdict, cause;
    auto in_time() const { return std::tie(started, id); }
};

struct Board {
    std::string serial, model;
    Counted first;
    std::string last_id, final;
    Integer last_started = 0;
    bool operator==(const Board& other) const {
        return serial == other.serial && model == other.model && first.id == other.first.id
               && last_id == other.last_id && final == other.final;
    }
};

struct Tally {
    std::string kind, model, station, name, verdict, final;
    Integer day = 0, plan = 0, value = 0;
    auto operator<=>(const Tally&) const = default;  // NOLINT(modernize-use-nullptr)
};
using Tallies = std::map<Tally, Integer>;

bool is_counted(const std::string& mark, const std::string& verdict) {
    return mark == "production" && verdict != "INCOMPLETE";
}

Tally tally_of(const Board& board, const char* kind) {
    Tally tally;
    tally.kind = kind;
    tally.model = board.model;
    tally.station = board.first.station;
    tally.day = board.first.day;
    tally.plan = board.first.plan;
    return tally;
}

// Adds what a board counts for, drift aside, `times` times.
void count_board(Tallies& tallies, const Board& board, int times) {
    Tally tally = tally_of(board, "board");
    tally.name = std::to_string(tally.day);
    tally.verdict = board.first.verdict;
    tally.final = board.final;
    tallies[tally] += times;
    if (board.first.verdict == "PASS") return;
    Tally item = tally_of(board, "item");
    item.name = board.first.item;
    item.verdict = board.first.item_verdict;
    tallies[item] += times;
    Tally cause = tally_of(board, "cause");
    cause.name = board.first.cause;
    tallies[cause] += times;
}

void count_drift(Tallies& tallies, const Board& board, const std::vector<Measurement>& measurements,
                 int times) {
    for (const Measurement& each : measurements) {
        Tally tally = tally_of(board, "drift");
        tally.name = each.fact;
        tally.final = each.unit;
        tally.value = each.value;
        tallies[tally] += times;
    }
}

void count_left_out(Tallies& tallies, const Counted& attempt, const std::string& model,
                    const std::string& mark) {
    Tally tally;
    tally.kind = "left-out";
    tally.name = mark == "production" ? "INCOMPLETE" : mark;
    tally.model = model;
    tally.station = attempt.station;
    tally.day = attempt.day;
    tally.plan = attempt.plan;
    ++tallies[tally];
}

// A board's first and last attempt do not depend on the order of arrival.
void take_in(Board& board, const Counted& attempt) {
    if (board.first.id.empty() || attempt.in_time() < board.first.in_time()) board.first = attempt;
    if (board.last_id.empty() || attempt.in_time() > std::tie(board.last_started, board.last_id)) {
        board.last_id = attempt.id;
        board.last_started = attempt.started;
        board.final = attempt.verdict;
    }
}

Integer now_ms() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::string insert_into(const std::string& table, int columns) {
    return "INSERT INTO " + table + " VALUES " + placeholders(columns);
}

}  // namespace

// The statements that adding takes, prepared once, and the counts that wait for the commit.
struct Index::Writer {
    using Text = std::string;

    explicit Writer(Database& to) : database(to) {}

    Added add(const AttemptRecord& record);
    Counted add_attempt(const AttemptRecord& record);
    void add_details(const AttemptRecord& record);
    void count(const AttemptRecord& record, const Counted& attempt);
    Integer plan_number(const AttemptRecord& record);
    std::vector<Measurement> measurements_of(Integer attempt);
    void store(const Board& board);
    void add_choice(const Text& kind, const Text& name, const Text& unit);
    void store_tallies();

    Database& database;
    Integer number = 0;  // of the latest attempt
    std::map<Text, Integer> plans;
    std::set<std::tuple<Text, Text, Text>> choices;  // that are in the database
    Tallies tallies;

    Prepared<std::tuple<Text>, Text> journal_of{database,
                                                "SELECT journal FROM attempts WHERE id = :v1"};
    Prepared<std::tuple<Integer, Text, Integer, Integer, Text, Integer, Text, Text, Text, Text,
                        Text, Integer, Text>,
             Text, Text>
        board_of{database,
                 "SELECT first, first_id, first_started, day, station, plan, verdict, item,"
                 " item_verdict, cause, last_id, last_started, final FROM boards"
                 " WHERE serial = :v1 AND model = :v2"};
    Command<Integer, Text, Text, Text, Text, Text, Integer, Integer, Integer, Integer, Integer,
            Text, Text, Text, Integer, Text, Text, Text, Text, Integer, Text, Text, Integer>
        insert_attempt{database, insert_into("attempts", 23)};
    Command<Integer, Integer, Text, Text> insert_item{database, insert_into("items", 4)};
    Command<Integer, Integer, Integer, Text, Text, Text, Text, Text, Text, Text, Text, Text,
            Integer>
        insert_reason{database, insert_into("reasons", 13)};
    Command<Integer, Integer, Text, Integer, Text> insert_cause{database, insert_into("causes", 5)};
    Command<Integer, Text, Integer, Text> insert_measurement{
        database, insert_into("measurements", 4) + " ON CONFLICT DO NOTHING"};
    Command<Integer, Integer, Text, Text, Text, Text, Integer, Integer> insert_repair{
        database, insert_into("repairs", 8)};
    Command<Integer, Text> insert_address{database,
                                          insert_into("addresses", 2) + " ON CONFLICT DO NOTHING"};
    Command<Text, Text, Integer, Text, Integer, Integer, Text, Integer, Text, Text, Text, Text, Text,
            Integer, Text>
        put_board{database,
                  insert_into("boards", 15)
                      + " ON CONFLICT(serial, model) DO UPDATE SET first = excluded.first,"
                        " first_id = excluded.first_id, first_started = excluded.first_started,"
                        " day = excluded.day, station = excluded.station, plan = excluded.plan,"
                        " verdict = excluded.verdict, item = excluded.item,"
                        " item_verdict = excluded.item_verdict, cause = excluded.cause,"
                        " last_id = excluded.last_id, last_started = excluded.last_started,"
                        " final = excluded.final"};
    Command<Text, Text, Text, Integer, Text, Integer, Text, Text, Integer, Integer> add_tally{
        database, insert_into("tallies", 10)
                      + " ON CONFLICT(kind, name, station, day, model, plan, verdict, final, value)"
                        " DO UPDATE SET boards = tallies.boards + excluded.boards"};
    Command<Text, Text, Text> insert_choice{database,
                                            insert_into("choices", 3) + " ON CONFLICT DO NOTHING"};
};

Integer Index::Writer::plan_number(const AttemptRecord& record) {
    Integer& plan = plans[record.plan_hash];
    if (plan != 0) return plan;
    select<Integer>(database, "SELECT number FROM plans WHERE hash = :v1", {record.plan_hash},
                    [&](Integer found) { plan = found; });
    if (plan != 0) return plan;
    select<Integer>(database, "SELECT COALESCE(MAX(number), 0) + 1 FROM plans", {},
                    [&](Integer next) { plan = next; });
    Command<Integer, Text, Integer, Text>(database, insert_into("plans", 4))(
        plan, record.plan, record.plan_revision, record.plan_hash);
    return plan;
}

Counted Index::Writer::add_attempt(const AttemptRecord& record) {
    Counted attempt;
    attempt.number = ++number;
    attempt.id = record.id;
    attempt.started = record.start.utc_ms;
    attempt.day = local_day(record.start);
    attempt.station = record.station;
    attempt.plan = plan_number(record);
    attempt.verdict = record.verdict;
    if (const Item* item = first_failing(record)) {
        attempt.item = item->name;
        attempt.item_verdict = item->verdict;
    }
    if (!record.causes.empty()) attempt.cause = record.causes.front().defect;
    insert_attempt(number, record.id, record.serial, record.model, record.station,
                   record.operator_id, record.start.utc_ms, record.start.zone_min,
                   record.end.utc_ms, record.end.zone_min, attempt.day, record.verdict, record.mark,
                   record.proof, attempt.plan, record.journal_hash, record.station_version,
                   record.agent_version, record.q7_hash, record.unexplained, attempt.item,
                   failing_set(record), now_ms());
    return attempt;
}

void Index::Writer::add_details(const AttemptRecord& record) {
    Integer place = 0;
    for (const Item& item : record.items) {
        insert_item(number, place, item.name, item.verdict);
        Integer reason_place = 0;
        for (const Reason& reason : item.reasons) {
            insert_reason(number, place, reason_place++, reason.code, reason.verdict, reason.fact,
                          reason.text, reason.value, reason.wanted, reason.unit, reason.low,
                          reason.high, reason.line);
        }
        ++place;
    }
    place = 0;
    for (const Cause& cause : record.causes) {
        insert_cause(number, place++, cause.defect, cause.exact ? 1 : 0, cause.check);
    }
    for (const Measurement& each : record.measurements) {
        insert_measurement(number, each.fact, each.value, each.unit);
    }
    place = 0;
    for (const Repair& each : record.repairs) {
        insert_repair(number, place++, each.of, each.defect, each.text, each.by, each.time.utc_ms,
                      each.time.zone_min);
    }
    for (const std::string& address : record.addresses) {
        insert_address(number, address);
    }
}

std::vector<Measurement> Index::Writer::measurements_of(Integer attempt) {
    std::vector<Measurement> measurements;
    select<Text, Text, Integer>(database,
                                "SELECT fact, unit, value FROM measurements WHERE attempt = :v1",
                                {attempt}, [&](const Text& fact, const Text& unit, Integer value) {
                                    measurements.push_back({fact, unit, value});
                                });
    return measurements;
}

void Index::Writer::store(const Board& board) {
    const Counted& first = board.first;
    put_board(board.serial, board.model, first.number, first.id, first.started, first.day,
              first.station, first.plan, first.verdict, first.item, first.item_verdict, first.cause,
              board.last_id, board.last_started, board.final);
}

void Index::Writer::count(const AttemptRecord& record, const Counted& attempt) {
    if (!is_counted(record.mark, record.verdict)) {
        count_left_out(tallies, attempt, record.model, record.mark);
        return;
    }
    Board before{record.serial, record.model, {}, {}, {}, 0};
    const bool known = board_of(record.serial, record.model);
    if (known) {
        Counted& first = before.first;
        std::tie(first.number, first.id, first.started, first.day, first.station, first.plan,
                 first.verdict, first.item, first.item_verdict, first.cause, before.last_id,
                 before.last_started, before.final) = board_of.row();
    }
    Board after = before;
    take_in(after, attempt);
    if (known && after == before) return;
    store(after);
    if (known) count_board(tallies, before, -1);
    count_board(tallies, after, +1);
    if (known && after.first.id == before.first.id) return;
    if (known) count_drift(tallies, before, measurements_of(before.first.number), -1);
    count_drift(tallies, after, measurements_of(attempt.number), +1);
}

void Index::Writer::add_choice(const Text& kind, const Text& name, const Text& unit) {
    if (choices.emplace(kind, name, unit).second) insert_choice(kind, name, unit);
}

void Index::Writer::store_tallies() {
    for (const auto& [tally, boards] : tallies) {
        if (boards == 0) continue;
        add_tally(tally.kind, tally.name, tally.station, tally.day, tally.model, tally.plan,
                  tally.verdict, tally.final, tally.value, boards);
        add_choice("model", tally.model, "");
        add_choice("station", tally.station, "");
        if (tally.kind == "drift") add_choice("fact", tally.name, tally.final);
    }
    tallies.clear();
}

Added Index::Writer::add(const AttemptRecord& record) {
    if (journal_of(record.id)) {
        return std::get<0>(journal_of.row()) == record.journal_hash ? Added::known
                                                                    : Added::conflict;
    }
    const Counted attempt = add_attempt(record);
    add_details(record);
    count(record, attempt);
    return Added::stored;
}

Index::Index(const std::string& url) : database_(std::make_unique<Database>(url)) {}
Index::Index(Index&&) noexcept = default;
Index::~Index() = default;

std::vector<Added> Index::add(std::span<const AttemptRecord> records) {
    if (!writer_) writer_ = std::make_unique<Writer>(*database_);
    std::vector<Added> added;
    database_->begin_write();
    try {
        writer_->number = attempts();
        for (const AttemptRecord& record : records)
            added.push_back(writer_->add(record));
        writer_->store_tallies();
        database_->commit();
    } catch (...) {
        writer_.reset();
        database_->rollback();
        throw;
    }
    return added;
}

namespace {

Tallies stored_tallies(Database& database) {
    Tallies tallies;
    select<std::string, std::string, std::string, Integer, std::string, Integer, std::string,
           std::string, Integer, Integer>(
        database, "SELECT * FROM tallies WHERE boards <> 0", {},
        [&](auto& kind, auto& name, auto& station, Integer day, auto& model, Integer plan,
            auto& verdict, auto& final, Integer value, Integer boards) {
            tallies[{kind, model, station, name, verdict, final, day, plan, value}] = boards;
        });
    return tallies;
}

// Calls `each` with the boards, made from their attempts, and fills the tallies.
void count_again(Database& database, Tallies& tallies,
                 const std::function<void(const Board&)>& each) {
    using Text = std::string;
    Board board;
    const auto finish = [&] {
        if (board.first.id.empty()) return;
        each(board);
        count_board(tallies, board, +1);
    };
    select<Integer, Text, Text, Text, Text, Integer, Integer, Integer, Text, Text, Text, Text,
           Text>(
        database,
        "SELECT a.number, a.id, a.serial, a.model, a.station, a.started, a.day, a.plan, a.verdict,"
        " a.mark, a.first_item, COALESCE(i.verdict, ''), COALESCE(c.defect, '') FROM attempts a"
        " LEFT JOIN items i ON i.attempt = a.number AND a.first_item <> '' AND i.place ="
        " (SELECT MIN(place) FROM items f WHERE f.attempt = a.number AND f.verdict <> 'PASS')"
        " LEFT JOIN causes c ON c.attempt = a.number AND c.place = 0"
        " ORDER BY a.serial, a.model, a.started, a.id",
        {},
        [&](Integer number, Text& id, Text& serial, Text& model, Text& station, Integer started,
            Integer day, Integer plan, Text& verdict, Text& mark, Text& item, Text& item_verdict,
            Text& cause) {
            const Counted attempt{number,  started, day,  plan,         id,
                                  station, verdict, item, item_verdict, cause};
            if (!is_counted(mark, verdict)) {
                count_left_out(tallies, attempt, model, mark);
                return;
            }
            if (serial != board.serial || model != board.model) {
                finish();
                board = {serial, model, {}, {}, {}, 0};
            }
            take_in(board, attempt);
        });
    finish();
    select<Text, Text, Text, Integer, Integer, Text, Text, Integer>(
        database,
        "SELECT b.serial, b.model, b.station, b.day, b.plan, m.fact, m.unit, m.value FROM boards b"
        " JOIN measurements m ON m.attempt = b.first",
        {},
        [&](Text& serial, Text& model, Text& station, Integer day, Integer plan, Text& fact,
            Text& unit, Integer value) {
            Board of{serial, model, {}, {}, {}, 0};
            of.first.station = station;
            of.first.day = day;
            of.first.plan = plan;
            count_drift(tallies, of, {{fact, unit, value}}, +1);
        });
}

}  // namespace

bool Index::recount() {
    writer_ = std::make_unique<Writer>(*database_);
    database_->begin_write();
    try {
        const Tallies before = stored_tallies(*database_);
        using Row = std::tuple<std::string, std::string, std::string>;
        std::map<std::pair<std::string, std::string>, Row> boards;
        select<std::string, std::string, std::string, std::string, std::string>(
            *database_, "SELECT serial, model, first_id, last_id, final FROM boards", {},
            [&](auto& serial, auto& model, auto& first, auto& last, auto& final) {
                boards[{serial, model}] = {first, last, final};
            });
        database_->session() << "DELETE FROM boards";
        database_->session() << "DELETE FROM tallies";
        bool differs = false;
        count_again(*database_, writer_->tallies, [&](const Board& board) {
            const auto found = boards.find({board.serial, board.model});
            differs |= found == boards.end()
                       || found->second != Row{board.first.id, board.last_id, board.final};
            if (found != boards.end()) boards.erase(found);
            writer_->store(board);
        });
        differs |= !boards.empty() || before != writer_->tallies;
        writer_->store_tallies();
        database_->commit();
        return differs;
    } catch (...) {
        writer_.reset();
        database_->rollback();
        throw;
    }
}

void Index::grant(const std::string& role) { database_->grant(role); }

}  // namespace station::index
