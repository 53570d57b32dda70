// Changes of a simulated board, of which defects are made.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "station/dictionary/board.h"
#include "station/dictionary/defects.h"

namespace station {

using Apply = std::function<void(toml::table& board)>;

// The table at a path; made where it is missing.
toml::table& table_in(toml::table& board, const std::vector<std::string>& path);

// The list of this key; made where it is missing.
toml::array& list_at(toml::table& table, std::string_view key);

// A key of that table takes the value.
template <class Value>
Apply setting(const std::vector<std::string>& table, const std::string& key, const Value& value) {
    return [=](toml::table& board) { table_in(board, table).insert_or_assign(key, value); };
}

Apply both(const Apply& first, const Apply& second);

Apply numbers_added(const char* table, const char* key, const std::vector<std::int64_t>& numbers);

// The call fails that one time, or from the nth on.
Apply failing(const SystemCall& call, std::int64_t nth);
Apply failing_from(const SystemCall& call, std::int64_t nth);

// The first of these transfers stops after so many bytes.
Apply cut_short(const SystemCall& call, std::int64_t bytes);

// The change is made just before the nth of these calls, or at a second of the run.
Apply from_call(const SystemCall& call, std::int64_t nth, const Apply& change);
Apply from_second(double at_s, const Apply& change);

// 3 to 9 in steps of 2: 3, 5, 7, 9.
std::vector<std::int64_t> numbers_between(std::int64_t first, std::int64_t last,
                                          std::int64_t step = 1);

}  // namespace station
