// The keys of a scenario: described once, they are read from a file and listed for the reference.
#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/scenario/node.h"

namespace sim {

struct Range {  // of whole numbers, narrower than the field's type; of texts, their size
    std::int64_t least = INT64_MIN, most = INT64_MAX;
};

// How a field stands in a scenario.
struct Codec {
    std::string accepts, preset;            // for the reference and for messages
    std::function<bool(const Node&)> read;  // sets the field; false = it does not accept this
};

// A text with a meaning of its own: the setter returns whether it accepts it.
Codec word(std::string accepts, std::string preset, std::function<bool(const std::string&)> set);

// A double is 0 or more; one value is a list of one.
Codec codec(bool& field, Range);
Codec codec(double& field, Range);
Codec codec(std::string& field, Range);
Codec codec(UnixTime& field, Range);
Codec whole_number(Range range, std::int64_t preset, std::function<void(std::int64_t)> set);

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
    const auto read = [&field, range](const Node& node) {
        const auto* items = node.as<Node::List>();
        field.clear();
        for (const Node& item : items != nullptr ? *items : Node::List{node}) {
            typename List::value_type value{};
            if (!codec(value, range).read(item)) return false;
            field.insert(field.end(), value);
        }
        return true;
    };
    return {"list of " + codec(sample, range).accepts, "[]", read};
}

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

    // `folder` is that of the scenario file, for the files that it names; it ends with "/". Without
    // a table nothing is read, and the reference is written.
    explicit Keys(const Node* table, std::string folder = "", Moment moment = Moment::start);

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
    // The keys that have a meaning only where another one says so, with the reason.
    void only_if(bool says_so, std::initializer_list<const char*> keys, const char* why) const;

    // A table: [key]
    void table(const char* key, const Section& describe);
    template <class Item>
    void table(const char* key, Item& item, void (*describe)(Keys&, Item&)) {
        table(key, [&](Keys& keys) { describe(keys, item); });
    }
    // Tables by name: [key.NAME]; each file adds to those of its base, a change to none.
    template <class Item, class Describe>
    void named(const char* key, const Names& names, std::map<std::string, Item>& items,
               Describe describe) {
        Item sample;
        add_section("[" + path_ + key + "." + names.row + "]", std::string(key) + "." + names.row,
                    [&](Keys& keys) { describe(keys, sample); });
        for (const auto& [name, content] : named_tables(key, names)) {
            if (moment_ == Moment::later && items.count(name) == 0)
                refuse_name(content, key, name, "what the start describes");
            Item& item = items[name];
            read(key, content, [&](Keys& keys) { describe(keys, item); });
        }
    }
    // A list of tables: [[key]]; replaces that of the base.
    template <class Item>
    void list(const char* key, std::vector<Item>& items, void (*describe)(Keys&, Item&),
              std::size_t most = SIZE_MAX) {
        Item sample;
        const auto tables = nodes(key, most, [&](Keys& keys) { describe(keys, sample); });
        if (says(key)) items.clear();
        for (const Node& content : tables)
            read(key, content, [&](Keys& keys) { describe(keys, items.emplace_back()); });
    }
    // The same, unread: the tables themselves. `describe` is for the reference.
    Node::List nodes(const char* key, std::size_t most, const Section& describe);

    // Where the table, or the n-th item of a list in it, is said.
    std::string place() const { return table_ == nullptr ? "" : table_->place; }
    std::string place_of(const char* key, std::ptrdiff_t item = 0) const;
    const std::string& folder() const { return folder_; }
    void finish() const;  // refuses what no key has claimed
    std::string reference() const;

  private:
    const Node* find(const char* key) const;
    const Node* claim(const char* key);
    void add_section(const std::string& title, const std::string& key, const Section& describe);
    Node::Table named_tables(const char* key, const Names& names);
    void read(const char* key, const Node& node, const Section& describe);
    [[noreturn]] static void refuse(const Node& node, const std::string& key,
                                    const std::string& accepted);
    [[noreturn]] static void refuse_name(const Node& node, const char* key, const std::string& name,
                                         const char* accepted);

    const Node* table_;
    std::string folder_;
    Moment moment_;
    std::string path_;             // in the reference: "usb."
    std::string rows_, sections_;  // of the reference; the sections follow the keys
    std::set<std::string> claimed_;
};

template <class Choice>
Codec choice(Choice& field, std::initializer_list<std::pair<const char*, Choice>> words) {
    std::string accepts, preset;
    const std::map<std::string, Choice> choices(words.begin(), words.end());
    for (const auto& [text, meant] : words) {
        accepts += (accepts.empty() ? "\"" : ", \"") + std::string(text) + "\"";
        if (meant == field) preset = "\"" + std::string(text) + "\"";
    }
    return word(accepts, preset, [&field, choices](const std::string& said) {
        const auto found = choices.find(said);
        if (found != choices.end()) field = found->second;
        return found != choices.end();
    });
}

}  // namespace sim
