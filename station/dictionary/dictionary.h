// The fault dictionary of a plan: every single defect of its board with its signature.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "station/dictionary/attempt.h"
#include "station/dictionary/kinds.h"
#include "station/dictionary/symptoms.h"

namespace station {

// A defect as the dictionary keeps it. Two with the same kind and places are the same cause.
struct KnownDefect {
    const Kind* kind;
    std::vector<std::string> places;
    std::string change;  // of the simulated board, as TOML

    std::string cause() const;  // "alarm.input.open 6"
    // Its kind's; two places that are not neighbours are less likely to have something in common.
    int likelihood() const;
};

// Defects that no transcript of the plan's commands, and no answer, tells from each other.
struct Signature {
    Symptoms symptoms;                 // empty = as a healthy board
    std::vector<KnownDefect> defects;  // not empty; the likeliest first
};

struct Dictionary {
    std::string plan_name, plan_sha256, board;  // board = file name of the scenario
    int plan_revision = 0;
    std::vector<Signature> signatures;
    std::map<std::string, std::string>
        texts;  // of a symptom, as the operator sees it; may be absent

    std::size_t defects() const;
};

struct DictionaryError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Simulates every single defect, on all processors. `progress` is called, now and then, with the
// number of those done. Throws DictionaryError when the board does not pass its plan.
Dictionary make_dictionary(const AttemptSimulator& simulator, const std::string& board_name,
                           const std::function<void(std::size_t done, std::size_t of)>& progress);

// One line a signature. Reading throws DictionaryError: "FILE: what".
std::string to_text(const Dictionary& dictionary);
Dictionary parse_dictionary(const std::string& text, const std::string& file);

// Calls work(0) ... work(count - 1) on all processors, in any order; rethrows what one throws.
void in_parallel(std::size_t count, const std::function<void(std::size_t)>& work);

}  // namespace station
