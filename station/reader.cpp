// Shows the report records of a q7 in net mode: reads them from a FIFO or a file, checks their
// layout and prints their texts as UTF-8. This file needs no other:
//
//     g++ -std=c++17 -O2 -o q7-reader reader.cpp
//     ./q7-reader /var/q7.fifo
//
// A FIFO without a writer is waited for. Exit status: 0 = the end marker has come, 1 = a record is
// cut off or invalid, 2 = the input cannot be read or the texts cannot be written, 3 = the input
// has ended between two records, before the end marker.
#include <iconv.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

enum ExitStatus { kBadRecord = 1, kInputOutput = 2, kNoEndMarker = 3 };

constexpr std::size_t kHeaderSize = 8;  // type and length, little-endian words
constexpr std::uint32_t kLongestText = 1023;
constexpr char kEndMarker[] = "Q7TESTEND";

[[noreturn]] void fail(ExitStatus status, const std::string& why) {
    std::fprintf(stderr, "q7-reader: %s\n", why.c_str());
    std::exit(status);
}

// fread() puts together what comes in pieces and keeps what comes too early, so a record may be
// spread over several reads, and one read may bring several records. Fewer bytes than asked for
// mean the end of the input: nobody has the FIFO open for writing any more.
std::size_t read_up_to(std::FILE* input, void* bytes, std::size_t size) {
    const std::size_t count = std::fread(bytes, 1, size, input);
    if (std::ferror(input) != 0) fail(kInputOutput, std::string("read: ") + std::strerror(errno));
    return count;
}

std::uint32_t get_u32(const unsigned char* place) {
    return static_cast<std::uint32_t>(place[0]) | static_cast<std::uint32_t>(place[1]) << 8
           | static_cast<std::uint32_t>(place[2]) << 16
           | static_cast<std::uint32_t>(place[3]) << 24;
}

// The text of the next record, as q7 sent it; `number` counts the records from 1.
std::string next_text(std::FILE* input, int number) {
    const std::string record = "record " + std::to_string(number);
    unsigned char header[kHeaderSize];
    const std::size_t count = read_up_to(input, header, kHeaderSize);
    if (count == 0) fail(kNoEndMarker, "the input ends before " + record + ", without end marker");
    if (count < kHeaderSize) fail(kBadRecord, record + " is cut off in its header");
    const std::uint32_t type = get_u32(header), length = get_u32(header + 4);
    if (type != 0) fail(kBadRecord, record + " has type " + std::to_string(type));
    if (length > kLongestText) fail(kBadRecord, record + " has length " + std::to_string(length));
    std::string text(length, '\0');
    if (read_up_to(input, text.data(), length) < length) {
        fail(kBadRecord, record + " is cut off in its text");
    }
    if (text.find('\0') != std::string::npos) fail(kBadRecord, record + " has a zero in its text");
    return text;
}

// Bytes that are no character become U+FFFD: the texts of disks are sent as the disks give them.
std::string to_utf8(iconv_t converter, std::string text) {
    std::string result;
    char* in = text.data();
    std::size_t in_left = text.size();
    while (in_left > 0) {
        char buffer[4 * kLongestText];
        char* out = buffer;
        std::size_t out_left = sizeof buffer;
        iconv(converter, &in, &in_left, &out, &out_left);
        result.append(buffer, sizeof buffer - out_left);
        if (in_left == 0) break;
        result += "\xEF\xBF\xBD";
        ++in;
        --in_left;
    }
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) fail(kInputOutput, "usage: q7-reader FIFO-OR-FILE");
    iconv_t converter = iconv_open("UTF-8", "GBK");
    if (converter == reinterpret_cast<iconv_t>(-1)) fail(kInputOutput, "cannot convert GBK texts");
    std::FILE* input = std::fopen(argv[1], "rb");
    if (input == nullptr) fail(kInputOutput, argv[1] + std::string(": ") + std::strerror(errno));

    for (int number = 1;; ++number) {
        const std::string text = next_text(input, number);
        if (text == kEndMarker) break;
        std::fputs(to_utf8(converter, text).c_str(), stdout);
        if (std::fflush(stdout) != 0) fail(kInputOutput, "the texts cannot be written");
    }
    std::fclose(input);
    iconv_close(converter);
    return 0;
}
