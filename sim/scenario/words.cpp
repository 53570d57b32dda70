#include "sim/scenario/words.h"

#include <fstream>
#include <iterator>

namespace sim {
namespace {

bool set_bytes(std::string& bytes, const std::string& text) {
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits),
                 [](char character) { return character != ' '; });
    if (digits.size() % 2 != 0
        || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return false;
    }
    bytes.clear();
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return true;
}

bool set_from_file(std::string& bytes, const std::string& path, std::size_t most) {
    std::ifstream file(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(file), {});
    return file.is_open() && !file.bad() && bytes.size() <= most;
}

}  // namespace

Codec hexadecimal(std::string& bytes, std::size_t most) {
    std::string accepts = "bytes in hexadecimal, such as \"FF 07\"";
    if (most != SIZE_MAX) accepts += ", at most " + std::to_string(most);
    return word(accepts, "\"\"", [&bytes, most](const std::string& text) {
        return set_bytes(bytes, text) && bytes.size() <= most;
    });
}

Codec from_file(const Keys& keys, std::string& bytes, std::size_t most) {
    return word("path of a file that can be read, of at most " + std::to_string(most) + " bytes",
                "", [&bytes, folder = keys.folder(), most](const std::string& path) {
                    return set_from_file(bytes, folder + path, most);
                });
}

}  // namespace sim
