#include "station/index/folder.h"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <vector>

#include "station/journal.h"
#include "station/judge.h"
#include "station/text.h"

namespace station::index {
namespace {

namespace fs = std::filesystem;

// Other writers wait for a commit: it is due after so many attempts or so much time.
constexpr std::size_t kAtOnce = 500;
constexpr auto kAtLongest = std::chrono::milliseconds(200);

// What is older and has no end, or no release, never gets one.
constexpr std::chrono::hours kLongestRun{1}, kLongestRelease{24};

// Collects attempts until a commit is due.
class Batch {
  public:
    Batch(Index& index, FolderResult& result,
          const std::function<void(const std::string&)>& complain)
        : index_(index), result_(result), complain_(complain) {}

    // `copy`, where there is one, is removed after the commit.
    void add(AttemptRecord record, fs::path copy = {}) {
        if (records_.empty()) began_ = std::chrono::steady_clock::now();
        records_.push_back(std::move(record));
        copies_.push_back(std::move(copy));
        if (records_.size() >= kAtOnce || std::chrono::steady_clock::now() - began_ > kAtLongest) {
            commit();
        }
    }

    void commit() {
        if (records_.empty()) return;
        const std::vector<Added> added = index_.add(records_);
        for (std::size_t i = 0; i < added.size(); ++i) {
            if (added[i] == Added::stored) ++result_.stored;
            if (added[i] == Added::known) ++result_.known;
            if (added[i] == Added::conflict) {
                ++result_.problems;
                complain_("the index has another attempt " + records_[i].id);
            } else if (!copies_[i].empty()) {
                std::error_code ignored;  // another process may have removed it
                fs::remove(copies_[i], ignored);
            }
        }
        records_.clear();
        copies_.clear();
    }

  private:
    Index& index_;
    FolderResult& result_;
    const std::function<void(const std::string&)>& complain_;
    std::vector<AttemptRecord> records_;
    std::vector<fs::path> copies_;
    std::chrono::steady_clock::time_point began_;
};

// The entries of a folder by name; none where it cannot be read.
std::vector<fs::path> entries(const fs::path& folder, std::string_view ending = "") {
    std::vector<fs::path> found;
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        if (at->path().native().ends_with(ending)) found.push_back(at->path());
    }
    std::sort(found.begin(), found.end());
    return found;
}

AttemptRecord read_record(const fs::path& path) {
    return from_json(nlohmann::json::parse(read_file(path)));
}

bool is_younger(const fs::path& path, std::chrono::hours age) {
    return fs::file_time_type::clock::now() - fs::last_write_time(path) < age;
}

// What became of an attempt; nothing while it runs, or its verdict can change at the release.
std::optional<AttemptRecord> read_attempt(const fs::path& journal_path) {
    const fs::path judgement = judgement_path(journal_path);
    if (fs::exists(judgement)) {
        const auto object = nlohmann::json::parse(read_file(judgement));
        const bool is_due = object.is_object() && object.value("release", "") == "due";
        if (is_due && is_younger(judgement, kLongestRelease)) return {};
        return from_json(object);
    }
    const Journal journal = read_journal(journal_path);
    if (!journal.ended && is_younger(journal_path, kLongestRun)) return {};
    return record_of(judge(journal));
}

}  // namespace

FolderResult index_folder(Index& index, const fs::path& folder,
                          const std::function<void(const std::string&)>& complain) {
    if (!fs::is_directory(folder)) throw std::runtime_error("no folder: " + folder.string());
    FolderResult result;
    Batch batch(index, result, complain);
    const auto report = [&](const fs::path& path, const std::exception& problem) {
        ++result.problems;
        complain(path.string() + ": " + problem.what());
    };
    for (const fs::path& day : entries(folder)) {
        if (day.filename() == "unsent") continue;
        for (const fs::path& path : entries(day, ".journal")) {
            std::optional<AttemptRecord> record;
            try {
                record = read_attempt(path);
                if (!record) ++result.running;
            } catch (const std::exception& problem) {
                report(path, problem);
            }
            if (record) batch.add(std::move(*record));
        }
    }
    for (const fs::path& copy : entries(folder / "unsent", ".json")) {
        std::optional<AttemptRecord> record;
        try {
            record = read_record(copy);
        } catch (const std::exception& problem) {
            if (fs::exists(copy)) report(copy, problem);  // else another process has sent it
        }
        if (record) batch.add(std::move(*record), copy);
    }
    batch.commit();
    return result;
}

}  // namespace station::index
