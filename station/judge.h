// The verdict of an attempt: its journal against its plan, and nothing else.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "station/evidence.h"
#include "station/journal.h"
#include "station/plan.h"

namespace station {

// In the order of badness.
enum class Verdict : std::uint8_t { pass, not_proven, incomplete, fail };

std::string_view name_of(Verdict verdict);  // "PASS", "NOT PROVEN" ...
int exit_status(Verdict verdict);           // 0 PASS, 1 FAIL, 3 NOT PROVEN, 4 INCOMPLETE

struct Reason {
    std::string code;  // stable, for translation; docs/station.md lists them
    Verdict verdict = Verdict::fail;
    std::string fact, value, wanted, unit, text;
    std::string low, high;  // where a range is wanted
    int line = 0;           // of the journal; 0 = none
};

// A step of the plan, or "start", "summary", "end", "run", "identity", "transcript", "plan".
struct Item {
    std::string name;
    Verdict verdict = Verdict::pass;
    std::vector<Reason> reasons;
};

struct UnexplainedLine {
    int line = 0;
    std::string text;
};

// A fact for which the plan allows a range with both ends: its drift can be drawn.
struct Measurement {
    std::string fact, unit;
    std::int64_t value = 0;
};

struct Judgement {
    Verdict verdict = Verdict::incomplete;
    std::vector<Item> items;
    std::vector<UnexplainedLine> unexplained;
    Identity identity;
    std::string end_at, journal_sha256, plan_sha256, plan_name;
    int plan_revision = 0, journal_lines = 0;
    int facts_good = 0, facts_wrong = 0, facts_missing = 0;
    std::vector<Measurement> measurements;
    std::string agent, q7_sha256;        // the agent's version, the program on the board
    std::vector<Repair> repairs;         // before this attempt
    std::vector<std::string> addresses;  // of its network, where the plan calls them unique
    nlohmann::ordered_json causes = nlohmann::ordered_json::array();  // by the fault dictionary
    nlohmann::ordered_json dictionary;  // which one was asked; null = none

    const Item* item(std::string_view name) const;
};

// With the plan that the journal carries.
Judgement judge(const Journal& journal);

// With another plan, and evidence that is at hand already.
Judgement judge(const Journal& journal, const Evidence& evidence, const Plan& plan);

// The same before the attempt has its end: whether all commands so far passed. Questions, the end
// of the journal and commands still to come do not count.
Verdict judge_so_far(const Journal& journal, const Evidence& evidence, const Plan& plan);

nlohmann::ordered_json to_json(const Judgement& judgement);

}  // namespace station
