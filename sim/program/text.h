// The product's GBK texts as UTF-8.
#pragma once

#include <iconv.h>

#include <string>
#include <string_view>

namespace sim {

// Decodes a stream piece by piece: an incomplete character is buffered, invalid bytes become U+FFFD.
class GbkDecoder {
  public:
    GbkDecoder();  // throws std::runtime_error without a GBK converter
    ~GbkDecoder();
    GbkDecoder(const GbkDecoder&) = delete;
    GbkDecoder& operator=(const GbkDecoder&) = delete;

    std::string decode(std::string_view bytes);
    std::string finish();  // the buffered rest

  private:
    iconv_t converter_;
    std::string held_;
};

std::string gbk_to_utf8(std::string_view bytes);  // a whole text

}  // namespace sim
