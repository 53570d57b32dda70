// The product's GBK texts as UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace sim {

// Invalid bytes become U+FFFD, and so does an incomplete character at the end, unless there is a
// `rest`: it then waits there for the next piece of the stream. Throws std::runtime_error without a
// GBK converter.
std::string gbk_to_utf8(std::string_view bytes, std::string* rest = nullptr);

}  // namespace sim
