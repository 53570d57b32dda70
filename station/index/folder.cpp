#include "station/index/folder.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

#include "station/index/outbox.h"

namespace station::index {
namespace {

namespace fs = std::filesystem;

// Other writers wait for a commit: it is due after so many attempts or so much time.
constexpr std::size_t kAtOnce = 500;
constexpr auto kAtLongest = std::chrono::milliseconds(200);

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
    std::ifstream file(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(file)),
                           std::istreambuf_iterator<char>());
    if (!file) throw std::runtime_error("cannot be read");
    return from_json(nlohmann::json::parse(text));
}

}  // namespace

FolderResult index_folder(Index& index, const fs::path& folder,
                          const std::function<void(const std::string&)>& complain) {
    if (!fs::is_directory(folder)) throw std::runtime_error("no folder: " + folder.string());
    FolderResult result;
    Batch batch(index, result, complain);
    const auto add = [&](const fs::path& path, const fs::path& copy) {
        AttemptRecord record;
        try {
            record = read_record(path);
        } catch (const std::exception& problem) {
            if (!copy.empty() && !fs::exists(copy)) return;  // another process has sent it
            ++result.problems;
            complain(path.string() + ": " + problem.what());
            return;
        }
        batch.add(std::move(record), copy);
    };
    for (const fs::path& day : entries(folder)) {
        if (day.filename() == "unsent") continue;
        for (const fs::path& file : entries(day, ".judgement.json"))
            add(file, {});
    }
    for (const fs::path& copy : entries(folder / "unsent", ".json"))
        add(copy, copy);
    batch.commit();
    return result;
}

}  // namespace station::index
