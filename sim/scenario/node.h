// A scenario file as a tree of values, each with its place for messages.
#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace sim {

struct UnixTime {
    std::int64_t seconds;  // since 1970 UTC
};

struct Node {
    using List = std::vector<Node>;
    using Table = std::map<std::string, Node, std::less<>>;

    std::variant<std::monostate, bool, std::int64_t, double, std::string, UnixTime, List, Table>
        value;
    std::string place;  // "board.toml:12"

    template <class T>
    const T* as() const {
        return std::get_if<T>(&value);
    }
};

// An error in a scenario: file, line, and what would have been accepted.
class ScenarioError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The tree of a TOML text; `file` stands in the places. Throws ScenarioError.
Node parse_toml(const std::string& text, const std::string& file);

}  // namespace sim
