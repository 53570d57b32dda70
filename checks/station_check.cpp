// The reader of docs/ and docs/station.md, against real runs of q7-sim.
#include <gmock/gmock.h>

#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <string>

#include "checks/programs.h"

namespace {

using namespace checks;
using namespace std::string_literals;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kReader = "python3 " Q7_SOURCE "/docs/reader.py ";

// Where the records of a run on the healthy board lie.
std::string records_of_a_run() {
    const std::string file = scratch("station.records");
    EXPECT_EQ(q7_sim("--fifo " + file + " netQ7test").status, 0);
    return file;
}

int number_of_records(const std::string& run) {
    int count = 0;
    for (std::size_t at = 0; at < run.size(); ++count) {
        const auto low = static_cast<unsigned char>(run.at(at + 4)),
                   high = static_cast<unsigned char>(run.at(at + 5));
        at += 8u + low + 256u * high;
    }
    return count;
}

std::string with_line_ends(std::string text) {
    for (std::size_t at; (at = text.find("\\n")) != std::string::npos;)
        text.replace(at, 2, "\n");
    return text;
}

// The texts of the same run as q7-sim itself shows them.
std::string texts_of_a_run() {
    std::istringstream lines(q7_sim("netQ7test").err);
    std::string texts;
    for (std::string line; std::getline(lines, line) && line != "[record] Q7TESTEND";)
        texts += with_line_ends(line.substr("[record] "s.size()));
    EXPECT_THAT(texts, StartsWith("第1步:蜂鸣器测试\n第2步:按键测试\n\n第3步:网络状态\n网卡1:"));
    EXPECT_THAT(texts, EndsWith("-\n测试结束\n"));
    return texts;
}

// What the reader makes of a FIFO that this command writes.
Finished read_fifo(const std::string& reader, const std::string& fifo, const std::string& writer) {
    EXPECT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const Finished got = shell("sh -c 'timeout 10 " + writer + " >/dev/null 2>&1 & timeout 10 "
                               + reader + fifo + "; status=$?; wait; exit $status'");
    std::remove(fifo.c_str());
    return got;
}

TEST(Station, ReaderShowsARunAsItComesAndByteByByteFromALateWriter) {
    const std::string file = records_of_a_run(), fifo = scratch("station.fifo"),
                      texts = texts_of_a_run();
    const std::string writers[] = {
        Q7_BINARIES "/q7-sim --fifo " + fifo + " netQ7test",
        "sh -c \"sleep 0.2; exec dd bs=1 if=" + file + " of=" + fifo + "\"",
    };
    for (const std::string& writer : writers) {
        const Finished got = read_fifo(kReader, fifo, writer);
        EXPECT_EQ(got.status, 0) << got.err;
        EXPECT_EQ(got.out, texts);
    }
}

TEST(Station, ReaderRefusesWhatIsCutOffOrInvalidAndNothingElse) {
    const std::string run = content_of(records_of_a_run()), first = run.substr(0, 24);
    const std::string fifo = scratch("station.fifo"), file = scratch("station.part"),
                      last = std::to_string(number_of_records(run));
    const struct {
        std::string bytes, out;
        int status;
        std::string error;
    } rows[] = {
        {"", "", 3, "the input ends before record 1, without end marker\n"},
        {run.substr(0, run.size() - 17), texts_of_a_run(), 3,
         "the input ends before record " + last + ", without end marker\n"},
        {run.substr(0, 24 + 5), "第1步:蜂鸣器测试", 1, "record 2 is cut off in its header\n"},
        {run.substr(0, 24 + 8), "第1步:蜂鸣器测试", 1, "record 2 is cut off in its text\n"},
        {first + "\0\1\0\0\1\0\0\0x"s, "第1步:蜂鸣器测试", 1, "record 2 has type 256\n"},
        {"\0\0\0\0\0\4\0\0"s + std::string(1024, 'x'), "", 1, "record 1 has length 1024\n"},
        {"\0\0\0\0\2\0\0\0x\0"s, "", 1, "record 1 has a zero in its text\n"},
        {"\0\0\0\0\0\0\0\0\0\0\0\0\xFF\3\0\0"s + std::string(1023, 'x')
             + "\0\0\0\0\3\0\0\0\xFFz\xB5\0\0\0\0\x09\0\0\0Q7TESTEND"s,
         std::string(1023, 'x') + "\uFFFDz\uFFFD", 0, ""},
    };
    for (const auto& row : rows) {
        std::ofstream(file, std::ios::binary) << row.bytes;
        const Finished got = read_fifo(kReader, fifo, "cp " + file + " " + fifo);
        EXPECT_EQ(got.err, row.status == 0 ? "" : "reader.py: " + row.error);
        EXPECT_EQ(got.status, row.status);
        EXPECT_EQ(got.out, row.out);
    }
    EXPECT_EQ(shell(kReader + "/nowhere/fifo").status, 2);
}

TEST(Station, DocumentShowsTheBytesAndTheOrderOfARun) {
    const std::string document = content_of(Q7_SOURCE "/docs/station.md");
    const std::string file = records_of_a_run(), texts = texts_of_a_run();
    const std::string dumps[][2] = {{"od -A x -t x1z -N 48 ", ""},
                                    {"tail -c 34 ", " | od -A x -t x1z"}};
    for (const auto& [dump, pipe] : dumps) {
        const Finished got = shell("sh -c '" + dump + file + pipe + " | sed \"s/^/    /\"'");
        EXPECT_THAT(got.out, StartsWith("    000000 00 00 00 00 "));
        EXPECT_THAT(document, HasSubstr("    " + dump + "records.bin" + pipe + "\n\n" + got.out));
    }

    const std::size_t from = document.find("## The records of a healthy run\n");
    ASSERT_NE(from, std::string::npos);
    std::istringstream section(document.substr(from, document.find("\n## ", from) - from));
    std::size_t at = 0, quoted = 0;
    for (std::string text; std::getline(section, text, '`') && std::getline(section, text, '`');) {
        const std::size_t found = texts.find(with_line_ends(text), at);
        ASSERT_NE(found, std::string::npos) << text;
        at = found + with_line_ends(text).size();
        ++quoted;
    }
    EXPECT_GT(quoted, 50u);
}

}  // namespace
