#include "station/journal.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <system_error>

#include "station/text.h"
#include "station/version.h"

namespace station {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using nlohmann::ordered_json;

constexpr auto kSyncGroup = std::chrono::milliseconds(100);

[[noreturn]] void fail(const fs::path& path, int error = errno) {
    throw std::system_error(error, std::generic_category(), path.string());
}

// Reading.

// The value of the first member of this name with a text value without escapes; the journal's own
// first members are such. Empty when there is none.
std::string_view plain_member(std::string_view line, std::string_view key) {
    const std::string start = "\"" + std::string(key) + "\":\"";
    const std::size_t at = line.find(start);
    if (at == std::string_view::npos) return {};
    const std::size_t from = at + start.size(), to = line.find('"', from);
    return to == std::string_view::npos ? std::string_view{} : line.substr(from, to - from);
}

struct KindName {
    std::string_view name;
    BoardEvent::Kind kind;
};
constexpr std::array<KindName, 8> kEventKinds{{{"start", BoardEvent::Kind::start},
                                               {"record", BoardEvent::Kind::record},
                                               {"out", BoardEvent::Kind::out},
                                               {"err", BoardEvent::Kind::err},
                                               {"torn", BoardEvent::Kind::torn},
                                               {"problem", BoardEvent::Kind::problem},
                                               {"stop", BoardEvent::Kind::stop},
                                               {"end", BoardEvent::Kind::end}}};

BoardEvent::Kind event_kind(std::string_view name) {
    for (const KindName& row : kEventKinds) {
        if (row.name == name) return row.kind;
    }
    return BoardEvent::Kind::other;
}

std::vector<std::string> texts_of(const json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() || found->is_null() ? std::vector<std::string>{}
                                                     : found->get<std::vector<std::string>>();
}

std::string text_of(const json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() || found->is_null() ? std::string{} : found->get<std::string>();
}

void fill_event(BoardEvent& event, std::string_view text) {
    json fields = json::parse(text);
    event.number = fields.at("n");
    event.time_us = fields.at("t");
    event.kind = event_kind(fields.at("event").get_ref<const std::string&>());
    if (const auto bytes = fields.find("text"); bytes != fields.end()) {
        event.bytes = bytes_of_text(bytes->get_ref<const std::string&>());
    }
    using Kind = BoardEvent::Kind;
    const bool carries_text = event.kind == Kind::record || event.kind == Kind::out
                              || event.kind == Kind::err || event.kind == Kind::torn;
    if (!carries_text) event.fields = std::move(fields);
}

std::string remark_text(const std::string& kind, const json& line) {
    if (kind == "limit") return line.at("limit");
    if (kind == "stopped") return line.at("operator");
    if (kind == "question") return line.at("question");
    if (kind == "scan-out") return line.at("serial");
    if (kind == "connection") return line.at("state");
    return text_of(line, "text");
}

bool is_remark(std::string_view kind) {
    constexpr std::array<std::string_view, 8> kKinds{
        "limit", "stopped", "failed", "dead", "resumed", "question", "scan-out", "connection"};
    return std::find(kKinds.begin(), kKinds.end(), kind) != kKinds.end();
}

// Writing.

void make_folder(const fs::path& folder) {
    if (fs::is_directory(folder)) return;
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw std::system_error(error, folder.string());
}

void sync_folder(const fs::path& folder) {
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) fail(folder);
    const int result = ::fsync(fd);
    const int error = errno;
    ::close(fd);
    if (result != 0 && error != EINVAL) fail(folder, error);
}

// The highest number that an id of this station and day has in the folder.
int highest_number(const fs::path& folder, const std::string& prefix) {
    int highest = 0;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with(prefix)) continue;
        int number = 0;
        const char* const from = name.data() + prefix.size();
        std::from_chars(from, name.data() + name.size(), number);
        highest = std::max(highest, number);
    }
    return highest;
}

std::string member_list(const ordered_json& members) {
    const std::string object = members.dump(-1, ' ', true, json::error_handler_t::replace);
    return object.size() <= 2 ? std::string{} : "," + object.substr(1, object.size() - 2);
}

}  // namespace

