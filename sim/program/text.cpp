#include "sim/program/text.h"

#include <cerrno>
#include <stdexcept>

namespace sim {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

}  // namespace

GbkDecoder::GbkDecoder() : converter_(iconv_open("UTF-8", "GBK")) {
    if (converter_ == reinterpret_cast<iconv_t>(-1)) {
        throw std::runtime_error("this machine cannot convert GBK texts; use --gbk");
    }
}

GbkDecoder::~GbkDecoder() { iconv_close(converter_); }

std::string GbkDecoder::decode(std::string_view bytes) {
    held_ += bytes;
    std::string text;
    char* in = held_.data();
    std::size_t in_left = held_.size();
    while (in_left > 0) {
        char buffer[256];
        char* out = buffer;
        std::size_t out_left = sizeof buffer;
        const std::size_t result = iconv(converter_, &in, &in_left, &out, &out_left);
        const int error = result == static_cast<std::size_t>(-1) ? errno : 0;
        text.append(buffer, static_cast<std::size_t>(out - buffer));
        if (error == EINVAL) break;
        if (error == EILSEQ) {
            text += kReplacement;
            ++in;
            --in_left;
        }
    }
    held_.erase(0, held_.size() - in_left);
    return text;
}

std::string GbkDecoder::finish() {
    std::string text;
    for (std::size_t i = 0; i < held_.size(); ++i)
        text += kReplacement;
    held_.clear();
    return text;
}

std::string gbk_to_utf8(std::string_view bytes) {
    GbkDecoder decoder;
    std::string text = decoder.decode(bytes);
    return text + decoder.finish();
}

}  // namespace sim
