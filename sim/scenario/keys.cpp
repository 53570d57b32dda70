#include "sim/scenario/keys.h"

#include <fnmatch.h>

#include <algorithm>
#include <sstream>

namespace sim {
namespace {

// The value in the file, for a message.
std::string shown(const Node& node) {
    if (const auto* text = node.as<std::string>()) return " and not \"" + *text + "\"";
    if (const auto* whole = node.as<std::int64_t>()) return " and not " + std::to_string(*whole);
    return "";
}

}  // namespace

Codec word(std::string accepts, std::string preset, std::function<bool(const std::string&)> set) {
    return {std::move(accepts), std::move(preset), [set = std::move(set)](const Node& node) {
                const auto* text = node.as<std::string>();
                return text != nullptr && set(*text);
            }};
}

Codec codec(bool& field, Range) {
    return {"true or false", field ? "true" : "false", [&field](const Node& node) {
                const auto* value = node.as<bool>();
                if (value != nullptr) field = *value;
                return value != nullptr;
            }};
}

Codec codec(double& field, Range) {
    std::ostringstream preset;
    preset << field;
    return {"0 to 1e9", preset.str(), [&field](const Node& node) {
                const auto* whole = node.as<std::int64_t>();
                const auto* value = node.as<double>();
                if (whole == nullptr && value == nullptr) return false;
                field = whole != nullptr ? static_cast<double>(*whole) : *value;
                return field >= 0 && field <= 1e9;
            }};
}

Codec codec(std::string& field, Range range) {
    const bool limited = range.most != INT64_MAX;
    return {limited ? "text of at most " + std::to_string(range.most) + " bytes" : "text",
            "\"" + field + "\"", [&field, range](const Node& node) {
                const auto* text = node.as<std::string>();
                if (text == nullptr || std::cmp_greater(text->size(), range.most)) return false;
                field = *text;
                return true;
            }};
}

Codec codec(UnixTime& field, Range) {
    return {"date and time, such as 2026-11-23T08:00:00Z", "", [&field](const Node& node) {
                const auto* time = node.as<UnixTime>();
                if (time != nullptr) field = *time;
                return time != nullptr;
            }};
}

Codec whole_number(Range range, std::int64_t preset, std::function<void(std::int64_t)> set) {
    return {std::to_string(range.least) + " to " + std::to_string(range.most),
            std::to_string(preset), [range, set = std::move(set)](const Node& node) {
                const auto* value = node.as<std::int64_t>();
                if (value == nullptr || *value < range.least || *value > range.most) return false;
                set(*value);
                return true;
            }};
}

bool matches(std::string_view patterns, const std::string& name) {
    while (!patterns.empty()) {
        const std::string pattern(patterns.substr(0, patterns.find(' ')));
        if (::fnmatch(pattern.c_str(), name.c_str(), FNM_PATHNAME) == 0) return true;
        patterns.remove_prefix(std::min(patterns.size(), pattern.size() + 1));
    }
    return false;
}

Keys::Keys(const Node* table, std::string folder, Moment moment)
    : table_(table), folder_(std::move(folder)), moment_(moment) {}

void Keys::key(const char* name, const Codec& codec, const char* meaning) {
    if (table_ == nullptr)
        rows_ += std::string("| `") + name + "` | " + codec.accepts + " | " + codec.preset + " | "
                 + meaning + " |\n";
    const Node* node = claim(name);
    if (node != nullptr && !codec.read(*node)) refuse(*node, name, codec.accepts);
}

void Keys::one_of(std::initializer_list<const char*> keys) const {
    const char* said = nullptr;
    for (const char* key : keys) {
        const Node* node = find(key);
        if (node == nullptr) continue;
        if (said != nullptr) throw ScenarioError(node->place + ": " + key + " contradicts " + said);
        said = key;
    }
}

void Keys::start_only(std::initializer_list<const char*> keys) const {
    for (const char* key : keys) {
        const Node* node = moment_ == Moment::later ? find(key) : nullptr;
        if (node != nullptr) throw ScenarioError(node->place + ": " + key + " cannot change");
    }
}

void Keys::only_if(bool says_so, std::initializer_list<const char*> keys, const char* why) const {
    for (const char* key : keys) {
        const Node* node = find(key);
        if (!says_so && node != nullptr)
            throw ScenarioError(node->place + ": " + key + " has no meaning without " + why);
    }
}

std::string Keys::place_of(const char* key, std::ptrdiff_t item) const {
    const Node* node = find(key);
    if (node == nullptr) return place();
    const auto* items = node->as<Node::List>();
    const bool has_item = items != nullptr && item < std::ssize(*items);
    return has_item ? (*items)[static_cast<std::size_t>(item)].place : node->place;
}

void Keys::table(const char* key, const Section& describe) {
    add_section("[" + path_ + key + "]", key, describe);
    const Node* node = claim(key);
    if (node != nullptr) read(key, *node, describe);
}

Node::List Keys::nodes(const char* key, std::size_t most, const Section& describe) {
    add_section("[[" + path_ + key + "]]", key, describe);
    const Node* node = claim(key);
    if (node == nullptr) return {};
    const auto* contents = node->as<Node::List>();
    if (contents == nullptr) refuse(*node, key, "a list of tables");
    for (const Node& content : *contents)
        if (content.as<Node::Table>() == nullptr) refuse(content, key, "a table");
    if (contents->size() > most)
        throw ScenarioError((*contents)[most].place + ": more than " + std::to_string(most) + " "
                            + key);
    return *contents;
}

Node::Table Keys::named_tables(const char* key, const Names& names) {
    const Node* node = claim(key);
    if (node == nullptr) return {};
    const auto* entries = node->as<Node::Table>();
    if (entries == nullptr) refuse(*node, key, std::string("tables by ") + names.row);
    for (const auto& [name, content] : *entries)
        if (!matches(names.patterns, name)) refuse_name(content, key, name, names.patterns);
    return *entries;
}

std::string Keys::reference() const {
    return "\n| key | takes | preset | meaning |\n|---|---|---|---|\n" + rows_ + sections_;
}

void Keys::finish() const {
    for (const auto& [key, node] : *table_->as<Node::Table>()) {
        if (claimed_.count(key) != 0) continue;
        std::string text = "unknown key \"" + key + "\"; accepted here";
        const char* separator = ": ";
        for (const std::string& known : claimed_) {
            text.append(separator).append(known);
            separator = ", ";
        }
        throw ScenarioError(node.place + ": " + text);
    }
}

const Node* Keys::find(const char* key) const {
    if (table_ == nullptr) return nullptr;
    const auto* entries = table_->as<Node::Table>();
    const auto found = entries->find(key);
    return found == entries->end() ? nullptr : &found->second;
}

const Node* Keys::claim(const char* key) {
    claimed_.insert(key);
    return find(key);
}

// Only for the reference: the section then works on the presets of the fields.
void Keys::add_section(const std::string& title, const std::string& key, const Section& describe) {
    if (table_ != nullptr) return;
    Keys sub(nullptr);
    sub.path_ = path_ + key + ".";
    describe(sub);
    sections_ += "\n### `" + title + "`\n" + sub.reference();
}

void Keys::read(const char* key, const Node& node, const Section& describe) {
    if (node.as<Node::Table>() == nullptr) refuse(node, key, "a table");
    Keys sub(&node, folder_, moment_);
    describe(sub);
    sub.finish();
}

void Keys::refuse(const Node& node, const std::string& key, const std::string& accepted) {
    throw ScenarioError(node.place + ": " + key + " takes " + accepted + shown(node));
}

void Keys::refuse_name(const Node& node, const char* key, const std::string& name,
                       const char* accepted) {
    throw ScenarioError(node.place + ": " + key + " takes " + accepted + " and not \"" + name
                        + "\"");
}

}  // namespace sim
