#include "station/dictionary/changes.h"

namespace station {
namespace {

// How a fault, or a change in the middle of the run, names the nth of these calls.
toml::table call_named(const SystemCall& call, std::int64_t nth) {
    toml::table named{{"call", call.function}};
    if (!call.path.empty()) named.insert("path", call.path);
    if (!call.request.empty())
        named.insert("request", std::int64_t{std::stoll(call.request, nullptr, 16)});
    if (nth != 1) named.insert("nth", nth);
    return named;
}

Apply fault_added(const toml::table& fault) {
    return [=](toml::table& board) { list_at(board, "faults").push_back(fault); };
}

// Before the changes that the board has already.
Apply change_added(const toml::table& when, const Apply& change) {
    return [=](toml::table& board) {
        toml::table later = when;
        change(later);
        toml::array& changes = list_at(board, "changes");
        changes.insert(changes.begin(), std::move(later));
    };
}

}  // namespace

toml::table& table_in(toml::table& board, const std::vector<std::string>& path) {
    toml::table* at = &board;
    for (const std::string& name : path)
        at = &table_at(*at, {name});
    return *at;
}

toml::array& list_at(toml::table& table, std::string_view key) {
    if (!table.get_as<toml::array>(key)) table.insert_or_assign(key, toml::array{});
    return *table.get_as<toml::array>(key);
}

Apply both(const Apply& first, const Apply& second) {
    return [=](toml::table& board) {
        first(board);
        second(board);
    };
}

Apply numbers_added(const char* table, const char* key, const std::vector<std::int64_t>& numbers) {
    return [=](toml::table& board) {
        toml::array& list = list_at(table_at(board, {table}), key);
        for (const std::int64_t number : numbers)
            list.push_back(number);
    };
}

Apply failing(const SystemCall& call, std::int64_t nth) {
    return fault_added(call_named(call, nth));
}

Apply failing_from(const SystemCall& call, std::int64_t nth) {
    toml::table fault = call_named(call, nth);
    fault.insert("onwards", true);
    return fault_added(fault);
}

Apply cut_short(const SystemCall& call, std::int64_t bytes) {
    toml::table fault = call_named(call, 1);
    fault.insert("effect", "short");
    fault.insert("count", bytes);
    return fault_added(fault);
}

Apply from_call(const SystemCall& call, std::int64_t nth, const Apply& change) {
    return change_added(call_named(call, nth), change);
}

Apply from_second(double at_s, const Apply& change) {
    return change_added(toml::table{{"at", at_s}}, change);
}

std::vector<std::int64_t> numbers_between(std::int64_t first, std::int64_t last,
                                          std::int64_t step) {
    std::vector<std::int64_t> numbers;
    for (std::int64_t number = first; number <= last; number += step)
        numbers.push_back(number);
    return numbers;
}

}  // namespace station
