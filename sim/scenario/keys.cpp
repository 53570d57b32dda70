#include "sim/scenario/keys.h"

#include <fnmatch.h>
#include <toml++/toml.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <sstream>

namespace sim {
namespace {

std::string place_of(const toml::node& node) {
    return *node.source().path + ":" + std::to_string(node.source().begin.line);
}

[[noreturn]] void refuse_node(const toml::node& node, const std::string& why) {
    throw ScenarioError(place_of(node) + ": " + why);
}

std::string shown_text(const std::string& text) { return " and not \"" + text + "\""; }

// The value in the file, for a message.
std::string shown(const toml::node& node) {
    if (const auto text = node.value_exact<std::string>()) return shown_text(*text);
    if (const auto whole = node.value_exact<std::int64_t>())
        return " and not " + std::to_string(*whole);
    return "";
}

template <class T>
bool assign(T& field, const std::optional<T>& value) {
    if (value) field = *value;
    return value.has_value();
}

UnixTime to_unix_time(const toml::date_time& time) {
    using namespace std::chrono;
    const sys_days day(year(time.date.year) / time.date.month / time.date.day);
    const minutes offset(time.offset ? time.offset->minutes : 0);
    return {(day.time_since_epoch() + hours(time.time.hour) + minutes(time.time.minute)
             + seconds(time.time.second) - offset)
                .count()};
}

bool set_bytes(std::string& bytes, std::string digits) {
    std::erase(digits, ' ');
    if (digits.size() % 2 != 0
        || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return false;
    }
    bytes.clear();
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return true;
}

}  // namespace

Table parse_toml(const std::string& text, const std::string& file) {
    try {
        return std::make_shared<const toml::table>(toml::parse(text, file));
    } catch (const toml::parse_error& error) {
        throw ScenarioError(file + ":" + std::to_string(error.source().begin.line) + ": "
                            + std::string(error.description()));
    }
}

Codec word(std::string accepts, std::string preset, std::function<bool(const std::string&)> set) {
    return {std::move(accepts), std::move(preset), [set = std::move(set)](const toml::node& node) {
                const auto text = node.value_exact<std::string>();
                return text && set(*text);
            }};
}

Codec hexadecimal(std::string& bytes, std::size_t most) {
    std::string accepts = "bytes in hexadecimal, such as \"FF 07\"";
    if (most != SIZE_MAX) accepts += ", at most " + std::to_string(most);
    return word(accepts, "\"\"", [&bytes, most](const std::string& text) {
        return set_bytes(bytes, text) && bytes.size() <= most;
    });
}

Codec from_file(const std::string& folder, std::string& bytes, std::size_t most) {
    return word("path of a file that can be read, of at most " + std::to_string(most) + " bytes",
                "", [&bytes, folder, most](const std::string& path) {
                    std::ifstream file(folder + path, std::ios::binary);
                    bytes.assign(std::istreambuf_iterator<char>(file), {});
                    return file.is_open() && !file.bad() && bytes.size() <= most;
                });
}

Codec codec(bool& field, Range) {
    return {"true or false", field ? "true" : "false",
            [&field](const toml::node& node) { return assign(field, node.value_exact<bool>()); }};
}

Codec codec(double& field, Range) {
    std::ostringstream preset;
    preset << field;
    return {"0 to 1e9", preset.str(), [&field](const toml::node& node) {
                return node.is_number() && assign(field, node.value<double>()) && field >= 0
                       && field <= 1e9;
            }};
}

Codec codec(std::string& field, Range range) {
    const bool limited = range.most != INT64_MAX;
    return {limited ? "text of at most " + std::to_string(range.most) + " bytes" : "text",
            "\"" + field + "\"", [&field, range](const toml::node& node) {
                return assign(field, node.value_exact<std::string>())
                       && std::cmp_less_equal(field.size(), range.most);
            }};
}

Codec codec(UnixTime& field, Range) {
    return {"date and time, such as 2026-11-23T08:00:00Z", "", [&field](const toml::node& node) {
                const auto time = node.value_exact<toml::date_time>();
                if (time) field = to_unix_time(*time);
                return time.has_value();
            }};
}

Codec whole_number(Range range, std::int64_t preset, std::function<void(std::int64_t)> set) {
    return {std::to_string(range.least) + " to " + std::to_string(range.most),
            std::to_string(preset), [range, set = std::move(set)](const toml::node& node) {
                const auto value = node.value_exact<std::int64_t>();
                if (!value || *value < range.least || *value > range.most) return false;
                set(*value);
                return true;
            }};
}

std::vector<const toml::node*> items_of(const toml::node& node) {
    std::vector<const toml::node*> items;
    if (!node.is_array()) return {&node};
    for (const toml::node& item : *node.as_array())
        items.push_back(&item);
    return items;
}

bool matches(std::string_view patterns, const std::string& name) {
    std::istringstream each{std::string(patterns)};
    for (std::string pattern; each >> pattern;)
        if (::fnmatch(pattern.c_str(), name.c_str(), FNM_PATHNAME) == 0) return true;
    return false;
}

void Keys::key(const char* name, const Codec& codec, const char* meaning) {
    if (is_reference())
        rows_ += std::string("| `") + name + "` | " + codec.accepts + " | " + codec.preset + " | "
                 + meaning + " |\n";
    const toml::node* node = claim(name);
    if (node != nullptr && !codec.read(*node))
        refuse_node(*node, std::string(name) + " takes " + codec.accepts + shown(*node));
}

void Keys::start_only(std::initializer_list<const char*> keys) const {
    for (const char* key : keys)
        if (is_later_ && says(key)) refuse(key, std::string(key) + " cannot change");
}

void Keys::one_of(std::initializer_list<const char*> keys) const {
    const char* said = nullptr;
    for (const char* key : keys) {
        if (!says(key)) continue;
        if (said != nullptr) refuse(key, std::string(key) + " contradicts " + said);
        said = key;
    }
}

void Keys::only_if(bool condition, const char* key, const char* with) const {
    if (!condition && says(key)) refuse(key, std::string(key) + " has no meaning without " + with);
}

void Keys::refuse(const char* key, const std::string& why, std::ptrdiff_t item) const {
    const toml::node& node = *find(key);
    const auto items = items_of(node);
    const bool has_item = item >= 0 && item < std::ssize(items);
    refuse_node(has_item ? *items[static_cast<std::size_t>(item)] : node, why);
}

void Keys::finish() const {
    for (const auto& [key, node] : *table_) {
        if (claimed_.count(std::string(key.str())) != 0) continue;
        std::string text = "unknown key \"" + std::string(key.str()) + "\"; accepted here";
        const char* separator = ": ";
        for (const std::string& known : claimed_)
            text.append(std::exchange(separator, ", ")).append(known);
        refuse_node(node, text);
    }
}

std::string Keys::place() const { return is_reference() ? "" : place_of(*table_); }

std::string Keys::reference() const {
    return "\n| key | takes | preset | meaning |\n|---|---|---|---|\n" + rows_ + sections_;
}

const toml::node* Keys::find(const char* key) const {
    return is_reference() ? nullptr : table_->get(key);
}

const toml::node* Keys::claim(const char* key) {
    claimed_.insert(key);
    return find(key);
}

Table Keys::content_of(const toml::node& node, const char* key) const {
    if (!node.is_table()) refuse_node(node, std::string(key) + " takes a table" + shown(node));
    return {table_, node.as_table()};
}

std::optional<Table> Keys::claim_table(const char* key) {
    const toml::node* node = claim(key);
    if (is_reference()) return Table();
    return node == nullptr ? std::nullopt : std::optional(content_of(*node, key));
}

std::map<std::string, Table> Keys::claim_named(
    const char* key, const Names& names, const std::function<bool(const std::string&)>& known) {
    if (is_reference()) return {{names.row, nullptr}};
    const toml::node* node = claim(key);
    if (node == nullptr) return {};
    const std::string takes = std::string(key) + " takes ";
    if (!node->is_table()) refuse_node(*node, takes + "tables by " + names.row + shown(*node));
    std::map<std::string, Table> tables;
    for (const auto& [name_key, content] : *node->as_table()) {
        const std::string name(name_key.str());
        const char* accepted = matches(names.patterns, name) ? nullptr : names.patterns;
        if (accepted == nullptr && is_later_ && !known(name)) accepted = "what the start describes";
        if (accepted != nullptr) refuse_node(content, takes + accepted + shown_text(name));
        tables.emplace(name, content_of(content, key));
    }
    return tables;
}

std::vector<Table> Keys::claim_list(const char* key, std::size_t most) {
    if (is_reference()) return {nullptr};
    const toml::node* node = claim(key);
    if (node == nullptr) return {};
    if (!node->is_array())
        refuse_node(*node, std::string(key) + " takes a list of tables" + shown(*node));
    std::vector<Table> tables;
    for (const toml::node& content : *node->as_array()) {
        if (tables.size() == most)
            refuse_node(content, "more than " + std::to_string(most) + " " + key);
        tables.push_back(content_of(content, key));
    }
    return tables;
}

void Keys::section(std::size_t brackets, const std::string& key, const Table& content,
                   const std::function<void(Keys&)>& describe) {
    Keys sub(content, folder_);
    sub.is_later_ = is_later_;
    sub.path_ = path_ + key + ".";
    describe(sub);
    if (!is_reference()) return sub.finish();
    sections_ += "\n### `" + std::string(brackets, '[') + path_ + key + std::string(brackets, ']')
                 + "`\n" + sub.reference();
}

}  // namespace sim
