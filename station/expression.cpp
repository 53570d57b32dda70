#include "station/expression.h"

#include <re2/re2.h>

#include <stdexcept>

namespace station {

Expression::Expression(const std::string& pattern) {
    re2::RE2::Options options;
    options.set_encoding(re2::RE2::Options::EncodingLatin1);
    options.set_log_errors(false);
    const auto compiled = std::make_shared<const re2::RE2>(pattern, options);
    if (!compiled->ok()) throw std::invalid_argument(compiled->error());
    compiled_ = compiled;
}

bool Expression::matches_whole(std::string_view text) const {
    return compiled_ != nullptr
           && re2::RE2::FullMatch(re2::StringPiece(text.data(), text.size()), *compiled_);
}

}  // namespace station
