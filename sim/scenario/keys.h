// The keys of a scenario: described once, they are read from a file and listed for the reference.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "sim/scenario/node.h"

namespace sim {

// A text with a meaning of its own: the setter returns whether it accepts it.
struct Word {
    std::string accepts, preset;
    std::function<bool(const std::string&)> set;
};

struct Range {  // of whole numbers, narrower than the field's type; of texts, their size
    std::int64_t least = INT64_MIN, most = INT64_MAX;
};

// Names of the tables in a table.
struct Names {
    const char* row;       // in the reference: "NODE"
    const char* patterns;  // as of a shell, with blanks between: "sd[a-z] sas*"
};
bool matches(std::string_view patterns, const std::string& name);

// What the keys describe: the board at the start, or how it differs later.
enum class Moment { start, later };

// One table of a scenario. Each call names a key, sets its field from the table where the table has
// it, and adds a row to the reference.
class Keys {
  public:
    using Section = std::function<void(Keys&)>;

    // Without a table nothing is read, and the reference is written; `title` and `path` stand there.
    explicit Keys(const Node* table, Moment moment = Moment::start, const std::string& title = "",
                  std::string path = "");

    // The field's type decides what the file may say; a double is 0 or more, and one value is a list
    // of one.
    template <class T>
    void key(const char* name, T& field, const char* meaning, Range range = {}) {
        if (table_ == nullptr) row(name, accepts(field, range), preset(field), meaning);
        const Node* node = claim(name);
        if (node != nullptr && !assign(*node, field, range))
            refuse(*node, name, accepts(field, range));
    }
    void key(const char* name, Word&& word, const char* meaning) { key<Word>(name, word, meaning); }

    bool says(const char* key) const { return find(key) != nullptr; }
    // The keys that describe the start alone.
    void start_only(std::initializer_list<const char*> keys) const;
    // The keys of which a table says one at most.
    void one_of(std::initializer_list<const char*> keys) const;
    // The keys that have a meaning only where another one says so, with the reason.
    void only_if(bool says_so, std::initializer_list<const char*> keys, const char* why) const;

    // A table: [key]
    void table(const char* key, const Section& describe);
    // Tables by name: [key.NAME]; each file adds to those of its base, a change to none.
    template <class Item, class Describe>
    void named(const char* key, const Names& names, std::map<std::string, Item>& items,
               Describe describe) {
        if (table_ == nullptr) {
            Item sample;
            section_rows("[" + path_ + key + "." + names.row + "]",
                         std::string(key) + "." + names.row,
                         [&](Keys& keys) { describe(keys, sample); });
        }
        const Node* node = claim(key);
        if (node == nullptr) return;
        const auto* entries = node->as<Node::Table>();
        if (entries == nullptr) refuse(*node, key, std::string("tables by ") + names.row);
        for (const auto& entry : *entries) {
            const std::string& name = entry.first;
            const Node& content = entry.second;
            if (!matches(names.patterns, name)) refuse_name(content, key, name, names.patterns);
            if (moment_ == Moment::later && items.count(name) == 0)
                refuse_name(content, key, name, "what the start describes");
            read(key, content, [&](Keys& keys) { describe(keys, items[name]); });
        }
    }
    // A list of tables: [[key]]; replaces that of the base.
    template <class Item>
    void list(const char* key, std::vector<Item>& items, void (*describe)(Keys&, Item&),
              std::size_t most = SIZE_MAX) {
        if (table_ == nullptr) {
            Item sample;
            list_rows(key, [&](Keys& keys) { describe(keys, sample); });
        }
        const Node* node = claim(key);
        if (node == nullptr) return;
        const auto* contents = node->as<Node::List>();
        if (contents == nullptr) refuse(*node, key, "a list of tables");
        items.clear();
        for (const Node& content : *contents) {
            if (items.size() == most) refuse_more(content, key, most);
            read(key, content, [&](Keys& keys) { describe(keys, items.emplace_back()); });
        }
    }

    // The same, unread: the tables themselves. `describe` writes the reference.
    void nodes(const char* key, std::vector<Node>& items, std::size_t most,
               const Section& describe);

    // Where the table, or the n-th item of a list in it, is said.
    std::string place() const { return table_ == nullptr ? "" : table_->place; }
    std::string place_of(const char* key, std::ptrdiff_t item = 0) const;
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
            const bool limited = range.most != INT64_MAX;
            return limited ? "text of at most " + std::to_string(range.most) + " bytes" : "text";
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
    static bool assign(const Node& node, T& field, Range range) {
        if constexpr (std::is_same_v<T, Word>) {
            const auto* value = node.as<std::string>();
            return value != nullptr && field.set(*value);
        } else if constexpr (is_whole<T>) {
            range = narrowed<T>(range);
            const auto* value = node.as<std::int64_t>();
            if (value == nullptr || *value < range.least || *value > range.most) return false;
            field = static_cast<T>(*value);
        } else if constexpr (std::is_same_v<T, double>) {
            const auto* whole = node.as<std::int64_t>();
            const auto* value = node.as<double>();
            if (whole == nullptr && value == nullptr) return false;
            const double number = whole != nullptr ? static_cast<double>(*whole) : *value;
            if (!(number >= 0 && number <= 1e9)) return false;
            field = number;
        } else if constexpr (std::is_same_v<T, std::string>) {
            const auto* value = node.as<std::string>();
            if (value == nullptr || std::cmp_greater(value->size(), range.most)) return false;
            field = *value;
        } else if constexpr (std::is_same_v<T, UnixTime> || std::is_same_v<T, bool>) {
            const auto* value = node.as<T>();
            if (value == nullptr) return false;
            field = *value;
        } else {
            const auto* items = node.as<Node::List>();
            field.clear();
            for (const Node& item : items != nullptr ? *items : Node::List{node}) {
                typename T::value_type value{};
                if (!assign(item, value, range)) return false;
                field.insert(field.end(), value);
            }
        }
        return true;
    }

    const Node* find(const char* key) const;
    const Node* claim(const char* key);
    void row(const char* name, const std::string& accepted, const std::string& preset,
             const char* meaning);
    void list_rows(const char* key, const Section& describe);
    void section_rows(const std::string& title, const std::string& key, const Section& describe);
    void read(const char* key, const Node& node, const Section& describe);
    [[noreturn]] static void refuse(const Node& node, const std::string& key,
                                    const std::string& accepted);
    [[noreturn]] static void refuse_name(const Node& node, const char* key, const std::string& name,
                                         const char* accepted);
    [[noreturn]] static void refuse_more(const Node& node, const char* key, std::size_t most);

    const Node* table_;
    Moment moment_;
    std::string path_;
    std::string rows_, sections_;  // of the reference; the sections follow the keys
    std::set<std::string> claimed_;
};

template <class Choice>
Word choice(Choice& field, std::initializer_list<std::pair<const char*, Choice>> words) {
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

}  // namespace sim
