#include "station/agent/event.h"

#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace agent {
namespace {

constexpr std::size_t kSealSize = sizeof R"(,"crc":"01234567"})" - 1;

// CRC-32 of IEEE 802.3: reflected, polynomial 0x04C11DB7.
std::uint32_t crc32(std::string_view bytes) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (const char byte : bytes) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320 : 0);
    }
    return ~crc;
}

}  // namespace

std::int64_t monotonic_us() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

// The end of the line, CRC included, always has room.
void Line::put(std::string_view bytes) {
    if (size_ + bytes.size() > sizeof bytes_ - kSealSize - 1) {
        fits_ = false;
        return;
    }
    std::memcpy(bytes_ + size_, bytes.data(), bytes.size());
    size_ += bytes.size();
}

void Line::put_key(std::string_view key) {
    if (size_ == 0) {
        put("{");
    } else if (bytes_[size_ - 1] != '{') {
        put(",");
    }
    put("\"");
    put(key);
    put("\":");
}

void Line::put_text(std::string_view bytes) {
    put("\"");
    for (const char& byte : bytes) {
        char escape[8];
        switch (byte) {
        case '"':
            put("\\\"");
            break;
        case '\\':
            put("\\\\");
            break;
        case '\n':
            put("\\n");
            break;
        case '\r':
            put("\\r");
            break;
        case '\t':
            put("\\t");
            break;
        default:
            if (byte >= ' ' && byte <= '~') {
                put({&byte, 1});
                break;
            }
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned char>(byte));
            put(escape);
        }
    }
    put("\"");
}

Line& Line::number(std::string_view key, std::int64_t value) {
    char digits[24];
    std::snprintf(digits, sizeof digits, "%lld", static_cast<long long>(value));
    return json(key, digits);
}

Line& Line::text(std::string_view key, std::string_view bytes) {
    put_key(key);
    put_text(bytes);
    return *this;
}

Line& Line::list(std::string_view key, char* const* words) {
    put_key(key);
    put("[");
    for (char* const* word = words; *word != nullptr; ++word) {
        if (word != words) put(",");
        put_text(*word);
    }
    put("]");
    return *this;
}

Line& Line::json(std::string_view key, std::string_view value) {
    put_key(key);
    put(value);
    return *this;
}

Line& Line::open(std::string_view key) { return json(key, "{"); }

Line& Line::close() {
    put("}");
    return *this;
}

std::string_view Line::finish() {
    bytes_[size_++] = '}';
    bytes_[size_++] = '\n';
    return {bytes_, size_};
}

std::string_view Line::seal() {
    const std::uint32_t crc = crc32({bytes_, size_});
    size_ += static_cast<std::size_t>(
        std::snprintf(bytes_ + size_, sizeof bytes_ - size_, ",\"crc\":\"%08x\"}\n", crc));
    return {bytes_, size_};
}

bool is_sound(std::string_view line) {
    if (line.size() <= kSealSize || line.back() != '\n') return false;
    char seal[kSealSize + 1];
    const std::size_t sealed = line.size() - 1 - kSealSize;
    std::snprintf(seal, sizeof seal, ",\"crc\":\"%08x\"}", crc32({line.data(), sealed}));
    return std::memcmp(line.data() + sealed, seal, kSealSize) == 0;
}

std::uint64_t event_number(std::string_view line) {
    constexpr std::string_view start = "{\"n\":";
    return line.starts_with(start) ? std::strtoull(line.data() + start.size(), nullptr, 10) : 0;
}

// A quote within a text is escaped, so no text can look like a key and its value.
bool has(std::string_view line, std::string_view key, std::string_view text) {
    char wanted[64];
    std::snprintf(wanted, sizeof wanted, "\"%.*s\":\"%.*s\"", static_cast<int>(key.size()),
                  key.data(), static_cast<int>(text.size()), text.data());
    return line.find(wanted) != line.npos;
}

std::string_view list_in(std::string_view line, std::string_view key) {
    char start[32];
    std::snprintf(start, sizeof start, "\"%.*s\":[", static_cast<int>(key.size()), key.data());
    const std::size_t at = line.find(start);
    if (at == line.npos) return {};
    line.remove_prefix(at + std::strlen(start) - 1);
    bool in_text = false;
    for (std::size_t i = 1; i < line.size(); ++i) {
        if (in_text && line[i] == '\\') {
            ++i;
        } else if (line[i] == '"') {
            in_text = !in_text;
        } else if (!in_text && line[i] == ']') {
            return {line.data(), i + 1};
        }
    }
    return {};
}

}  // namespace agent
