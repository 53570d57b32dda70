// The likeliest causes of what an attempt shows, by the fault dictionary.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "station/dictionary/dictionary.h"

namespace station {

struct Measured {
    std::string fact, value;  // value "absent" = it would not be there
};

// One cause, or two defects that explain it together.
struct Cause {
    std::vector<const KnownDefect*> defects;  // one or two; of each signature the likeliest
    std::vector<std::vector<const KnownDefect*>> alternatives;  // for each: with equal signature
    bool exact = false;                    // explains everything, and would show nothing else
    double fit = 0;                        // 1 = exact; for ordering only
    int matched = 0, of = 0;               // facts and texts that it explains, of those in question
    std::vector<std::string> explains;     // facts and texts
    std::vector<std::string> unexplained;  // shown, but not by this cause
    std::vector<Measured> would_show;      // not as measured, with this cause
};

constexpr std::size_t kCausesShown = 5;

// The likeliest first, at most kCausesShown; empty when nothing fits, or nothing is wrong. They
// point into the dictionary.
std::vector<Cause> causes_of(const Dictionary& dictionary, const Symptoms& shown);

// The same for a judgement; empty for PASS. Throws DictionaryError when the dictionary was made for
// another plan.
std::vector<Cause> causes_of(const Dictionary& dictionary, const Judgement& judgement,
                             const Evidence& evidence);

// What stands as "causes" in a judgement; docs/station.md describes it.
nlohmann::ordered_json to_json(const std::vector<Cause>& causes);

// Writes them into the judgement, and which dictionary was asked. Throws as causes_of() does.
void diagnose(const Dictionary& dictionary, Judgement& judgement, const Evidence& evidence);

// diagnose() with the dictionary of this file, which is read now; "" = none. Throws DictionaryError,
// also when it was made for another plan. A plan that is not known yet has no SHA-256: an attempt
// with another one then gets no causes.
std::function<void(Judgement&, const Evidence&)> diagnosis_by(const std::string& file,
                                                              const Plan& plan);

// The causes for a person, two lines each, with those of equal signature and, unless it is exact, what
// it explains and leaves unexplained; empty when no dictionary was asked.
std::string cause_lines(const Judgement& judgement);

}  // namespace station
