#pragma once

#include <cstddef>
#include <string_view>

namespace agent {

// Takes what comes out of q7's FIFO apart into its records: type 0 and length, little-endian
// words, then the text. q7 sends a record with one write, which a pipe keeps whole.
class Records {
  public:
    struct Piece {
        bool is_record;          // otherwise bytes that are no whole, valid record
        std::string_view bytes;  // the record's text, or those bytes; valid until the next read
    };

    // Reads once from a descriptor that does not block. Returns what read() returned.
    long read_from(int fd);

    // The next piece of what was read; false = none. A record of which a part is still to come is
    // kept for later.
    bool next(Piece& piece);

    // What is left of a record that nobody completes; false = nothing.
    bool rest(Piece& piece);

  private:
    Piece take(std::size_t header, std::size_t size, bool is_record);

    char bytes_[65536];  // a whole pipe: one read ends where a write ended
    std::size_t begin_ = 0, end_ = 0;
};

}  // namespace agent
