// Bytes, digests and times, as journals and transcripts need them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace station {

// SHA-256 of the bytes, 64 lower-case hexadecimal digits.
std::string sha256(std::string_view bytes);

// CRC-32 of IEEE 802.3 of the bytes, 8 lower-case hexadecimal digits.
std::string crc32(std::string_view bytes);

// True when the line, an object without its line end, ends with the CRC of what stands before it:
// ...,"crc":"89abcdef"}
bool has_valid_crc(std::string_view line);

// The line with its CRC and closing brace; `open` is the object up to its last member.
std::string with_crc(std::string open);

// The UTF-8 text of GBK bytes; bytes that are no character become U+FFFD.
std::string gbk_to_utf8(std::string_view bytes);

// The bytes that a text of the characters U+0000 to U+00FF stands for, in UTF-8. Other characters
// give '?'.
std::string bytes_of_text(std::string_view utf8);

// ISO 8601 with milliseconds and the zone of this computer.
std::string now_iso();

// "20261123", the date in UTC.
std::string today_utc();

std::string read_file(const std::string& path);  // throws std::system_error

}  // namespace station
