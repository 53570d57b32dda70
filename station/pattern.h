// A line of q7's texts as a pattern: literal text with places for numbers and texts.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace station {

// What stood in one place of a pattern. `at` counts bytes from the start of the line.
struct Capture {
    std::size_t at = 0;
    std::string_view text;
    std::int64_t number = 0;  // of a {d} or {x}
};

// "网卡{d}:{s}": {d} a decimal number, {x} a hexadecimal one, {w} a word (no blank, not empty), {s}
// any text up to what follows in the pattern, the last {s} up to the end of the line. The pattern
// is written in UTF-8 and matches GBK bytes, always the whole line.
class Pattern {
  public:
    explicit Pattern(std::string_view utf8);

    // True when the whole line matches; `captures` are then those of its places, in order.
    bool match(std::string_view line, std::vector<Capture>& captures) const;

    // The first byte of every line that can match; -1 = any.
    int first_byte() const;

  private:
    struct Part {
        char place = 0;  // 'd', 'x', 'w', 's', 0 = literal
        std::string literal;
    };
    std::vector<Part> parts_;
};

// Every number of these digits as q7 prints it: "%d", "%u" or "%x" of 32 bits. False for what is
// none, or does not fit.
bool parse_number(std::string_view digits, int base, std::int64_t& number);

}  // namespace station
