#include "sim/program/text.h"

#include <iconv.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

namespace sim {
namespace {

iconv_t new_converter() {
    iconv_t converter = iconv_open("UTF-8", "GBK");
    if (converter == reinterpret_cast<iconv_t>(-1))
        throw std::runtime_error("this machine cannot convert GBK texts; use --gbk");
    return converter;
}

}  // namespace

std::string gbk_to_utf8(std::string_view bytes, std::string* rest) {
    static iconv_t converter = new_converter();
    std::string source = rest == nullptr ? "" : std::exchange(*rest, "");
    source += bytes;
    std::string text;
    char* in = source.data();
    for (std::size_t in_left = source.size(); in_left > 0;) {
        char buffer[256];
        char* out = buffer;
        std::size_t out_left = sizeof buffer;
        const bool failed = iconv(converter, &in, &in_left, &out, &out_left) == SIZE_MAX;
        const int error = failed ? errno : 0;
        text.append(buffer, out);
        if (error == EINVAL && rest != nullptr) {
            rest->assign(in, in_left);
            break;
        }
        if (error == EINVAL || error == EILSEQ) {
            text += "\uFFFD";
            ++in;
            --in_left;
        }
    }
    return text;
}

}  // namespace sim
