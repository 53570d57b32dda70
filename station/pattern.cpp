#include "station/pattern.h"

#include <iconv.h>

#include <charconv>
#include <cstdlib>
#include <stdexcept>

namespace station {
namespace {

std::string utf8_to_gbk(std::string_view text) {
    iconv_t converter = ::iconv_open("GBK", "UTF-8");
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        throw std::runtime_error("the C library has no converter for GBK");
    }
    std::string bytes(text.size(), '\0');
    auto* from = const_cast<char*>(text.data());
    char* to = bytes.data();
    std::size_t left = text.size(), room = bytes.size();
    const std::size_t result = ::iconv(converter, &from, &left, &to, &room);
    ::iconv_close(converter);
    if (result == static_cast<std::size_t>(-1)) throw std::logic_error(std::string(text));
    bytes.resize(bytes.size() - room);
    return bytes;
}

bool is_digit_of(char character, int base) {
    const bool decimal = character >= '0' && character <= '9';
    return decimal || (base == 16 && character >= 'a' && character <= 'f')
           || (base == 16 && character >= 'A' && character <= 'F');
}

// Bytes from `at` on that a number of this base can take, with its sign.
std::size_t number_length(std::string_view line, std::size_t at, int base) {
    std::size_t end = at;
    if (base == 10 && end < line.size() && line[end] == '-') ++end;
    while (end < line.size() && is_digit_of(line[end], base))
        ++end;
    return end - at;
}

}  // namespace

bool parse_number(std::string_view digits, int base, std::int64_t& number) {
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
    return error == std::errc() && end == digits.data() + digits.size();
}

Pattern::Pattern(std::string_view utf8) {
    while (!utf8.empty()) {
        const std::size_t open = utf8.find('{');
        if (open != 0) parts_.push_back({0, utf8_to_gbk(utf8.substr(0, open))});
        if (open == std::string_view::npos) return;
        parts_.push_back({utf8.at(open + 1), {}});
        utf8.remove_prefix(open + 3);
    }
}

int Pattern::first_byte() const {
    if (parts_.empty() || parts_.front().place != 0) return -1;
    return static_cast<unsigned char>(parts_.front().literal.front());
}

bool Pattern::match(std::string_view line, std::vector<Capture>& captures) const {
    captures.clear();
    std::size_t at = 0;
    for (std::size_t i = 0; i < parts_.size(); ++i) {
        const Part& part = parts_[i];
        if (part.place == 0) {
            if (line.substr(at, part.literal.size()) != part.literal) return false;
            at += part.literal.size();
            continue;
        }
        Capture capture{at, {}, 0};
        std::size_t length = line.size() - at;
        if (part.place == 'd' || part.place == 'x') {
            const int base = part.place == 'd' ? 10 : 16;
            length = number_length(line, at, base);
            if (!parse_number(line.substr(at, length), base, capture.number)) return false;
        } else if (part.place == 'w') {
            length = line.substr(at, line.find(' ', at) - at).size();
            if (length == 0) return false;
        }
        if (i + 1 < parts_.size() && (part.place == 's' || part.place == 'w')) {
            const std::size_t next = line.find(parts_[i + 1].literal, at);
            if (next == std::string_view::npos) return false;
            if (part.place == 'w' && (next == at || next - at > length)) return false;
            length = next - at;
        }
        capture.text = line.substr(at, length);
        captures.push_back(capture);
        at += length;
    }
    return at == line.size();
}

}  // namespace station
