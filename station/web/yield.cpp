#include "station/web/yield.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <set>

#include "station/web/state.h"

namespace station::web {
namespace {

using nlohmann::json;
namespace chrono = std::chrono;

constexpr int kDefaultDays = 14, kLongestDays = 3660;
constexpr int kDriftDays = 11;      // columns of the table
constexpr int kDriftLimit_s = 2;    // above it, the clock is wrong
constexpr std::size_t kCauses = 5;  // rows; the others are summed up
constexpr int kListed = 1000;
constexpr double kGathers = 0.6;  // this part of a cause's boards at one station

std::string value_of(const Query& query, const std::string& name) {
    const auto found = query.find(name);
    return found == query.end() ? "" : found->second;
}

int number_of(const Query& query, const std::string& name, int otherwise) {
    const std::string text = value_of(query, name);
    if (text.empty()) return otherwise;
    if (text.size() > 8 || text.find_first_not_of("0123456789") != std::string::npos)
        throw Refusal(400, "missing-" + name);
    return std::stoi(text);
}

// 20261123 <-> "2026-11-23"
std::string iso_day(int day) {
    char text[16];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", day / 10000 % 10000, day / 100 % 100,
                  day % 100);
    return text;
}

int parse_day(const std::string& iso) {
    if (iso.size() != 10) throw Refusal(400, "missing-on");
    std::string digits = iso.substr(0, 4) + iso.substr(5, 2) + iso.substr(8, 2);
    if (digits.find_first_not_of("0123456789") != std::string::npos)
        throw Refusal(400, "missing-on");
    return std::stoi(digits);
}

int days_before(int day, int days) {
    const chrono::sys_days then =
        chrono::sys_days(chrono::year(day / 10000) / (day / 100 % 100) / (day % 100))
        - chrono::days(days);
    const chrono::year_month_day date(then);
    return int(date.year()) * 10000 + int(unsigned(date.month())) * 100 + int(unsigned(date.day()));
}

// The hash of a plan by its revision; of several models, the one of the filter.
std::string plan_hash(index::Index& index, const std::string& revision) {
    for (const index::PlanLine& plan : index.plans())
        if (std::to_string(plan.revision) == revision) return plan.hash;
    throw Refusal(400, "missing-plan");
}

index::Filter filter_of(index::Index& index, const Query& query, const std::string& now) {
    index::Filter filter;
    filter.to_day = parse_day(now.substr(0, 10));
    filter.from_day = days_before(
        filter.to_day, std::clamp(number_of(query, "date", kDefaultDays), 1, kLongestDays) - 1);
    if (const std::string on = value_of(query, "on"); !on.empty())
        filter.from_day = filter.to_day = parse_day(on);
    filter.model = value_of(query, "model");
    filter.station = value_of(query, "station");
    if (const std::string plan = value_of(query, "plan"); !plan.empty())
        filter.plan_hash = plan_hash(index, plan);
    return filter;
}

// Days, stations or models at which boards were tested for the first time.
std::vector<index::Yield> rows_by(index::Index& index, index::By by, const index::Filter& filter) {
    std::vector<index::Yield> rows = index.yield_by(by, filter);
    std::erase_if(rows, [](const index::Yield& row) { return row.boards == 0; });
    return rows;
}

json totals_json(index::Index& index, const index::Filter& filter) {
    const index::Yield all = index.yield(filter);
    return {{"first", all.boards},
            {"first_good", all.first_pass},
            {"first_not_proven", all.first_not_proven},
            {"final_good", all.final_pass},
            {"incomplete", all.incomplete},
            {"reference", all.reference},
            {"trial", all.trial},
            {"days", rows_by(index, index::By::day, filter).size()},
            {"stations", rows_by(index, index::By::station, filter).size()}};
}

// The day with the lowest first-pass yield, and the cause that most of its boards have in common.
json low_day(index::Index& index, index::Filter filter, const std::vector<index::Yield>& rows) {
    const index::Yield* worst = nullptr;
    for (const index::Yield& row : rows) {
        if (row.first_pass == row.boards) continue;
        if (worst == nullptr || row.first_pass * worst->boards < worst->first_pass * row.boards)
            worst = &row;
    }
    if (worst == nullptr) return nullptr;
    filter.from_day = filter.to_day = std::stoi(worst->key);
    for (const index::LikelyCause& cause : index.likely_causes(filter)) {
        if (cause.defect.empty() || cause.boards_there < 3) continue;
        return {{"key", iso_day(filter.from_day)},
                {"not", worst->boards - worst->first_pass},
                {"some", cause.boards_there},
                {"station", cause.station},
                {"cause", cause.defect}};
    }
    return nullptr;
}

json series_json(index::Index& index, const Query& query, const index::Filter& filter) {
    const std::string by = value_of(query, "by");
    const bool by_day = by.empty() || by == "day";
    const auto rows = rows_by(index,
                              by_day            ? index::By::day
                              : by == "station" ? index::By::station
                                                : index::By::model,
                              filter);
    json series{{"by", by_day ? "day" : by}, {"rows", json::array()}};
    for (const index::Yield& row : rows)
        series["rows"].push_back({{"key", by_day ? iso_day(std::stoi(row.key)) : row.key},
                                  {"first", row.boards},
                                  {"first_good", row.first_pass},
                                  {"final_good", row.final_pass}});
    if (by_day) series["low"] = low_day(index, filter, rows);
    return series;
}

// Boards by the largest difference of their clock, in whole seconds: rows from the top.
json drift_json(index::Index& index, const index::Filter& filter) {
    std::set<int> days;
    std::map<std::pair<int, int>, std::int64_t> boards;
    for (const index::DriftCell& cell : index.drift(index::kClockDifference, filter)) {
        days.insert(cell.day);
        const int value =
            static_cast<int>(std::min<std::int64_t>(std::abs(cell.value), kDriftLimit_s + 1));
        boards[{value, cell.day}] += cell.boards;
    }
    while (days.size() > kDriftDays)
        days.erase(days.begin());
    json drift{{"days", json::array()}, {"rows", json::array()}};
    for (const int day : days)
        drift["days"].push_back(iso_day(day));
    for (int value = kDriftLimit_s + 1; value >= 0; --value) {
        json counts = json::array();
        for (const int day : days)
            counts.push_back(boards[{value, day}]);
        drift["rows"].push_back(
            {{"value", value > kDriftLimit_s ? ">2" : std::to_string(value)}, {"counts", counts}});
    }
    if (days.size() < 2) return drift;
    const auto part = [&](int day) {
        std::int64_t all = 0;
        std::int64_t off = 0;
        for (int value = 0; value <= kDriftLimit_s + 1; ++value) {
            all += boards[{value, day}];
            if (value > 0) off += boards[{value, day}];
        }
        return all == 0 ? 0 : static_cast<int>((100 * off + all / 2) / all);
    };
    drift["from"] = part(*days.begin());
    drift["to"] = part(*days.rbegin());
    return drift;
}

json items_json(index::Index& index, const index::Filter& filter) {
    json items = json::array();
    for (const index::FailingItem& item : index.failing_items(filter))
        items.push_back(
            {{"name", item.name}, {"fail", item.fail}, {"not_proven", item.not_proven}});
    return items;
}

json causes_json(index::Index& index, const index::Filter& filter) {
    json rows = json::array();
    std::int64_t others = 0;
    std::int64_t kinds = 0;
    std::int64_t unknown = 0;
    for (const index::LikelyCause& cause : index.likely_causes(filter)) {
        if (cause.defect.empty()) {
            unknown += cause.boards;
        } else if (rows.size() == kCauses) {
            others += cause.boards;
            ++kinds;
        } else {
            json row{{"cause", cause.defect}, {"count", cause.boards}};
            if (static_cast<double>(cause.boards_there)
                    >= kGathers * static_cast<double>(cause.boards)
                && cause.boards > 2)
                row["gathers"] = {{"station", cause.station}, {"count", cause.boards_there}};
            rows.push_back(std::move(row));
        }
    }
    return {
        {"rows", rows}, {"others", {{"kinds", kinds}, {"count", others}}}, {"unknown", unknown}};
}

json board_line(const std::string& serial, const std::string& id, const std::string& time,
                const std::string& station, std::int64_t number, const std::string& verdict,
                const std::string& item) {
    return {{"serial", serial},   {"id", id},         {"time", time},
            {"station", station}, {"number", number}, {"verdict", state_name(verdict)},
            {"item", item}};
}

struct Kind {
    const char* name;
    const char *first, *final;
};
constexpr std::array<Kind, 7> kKinds{{{"first", "", ""},
                                      {"first-good", "PASS", ""},
                                      {"first-not", "not PASS", ""},
                                      {"first-fail", "FAIL", ""},
                                      {"first-not-proven", "NOT PROVEN", ""},
                                      {"final-good", "", "PASS"},
                                      {"final-not", "", "not PASS"}}};

// Under the filter of an item, what did not fail at it passed.
void choose_item(index::Behind& behind, const std::string& item) {
    if (item.empty()) return;
    if (behind.first == "PASS" || behind.final == "PASS") {
        behind.without_item = item;
        behind.or_passed_later = behind.final == "PASS";
        behind.first.clear();
        behind.final.clear();
    } else if (!behind.first.empty() || !behind.final.empty()) {
        behind.item = item;
    }
}

}  // namespace

