// What the lines of each step mean.
#include <algorithm>
#include <cstdio>
#include <utility>

#include "station/grammar.h"
#include "station/text.h"

namespace station {
namespace {

// Days since 1970 of a date, also of one with a month or day out of range.
std::int64_t days_from_civil(std::int64_t year, std::int64_t month, std::int64_t day) {
    year -= month <= 2 ? 1 : 0;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const std::int64_t year_of_era = year - era * 400;
    const std::int64_t day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return era * 146097 + year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year
           - 719468;
}

// Of "2026-11-23 08:00:38".
std::int64_t seconds_of(const std::string& text) {
    long long year = 0;
    int month = 0, day = 0;
    long long hour = 0, minute = 0, second = 0;
    std::sscanf(text.c_str(), "%lld-%d-%d %lld:%lld:%lld", &year, &month, &day, &hour, &minute,
                &second);
    return days_from_civil(year, month, day) * 86400 + hour * 3600 + minute * 60 + second;
}

// Inputs that an output's value drives, as multiples of it: the wiring of the fixture.
std::int64_t wiring_factor(std::int64_t outputs, std::int64_t inputs) {
    if (outputs == 2) return 0x5;
    if (outputs == 4) return inputs == 16 ? 0x1111 : 0x11;
    return 0x101;
}

std::string without_trailing_blanks(std::string_view text) {
    const std::size_t last = text.find_last_not_of(' ');
    return std::string(text.substr(0, last == std::string_view::npos ? 0 : last + 1));
}

}  // namespace

bool is_node(std::string_view name) {
    constexpr std::string_view kAllowed =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
    return !name.empty() && name.size() <= 32
           && name.find_first_not_of(kAllowed) == std::string_view::npos;
}

// Start, headings, repetitions.

bool Grammar::capability(const Row& row) {
    constexpr const char* kNames[] = {"front_panel",   "usb",          "channels",
                                      "alarm_outputs", "alarm_inputs", "sata_ports",
                                      "esata",         "minisas",      "sata_rule"};
    if (!may_stand(row)) return false;
    for (std::size_t i = 0; i < std::size(kNames); ++i) {
        if (!add_at(i, std::string("start.") + kNames[i], captures_[i].number)) return false;
    }
    return true;
}

bool Grammar::settled(const Row& row) {
    if (!may_stand(row) || now_.settled_line != 0) return false;
    now_.settled_line = line_->fragments.front().line;
    if (mode_.kind == Mode::Kind::single) see_step(mode_.test);
    return true;
}

bool Grammar::repetition(const Row&) {
    if (mode_.kind != Mode::Kind::single || now_.settled_line == 0) return false;
    const bool first = repetition_ == 1 && captures_[0].number == 1 && now_.usb_rows.empty();
    if (first) return true;
    if (captures_[0].number != repetition_ + 1) return false;
    finish();
    ++repetition_;
    now_ = {};
    see_step(mode_.test);
    now_.settled_line = line_->fragments.front().line;
    return true;
}

// Steps follow each other in one order. After a heading that is lost, or has another number, the
// next one counts all the same; but something is not explained then.
bool Grammar::heading(const Row& row) {
    if (!is_full_sequence() || row.step <= now_.step || now_.step >= Step::summary) return false;
    const bool in_turn = captures_[0].number == now_.headings + 1 && !now_.awaits_heading;
    now_.headings = static_cast<int>(captures_[0].number);
    now_.awaits_heading = false;
    see_step(row.step);
    if (!in_turn) misplaced();
    return true;
}

// "第6步:" stands alone; what the step is follows on the next line.
bool Grammar::heading_number_alone(const Row&) {
    if (!is_full_sequence() || now_.step >= Step::summary) return false;
    const bool in_turn = captures_[0].number == now_.headings + 1 && !now_.awaits_heading;
    now_.headings = static_cast<int>(captures_[0].number);
    now_.awaits_heading = true;
    if (!in_turn) misplaced();
    return true;
}

bool Grammar::heading_behind_number(const Row& row) {
    if (!is_full_sequence() || row.step <= now_.step || now_.step >= Step::summary) return false;
    const bool in_turn = std::exchange(now_.awaits_heading, false);
    see_step(row.step);
    if (!in_turn) misplaced();
    return true;
}

// Alarm.

bool Grammar::alarm_counts(const Row& row) {
    if (!may_stand(row) || now_.alarm_inputs >= 0) return false;
    now_.alarm_inputs = captures_[0].number;
    now_.alarm_outputs = captures_[1].number;
    return add_at(0, "alarm.inputs", now_.alarm_inputs)
           && add_at(1, "alarm.outputs", now_.alarm_outputs);
}

bool Grammar::alarm_idle(const Row& row) {
    if (!may_stand(row) || now_.alarm_idle != State::nothing_said || now_.alarm_line != 0) {
        return std::string_view(row.first) == "bad" ? failure(row) : false;
    }
    if (std::string_view(row.first) == "good") {
        now_.alarm_idle = State::good;
        return add_here("alarm.idle.inputs", std::int64_t{0}, "bits");
    }
    now_.alarm_idle = State::bad;
    return add_at(0, "alarm.idle.inputs", captures_[0].number, "bits");
}

bool Grammar::alarm_mismatch(const Row& row) {
    const std::int64_t output = captures_[0].number, inputs = captures_[1].number;
    const bool single_bit = output > 0 && (output & (output - 1)) == 0;
    if (!may_stand(row) || !single_bit || now_.alarm_line != 0) return failure(row);
    int number = 1;
    while (output >> number != 0)
        ++number;
    now_.wrong_outputs.push_back(number);
    return add_at(1, "alarm.output." + std::to_string(number) + ".inputs", inputs, "bits")
           || failure(row);
}

bool Grammar::alarm_result(const Row& row) {
    if (!may_stand(row) || now_.alarm_line != 0) return false;
    now_.alarm_good = captures_[0].number;
    now_.alarm_bad = captures_[1].number;
    now_.alarm_line = evidence_.pieces[piece_at(0)].line;
    return add_at(0, "alarm.good", now_.alarm_good) && add_at(1, "alarm.bad", now_.alarm_bad);
}

// What a good output reads is not printed. It is what the fixture wires to it, if the counts
// account for the idle check and for every output.
void Grammar::finish_alarm() {
    const auto wrong = static_cast<std::int64_t>(now_.wrong_outputs.size());
    const std::int64_t idle = now_.alarm_idle == State::nothing_said ? 0 : 1;
    const std::int64_t bad = wrong + (now_.alarm_idle == State::bad ? 1 : 0);
    const bool all_accounted = now_.alarm_line != 0 && now_.alarm_bad == bad
                               && now_.alarm_good + now_.alarm_bad == now_.alarm_outputs + idle
                               && (idle == 1) == (now_.alarm_inputs > 0) && now_.alarm_outputs <= 8;
    if (!all_accounted) return;
    const std::int64_t factor = wiring_factor(now_.alarm_outputs, now_.alarm_inputs);
    for (std::int64_t number = 1; number <= now_.alarm_outputs; ++number) {
        derive("alarm.output." + std::to_string(number) + ".inputs", factor << (number - 1),
               now_.alarm_line, "bits");
    }
}

// RTC.

bool Grammar::clock(const Row& row) {
    const bool labelled = *row.first != '\0', is_system = now_.clocks.size() % 2 == 1;
    const std::string expected = is_system ? "system" : "clock";
    if (!may_stand(row) || labelled == two_channels()) return false;
    if ((labelled && expected != row.first) || now_.clocks.size() >= 6) return false;
    const std::size_t from = captures_[0].at;
    const std::string text(line_->bytes.substr(from));
    const std::string name = "rtc." + std::to_string(now_.clocks.size() / 2 + 1) + ".";
    now_.clocks.push_back(text);
    if (!add_at(0, name + expected, text)) return false;
    if (!is_system) return true;
    const std::int64_t clock_s = seconds_of(now_.clocks[now_.clocks.size() - 2]);
    return add_at(0, name + "difference", clock_s - seconds_of(text), "s");
}

// SATA and miniSAS.

bool Grammar::disk_ports(const Row& row) {
    if (!may_stand(row) || !now_.disk.empty()) return false;
    if (!add_at(0, row.first, captures_[0].number)) return false;
    now_.minisas = std::string_view(row.first) == "minisas.ports";
    return true;
}

std::string Grammar::disk_name(const char* name) const {
    return (now_.minisas ? std::string("minisas.") : "sata." + now_.disk + ".") + name;
}

bool Grammar::disk_begins(const Row& row) {
    if (!may_stand(row) || !is_node(captures_[0].text)) return false;
    if (!now_.disk.empty()) misplaced();  // the disk before it is not complete
    now_.disk = captures_[0].text;
    now_.disk_part = 0;
    return !now_.minisas || add_at(0, "minisas.node", now_.disk);
}

bool Grammar::disk_text(const Row& row) {
    constexpr std::string_view kOrder[] = {"serial", "model", "firmware"};
    if (!may_stand(row) || now_.disk.empty()) return false;
    const auto* const place = std::find(std::begin(kOrder), std::end(kOrder), row.first);
    const auto part = static_cast<std::size_t>(place - std::begin(kOrder));
    if (part < now_.disk_part) return false;
    if (part > now_.disk_part) misplaced();
    now_.disk_part = part + 1;
    return add_at(0, disk_name(row.first), gbk_to_utf8(without_trailing_blanks(captures_[0].text)));
}

bool Grammar::end_disk(const char* state) {
    const std::string name = disk_name("state");
    now_.disk.clear();
    now_.disk_part = 0;
    return add_here(name, std::string(state));
}

bool Grammar::disk_size(const Row& row) {
    if (!may_stand(row) || now_.disk.empty()) return false;
    if (now_.disk_part != 3) misplaced();
    return add_at(0, disk_name("size"), captures_[0].number, "GB") && end_disk("good");
}

bool Grammar::disk_without_size(const Row& row) {
    const bool fits = may_stand(row) && now_.disk == captures_[0].text && now_.disk_part == 3;
    return (fits && end_disk("no-size")) || failure(row);
}

bool Grammar::disk_absent(const Row& row) {
    if (!may_stand(row) || !now_.disk.empty() || !is_node(captures_[0].text)) return failure(row);
    now_.disk = captures_[0].text;
    return end_disk("absent") || failure(row);
}

bool Grammar::minisas_absent(const Row& row) {
    return may_stand(row) && add_here("minisas.state", std::string("absent"));
}

// RS-485. The receiving process reports: its two lines may come as late as in the summary.

bool Grammar::rs485_first(const Row& row) {
    const bool in_place =
        now_.step == Step::rs485 || now_.step == Step::info || now_.step == Step::summary;
    const bool seen = std::count(now_.seen.begin(), now_.seen.end(), Step::rs485) > 0;
    const bool may_stand = reads_again_ || (in_place && seen);
    if (!may_stand || now_.rs485_result != nullptr) return false;
    now_.rs485_result = row.first;
    return add_at(0, "rs485.good", captures_[0].number, "bytes");
}

bool Grammar::rs485_second(const Row& row) {
    if (now_.rs485_result == nullptr || std::string_view(now_.rs485_result) != row.first) {
        return false;
    }
    return add_at(0, "rs485.bad", captures_[0].number, "bytes")
           && add_here("rs485.result", std::string(row.first));
}

// Board information and summary.

bool Grammar::info_model(const Row& row) {
    return may_stand(row) && add_at(0, "info.model", gbk_to_utf8(captures_[0].text))
           && add_at(1, "info.type", gbk_to_utf8(captures_[1].text));
}

bool Grammar::rule(const Row&) {
    const bool before_summary = is_full_sequence() && now_.step < Step::summary;
    if (now_.rules == 0 && (before_summary || now_.step == Step::info)) {
        if (now_.step != Step::info) misplaced();
        now_.step = Step::summary;
    } else if (now_.rules == 1 && now_.step == Step::summary) {
        now_.step = Step::end;
    } else {
        return false;
    }
    if (!evidence_.steps.empty()) evidence_.steps.back().finished = true;
    ++now_.rules;
    return true;
}

bool Grammar::summary_begins(const Row& row) {
    if (!may_stand(row) || now_.summary_line != 0) return false;
    now_.summary_line = line_->fragments.front().line;
    return true;
}

bool Grammar::sata_missing(const Row& row) {
    if (!may_stand(row)) return false;
    if (row.source == Source::printed) now_.console_faults = true;
    return add_at(0, "summary.sata", gbk_to_utf8(captures_[0].text));
}

bool Grammar::console_ok(const Row& row) {
    if (!may_stand(row) || two_channels()) return false;
    now_.console_ok = true;
    return add_here("summary.result", std::string("ok"));
}

bool Grammar::console_faults(const Row& row) {
    if (!may_stand(row) || two_channels()) return false;
    now_.console_faults = true;
    return add_here(row.first, std::string("bad"));
}

// "测试结束" ends a console run with a fault; in net mode the end marker follows it.
bool Grammar::run_end(const Row& row) {
    if (!may_stand(row) || now_.restart_line != 0) return false;
    now_.restart_line = line_->fragments.front().line;
    if (two_channels()) return true;
    return add_here("sequence.end", std::string(*row.first != '\0' ? row.first : "stopped"));
}

bool Grammar::net_end(const Row& row) {
    return may_stand(row) && two_channels() && now_.restart_line != 0
           && add_here("sequence.end", std::string("marker"));
}

// Port multipliers.

bool Grammar::chip_number(const Row& row) {
    if (!may_stand(row)) return false;
    now_.chip = captures_[0].number;
    return now_.chip >= 1 && now_.chip <= 4;
}

bool Grammar::chip_disk(const Row& row) {
    return may_stand(row) && is_node(captures_[0].text)
           && add_at(0, "pmp.chip." + std::to_string(now_.chip) + ".disk",
                     std::string(captures_[0].text));
}

bool Grammar::chip_text(const Row& row) {
    if (!may_stand(row)) return false;
    const std::string name = "pmp.chip." + std::to_string(now_.chip) + "." + row.first;
    if (*row.second != '\0') return add_at(0, name, captures_[0].number, row.unit);
    return add_at(0, name, gbk_to_utf8(captures_[0].text));
}

bool Grammar::chip_flash(const Row& row) {
    return may_stand(row)
           && add_here("pmp.chip." + std::to_string(now_.chip) + ".flash", std::string(row.first));
}

bool Grammar::chip_error(const Row& row) {
    const std::string name = "pmp.chip." + std::to_string(now_.chip) + ".flash";
    if (may_stand(row) && evidence_.find(prefixed(name)) == nullptr) {
        add_here(name, std::string("failed"));
    }
    return failure(row);
}

bool Grammar::chip_state(const Row& row) {
    if (!may_stand(row) || captures_[0].number < 1 || captures_[0].number > 4) return false;
    now_.chip_line = evidence_.pieces[piece_at(0)].line;
    return add_at(0, "pmp.chip." + std::to_string(captures_[0].number) + ".state",
                  std::string(row.first));
}

// Bringing together.

void Grammar::finish() {
    finish_facts();
    if (now_.unexplained.empty()) return;
    read_again();
    finish_facts();
}

void Grammar::finish_facts() {
    finish_network();
    finish_alarm();
    finish_usb();
    finish_rest();
}

void Grammar::finish_rest() {
    const auto seen = [&](Step step) {
        return std::count(now_.seen.begin(), now_.seen.end(), step) > 0;
    };
    const bool past_panel = command_.ended || now_.printed_step > Step::panel
                            || (!two_channels() && now_.step > Step::panel);
    const int line = now_.first_step_line;
    if (now_.settled_line != 0 && repetition_ == 1) {
        derive("start.root", std::string("yes"), now_.settled_line);
    }
    const bool counted = now_.unknown_keys + now_.other_frames + now_.read_failures > 0;
    if ((seen(Step::panel) || counted) && past_panel) {
        derive("panel.unknown_keys", now_.unknown_keys, line);
        derive("panel.other_frames", now_.other_frames, line);
        derive("panel.read_failures", now_.read_failures, line);
    }
    if (!now_.step_names.empty()) add("sequence.steps", now_.step_names, "", line);
    if (now_.chip_line != 0) derive("pmp.resets", now_.chip_resets, now_.chip_line);
    if (now_.console_ok || now_.console_faults) {
        if (now_.console_faults) {
            add("summary.result", std::string("faults"), "", now_.summary_line, true);
        }
        for (const char* item : {"network", "rs485", "alarm", "usb", "sata", "minisas", "rtc"}) {
            derive(std::string("summary.") + item, std::string("good"), now_.summary_line);
        }
    }
    const Fact* const end = evidence_.find(prefixed("sequence.end"));
    if (end != nullptr && end->value == Value(std::string("restart")) && command_.ended) {
        derive("sequence.config", std::string("removed"), now_.restart_line);
        derive("sequence.config_backup", std::string("removed"), now_.restart_line);
    }
}

}  // namespace station
