// The journal of an attempt: an append-only file of JSON lines, each of which carries the SHA-256
// of the line before and its own CRC. It is the only truth about the attempt; docs/station.md
// describes its lines.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace station {

constexpr int kJournalVersion = 1;

// Who and what was tested, by whom, with which plan: the first line.
struct Identity {
    std::string id, station, serial, model, operator_id;
    std::string mark = "production";  // "reference" and "trial" release nothing
    std::optional<int> attempt;       // number of the attempt of this serial number, if known
    std::string shift;                // number of the proof of the shift; empty = none
    std::string marked_by;            // the supervisor who marked it, where one did
    std::string plan_text;
    std::vector<std::string> connection;  // words before "q7-agent run"
    std::string at;                       // start, ISO 8601
    std::string program;                  // version of q7-station
};

struct CommandLine {
    int number = 0;  // from 1
    std::string name, run;
    std::vector<std::string> words;
    int line = 0;
};

// An event of the board. Bytes are what q7 sent or printed.
struct BoardEvent {  // NOLINT(bugprone-exception-escape): moving JSON throws nothing
    enum class Kind { start, record, out, err, torn, problem, stop, end, other } kind = Kind::other;
    int line = 0;  // of the journal, from 1
    int command = 0;
    std::uint64_t number = 0;  // from 1, without a gap
    std::int64_t time_us = 0;  // the board's monotonic clock
    std::string bytes;
    nlohmann::json fields;  // of the kinds that have no text
};

struct Answer {
    std::string question, answer;  // "yes", "no", "unsure"; "none" = not in time
    std::string operator_id, via;
    int line = 0;
};

// What was done to the board after an earlier attempt, entered before this one.
struct Repair {
    std::string of;      // id of the attempt that it follows
    std::string defect;  // what was found: the change of the simulated board, as TOML; may be empty
    std::string text;    // in words
    std::string operator_id, at;  // who entered it, and when
    bool operator==(const Repair&) const = default;
};

// A network address of the board that was seen under these other serial numbers.
struct AddressLookup {
    std::string interface, address;
    std::vector<std::string> serials;
    int line = 0;
};

// Anything else that happened: kinds "limit", "stopped", "failed", "connection", "resumed",
// "question", "scan-out".
struct Remark {
    std::string kind, text;
    int command = 0;
    int line = 0;
};

// What is wrong with the file itself.
struct Damage {
    std::string code;  // "cut-off", "altered", "version"
    int line = 0;
    std::string text;
};

struct Journal {
    Identity identity;
    std::vector<CommandLine> commands;
    std::vector<BoardEvent> events;
    std::vector<Answer> answers;
    std::vector<AddressLookup> lookups;
    std::vector<Repair> repairs;
    std::vector<Remark> remarks;
    std::vector<Damage> damage;
    int lines = 0;       // whole ones
    std::string sha256;  // of the last of them
    std::string end_at;  // empty = the attempt has no end
    bool ended = false;
    std::size_t torn = 0;  // bytes of an unfinished last line
};

// Reads a journal line by line; never throws for what stands in it.
class JournalReader {
  public:
    // A line without its line end. `next` is the text behind it, as far as it is known: a line that
    // a killed station left unfinished is good if the next one says so. False when the line is
    // damaged: nothing behind it counts.
    bool take(std::string_view line, std::string_view next = {});

    Journal& journal() { return journal_; }

  private:
    void note_line(std::string_view line);
    bool is_torn_before_resume(std::string_view line, std::string_view next) const;
    bool take_members(std::string_view line);
    bool take_attempt(std::string_view kind, const nlohmann::json& line);
    bool take_board(std::string_view line);
    bool take_other(const std::string& kind, const nlohmann::json& line);
    bool refuse(const char* code, std::string text);

    Journal journal_;
    std::string previous_ = std::string(64, '0');
};

// Reads up to the first line that is damaged.
Journal parse_journal(std::string_view text);

// Throws std::system_error when the file cannot be read.
Journal read_journal(const std::filesystem::path& path);

// The only owner of a journal that is being written. Each function throws std::system_error when
// the disk refuses; the attempt is then over.
class JournalWriter {
  public:
    // Takes the next number of that station and day, and writes the first line. `identity` gets
    // its id, time and program version.
    static JournalWriter create(const std::filesystem::path& folder, Identity& identity);

    // Goes on with a journal that has no end; notes so in it.
    static JournalWriter resume(const std::filesystem::path& path);

    JournalWriter(JournalWriter&& other) noexcept;
    JournalWriter& operator=(JournalWriter&&) = delete;
    ~JournalWriter();

    // Both return the line that they have written, without its line end. `event` is as the agent
    // sent it.
    std::string line(std::string_view kind, const nlohmann::ordered_json& members);
    std::string board(int command, std::string_view event);
    void sync();  // to the disk, if anything is not yet there

    // When a sync is due: 100 ms after the first line that has not been synced; none = nothing is.
    std::optional<std::chrono::steady_clock::time_point> sync_due() const { return due_; }

    const std::filesystem::path& path() const { return path_; }
    int lines() const { return lines_; }

  private:
    friend void append_scan_out(const std::filesystem::path&, const std::string&,
                                const std::string&);
    JournalWriter(int file, std::filesystem::path path) : file_(file), path_(std::move(path)) {}
    std::string write_line(const std::string& open);
    void write_all(std::string_view bytes);

    int file_;
    std::filesystem::path path_;
    std::string previous_;
    int lines_ = 0;
    std::optional<std::chrono::steady_clock::time_point> due_;
};

// Adds the scan at the release to a journal that has its end. Throws std::system_error when it is
// not on the disk, std::runtime_error when the journal is not whole.
void append_scan_out(const std::filesystem::path& journal, const std::string& serial,
                     const std::string& operator_id);

// Writes a file as a whole: beside its place, synced, then renamed. Throws std::system_error.
void write_file(const std::filesystem::path& path, std::string_view content);

// "3L02-20261123-0088" -> JOURNALS/20261123/3L02-20261123-0088.journal
std::filesystem::path judgement_path(const std::filesystem::path& journal);

// Every journal of the folder, in the order of days and names.
std::vector<std::filesystem::path> journals_in(const std::filesystem::path& folder);

// True for 1 to 16 letters and digits, as names of stations are.
bool is_station_name(std::string_view name);

}  // namespace station