bool JournalReader::refuse(const char* code, std::string text) {
    journal_.damage.push_back({code, journal_.lines + 1, std::move(text)});
    return false;
}

void JournalReader::note_line(std::string_view line) {
    previous_ = sha256(line);
    journal_.sha256 = previous_;
    ++journal_.lines;
}

bool JournalReader::take(std::string_view line, std::string_view next) {
    const bool chained = plain_member(line, "prev") == previous_;
    if (!has_valid_crc(line) || !chained) {
        if (!is_torn_before_resume(line, next)) {
            return refuse("altered",
                          chained ? "the line has changed" : "a line before has changed");
        }
        note_line(line);
        return true;
    }
    try {
        if (!take_members(line)) return false;
    } catch (const json::exception& error) {
        return refuse("altered", error.what());
    }
    note_line(line);
    return true;
}

bool JournalReader::is_torn_before_resume(std::string_view line, std::string_view next) const {
    next = next.substr(0, next.find('\n'));
    return journal_.lines > 0 && has_valid_crc(next) && plain_member(next, "kind") == "resumed"
           && plain_member(next, "prev") == sha256(line)
           && next.find("\"torn\":" + std::to_string(line.size()) + ",") != next.npos;
}

bool JournalReader::take_members(std::string_view line) {
    const std::string_view kind = plain_member(line, "kind");
    if (journal_.lines == 0) return take_attempt(kind, json::parse(line));
    if (journal_.ended && kind != "scan-out") return refuse("altered", "a line behind the end");
    if (kind == "board") return take_board(line);
    return take_other(std::string(kind), json::parse(line));
}

bool JournalReader::take_attempt(std::string_view kind, const json& line) {
    if (kind != "attempt") return refuse("altered", "the first line is missing");
    const int version = line.value("version", 0);
    if (version != kJournalVersion) {
        return refuse("version", "a journal of version " + std::to_string(version)
                                     + "; this program knows version 1");
    }
    Identity& identity = journal_.identity;
    identity.id = line.at("id");
    identity.station = line.at("station");
    identity.serial = line.at("serial");
    identity.model = line.at("model");
    identity.operator_id = line.at("operator");
    identity.mark = line.at("mark");
    if (line.at("attempt").is_number_integer()) identity.attempt = line.at("attempt");
    identity.shift = text_of(line, "shift");
    identity.marked_by = text_of(line, "marked_by");
    identity.plan_text = line.at("plan").at("text");
    identity.connection = texts_of(line, "connection");
    identity.at = line.at("at");
    identity.program = line.at("program");
    if (station::sha256(identity.plan_text) != text_of(line.at("plan"), "sha256")) {
        return refuse("altered", "the plan does not have the hash that stands beside it");
    }
    return true;
}

// {"prev":...,"kind":"board","command":1,"event":{...},"crc":"..."}
bool JournalReader::take_board(std::string_view line) {
    constexpr std::string_view kCommand = "\"command\":", kEvent = ",\"event\":";
    constexpr std::size_t kTail = sizeof ",\"crc\":\"01234567\"}" - 1;
    const std::size_t command = line.find(kCommand), at = line.find(kEvent);
    if (command == line.npos || at == line.npos || at + kEvent.size() + kTail > line.size()) {
        return refuse("altered", "a board line without its event");
    }
    const std::string_view text =
        line.substr(at + kEvent.size(), line.size() - kTail - at - kEvent.size());
    if (!has_valid_crc(text)) return refuse("altered", "the event of the board has changed");
    BoardEvent event;
    event.line = journal_.lines + 1;
    std::from_chars(line.data() + command + kCommand.size(), line.data() + at, event.command);
    fill_event(event, text);
    journal_.events.push_back(std::move(event));
    return true;
}

