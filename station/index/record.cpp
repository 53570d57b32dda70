#include "station/index/record.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "station/judge.h"

namespace station::index {
namespace {

using nlohmann::json;
using nlohmann::ordered_json;

// The digits at this place; -1 if one of them is none.
int digits(std::string_view text, std::size_t at, std::size_t count) {
    int value = 0;
    for (std::size_t i = at; i < at + count; ++i) {
        if (i >= text.size() || text[i] < '0' || text[i] > '9') return -1;
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

// A field that may be absent, or null.
template <class Type>
Type field(const json& object, const char* name, Type otherwise = {}) {
    const auto found = object.find(name);
    return found == object.end() || found->is_null() ? otherwise : found->get<Type>();
}

const json& list(const json& object, const char* name) {
    static const json none = json::array();
    const auto found = object.find(name);
    return found == object.end() ? none : *found;
}

// An integer or a text, as text.
std::string as_text(const json& object, const char* name) {
    const auto found = object.find(name);
    if (found == object.end() || found->is_null()) return {};
    return found->is_string() ? found->get<std::string>() : found->dump();
}

std::string checked_verdict(std::string verdict) {
    for (const char* known : {"PASS", "FAIL", "NOT PROVEN", "INCOMPLETE"}) {
        if (verdict == known) return verdict;
    }
    throw std::invalid_argument("no verdict: " + verdict);
}

std::string checked_mark(std::string mark) {
    for (const char* known : {"production", "reference", "trial"}) {
        if (mark == known) return mark;
    }
    throw std::invalid_argument("no mark: " + mark);
}

std::vector<Item> items_of(const json& object) {
    std::vector<Item> items;
    for (const json& each : list(object, "items")) {
        Item item{each.at("name"), checked_verdict(each.at("verdict")), {}};
        for (const json& reason : list(each, "reasons")) {
            item.reasons.push_back({field<std::string>(reason, "code"),
                                    field<std::string>(reason, "verdict", item.verdict),
                                    field<std::string>(reason, "fact"),
                                    field<std::string>(reason, "text"), as_text(reason, "value"),
                                    as_text(reason, "wanted"), field<std::string>(reason, "unit"),
                                    as_text(reason, "low"), as_text(reason, "high"),
                                    field<std::int64_t>(reason, "line")});
        }
        items.push_back(std::move(item));
    }
    return items;
}

std::vector<Cause> causes_of(const json& object) {
    std::vector<Cause> causes;
    for (const json& cause : list(object, "causes")) {
        causes.push_back(
            {cause.at("defect"), field<bool>(cause, "exact"), as_text(cause, "check")});
    }
    return causes;
}

// The clock is read several times in an attempt; its largest difference stands for all of them.
std::vector<Measurement> measurements_of(const json& object) {
    std::vector<Measurement> measurements;
    std::optional<std::int64_t> clock_s;
    for (const json& each : list(object, "drift")) {
        Measurement one{each.at("fact"), field<std::string>(each, "unit"), each.at("value")};
        if (one.fact.starts_with("rtc.") || one.fact.find(".rtc.") != std::string::npos) {
            constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
            clock_s = std::max(clock_s.value_or(0), std::abs(std::max(one.value, -kLargest)));
        } else {
            measurements.push_back(std::move(one));
        }
    }
    if (clock_s) measurements.push_back({kClockDifference, "s", *clock_s});
    return measurements;
}

std::vector<Repair> repairs_of(const json& object) {
    std::vector<Repair> repairs;
    for (const json& each : list(object, "repairs")) {
        repairs.push_back({field<std::string>(each, "of"), field<std::string>(each, "defect"),
                           field<std::string>(each, "text"), field<std::string>(each, "operator"),
                           parse_time(each.at("at").get<std::string>())});
    }
    return repairs;
}

}  // namespace

Time parse_time(std::string_view text) {
    using namespace std::chrono;
    const auto refuse = [&] { throw std::invalid_argument("no time: " + std::string(text)); };
    const int y = digits(text, 0, 4), mo = digits(text, 5, 2), d = digits(text, 8, 2),
              h = digits(text, 11, 2), mi = digits(text, 14, 2), s = digits(text, 17, 2);
    if (std::min({y, mo, d, h, mi, s}) < 0 || text[4] != '-' || text[7] != '-' || text[10] != 'T'
        || text[13] != ':' || text[16] != ':' || h > 23 || mi > 59 || s > 60) {
        refuse();
    }
    const year_month_day date{year(y), month(unsigned(mo)), day(unsigned(d))};
    if (!date.ok()) refuse();
    std::size_t at = 19;
    int ms = 0;
    if (at < text.size() && text[at] == '.') {
        ms = digits(text, at + 1, 3);
        if (ms < 0) refuse();
        at += 4;
    }
    int zone_min = 0;
    if (text.substr(at) != "Z") {
        const int zone_h = digits(text, at + 1, 2), zone_m = digits(text, at + 4, 2);
        if (text.size() != at + 6 || (text[at] != '+' && text[at] != '-') || text[at + 3] != ':'
            || zone_h < 0 || zone_m < 0 || zone_h > 23 || zone_m > 59) {
            refuse();
        }
        zone_min = (zone_h * 60 + zone_m) * (text[at] == '-' ? -1 : 1);
    }
    const auto local = sys_days(date) + hours(h) + minutes(mi) + seconds(s) + milliseconds(ms);
    return {(local - minutes(zone_min)).time_since_epoch().count(), zone_min};
}

std::string to_iso(Time time) {
    using namespace std::chrono;
    const sys_time<milliseconds> local{milliseconds(time.utc_ms) + minutes(time.zone_min)};
    const auto day = floor<days>(local);
    const year_month_day date(day);
    const hh_mm_ss clock(local - day);
    const int zone = std::abs(time.zone_min);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03d%c%02d:%02d",
                  int(date.year()), unsigned(date.month()), unsigned(date.day()),
                  int(clock.hours().count()), int(clock.minutes().count()),
                  int(clock.seconds().count()), int(clock.subseconds().count()),
                  time.zone_min < 0 ? '-' : '+', zone / 60, zone % 60);
    return text;
}

int local_day(Time time) {
    using namespace std::chrono;
    const sys_time<milliseconds> local{milliseconds(time.utc_ms) + minutes(time.zone_min)};
    const year_month_day date(floor<days>(local));
    return int(date.year()) * 10000 + int(unsigned(date.month())) * 100 + int(unsigned(date.day()));
}

const Item* first_failing(const AttemptRecord& record) {
    for (const Item& item : record.items) {
        if (item.verdict != "PASS") return &item;
    }
    return nullptr;
}

std::string failing_set(const AttemptRecord& record) {
    std::vector<std::string> names;
    for (const Item& item : record.items) {
        if (item.verdict != "PASS") names.push_back(item.name);
    }
    std::sort(names.begin(), names.end());
    std::string set;
    for (const std::string& name : names)
        set += (set.empty() ? "" : " ") + name;
    return set;
}

AttemptRecord from_json(const json& object) {
    AttemptRecord record;
    record.id = object.at("id");
    record.serial = object.at("serial");
    record.model = object.at("model");
    record.station = object.at("station");
    record.operator_id = object.at("operator");
    record.start = parse_time(object.at("start").get<std::string>());
    const auto end = field<std::string>(object, "end");  // an attempt that was cut off has none
    record.end = end.empty() ? record.start : parse_time(end);
    record.verdict = checked_verdict(object.at("verdict"));
    record.mark = checked_mark(field<std::string>(object, "mark", "production"));
    record.proof = field<std::string>(object, "shift");
    const json& plan = object.at("plan");
    record.plan = field<std::string>(plan, "name");
    record.plan_revision = field<std::int64_t>(plan, "revision");
    record.plan_hash = plan.at("sha256");
    record.journal_hash = object.at("journal").at("sha256");
    record.station_version = field<std::string>(object, "program");
    record.agent_version = field<std::string>(object, "agent");
    record.q7_hash = field<std::string>(object, "q7");
    const json& unexplained = list(object, "unexplained");  // the lines, or their number
    record.unexplained = unexplained.is_number() ? unexplained.get<std::int64_t>()
                                                 : std::int64_t(unexplained.size());
    record.attempt = field<std::int64_t>(object, "attempt");
    record.items = items_of(object);
    record.causes = causes_of(object);
    record.measurements = measurements_of(object);
    record.repairs = repairs_of(object);
    record.addresses = field<std::vector<std::string>>(object, "addresses");
    return record;
}

AttemptRecord record_of(const Judgement& judgement) {
    return from_json(station::to_json(judgement));
}

ordered_json to_json(const AttemptRecord& record) {
    ordered_json items = ordered_json::array(), causes = items, drift = items, repairs = items;
    for (const Item& item : record.items) {
        ordered_json reasons = ordered_json::array();
        for (const Reason& reason : item.reasons) {
            reasons.push_back({{"code", reason.code},
                               {"verdict", reason.verdict},
                               {"fact", reason.fact},
                               {"text", reason.text},
                               {"value", reason.value},
                               {"wanted", reason.wanted},
                               {"unit", reason.unit},
                               {"low", reason.low},
                               {"high", reason.high},
                               {"line", reason.line}});
        }
        items.push_back({{"name", item.name}, {"verdict", item.verdict}, {"reasons", reasons}});
    }
    for (const Cause& cause : record.causes) {
        causes.push_back(
            {{"defect", cause.defect}, {"exact", cause.exact}, {"check", cause.check}});
    }
    for (const Measurement& each : record.measurements) {
        drift.push_back({{"fact", each.fact}, {"value", each.value}, {"unit", each.unit}});
    }
    for (const Repair& each : record.repairs) {
        repairs.push_back({{"of", each.of},
                           {"defect", each.defect},
                           {"text", each.text},
                           {"operator", each.by},
                           {"at", to_iso(each.time)}});
    }
    return {
        {"id", record.id},
        {"serial", record.serial},
        {"model", record.model},
        {"attempt", record.attempt},
        {"station", record.station},
        {"operator", record.operator_id},
        {"start", to_iso(record.start)},
        {"end", to_iso(record.end)},
        {"verdict", record.verdict},
        {"mark", record.mark},
        {"shift", record.proof},
        {"plan",
         {{"name", record.plan}, {"revision", record.plan_revision}, {"sha256", record.plan_hash}}},
        {"journal", {{"sha256", record.journal_hash}}},
        {"program", record.station_version},
        {"agent", record.agent_version},
        {"q7", record.q7_hash},
        {"unexplained", record.unexplained},
        {"items", items},
        {"causes", causes},
        {"drift", drift},
        {"repairs", repairs},
        {"addresses", record.addresses}};
}

}  // namespace station::index
