#include "sim/scenario/keys.h"

#include <fnmatch.h>

#include <algorithm>

namespace sim {
namespace {

// A value as the file says it, for a message.
std::string shown(const Node& node) {
    if (const auto* text = node.as<std::string>()) return " and not \"" + *text + "\"";
    if (const auto* whole = node.as<std::int64_t>()) return " and not " + std::to_string(*whole);
    return "";
}

}  // namespace

bool matches(std::string_view patterns, const std::string& name) {
    while (!patterns.empty()) {
        const std::string pattern(patterns.substr(0, patterns.find(' ')));
        if (::fnmatch(pattern.c_str(), name.c_str(), FNM_PATHNAME) == 0) return true;
        patterns.remove_prefix(std::min(patterns.size(), pattern.size() + 1));
    }
    return false;
}

Keys::Keys(const Node* table, Moment moment, const std::string& title, std::string path)
    : table_(table), moment_(moment), path_(std::move(path)) {
    if (table_ != nullptr) return;
    if (!title.empty()) rows_ += "\n### `" + title + "`\n";
    rows_ += "\n| key | takes | preset | meaning |\n|---|---|---|---|\n";
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
    section_rows("[" + path_ + key + "]", key, describe);
    const Node* node = claim(key);
    if (node != nullptr) read(key, *node, describe);
}

void Keys::nodes(const char* key, std::vector<Node>& items, std::size_t most,
                 const Section& describe) {
    if (table_ == nullptr) list_rows(key, describe);
    const Node* node = claim(key);
    if (node == nullptr) return;
    const auto* contents = node->as<Node::List>();
    if (contents == nullptr) refuse(*node, key, "a list of tables");
    for (const Node& content : *contents) {
        if (content.as<Node::Table>() == nullptr) refuse(content, key, "a table");
        if (items.size() == most) refuse_more(content, key, most);
        items.push_back(content);
    }
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

void Keys::row(const char* name, const std::string& accepted, const std::string& preset,
               const char* meaning) {
    rows_ +=
        std::string("| `") + name + "` | " + accepted + " | " + preset + " | " + meaning + " |\n";
}

void Keys::list_rows(const char* key, const Section& describe) {
    section_rows("[[" + path_ + key + "]]", key, describe);
}

// Only where nothing is read, since the section then works on the fields' presets.
void Keys::section_rows(const std::string& title, const std::string& key, const Section& describe) {
    if (table_ != nullptr) return;
    Keys sub(nullptr, moment_, title, path_ + key + ".");
    describe(sub);
    sections_ += sub.reference();
}

void Keys::read(const char* key, const Node& node, const Section& describe) {
    if (node.as<Node::Table>() == nullptr) refuse(node, key, "a table");
    Keys sub(&node, moment_);
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

void Keys::refuse_more(const Node& node, const char* key, std::size_t most) {
    throw ScenarioError(node.place + ": more than " + std::to_string(most) + " " + key);
}

}  // namespace sim
