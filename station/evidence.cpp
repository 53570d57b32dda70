#include "station/evidence.h"

#include <algorithm>
#include <array>

#include "station/grammar.h"
#include "station/text.h"

namespace station {
namespace {

using Kind = BoardEvent::Kind;

// The bytes of one channel of a command, line by line as they come together from events.
class Stream {
  public:
    void add(const BoardEvent& event) {
        std::size_t from = 0;
        for (;;) {
            const std::size_t end = event.bytes.find('\n', from);
            const std::size_t to = std::min(end, event.bytes.size());
            if (to > from || end != std::string::npos) add_part(event, from, to);
            if (end == std::string::npos) return;
            lines_.emplace_back();
            from = end + 1;
        }
    }

    // Calls take(line) for each whole line, and peek(line) for what has no line end yet.
    template <class Take, class Peek>
    void visit(const Take& take, const Peek& peek) const {
        for (std::size_t i = 0; i < lines_.size(); ++i) {
            const Line& line = lines_[i];
            if (line.fragments.empty()) continue;
            const TextLine text{line.bytes, line.fragments};
            if (i + 1 < lines_.size()) {
                take(text);
            } else {
                peek(text);
            }
        }
    }

  private:
    struct Line {
        std::string bytes;
        std::vector<Fragment> fragments;
    };

    void add_part(const BoardEvent& event, std::size_t from, std::size_t to) {
        Line& line = lines_.back();
        const std::size_t begin = line.bytes.size();
        line.bytes.append(event.bytes, from, to - from);
        const bool line_end_alone = to == from && !line.fragments.empty();
        if (!line_end_alone) {
            line.fragments.push_back({event.line, event.time_us, begin, line.bytes.size()});
        }
    }

    std::vector<Line> lines_{1};
};

Finding problem_of(const BoardEvent& event, Finding::Kind kind, std::string text) {
    Finding finding;
    finding.kind = kind;
    finding.command = event.command;
    finding.line = event.line;
    finding.text = std::move(text);
    return finding;
}

std::string word_of(const nlohmann::json& fields, const char* key) {
    const auto found = fields.find(key);
    return found != fields.end() && found->is_string() ? found->get<std::string>() : std::string{};
}

int number_of(const nlohmann::json& fields, const char* key, int otherwise) {
    const auto found = fields.find(key);
    return found != fields.end() && found->is_number_integer() ? found->get<int>() : otherwise;
}

void take_end(CommandSeen& command, const BoardEvent& event) {
    command.ended = true;
    command.end_line = event.line;
    command.end_us = event.time_us;
    command.status = number_of(event.fields, "status", -1);
    command.signal = number_of(event.fields, "signal", 0);
    command.failed = word_of(event.fields, "failed");
}

// One command of the journal: its events checked and sorted into channels, then its grammar.
class CommandReader {
  public:
    CommandReader(Evidence& evidence, CommandSeen command)
        : evidence_(evidence), command_(std::move(command)) {}

    void take(const BoardEvent& event) {
        if (event.number != ++expected_) {
            evidence_.problems.push_back(
                problem_of(event, Finding::Kind::lost_record,
                           "event " + std::to_string(event.number) + " of the board where "
                               + std::to_string(expected_) + " was to come"));
            expected_ = event.number;
        }
        switch (event.kind) {
        case Kind::start:
            command_.started = true;
            command_.start_line = event.line;
            command_.start_us = event.time_us;
            break;
        case Kind::record:
            streams_[0].add(event);
            break;
        case Kind::out:
            streams_[1].add(event);
            break;
        case Kind::err:
            streams_[2].add(event);
            break;
        case Kind::torn:
            evidence_.problems.push_back(problem_of(event, Finding::Kind::lost_record,
                                                    "bytes of the FIFO that are no record"));
            break;
        case Kind::problem:
            evidence_.problems.push_back(
                problem_of(event, Finding::Kind::lost_record, word_of(event.fields, "what")));
            break;
        case Kind::stop:
            command_.stopped = true;
            break;
        case Kind::end:
            take_end(command_, event);
            break;
        case Kind::other:
            evidence_.problems.push_back(
                problem_of(event, Finding::Kind::unexplained, "an event of an unknown kind"));
        }
    }

    void read(const Mode& mode) {
        Grammar grammar(evidence_, command_, mode);
        for (const Channel channel : {Channel::record, Channel::out, Channel::err}) {
            const auto take = [&](const TextLine& line) { grammar.take(channel, line); };
            const auto peek = [&](const TextLine& line) { grammar.peek(channel, line); };
            const Stream& stream = streams_[static_cast<std::size_t>(channel)];
            if (command_.ended) {
                stream.visit(take, take);
            } else {
                stream.visit(take, peek);
            }
        }
        grammar.finish();
        finish_steps();
        add_exit();
        evidence_.commands.push_back(command_);
    }

  private:
    void finish_steps() {
        for (StepSeen& step : evidence_.steps) {
            if (step.command == command_.number && command_.ended) step.finished = true;
        }
    }

    void add_exit() {
        if (!command_.ended || !command_.failed.empty()) return;
        const bool by_signal = command_.signal != 0;
        Fact fact;
        fact.name = command_.prefix + (by_signal ? "exit.signal" : "exit.status");
        fact.value = std::int64_t{by_signal ? command_.signal : command_.status};
        fact.step = command_.prefix + "end";
        fact.line = command_.end_line;
        if (evidence_.places.emplace(fact.name, evidence_.facts.size()).second) {
            evidence_.facts.push_back(std::move(fact));
        }
    }

    Evidence& evidence_;
    CommandSeen command_;
    std::uint64_t expected_ = 0;
    std::array<Stream, 3> streams_;
};

}  // namespace

std::string to_text(const Value& value, std::string_view unit) {
    if (const auto* number = std::get_if<std::int64_t>(&value)) {
        if (unit != "bits") return std::to_string(*number);
        char text[32];
        std::snprintf(text, sizeof text, "0x%04llX", static_cast<unsigned long long>(*number));
        return text;
    }
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    std::string list;
    for (const std::string& item : std::get<std::vector<std::string>>(value))
        list += (list.empty() ? "" : ", ") + item;
    return list;
}

std::string_view name_of(Channel channel) {
    constexpr std::array<std::string_view, 3> kNames{"record", "out", "err"};
    return kNames.at(static_cast<std::size_t>(channel));
}

const Fact* Evidence::find(std::string_view name) const {
    const auto found = places.find(std::string(name));
    return found == places.end() ? nullptr : &facts[found->second];
}

Evidence take_evidence(const Journal& journal) {
    Evidence evidence;
    evidence.facts.reserve(128);
    evidence.pieces.reserve(journal.events.size() + 32);
    for (const CommandLine& line : journal.commands) {
        CommandSeen command;
        command.number = line.number;
        if (line.number > 1) command.prefix = line.name + ".";
        CommandReader reader(evidence, command);
        for (const BoardEvent& event : journal.events) {
            if (event.command == line.number) reader.take(event);
        }
        reader.read(Mode::of(line.words));
    }
    std::stable_sort(evidence.pieces.begin(), evidence.pieces.end(),
                     [](const Piece& a, const Piece& b) { return a.line < b.line; });
    return evidence;
}

const std::vector<std::string>& known_steps() {
    static const std::vector<std::string> steps{"buzzer", "panel", "network", "alarm",
                                                "rtc",    "usb",   "sata",    "rs485",
                                                "info",   "pmp",   "watchdog"};
    return steps;
}

}  // namespace station
