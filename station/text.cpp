#include "station/text.h"

#include <fcntl.h>
#include <iconv.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace station {
namespace {

constexpr std::string_view kCrcKey = ",\"crc\":\"";
constexpr std::size_t kCrcTail = kCrcKey.size() + 8 + 2;  // the digits, quote and brace

std::string hexadecimal(const unsigned char* bytes, std::size_t size) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text(2 * size, '0');
    for (std::size_t i = 0; i < size; ++i) {
        text[2 * i] = kDigits[bytes[i] >> 4];
        text[2 * i + 1] = kDigits[bytes[i] & 15];
    }
    return text;
}

// Eight tables: one for each byte of a step, so that eight bytes go at once.
using CrcTables = std::array<std::array<std::uint32_t, 256>, 8>;

constexpr CrcTables make_crc_tables() {
    CrcTables tables{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit)
            value = (value & 1) != 0 ? 0xEDB88320 ^ value >> 1 : value >> 1;
        tables[0][i] = value;
    }
    for (std::size_t i = 0; i < 256; ++i) {
        for (std::size_t t = 1; t < 8; ++t) {
            const std::uint32_t before = tables[t - 1][i];
            tables[t][i] = tables[0][before & 0xFF] ^ before >> 8;
        }
    }
    return tables;
}

constexpr CrcTables kCrcTables = make_crc_tables();

std::uint32_t crc_value(std::string_view bytes) {
    std::uint32_t crc = 0xFFFFFFFF;
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    std::size_t i = 0;
    for (; i + 8 <= bytes.size(); i += 8) {
        std::uint32_t next = 0;
        for (std::size_t k = 0; k < 4; ++k) {
            next ^= kCrcTables[7 - k][(crc >> 8 * k & 0xFF) ^ at(i + k)];
            next ^= kCrcTables[3 - k][at(i + 4 + k)];
        }
        crc = next;
    }
    for (; i < bytes.size(); ++i)
        crc = kCrcTables[0][(crc ^ at(i)) & 0xFF] ^ crc >> 8;
    return ~crc;
}

class Converter {
  public:
    Converter() : handle_(::iconv_open("UTF-8", "GBK")) {
        if (handle_ == reinterpret_cast<iconv_t>(-1)) {
            throw std::system_error(errno, std::generic_category(), "no converter for GBK");
        }
    }
    ~Converter() { ::iconv_close(handle_); }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    std::string convert(std::string_view bytes) {
        std::string text;
        text.reserve(bytes.size() * 2);
        auto* from = const_cast<char*>(bytes.data());
        std::size_t left = bytes.size();
        while (left > 0) {
            char buffer[1024];
            char* to = buffer;
            std::size_t room = sizeof buffer;
            const std::size_t result = ::iconv(handle_, &from, &left, &to, &room);
            const int error = errno;
            text.append(buffer, to);
            if (result != static_cast<std::size_t>(-1) || error == E2BIG) continue;
            text += "\uFFFD";
            ++from;
            --left;
        }
        return text;
    }

  private:
    iconv_t handle_;
};

bool is_ascii(std::string_view bytes) {
    for (const char character : bytes) {
        if (static_cast<unsigned char>(character) >= 0x80) return false;
    }
    return true;
}

}  // namespace

std::string sha256(std::string_view bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    static const EVP_MD* const algorithm = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    thread_local const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> kept(
        EVP_MD_CTX_new(), EVP_MD_CTX_free);
    EVP_MD_CTX* const context = kept.get();
    if (algorithm == nullptr || context == nullptr
        || EVP_DigestInit_ex2(context, algorithm, nullptr) != 1
        || EVP_DigestUpdate(context, bytes.data(), bytes.size()) != 1
        || EVP_DigestFinal_ex(context, digest, &size) != 1) {
        throw std::runtime_error("SHA-256 is not available");
    }
    return hexadecimal(digest, size);
}

std::string crc32(std::string_view bytes) {
    const std::uint32_t crc = crc_value(bytes);
    const unsigned char big_endian[] = {
        static_cast<unsigned char>(crc >> 24), static_cast<unsigned char>(crc >> 16),
        static_cast<unsigned char>(crc >> 8), static_cast<unsigned char>(crc)};
    return hexadecimal(big_endian, sizeof big_endian);
}

bool has_valid_crc(std::string_view line) {
    if (line.size() < kCrcTail || !line.ends_with("\"}")) return false;
    const std::string_view body = line.substr(0, line.size() - kCrcTail);
    const std::string_view tail = line.substr(body.size());
    return tail.starts_with(kCrcKey) && tail.substr(kCrcKey.size(), 8) == crc32(body);
}

std::string with_crc(std::string open) {
    const std::string crc = crc32(open);
    return std::move(open) + std::string(kCrcKey) + crc + "\"}";
}

std::string gbk_to_utf8(std::string_view bytes) {
    if (is_ascii(bytes)) return std::string(bytes);
    thread_local Converter converter;
    return converter.convert(bytes);
}

std::string bytes_of_text(std::string_view utf8) {
    std::string bytes;
    bytes.reserve(utf8.size());
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        const auto first = static_cast<unsigned char>(utf8[i]);
        if (first < 0x80) {
            bytes += utf8[i];
        } else if (first < 0xC4 && i + 1 < utf8.size()) {
            const auto second = static_cast<unsigned char>(utf8[++i]);
            bytes += static_cast<char>((first & 3) << 6 | (second & 0x3F));
        } else {
            while (i + 1 < utf8.size() && (static_cast<unsigned char>(utf8[i + 1]) & 0xC0) == 0x80)
                ++i;
            bytes += '?';
        }
    }
    return bytes;
}

std::string now_iso() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    const auto seconds = static_cast<std::time_t>(ms / 1000);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    const long offset_min = local.tm_gmtoff / 60;
    const long minutes = offset_min < 0 ? -offset_min : offset_min;
    char text[64];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    std::snprintf(text + length, sizeof text - length, ".%03d%c%02ld:%02ld",
                  static_cast<int>(ms % 1000), offset_min < 0 ? '-' : '+', minutes / 60,
                  minutes % 60);
    return text;
}

std::string today_utc() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    ::gmtime_r(&now, &utc);
    char text[16];
    std::strftime(text, sizeof text, "%Y%m%d", &utc);
    return text;
}

std::string read_file(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw std::system_error(errno, std::generic_category(), path);
    std::string content;
    char buffer[65536];
    for (;;) {
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) {
            const int error = count < 0 ? errno : 0;
            ::close(fd);
            if (error != 0) throw std::system_error(error, std::generic_category(), path);
            return content;
        }
        content.append(buffer, static_cast<std::size_t>(count));
    }
}

}  // namespace station
