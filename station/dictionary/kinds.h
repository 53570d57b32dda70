// Kinds of defects in the words of a repair slip.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace station {

struct Words {
    std::string zh, en;
};

// {1} and {2} in a text stand for the places of a defect: "6", "sdb", "memory_size".
struct Kind {
    std::string_view name;
    int likelihood;  // which of two defects that fit equally well is named first: 3 = the usual one
    std::string_view title_zh, title_en;
    std::string_view check_zh, check_en;
};

const std::vector<Kind>& kinds();

// nullptr = there is none of this name.
const Kind* find_kind(std::string_view name);

Words title_of(const Kind& kind, const std::vector<std::string>& places);
Words check_of(const Kind& kind, const std::vector<std::string>& places);

}  // namespace station
