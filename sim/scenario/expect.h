// What a scenario expects of its run, for q7-sim --check.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace sim {

class Keys;

struct Expect {
    std::vector<std::string> arguments;             // of q7
    std::optional<int> status;                      // with which it ends by itself
    std::optional<std::set<std::string>> verdicts;  // the result slots that show a fault
    std::vector<std::string> texts, no_texts;       // on the console or in a record, in UTF-8
};
void describe(Keys& keys, Expect& expect);

}  // namespace sim
