// The keys of a scenario: described once, they are read from a file and listed for the reference.
#pragma once

#include <toml++/toml.h>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "sim/board.h"

namespace sim {

// A text with a meaning of its own: the setter returns whether it accepts it.
struct Word {
    std::string accepts, preset;
    std::function<bool(const std::string&)> set;
};

struct Range {  // of whole numbers, narrower than the field's type
    std::int64_t least = INT64_MIN, most = INT64_MAX;
};

// One table of a scenario. Each call names a key, sets its field from the table where the table has
// it, and adds a row to the reference.
class Keys {
  public:
    using Section = std::function<void(Keys&)>;

    // Without a table nothing is read. `file` stands in errors, `title` and `path` in the reference.
    Keys(const toml::table* table, std::string file, const std::string& title = "",
         std::string path = "");

    // The field's type decides what the file may say; a double is 0 or more.
    template <class T>
    void key(const char* name, T& field, const char* meaning, Range range = {}) {
        row(name, accepts(field, range), preset(field), meaning);
        const toml::node* node = claim(name);
        if (node != nullptr && !assign(*node, field, range))
            fail(*node, name, accepts(field, range));
    }
    void key(const char* name, Word&& word, const char* meaning) { key<Word>(name, word, meaning); }

    // A table: [key]
    void table(const char* key, const Section& describe);
    // Tables by name: [key.NAME]; each file adds to those of its base.
    void named(const char* key, const char* name,
               const std::function<void(Keys&, const std::string&)>& describe);
    // A list of tables: [[key]]; replaces that of the base.
    template <class Item>
    void list(const char* key, std::vector<Item>& items, void (*describe)(Keys&, Item&)) {
        Item sample;
        list_rows(key, [&](Keys& keys) { describe(keys, sample); });
        const toml::node* node = claim(key);
        if (node == nullptr) return;
        if (!node->is_array()) fail(*node, key, "a list of tables");
        items.clear();
        for (const toml::node& content : *node->as_array()) {
            read(key, content, [&](Keys& keys) { describe(keys, items.emplace_back()); });
        }
    }

    void finish() const;  // refuses what no key has claimed
    std::string reference() const { return rows_ + sections_; }

  private:
    template <class T>
    static constexpr bool is_whole = std::is_integral_v<T> && !std::is_same_v<T, bool>;

    template <class T>
    static Range narrowed(Range range) {
        using Limits = std::numeric_limits<T>;
        if (std::cmp_less(range.least, Limits::min())) range.least = Limits::min();
        if (std::cmp_greater(range.most, Limits::max()))
            range.most = static_cast<std::int64_t>(Limits::max());
        return range;
    }

    template <class T>
    static std::string accepts(const T& field, Range range) {
        if constexpr (std::is_same_v<T, Word>) {
            return field.accepts;
        } else if constexpr (std::is_same_v<T, bool>) {
            return "true or false";
        } else if constexpr (is_whole<T>) {
            range = narrowed<T>(range);
            return std::to_string(range.least) + " to " + std::to_string(range.most);
        } else if constexpr (std::is_same_v<T, double>) {
            return "0 to 1e9";
        } else if constexpr (std::is_same_v<T, std::string>) {
            return "text";
        } else if constexpr (std::is_same_v<T, UnixTime>) {
            return "date and time, such as 2026-11-23T08:00:00Z";
        } else {
            return "list of " + accepts(typename T::value_type{}, range);
        }
    }

    template <class T>
    static std::string preset(const T& field) {
        std::ostringstream text;
        if constexpr (std::is_same_v<T, Word>) {
            text << field.preset;
        } else if constexpr (std::is_same_v<T, bool>) {
            text << (field ? "true" : "false");
        } else if constexpr (std::is_arithmetic_v<T>) {
            text << +field;
        } else if constexpr (std::is_same_v<T, std::string>) {
            text << '"' << field << '"';
        } else if constexpr (!std::is_same_v<T, UnixTime>) {
            text << "[]";
        }
        return text.str();
    }

    // False when the file says something else than the field accepts.
    template <class T>
    static bool assign(const toml::node& node, T& field, Range range) {
        if constexpr (std::is_same_v<T, Word>) {
            const auto value = node.value_exact<std::string>();
            return value && field.set(*value);
        } else if constexpr (is_whole<T>) {
            range = narrowed<T>(range);
            const auto value = node.value_exact<std::int64_t>();
            if (!value || *value < range.least || *value > range.most) return false;
            field = static_cast<T>(*value);
        } else if constexpr (std::is_same_v<T, double>) {
            const auto value = node.is_number() ? node.value<double>() : std::nullopt;
            if (!value || !(*value >= 0 && *value <= 1e9)) return false;
            field = *value;
        } else if constexpr (std::is_same_v<T, UnixTime>) {
            const auto value = node.value_exact<toml::date_time>();
            if (!value) return false;
            field = to_unix_time(*value);
        } else if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, std::string>) {
            const auto value = node.value_exact<T>();
            if (!value) return false;
            field = *value;
        } else {
            if (!node.is_array()) return false;
            field.clear();
            for (const toml::node& element : *node.as_array()) {
                typename T::value_type value{};
                if (!assign(element, value, range)) return false;
                field.insert(field.end(), value);
            }
        }
        return true;
    }

    static UnixTime to_unix_time(const toml::date_time& time);
    const toml::node* claim(const char* key);
    void row(const char* name, const std::string& accepted, const std::string& preset,
             const char* meaning);
    void list_rows(const char* key, const Section& describe);
    void section_rows(const std::string& title, const std::string& key, const Section& describe);
    void read(const char* key, const toml::node& node, const Section& describe);
    [[noreturn]] void fail(const toml::node& node, const char* key,
                           const std::string& accepted) const;

    const toml::table* table_;
    std::string file_, path_;
    std::string rows_, sections_;  // of the reference; the sections follow the keys
    std::set<std::string> claimed_;
};

template <class Choice>
Word one_of(Choice& field, std::initializer_list<std::pair<const char*, Choice>> words) {
    Word word;
    const std::vector<std::pair<std::string, Choice>> choices(words.begin(), words.end());
    for (const auto& [text, meant] : choices) {
        word.accepts += (word.accepts.empty() ? "\"" : ", \"") + text + "\"";
        if (meant == field) word.preset = "\"" + text + "\"";
    }
    word.set = [&field, choices](const std::string& said) {
        for (const auto& [text, meant] : choices) {
            if (text == said) field = meant;
            if (text == said) return true;
        }
        return false;
    };
    return word;
}

// What is wrong with a scenario: file, line, and the words that would have been accepted.
class ScenarioError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The keys of a board. `folder` is that of the file, for the files that it names.
void describe(Keys& keys, Board& board, const std::string& folder);

}  // namespace sim
