// A regular expression of a plan, matched against bytes from a board: linear in time and memory,
// whatever the board sends.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace re2 {
class RE2;
}

namespace station {

class Expression {
  public:
    // Matches nothing.
    Expression() = default;
    // Throws std::invalid_argument, with the reason, for what is no regular expression (RE2's
    // syntax; texts are bytes).
    explicit Expression(const std::string& pattern);

    bool matches_whole(std::string_view text) const;

  private:
    std::shared_ptr<const re2::RE2> compiled_;
};

}  // namespace station
