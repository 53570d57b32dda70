// History and yield of all attempts. Made from judgements, and can be made again from them; an
// attempt that is in it is never changed or deleted.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "station/index/record.h"

namespace station::index {

enum class Added {
    stored,
    known,     // the same attempt was there
    conflict,  // another attempt with this id was there, and stays
};

// What to count. Empty texts and 0 stand for all. Days are as of local_day, both included.
struct Filter {
    int from_day = 0, to_day = 0;
    std::string model, station, plan_hash;
    // Yields, failing items and causes count as if nothing else than this item could fail. Other
    // answers do not look at it.
    std::string item = {};
};

// Boards by their first attempt ever: of production and not INCOMPLETE, at any station and under
// any revision of the plan. A filter chooses among boards by that attempt, and never changes which
// attempt it is. `final` is the latest such attempt.
struct Yield {
    std::string key;  // the day, model or station; empty for the total
    std::int64_t boards = 0;
    std::int64_t first_pass = 0, first_fail = 0, first_not_proven = 0;
    std::int64_t final_pass = 0;
    std::int64_t incomplete = 0, reference = 0, trial = 0;  // attempts, in none of the above
};

enum class By { day, model, station };

// Boards that did not pass at first, by the first item that was not PASS.
struct FailingItem {
    std::string name;
    std::int64_t fail = 0, not_proven = 0;
};

// The same boards by the likeliest cause; an empty defect = the dictionary knows none.
struct LikelyCause {
    std::string defect;
    std::int64_t boards = 0;
    std::string station;  // where most of them were
    std::int64_t boards_there = 0;
};

// Boards whose first attempt measured this value on this day.
struct DriftCell {
    int day = 0;
    std::int64_t value = 0, boards = 0;
};

// A fact with measurements.
struct MeasuredFact {
    std::string fact, unit;
};

// The boards behind a number. Empty texts stand for all.
struct Behind {
    std::string first = {}, final = {};  // verdicts; "not PASS" = any other than PASS
    std::string item = {};
    std::string without_item = {};  // did not fail first at this item,
    bool or_passed_later = false;   // or did, and their latest attempt passed
    std::string cause = {};
    bool cause_unknown = false;
    std::string fact = {};  // with this value at the first attempt
    std::int64_t value = 0;
    int limit = 100, offset = 0;
};

struct BoardLine {
    std::string serial, model, station, first_id, last_id;
    int day = 0;
    std::string first, final, item, cause;
};

struct PlanLine {
    std::string name, hash;
    std::int64_t revision = 0;
};

// How often the first cause was what was repaired in the end.
struct Hits {
    std::int64_t repairs = 0, first_cause = 0;
};

// One connection; for one thread at a time. Each function throws std::runtime_error when the
// database is away, locked for longer than 2 s, or damaged; the object is of no use after that.
class Index {
  public:
    // postgresql://..., or the path of an SQLite file. Makes the tables where there are none.
    explicit Index(const std::string& url);
    Index(Index&&) noexcept;
    ~Index();

    // Adds the attempts in one commit, each once by its id.
    std::vector<Added> add(std::span<const AttemptRecord> records);
    // Makes the summaries again from the attempts. Returns whether they differed.
    bool recount();
    // Lets a role of PostgreSQL add and read, and neither change nor delete attempts.
    void grant(const std::string& role);

    // The attempts of a serial number, oldest first, of all its models unless one is named.
    std::vector<AttemptRecord> history(const std::string& serial, const std::string& model = {});
    // The attempts in the order of their start. `each` returns whether to go on.
    void for_each(const Filter& filter, const std::function<bool(const AttemptRecord&)>& each);

    // The number that the next attempt of this board gets.
    std::int64_t next_attempt(const std::string& serial, const std::string& model);
    // The attempts of this board whose set of failing items is this one (see failing_set).
    std::int64_t same_failures(const std::string& serial, const std::string& model,
                               const std::string& failing);
    // Other serial numbers under which this network address was seen.
    std::vector<std::string> other_serials(const std::string& address, const std::string& serial);

    Yield yield(const Filter& filter);
    std::vector<Yield> yield_by(By by, const Filter& filter);
    std::vector<FailingItem> failing_items(const Filter& filter);  // most boards first
    std::vector<LikelyCause> likely_causes(const Filter& filter);  // most boards first
    std::vector<DriftCell> drift(const std::string& fact, const Filter& filter);
    std::vector<BoardLine> boards(const Filter& filter, const Behind& behind);  // newest day first
    // Attempts that no yield counts: INCOMPLETE, reference or trial; newest first.
    std::vector<AttemptRecord> left_out(const std::string& kind, const Filter& filter,
                                        int limit = 100);
    Hits cause_hits();

    // What there is to choose from.
    std::vector<std::string> models();
    std::vector<std::string> stations();
    std::vector<PlanLine> plans();
    std::vector<MeasuredFact> measured_facts();
    std::int64_t attempts();
    Time indexed_until();  // when the last attempt came

  private:
    struct Writer;
    std::unique_ptr<class Database> database_;
    std::unique_ptr<Writer> writer_;
};

}  // namespace station::index
