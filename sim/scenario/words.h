// Words of a scenario that several devices take.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "sim/scenario/keys.h"

namespace sim {

Codec hexadecimal(std::string& bytes, std::size_t most = SIZE_MAX);
Codec from_file(const Keys& keys, std::string& bytes, std::size_t most);

// Refuses a list whose items do not come in the order of their times.
template <class Item>
void refuse_descending(const Keys& keys, const char* name, const std::vector<Item>& items) {
    const auto earlier = [](const Item& one, const Item& other) { return one.at < other.at; };
    const auto wrong = std::is_sorted_until(items.begin(), items.end(), earlier);
    if (wrong == items.end()) return;
    throw ScenarioError(keys.place_of(name, wrong - items.begin()) + ": " + name
                        + " take ascending times: at " + std::to_string(wrong->at)
                        + " comes after at " + std::to_string(std::prev(wrong)->at));
}

}  // namespace sim
