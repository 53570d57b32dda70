// The names that facts can have, with their units and values: what a plan may ask for.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace station {

struct KnownFact {
    enum class Type : std::uint8_t { number, text, list };

    std::string_view name;  // "*" stands for a number, a port or a disk
    std::string_view unit;  // empty = none
    Type type = Type::text;
    std::int64_t low = 0, high = 0;       // of a number
    std::vector<std::string_view> words;  // of a text; empty = any
};

const std::vector<KnownFact>& catalogue();

// The row of a name without the prefix of a command; a "*" in the name matches a "*" here, too.
// "repeat.2." before it is passed over. nullptr = no fact has this name.
const KnownFact* find_known(std::string_view name);

// True when the name fits the pattern, in which "*" stands for one component.
bool name_fits(std::string_view pattern, std::string_view name);

}  // namespace station