json yield_json(index::Index& index, const Query& query, const std::string& now) {
    index::Filter filter = filter_of(index, query, now);
    json names = json::array();
    for (const json& item : items_json(index, filter))
        names.push_back(item.at("name"));
    filter.item = value_of(query, "item");
    json plans = json::array();
    for (const index::PlanLine& plan : index.plans())
        if (std::find(plans.begin(), plans.end(), std::to_string(plan.revision)) == plans.end())
            plans.push_back(std::to_string(plan.revision));
    const index::Hits hits = index.cause_hits();
    const std::vector<std::string> models = index.models();
    const std::string plan = value_of(query, "plan");
    return {{"from", iso_day(filter.from_day)},
            {"to", iso_day(filter.to_day)},
            {"model", filter.model.empty() ? models.size() == 1 ? json(models.front()) : json()
                                           : json(filter.model)},
            {"plan", plan.empty() ? plans.size() == 1 ? plans.front() : json() : json(plan)},
            {"choices",
             {{"periods", {1, 7, 14, 30, 90, 365}},
              {"models", models},
              {"plans", plans},
              {"stations", index.stations()},
              {"items", names}}},
            {"totals", totals_json(index, filter)},
            {"series", series_json(index, query, filter)},
            {"drift", drift_json(index, filter)},
            {"items", items_json(index, filter)},
            {"repairs", {{"count", hits.repairs}, {"first_cause", hits.first_cause}}},
            {"causes", causes_json(index, filter)}};
}

