#include <toml++/toml.h>

#include <ctime>

#include "sim/scenario/node.h"

namespace sim {
namespace {

UnixTime to_unix_time(const toml::date_time& time) {
    std::tm broken_down{};
    broken_down.tm_year = time.date.year - 1900;
    broken_down.tm_mon = time.date.month - 1;
    broken_down.tm_mday = time.date.day;
    broken_down.tm_hour = time.time.hour;
    broken_down.tm_min = time.time.minute;
    broken_down.tm_sec = time.time.second;
    return {timegm(&broken_down) - (time.offset ? time.offset->minutes * 60 : 0)};
}

Node to_node(const toml::node& source, const std::string& file) {
    Node node{{}, file + ":" + std::to_string(source.source().begin.line)};
    if (const toml::table* table = source.as_table()) {
        Node::Table entries;
        for (const auto& [key, content] : *table)
            entries.emplace(std::string(key.str()), to_node(content, file));
        node.value = std::move(entries);
    } else if (const toml::array* list = source.as_array()) {
        Node::List items;
        for (const toml::node& item : *list)
            items.push_back(to_node(item, file));
        node.value = std::move(items);
    } else if (const auto text = source.value_exact<std::string>()) {
        node.value = *text;
    } else if (const auto whole = source.value_exact<std::int64_t>()) {
        node.value = *whole;
    } else if (const auto number = source.value_exact<double>()) {
        node.value = *number;
    } else if (const auto truth = source.value_exact<bool>()) {
        node.value = *truth;
    } else if (const auto time = source.value_exact<toml::date_time>()) {
        node.value = to_unix_time(*time);
    }
    return node;
}

}  // namespace

Node parse_toml(const std::string& text, const std::string& file) {
    try {
        return to_node(toml::parse(text, file), file);
    } catch (const toml::parse_error& error) {
        throw ScenarioError(file + ":" + std::to_string(error.source().begin.line) + ": "
                            + std::string(error.description()));
    }
}

}  // namespace sim
