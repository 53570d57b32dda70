// Events as they are spooled and sent: one ASCII JSON object a line, with a CRC at its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace agent {

constexpr std::size_t kLongestLine = 4096;  // bytes, with the line end
constexpr std::size_t kLongestText = 640;   // bytes of output in one event: each may take six

// Microseconds on the board's monotonic clock, which no one sets.
std::int64_t monotonic_us();

// Builds one line, key by key. A text is bytes: each becomes a character U+0000 to U+00FF.
class Line {
  public:
    Line& number(std::string_view key, std::int64_t value);
    Line& text(std::string_view key, std::string_view bytes);
    Line& list(std::string_view key, char* const* words);  // a nullptr ends the words
    Line& json(std::string_view key, std::string_view value);
    Line& open(std::string_view key);  // the keys that follow belong to an object of this name
    Line& close();

    // False when the line has become too long; it then cannot be used.
    bool fits() const { return fits_; }

    std::string_view finish();  // the object and the line end
    std::string_view seal();    // the same with the CRC as its last key

  private:
    void put(std::string_view bytes);
    void put_key(std::string_view key);
    void put_text(std::string_view bytes);

    char bytes_[kLongestLine];
    std::size_t size_ = 0;
    bool fits_ = true;
};

// True for one whole line whose CRC is right.
bool is_sound(std::string_view line);

// The number of an event; 0 = it has none.
std::uint64_t event_number(std::string_view line);

// True when the line has this key with this text, written as in the line: has(line, "event", "end").
bool has(std::string_view line, std::string_view key, std::string_view text);

// The value of a key whose value is a list of texts, as it stands in the line; empty = none.
std::string_view list_in(std::string_view line, std::string_view key);

}  // namespace agent
