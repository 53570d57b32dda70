#include "sim/keys.h"

#include <ctime>

namespace sim {
namespace {

[[noreturn]] void fail_at(const toml::source_region& where, const std::string& file,
                          const std::string& what) {
    throw ScenarioError(file + ":" + std::to_string(where.begin.line) + ": " + what);
}

}  // namespace

Keys::Keys(const toml::table* table, std::string file, const std::string& title, std::string path)
    : table_(table), file_(std::move(file)), path_(std::move(path)) {
    if (!title.empty()) rows_ += "\n### `" + title + "`\n";
    rows_ += "\n| key | takes | preset | meaning |\n|---|---|---|---|\n";
}

void Keys::table(const char* key, const Section& describe) {
    section_rows("[" + path_ + key + "]", key, describe);
    const toml::node* node = claim(key);
    if (node != nullptr) read(key, *node, describe);
}

void Keys::named(const char* key, const char* name,
                 const std::function<void(Keys&, const std::string&)>& describe) {
    if (table_ == nullptr) {
        const std::string entry = std::string(key) + "." + name;
        section_rows("[" + path_ + entry + "]", entry, [&](Keys& keys) { describe(keys, name); });
    }
    const toml::node* node = claim(key);
    if (node == nullptr) return;
    if (!node->is_table()) fail(*node, key, std::string("tables by ") + name);
    for (const auto& [entry, content] : *node->as_table()) {
        const std::string which(entry.str());
        read(key, content, [&](Keys& keys) { describe(keys, which); });
    }
}

void Keys::finish() const {
    for (const auto& [key, node] : *table_) {
        const std::string word(key.str());
        if (claimed_.count(word) != 0) continue;
        std::string text = "unknown key \"" + word + "\"; accepted here";
        const char* separator = ": ";
        for (const std::string& each : claimed_) {
            text.append(separator).append(each);
            separator = ", ";
        }
        fail_at(key.source(), file_, text);
    }
}

UnixTime Keys::to_unix_time(const toml::date_time& time) {
    std::tm broken_down{};
    broken_down.tm_year = time.date.year - 1900;
    broken_down.tm_mon = time.date.month - 1;
    broken_down.tm_mday = time.date.day;
    broken_down.tm_hour = time.time.hour;
    broken_down.tm_min = time.time.minute;
    broken_down.tm_sec = time.time.second;
    return {timegm(&broken_down) - (time.offset ? time.offset->minutes * 60 : 0)};
}

const toml::node* Keys::claim(const char* key) {
    claimed_.insert(key);
    return table_ == nullptr ? nullptr : table_->get(key);
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
    Keys sub(nullptr, file_, title, path_ + key + ".");
    describe(sub);
    sections_ += sub.reference();
}

void Keys::read(const char* key, const toml::node& node, const Section& describe) {
    if (!node.is_table()) fail(node, key, "a table");
    Keys sub(node.as_table(), file_);
    describe(sub);
    sub.finish();
}

void Keys::fail(const toml::node& node, const char* key, const std::string& accepted) const {
    fail_at(node.source(), file_, std::string(key) + " takes " + accepted);
}

}  // namespace sim