bool JournalReader::take_other(const std::string& kind, const json& line) {
    const int number = journal_.lines + 1;
    if (kind == "command") {
        journal_.commands.push_back(
            {line.at("command"), line.at("name"), line.at("run"), texts_of(line, "words"), number});
    } else if (kind == "answer") {
        journal_.answers.push_back(
            {line.at("question"), line.at("answer"), line.at("operator"), line.at("via"), number});
    } else if (kind == "lookup") {
        journal_.lookups.push_back(
            {line.at("interface"), line.at("address"), texts_of(line, "serials"), number});
    } else if (kind == "repair") {
        journal_.repairs.push_back({line.at("of"), line.at("defect"), line.at("text"),
                                    line.at("operator"), line.at("entered")});
    } else if (kind == "end") {
        journal_.ended = true;
        journal_.end_at = line.at("at");
    } else if (is_remark(kind)) {
        journal_.remarks.push_back(
            {kind, remark_text(kind, line), line.value("command", 0), number});
    } else {
        return refuse("version", "a line of the unknown kind \"" + kind + "\"");
    }
    return true;
}

Journal parse_journal(std::string_view text) {
    JournalReader reader;
    Journal& journal = reader.journal();
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        if (end == std::string_view::npos) {
            journal.torn = text.size();
            break;
        }
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end + 1);
        if (!reader.take(line, text)) return std::move(journal);
    }
    if (journal.lines == 0) {
        journal.damage.push_back({"altered", 1, "this is no journal"});
    } else if (journal.torn > 0) {
        journal.damage.push_back({"cut-off", journal.lines + 1, "the last line is cut off"});
    } else if (!journal.ended) {
        journal.damage.push_back({"cut-off", journal.lines, "the journal has no end"});
    }
    return std::move(journal);
}

Journal read_journal(const fs::path& path) { return parse_journal(read_file(path)); }

JournalWriter::JournalWriter(JournalWriter&& other) noexcept
    : file_(std::exchange(other.file_, -1)),
      path_(std::move(other.path_)),
      previous_(std::move(other.previous_)),
      lines_(other.lines_),
      due_(other.due_) {}

JournalWriter::~JournalWriter() {
    if (file_ >= 0) ::close(file_);
}

JournalWriter JournalWriter::create(const fs::path& folder, Identity& identity) {
    if (!is_station_name(identity.station)) {
        throw std::invalid_argument("the station's name must be 1 to 16 letters and digits: "
                                    + identity.station);
    }
    const std::string day = today_utc(), prefix = identity.station + "-" + day + "-";
    const fs::path day_folder = folder / day;
    const bool first_of_day = !fs::is_directory(day_folder);
    make_folder(day_folder);
    int fd = -1;
    fs::path path;
    for (int number = highest_number(day_folder, prefix) + 1; fd < 0; ++number) {
        char digits[16];
        std::snprintf(digits, sizeof digits, "%04d", number);
        identity.id = prefix + digits;
        path = day_folder / (identity.id + ".journal");
        fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0644);
        if (fd < 0 && errno != EEXIST) fail(path);
    }
    JournalWriter writer(fd, path);
    writer.previous_ = std::string(64, '0');
    identity.program = kVersion;
    const ordered_json attempt =
        identity.attempt ? ordered_json(*identity.attempt) : ordered_json(nullptr);
    const ordered_json shift =
        identity.shift.empty() ? ordered_json(nullptr) : ordered_json(identity.shift);
    ordered_json line{
        {"version", kJournalVersion},
        {"id", identity.id},
        {"station", identity.station},
        {"serial", identity.serial},
        {"model", identity.model},
        {"operator", identity.operator_id},
        {"mark", identity.mark},
        {"attempt", attempt},
        {"shift", shift},
        {"plan", {{"sha256", station::sha256(identity.plan_text)}, {"text", identity.plan_text}}},
        {"program", identity.program},
        {"connection", identity.connection}};
    if (!identity.marked_by.empty()) line["marked_by"] = identity.marked_by;
    writer.line("attempt", line);
    writer.sync();
    sync_folder(day_folder);
    if (first_of_day) sync_folder(folder);
    return writer;
}