json list_json(index::Index& index, const Query& query, const std::string& now) {
    const index::Filter filter = filter_of(index, query, now);
    const std::string which = value_of(query, "list");
    json boards = json::array();
    if (which == "incomplete" || which == "left-out") {
        const std::vector<std::string> kinds = which == "incomplete"
                                                   ? std::vector<std::string>{"INCOMPLETE"}
                                                   : std::vector<std::string>{"reference", "trial"};
        for (const std::string& kind : kinds) {
            for (const index::AttemptRecord& one : index.left_out(kind, filter, kListed)) {
                const index::Item* item = index::first_failing(one);
                boards.push_back(board_line(one.serial, one.id, index::to_iso(one.start),
                                            one.station, one.attempt, one.verdict,
                                            item == nullptr ? "" : item->name));
            }
        }
        return {{"boards", boards}};
    }
    index::Behind behind;
    behind.limit = kListed;
    if (const auto cause = query.find("cause"); cause != query.end()) {
        behind.cause = cause->second;
        behind.cause_unknown = cause->second.empty();
    }
    const auto kind = std::find_if(kKinds.begin(), kKinds.end(),
                                   [&](const Kind& one) { return which == one.name; });
    if (which == "drift") {
        behind.fact = index::kClockDifference;
        behind.value = number_of(query, "value", 0);
    } else if (kind == kKinds.end()) {
        throw Refusal(400, "missing-list");
    } else {
        behind.first = kind->first;
        behind.final = kind->final;
        choose_item(behind, value_of(query, "item"));
    }
    const bool by_final = kind != kKinds.end() && *kind->final != '\0';
    for (const index::BoardLine& one : index.boards(filter, behind))
        boards.push_back(board_line(one.serial, by_final ? one.last_id : one.first_id,
                                    iso_day(one.day), one.station, 1,
                                    by_final ? one.final : one.first, one.item));
    return {{"boards", boards}};
}

}  // namespace station::web
