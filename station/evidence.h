// The transcript of an attempt taken apart into facts: what q7's texts say, each with a name, a
// value and the line of the journal that says it. docs/station.md lists the names.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

#include "station/journal.h"

namespace station {

using Value = std::variant<std::int64_t, std::string, std::vector<std::string>>;

// For people: 1000, "full", "a, b"; bits as "0x2222".
std::string to_text(const Value& value, std::string_view unit = {});

struct Fact {
    std::string name;
    Value value;
    std::string unit;  // "Mbit/s", "bits", "bytes", "s", "MB", "GB"; empty = none
    std::string step;
    int line = 0;          // of the journal
    bool derived = false;  // q7 prints nothing in this case
    std::string doubt;     // how a fact that needs both channels bears their missing order
};

enum class Channel : std::uint8_t { record, out, err };
std::string_view name_of(Channel channel);

// The part of one event of the board that lies in one line of text.
struct Piece {
    enum class Kind : std::uint8_t { known, fact, failure, unexplained };

    int line = 0;  // of the journal
    std::int64_t time_us = 0;
    Channel channel = Channel::record;
    int command = 0;
    std::string text;  // UTF-8, without its line end
    std::string step;  // empty on standard error
    Kind kind = Kind::known;
    std::vector<std::size_t> facts;  // places in Evidence::facts
};

struct StepSeen {
    int command = 0;
    std::string name;  // with the command's prefix
    int line = 0;
    std::int64_t time_us = 0;
    bool finished = false;
};

// A text that says that something went wrong, and is no fact of its own; or a line that nothing
// explains.
struct Finding {
    enum class Kind : std::uint8_t { failure, lost_record, interrupted, unexplained };

    Kind kind = Kind::failure;
    int command = 0;
    int line = 0;
    Channel channel = Channel::record;
    std::string step;     // with the command's prefix
    std::string text;     // the whole line, UTF-8
    bool settled = true;  // else what is still to come may explain it
};

struct CommandSeen {
    int number = 0;
    std::string prefix;  // of its facts and steps: "" or "verify."
    bool started = false, ended = false;
    int start_line = 0, end_line = 0;
    std::int64_t start_us = 0, end_us = 0;
    int status = -1, signal = 0;  // of q7
    std::string failed;           // why q7 never ran
    bool stopped = false;         // somebody asked for the end
};

struct Evidence {
    std::vector<Fact> facts;
    std::vector<Piece> pieces;  // in the order of the journal
    std::vector<StepSeen> steps;
    std::vector<Finding> findings;
    std::vector<CommandSeen> commands;
    std::vector<Finding> problems;  // events "problem" and "torn", gaps in the numbers

    const Fact* find(std::string_view name) const;

    std::unordered_map<std::string, std::size_t> places;  // of the facts, by name
};

// Also of a journal that still grows.
Evidence take_evidence(const Journal& journal);

// The steps that a command can show, in the order in which they run.
const std::vector<std::string>& known_steps();

}  // namespace station