JournalWriter JournalWriter::resume(const fs::path& path) {
    const std::string content = read_file(path);
    const Journal journal = parse_journal(content);
    const bool can_go_on = journal.lines > 0 && !journal.ended && journal.damage.size() == 1
                           && journal.damage.front().code == "cut-off";
    if (!can_go_on) {
        throw std::runtime_error(path.string() + ": "
                                 + (journal.damage.empty() ? std::string("it has its end")
                                                           : journal.damage.front().text));
    }
    const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0) fail(path);
    JournalWriter writer(fd, path);
    writer.previous_ = journal.sha256;
    writer.lines_ = journal.lines;
    if (journal.torn > 0) {
        const auto torn = std::string_view(content).substr(content.size() - journal.torn);
        writer.write_all("\n");
        if (has_valid_crc(torn)) return resume(path);  // it lacked nothing but its line end
        writer.previous_ = sha256(torn);
        ++writer.lines_;
    }
    writer.line("resumed", {{"torn", journal.torn}});
    writer.sync();
    return writer;
}

void append_scan_out(const fs::path& path, const std::string& serial,
                     const std::string& operator_id) {
    const Journal journal = read_journal(path);
    if (!journal.ended || !journal.damage.empty())
        throw std::runtime_error(path.string() + ": it is not whole");
    const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0) fail(path);
    JournalWriter writer(fd, path);
    writer.previous_ = journal.sha256;
    writer.lines_ = journal.lines;
    writer.line("scan-out", {{"serial", serial}, {"operator", operator_id}});
    writer.sync();
}

std::string JournalWriter::line(std::string_view kind, const ordered_json& members) {
    return write_line("\"kind\":\"" + std::string(kind) + "\"" + member_list(members));
}

std::string JournalWriter::board(int command, std::string_view event) {
    return write_line("\"kind\":\"board\",\"command\":" + std::to_string(command)
                      + ",\"event\":" + std::string(event));
}

std::string JournalWriter::write_line(const std::string& open) {
    std::string text =
        with_crc("{\"prev\":\"" + previous_ + "\",\"at\":\"" + now_iso() + "\"," + open);
    write_all(text + "\n");
    previous_ = sha256(text);
    ++lines_;
    if (!due_) due_ = std::chrono::steady_clock::now() + kSyncGroup;
    return text;
}

void JournalWriter::write_all(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(file_, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail(path_);
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void JournalWriter::sync() {
    if (!due_) return;
    if (::fdatasync(file_) != 0) fail(path_);
    due_.reset();
}

void write_file(const fs::path& path, std::string_view content) {
    fs::path beside = path;
    beside += ".new";
    const int fd = ::open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) fail(beside);
    int error = 0;
    while (!content.empty() && error == 0) {
        const ssize_t count = ::write(fd, content.data(), content.size());
        if (count >= 0) content.remove_prefix(static_cast<std::size_t>(count));
        if (count < 0 && errno != EINTR) error = errno;
    }
    if (error == 0 && ::fdatasync(fd) != 0) error = errno;
    if (::close(fd) != 0 && error == 0) error = errno;
    if (error == 0 && ::rename(beside.c_str(), path.c_str()) != 0) error = errno;
    if (error != 0) {
        ::unlink(beside.c_str());
        fail(path, error);
    }
    sync_folder(path.has_parent_path() ? path.parent_path() : fs::path("."));
}

fs::path judgement_path(const fs::path& journal) {
    fs::path path = journal;
    return path.replace_extension(".judgement.json");
}

std::vector<fs::path> journals_in(const fs::path& folder) {
    std::vector<fs::path> paths;
    if (!fs::is_directory(folder)) return paths;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.path().extension() == ".journal") paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

bool is_station_name(std::string_view name) {
    return !name.empty() && name.size() <= 16
           && std::all_of(name.begin(), name.end(), [](char character) {
                  return (character >= '0' && character <= '9')
                         || (character >= 'A' && character <= 'Z')
                         || (character >= 'a' && character <= 'z');
              });
}

}  // namespace station
