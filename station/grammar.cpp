#include "station/grammar.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "station/text.h"

namespace station {
namespace {

constexpr std::size_t kLongestLine = 16'384;  // q7 writes none that is longer
constexpr std::size_t kLongestJoined = 256;   // of two short ones

}  // namespace

std::string_view name_of(Step step) {
    constexpr std::array<std::string_view, 14> kNames{
        "start", "buzzer", "panel", "network", "alarm", "rtc", "usb",
        "sata",  "rs485",  "info",  "summary", "end",   "pmp", "watchdog"};
    return kNames.at(static_cast<std::size_t>(step));
}

Mode Mode::of(const std::vector<std::string>& words) {
    constexpr std::array<Step, 12> kTests{Step::start, Step::info,     Step::buzzer, Step::panel,
                                          Step::rs485, Step::alarm,    Step::rtc,    Step::usb,
                                          Step::sata,  Step::watchdog, Step::pmp,    Step::network};
    const bool single = words.size() == 2 || words.size() == 3;
    if (!single) {
        const bool net = !words.empty() && words.front() == "netQ7test";
        return {net ? Kind::net : Kind::console, Step::start};
    }
    std::int64_t number = 0;
    const bool valid = (words[0] == "-o" || words[0] == "-O") && words[1].size() <= 2
                       && parse_number(words[1], 10, number) && number >= 1 && number <= 11;
    if (!valid) return {};
    return {Kind::single, kTests.at(static_cast<std::size_t>(number))};
}

Grammar::Grammar(Evidence& evidence, CommandSeen command, Mode mode)
    : evidence_(evidence), command_(std::move(command)), mode_(mode) {}

// Matching.

void Grammar::take(Channel channel, const TextLine& line) {
    line_ = &line;
    channel_ = channel;
    pieces_ = evidence_.pieces.size();
    for (const Fragment& fragment : line.fragments) {
        Piece piece;
        piece.line = fragment.line;
        piece.time_us = fragment.time_us;
        piece.channel = channel;
        piece.command = command_.number;
        piece.text = gbk_to_utf8(line.bytes.substr(fragment.begin, fragment.end - fragment.begin));
        evidence_.pieces.push_back(std::move(piece));
    }
    if (!line.bytes.empty() && !match_line(0, line.bytes.size())) {
        find(Finding::Kind::unexplained);
        if (command_.ended) now_.unexplained.push_back({channel, line, pieces_});
    }
    const std::string step = channel == Channel::err ? std::string{} : prefixed(name_of(current()));
    for (std::size_t i = pieces_; i < evidence_.pieces.size(); ++i)
        evidence_.pieces[i].step = step;
}

void Grammar::peek(Channel channel, const TextLine& line) {
    line_ = &line;
    channel_ = channel;
    if ((channel == Channel::record) != two_channels() || channel == Channel::err) return;
    for (const Row& row : table().rows) {
        const bool matches =
            row.act == &Grammar::heading && row.pattern.match(line.bytes, captures_);
        if (matches && captures_[0].number == now_.headings + 1 && !now_.awaits_heading)
            heading(row);
    }
}

// Of the line at hand, these bytes.
bool Grammar::match_line(std::size_t begin, std::size_t end) {
    const std::string_view line = line_->bytes.substr(begin, end - begin);
    offset_ = begin;
    if (line.size() > kLongestLine) return false;
    if (channel_ == Channel::record) return match_rows(Source::reported, line);
    if (channel_ == Channel::err) return match_rows(Source::error, line);
    return match_rows(Source::printed, line)
           || (!two_channels() && match_rows(Source::reported, line));
}

bool Grammar::match_rows(Source source, std::string_view line) {
    const auto byte = static_cast<unsigned char>(line.front());
    for (const std::size_t i : table().by_byte[byte]) {
        const Row& row = table().rows[i];
        if (reads_again_ && is_about_order(row)) continue;
        if (row.source == source && row.pattern.match(line, captures_) && (this->*row.act)(row)) {
            return true;
        }
    }
    return false;
}

// The rest of the line, from a capture on, as a line of its own.
bool Grammar::match_part(Source source, std::string_view line, std::size_t offset) {
    if (line.empty()) return true;
    offset_ += offset;
    if (match_rows(source, line)) return true;
    if (source == Source::printed || two_channels()) return false;
    return match_rows(Source::printed, line);
}

Step Grammar::current() const {
    const bool printed_alone = two_channels() && channel_ == Channel::out;
    return printed_alone ? now_.printed_step : now_.step;
}

// Whether a row may stand at this place of its channel. Printed lines of net mode have no headings:
// they may only follow each other in the order of the steps.
bool Grammar::may_stand(const Row& row) {
    if (reads_again_ || channel_ == Channel::err) return true;
    if (two_channels() && channel_ == Channel::out) {
        if (row.step < now_.printed_step) return false;
        now_.printed_step = row.step;
        return true;
    }
    return row.step == now_.step;
}

bool Grammar::is_full_sequence() const {
    return mode_.kind == Mode::Kind::net || mode_.kind == Mode::Kind::console;
}

// Whether a row says where in the run the next lines stand.
bool Grammar::is_about_order(const Row& row) {
    constexpr bool (Grammar::*kActs[])(const Row&) = {
        &Grammar::settled,
        &Grammar::repetition,
        &Grammar::heading,
        &Grammar::heading_number_alone,
        &Grammar::heading_behind_number,
        &Grammar::rule,
        &Grammar::summary_begins,
    };
    return std::find(std::begin(kActs), std::end(kActs), row.act) != std::end(kActs);
}

// A line that nothing explains where it stands, because a heading is lost, say, may still tell that
// the board is bad. It stays unexplained, and no fact that is known already changes.
void Grammar::read_again() {
    const TextLine* const line = line_;
    const Channel channel = channel_;
    const std::size_t pieces = pieces_;
    reads_again_ = true;
    for (const Unexplained& each : std::exchange(now_.unexplained, {})) {
        line_ = &each.line;
        channel_ = each.channel;
        pieces_ = each.pieces;
        if (!match_line(0, each.line.bytes.size())) match_lines_in_one();
    }
    reads_again_ = false;
    line_ = line;
    channel_ = channel;
    pieces_ = pieces;
}

// Two lines became one when the line end between them was lost.
void Grammar::match_lines_in_one() {
    const std::size_t size = line_->bytes.size();
    if (size > kLongestJoined) return;
    std::size_t end_of_first = 1;
    while (end_of_first < size && !match_line(0, end_of_first))
        ++end_of_first;
    const bool has_first = end_of_first < size;
    for (std::size_t at = has_first ? end_of_first : 1; at < size; ++at) {
        if (match_line(at, size)) return;
    }
}

// Facts.

std::string Grammar::prefixed(std::string_view name) const {
    std::string prefix = command_.prefix;
    if (repetition_ > 1) prefix += "repeat." + std::to_string(repetition_) + ".";
    return prefix + std::string(name);
}

bool Grammar::add(std::string name, Value value, const char* unit, int line, bool derived,
                  std::string doubt) {
    name = prefixed(name);
    if (!evidence_.places.emplace(name, evidence_.facts.size()).second) return false;
    const std::size_t skip = command_.prefix.size()
                             + (repetition_ > 1 ? prefixed("").size() - command_.prefix.size() : 0);
    const std::string group = name.substr(skip, name.find('.', skip) - skip);
    Fact fact;
    fact.step = prefixed(group == "minisas" ? "sata" : group == "sequence" ? "end" : group);
    fact.name = std::move(name);
    fact.value = std::move(value);
    fact.unit = unit;
    fact.line = line;
    fact.derived = derived;
    fact.doubt = std::move(doubt);
    evidence_.facts.push_back(std::move(fact));
    return true;
}

std::size_t Grammar::piece_at(std::size_t offset) const {
    std::size_t place = 0;
    while (place + 1 < line_->fragments.size() && line_->fragments[place].end <= offset)
        ++place;
    return pieces_ + place;
}

void Grammar::attach(std::size_t piece, std::size_t fact) {
    Piece& target = evidence_.pieces[piece];
    target.kind = Piece::Kind::fact;
    target.facts.push_back(fact);
}

bool Grammar::add_here(const std::string& name, Value value, const char* unit) {
    const std::size_t piece = piece_at(offset_);
    if (!add(name, std::move(value), unit, evidence_.pieces[piece].line)) return false;
    attach(piece, evidence_.facts.size() - 1);
    return true;
}

bool Grammar::add_at(std::size_t capture, const std::string& name, Value value, const char* unit) {
    const std::size_t piece = piece_at(offset_ + captures_[capture].at);
    if (!add(name, std::move(value), unit, evidence_.pieces[piece].line)) return false;
    attach(piece, evidence_.facts.size() - 1);
    return true;
}

void Grammar::derive(const std::string& name, Value value, int line, const char* unit) {
    add(name, std::move(value), unit, line, true);
}

// The line at hand is a finding.
void Grammar::find(Finding::Kind kind) {
    Finding finding;
    finding.kind = kind;
    finding.command = command_.number;
    finding.line = evidence_.pieces[pieces_].line;
    finding.channel = channel_;
    if (channel_ != Channel::err) finding.step = prefixed(name_of(current()));
    finding.text = gbk_to_utf8(line_->bytes);
    for (std::size_t i = pieces_; i < evidence_.pieces.size(); ++i) {
        evidence_.pieces[i].kind =
            kind == Finding::Kind::unexplained ? Piece::Kind::unexplained : Piece::Kind::failure;
    }
    evidence_.findings.push_back(std::move(finding));
}

void Grammar::see_step(Step step) {
    const Fragment& place = line_->fragments.front();
    if (!evidence_.steps.empty() && evidence_.steps.back().command == command_.number) {
        evidence_.steps.back().finished = true;
    }
    evidence_.steps.push_back(
        {command_.number, prefixed(name_of(step)), place.line, place.time_us, false});
    now_.step = step;
    now_.seen.push_back(step);
    now_.step_names.emplace_back(name_of(step));
    if (now_.first_step_line == 0) now_.first_step_line = place.line;
}

// Acts that many rows share.

bool Grammar::known(const Row& row) { return may_stand(row); }

// Whatever was going on, such a text tells of a fault.
bool Grammar::failure(const Row& row) {
    if (two_channels() && channel_ == Channel::out && row.step > now_.printed_step) {
        now_.printed_step = row.step;
    }
    find(Finding::Kind::failure);
    return true;
}

bool Grammar::lost(const Row&) {
    find(Finding::Kind::lost_record);
    return true;
}

bool Grammar::interrupted(const Row&) {
    find(Finding::Kind::interrupted);
    return true;
}

// Of several places, joined by row.second.
bool Grammar::text_fact(const Row& row) {
    if (!may_stand(row)) return false;
    std::string value;
    for (const Capture& capture : captures_)
        value += (value.empty() ? "" : row.second) + gbk_to_utf8(capture.text);
    return add_at(0, row.first, value);
}

bool Grammar::number_fact(const Row& row) {
    return may_stand(row) && add_at(0, row.first, captures_[0].number, row.unit);
}

bool Grammar::word_fact(const Row& row) {
    return may_stand(row) && add_here(row.first, std::string(row.second));
}

bool Grammar::count(const Row& row) {
    if (!may_stand(row)) return false;
    const std::string_view name = row.first;
    ++(name == "unknown_keys"    ? now_.unknown_keys
       : name == "other_frames"  ? now_.other_frames
       : name == "read_failures" ? now_.read_failures
                                 : now_.chip_resets);
    return true;
}

// Takes what stands behind this text as a line of its own.
bool Grammar::continued(const Row& row) {
    if (!may_stand(row)) return false;
    const Capture rest = captures_[0];
    const std::size_t skip = std::min(rest.text.find_first_not_of('.'), rest.text.size());
    return match_part(row.source, rest.text.substr(skip), rest.at + skip);
}

}  // namespace station
