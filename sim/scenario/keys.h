// The keys of a scenario: described once, they are read from a file and listed for the reference.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/time.h"

namespace toml {  // keys.cpp alone compiles toml++
inline namespace v3 {
class node;
class table;
}  // namespace v3
}  // namespace toml

namespace sim {

class Keys;

// An error in a scenario: file, line, and what would have been accepted.
class ScenarioError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A table of a scenario file. It keeps the whole file.
using Table = std::shared_ptr<const toml::table>;

// `file` is the name in the places, such as "board.toml:12". Throws ScenarioError.
Table parse_toml(const std::string& text, const std::string& file);

struct Range {  // of whole numbers, narrower than the field's type; of texts, their size
    std::int64_t least = INT64_MIN, most = INT64_MAX;
};

// How a field stands in a scenario.
struct Codec {
    std::string accepts, preset;                  // for the reference and for messages
    std::function<bool(const toml::node&)> read;  // sets the field; false = it does not accept this
};

// A text with a meaning of its own: the setter returns whether it accepts it.
Codec word(std::string accepts, std::string preset, std::function<bool(const std::string&)> set);
Codec hexadecimal(std::string& bytes, std::size_t most = SIZE_MAX);
// The content of a file in this folder.
Codec from_file(const std::string& folder, std::string& bytes, std::size_t most);

// A double is 0 or more; one value is a list of one.
Codec codec(bool& field, Range);
Codec codec(double& field, Range);
Codec codec(std::string& field, Range);
Codec codec(UnixTime& field, Range);
Codec whole_number(Range range, std::int64_t preset, std::function<void(std::int64_t)> set);
std::vector<const toml::node*> items_of(const toml::node& list);

template <std::integral T>
Codec codec(T& field, Range range) {
    using Limits = std::numeric_limits<T>;
    if (std::cmp_less(range.least, Limits::min())) range.least = Limits::min();
    if (std::cmp_greater(range.most, Limits::max()))
        range.most = static_cast<std::int64_t>(Limits::max());
    return whole_number(range, static_cast<std::int64_t>(field),
                        [&field](std::int64_t value) { field = static_cast<T>(value); });
}

template <class List>
requires requires(List list) { list.insert(list.end(), *list.begin()); }
Codec codec(List& field, Range range) {
    typename List::value_type sample{};
    const auto read = [&field, range](const toml::node& node) {
        field.clear();
        for (const toml::node* item : items_of(node)) {
            typename List::value_type value{};
            if (!codec(value, range).read(*item)) return false;
            field.insert(field.end(), value);
        }
        return true;
    };
    return {"list of " + codec(sample, range).accepts, "[]", read};
}

template <class Choice>
Codec choice(Choice& field, const std::vector<std::pair<std::string, Choice>>& choices) {
    std::string accepts, preset;
    for (const auto& [text, meant] : choices) {
        accepts += (accepts.empty() ? "\"" : ", \"") + text + "\"";
        if (meant == field) preset = "\"" + text + "\"";
    }
    return word(accepts, preset, [&field, choices](const std::string& said) {
        const auto found = std::find_if(choices.begin(), choices.end(),
                                        [&](const auto& each) { return each.first == said; });
        if (found != choices.end()) field = found->second;
        return found != choices.end();
    });
}

// Names of the tables in a table.
struct Names {
    const char* row;       // in the reference: "NODE"
    const char* patterns;  // as of a shell, with blanks between: "sd[a-z] sas*"
};
bool matches(std::string_view patterns, const std::string& name);

// The function describe(Keys&, Item&) that stands beside the type of an item.
struct Description {
    void operator()(Keys& keys, auto& item) const { describe(keys, item); }
};

// One table of a scenario. Each call names a key, sets its field from the table where the table has
// it, and adds a row to the reference.
class Keys {
  public:
    // `folder` is that of the scenario file, for the files that it names; it ends with "/". Without
    // a table nothing is read, and the reference is written.
    explicit Keys(Table table, std::string folder = "")
        : table_(std::move(table)), folder_(std::move(folder)) {}

    // The field's type decides what the file may say.
    template <class T>
    void key(const char* name, T& field, const char* meaning, Range range = {}) {
        key(name, codec(field, range), meaning);
    }
    void key(const char* name, const Codec& codec, const char* meaning);

    bool says(const char* key) const { return find(key) != nullptr; }
    // The keys that describe the start alone.
    void start_only(std::initializer_list<const char*> keys) const;
    // The keys of which a table says one at most.
    void one_of(std::initializer_list<const char*> keys) const;
    // A key that has a meaning only with this.
    void only_if(bool condition, const char* key, const char* with) const;
    // A list whose items do not come in the order of their times.
    template <class Item>
    void ascending(const char* key, const std::vector<Item>& items) const {
        const auto earlier = [](const Item& one, const Item& other) { return one.at < other.at; };
        const auto wrong = std::is_sorted_until(items.begin(), items.end(), earlier);
        if (wrong == items.end()) return;
        refuse(key,
               std::string(key) + " take ascending times: at " + std::to_string(wrong->at)
                   + " comes after at " + std::to_string(std::prev(wrong)->at),
               wrong - items.begin());
    }
    // Refuses what the table says under the key, or the n-th item of its list.
    [[noreturn]] void refuse(const char* key, const std::string& why,
                             std::ptrdiff_t item = -1) const;
    void finish() const;  // refuses what no key has claimed

    // A table: [key]
    template <class Item, class Describe = Description>
    void table(const char* key, Item& item, Describe describe = {}) {
        if (const auto content = claim_table(key))
            section(1, key, *content, [&](Keys& keys) { describe(keys, item); });
    }
    // Tables by name: [key.NAME]; each file adds to those of its base, a change to none.
    template <class Map, class Describe = Description>
    void named(const char* key, const Names& names, Map& items, Describe describe = {}) {
        typename Map::mapped_type sample;
        const auto known = [&](const std::string& name) { return items.count(name) != 0; };
        for (const auto& [name, content] : claim_named(key, names, known)) {
            auto& item = content == nullptr ? sample : items[name];
            section(1, std::string(key) + "." + name, content,
                    [&](Keys& keys) { describe(keys, item); });
        }
    }
    // A list of tables: [[key]]; replaces that of the base.
    template <class Item, class Describe = Description>
    void list(const char* key, std::vector<Item>& items, std::size_t most, Describe describe = {}) {
        if (says(key)) items.clear();
        for (const Table& content : claim_list(key, most))
            section(2, key, content, [&](Keys& keys) { describe(keys, items.emplace_back()); });
    }

    // From now on they describe how the board differs later.
    void describe_later() { is_later_ = true; }
    bool is_reference() const { return table_ == nullptr; }
    const std::string& folder() const { return folder_; }
    std::string place() const;
    std::string reference() const;

  private:
    const toml::node* find(const char* key) const;
    const toml::node* claim(const char* key);
    // The tables under a key; in the reference one, without content.
    std::optional<Table> claim_table(const char* key);
    std::map<std::string, Table> claim_named(const char* key, const Names& names,
                                             const std::function<bool(const std::string&)>& known);
    std::vector<Table> claim_list(const char* key, std::size_t most);
    Table content_of(const toml::node& node, const char* key) const;
    // Reads a table, or adds it to the reference, with so many brackets around its title.
    void section(std::size_t brackets, const std::string& key, const Table& content,
                 const std::function<void(Keys&)>& describe);

    Table table_;
    std::string folder_;
    bool is_later_ = false;
    std::string path_;             // in the reference: "usb."
    std::string rows_, sections_;  // of the reference; the sections follow the keys
    std::set<std::string> claimed_;
};

}  // namespace sim
