// What the index keeps of one attempt, taken from its judgement.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace station {
struct Judgement;
}

namespace station::index {

// An instant with the zone in which it was written down.
struct Time {
    std::int64_t utc_ms = 0;  // since 1970
    int zone_min = 0;         // east of Greenwich
    bool operator==(const Time&) const = default;
};

// ISO 8601, "2026-11-23T14:20:05.120+08:00" or "...Z". Throws std::invalid_argument for anything
// else, an impossible day or a missing zone too.
Time parse_time(std::string_view text);
std::string to_iso(Time time);
// The calendar day where the clock was, as the number 20261123.
int local_day(Time time);

// Verdicts are written as the judge writes them: PASS, FAIL, NOT PROVEN, INCOMPLETE.
struct Reason {
    std::string code, verdict, fact, text, value, wanted, unit, low, high;
    std::int64_t line = 0;  // of the journal; 0 = none
    bool operator==(const Reason&) const = default;
};

struct Item {
    std::string name, verdict;
    std::vector<Reason> reasons;
    bool operator==(const Item&) const = default;
};

struct Cause {
    std::string defect;  // the change of the simulated board, as TOML
    bool exact = false;  // the signatures are equal
    std::string check;   // what to look at: JSON, a text a language
    bool operator==(const Cause&) const = default;
};

// A measured value whose drift is drawn.
struct Measurement {
    std::string fact, unit;
    std::int64_t value = 0;
    bool operator==(const Measurement&) const = default;
};
inline constexpr const char* kClockDifference = "rtc.difference";  // s, the largest of an attempt

// What was repaired after the earlier attempt `of`, entered at this attempt's scan.
struct Repair {
    std::string of, defect, text, by;
    Time time;
    bool operator==(const Repair&) const = default;
};

struct AttemptRecord {
    std::string id, serial, model, station, operator_id;
    Time start, end;
    std::string verdict;
    std::string mark = "production";  // or "reference" or "trial", which no yield counts
    std::string proof;                // of the shift
    std::string plan, plan_hash;      // its name, and SHA-256 of its text
    std::int64_t plan_revision = 0;
    std::string journal_hash;  // of the journal's last line
    std::string station_version, agent_version, q7_hash;
    std::int64_t unexplained = 0;  // lines of the transcript
    std::vector<Item> items;       // in the plan's order
    std::vector<Cause> causes;     // the likeliest first
    std::vector<Measurement> measurements;
    std::vector<Repair> repairs;
    std::vector<std::string> addresses;  // of the network, unique to the board
    std::int64_t attempt = 0;  // of this serial number and model, from 1; 0 = not counted yet
    bool operator==(const AttemptRecord&) const = default;
};

// The first item that is not PASS; null = none.
const Item* first_failing(const AttemptRecord& record);
// The names of all items that are not PASS, sorted, with blanks between them.
std::string failing_set(const AttemptRecord& record);

// The schema of exports and of the copies that wait for the database.
constexpr int kSchemaVersion = 1;
nlohmann::ordered_json to_json(const AttemptRecord& record);
// Reads what to_json writes, and a judgement as the judge writes it. Throws std::invalid_argument
// or an exception of nlohmann for anything else.
AttemptRecord from_json(const nlohmann::json& object);
AttemptRecord record_of(const Judgement& judgement);

}  // namespace station::index
