#include "station/dictionary/board.h"

#include <cstdio>
#include <sstream>
#include <vector>

namespace station {
namespace {

constexpr int kDeepestBase = 8;

void merge(toml::table& into, const toml::table& from) {
    for (const auto& [key, value] : from) {
        toml::table* old = into.get_as<toml::table>(key);
        if (old != nullptr && value.is_table()) {
            merge(*old, *value.as_table());
        } else {
            into.insert_or_assign(key, value);
        }
    }
}

std::filesystem::path base_of(const std::filesystem::path& scenario, const std::string& base) {
    for (const std::string& name : {base, base + ".toml"}) {
        std::filesystem::path path = scenario.parent_path() / name;
        if (std::filesystem::is_regular_file(path) && path != scenario) return path;
    }
    throw BoardError(scenario.string() + ": its base " + base + " is no file beside it");
}

toml::table load(const std::filesystem::path& scenario, int depth) {
    toml::table own;
    try {
        own = toml::parse_file(scenario.string());
    } catch (const toml::parse_error& error) {
        throw BoardError(scenario.string() + ":" + std::to_string(error.source().begin.line) + ": "
                         + std::string(error.description()));
    }
    std::vector<std::string> bases;
    if (const auto one = own["base"].value<std::string>()) bases.push_back(*one);
    if (const toml::array* list = own["base"].as_array())
        for (const toml::node& each : *list)
            bases.push_back(each.value_or(std::string()));
    own.erase("base");
    if (depth == kDeepestBase) throw BoardError(scenario.string() + ": the base of its own base");
    toml::table board;
    for (const std::string& base : bases)
        merge(board, load(base_of(scenario, base), depth + 1));
    merge(board, own);
    return board;
}

bool is_bare(std::string_view key) {
    return !key.empty()
           && key.find_first_not_of(
                  "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                  "0123456789_-")
                  == std::string_view::npos;
}

std::string quoted(std::string_view text) {
    std::ostringstream out;
    out << toml::value<std::string>(std::string(text));
    return out.str();
}

std::string key_text(std::string_view key) { return is_bare(key) ? std::string(key) : quoted(key); }

std::string float_text(double number) {
    char text[40];
    std::snprintf(text, sizeof text, "%.15g", number);
    const bool has_point = std::string_view(text).find_first_of(".en") != std::string_view::npos;
    return has_point ? text : std::string(text) + ".0";
}

// On one line; toml++ breaks long arrays.
std::string value_text(const toml::node& value) {
    std::string text;
    if (const toml::array* array = value.as_array()) {
        for (const toml::node& element : *array)
            text += (text.empty() ? "" : ", ") + value_text(element);
        return "[" + text + "]";
    }
    if (const toml::table* table = value.as_table()) {
        for (const auto& [key, element] : *table) {
            text += text.empty() ? "" : ", ";
            text += key_text(key) + " = " + value_text(element);
        }
        return "{" + text + "}";
    }
    if (const auto* number = value.as_floating_point()) return float_text(number->get());
    std::ostringstream out;
    value.visit([&](const auto& scalar) { out << scalar; });
    return out.str();
}

// By value: 0xFF and 255 are the same.
bool is_same(const toml::node& a, const toml::node& b) { return toml::array{a} == toml::array{b}; }

void add_changes(const toml::table& board, const toml::table& changed, const std::string& prefix,
                 std::string& text) {
    for (const auto& [key, value] : changed) {
        const std::string name = prefix + key_text(key);
        const toml::node* old = board.get(key);
        if (value.is_table() && (old == nullptr || old->is_table())) {
            static const toml::table none;
            add_changes(old != nullptr ? *old->as_table() : none, *value.as_table(), name + ".",
                        text);
        } else if (old == nullptr || !is_same(*old, value)) {
            text += name + " = " + value_text(value) + "\n";
        }
    }
}

}  // namespace

toml::table load_board(const std::filesystem::path& scenario) { return load(scenario, 0); }

toml::table& table_at(toml::table& board, std::initializer_list<std::string_view> path) {
    toml::table* table = &board;
    for (const std::string_view key : path) {
        if (!table->get_as<toml::table>(key)) table->insert_or_assign(key, toml::table{});
        table = table->get_as<toml::table>(key);
    }
    return *table;
}

void apply_change(toml::table& board, const std::string& change) {
    try {
        merge(board, toml::parse(change));
    } catch (const toml::parse_error& error) {
        throw BoardError(change + ": " + std::string(error.description()));
    }
}

std::string change_of(const toml::table& board, const toml::table& changed) {
    std::string text;
    add_changes(board, changed, "", text);
    return text;
}

}  // namespace station
