#include "station/agent/records.h"

#include <unistd.h>

#include <cstdint>
#include <cstring>

namespace agent {
namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::uint32_t kLongestRecordText = 1023;

std::uint32_t get_u32(const char* place) {
    std::uint32_t word = 0;
    for (int i = 3; i >= 0; --i)
        word = word << 8 | static_cast<unsigned char>(place[i]);
    return word;
}

}  // namespace

long Records::read_from(int fd) {
    std::memmove(bytes_, bytes_ + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
    const ssize_t count = ::read(fd, bytes_ + end_, sizeof bytes_ - end_);
    if (count > 0) end_ += static_cast<std::size_t>(count);
    return count;
}

Records::Piece Records::take(std::size_t header, std::size_t size, bool is_record) {
    const Piece piece{is_record, {bytes_ + begin_ + header, size}};
    begin_ += header + size;
    return piece;
}

bool Records::next(Piece& piece) {
    const char* start = bytes_ + begin_;
    const std::size_t size = end_ - begin_;
    if (size < kHeaderSize) return false;
    const std::uint32_t length = get_u32(start + 4);
    if (get_u32(start) != 0 || length > kLongestRecordText) {
        piece = take(0, size, false);  // the next write begins a record again
        return true;
    }
    if (size < kHeaderSize + length) return false;
    if (std::memchr(start + kHeaderSize, 0, length) != nullptr) {
        piece = take(0, kHeaderSize + length, false);
    } else {
        piece = take(kHeaderSize, length, true);
    }
    return true;
}

bool Records::rest(Piece& piece) {
    if (begin_ == end_) return false;
    piece = take(0, end_ - begin_, false);
    return true;
}

}  // namespace agent
