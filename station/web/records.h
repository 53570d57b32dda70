// What a station knows beyond the attempt at hand: the index, and the copies that wait for it.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "station/dictionary/diagnosis.h"
#include "station/index/index.h"
#include "station/index/outbox.h"
#include "station/web/controller.h"
#include "station/web/server.h"

namespace station::web {

// The index for several threads; a database that was away is not asked again for some seconds.
class SharedIndex {
  public:
    explicit SharedIndex(std::string url) : url_(std::move(url)) {}

    // Throws std::runtime_error when the database is away.
    template <typename Function>
    auto use(const Function& function) {
        const std::lock_guard lock(mutex_);
        if (!index_) open();
        try {
            return function(*index_);
        } catch (const Refusal&) {
            throw;
        } catch (...) {
            index_.reset();
            failed_at_ = std::chrono::steady_clock::now();
            throw;
        }
    }

  private:
    void open();

    std::string url_;
    std::mutex mutex_;
    std::optional<index::Index> index_;
    std::optional<std::chrono::steady_clock::time_point> failed_at_;
};

class Archive {
  public:
    // `dictionaries` is a folder of them, or empty. Throws DictionaryError.
    Archive(std::filesystem::path journals, const std::string& url,
            const std::filesystem::path& dictionaries);

    [[nodiscard]] Records records();
    [[nodiscard]] nlohmann::json board(const std::string& serial);
    [[nodiscard]] nlohmann::json yield(const Query& query);
    [[nodiscard]] nlohmann::json list(const Query& query);

  private:
    [[nodiscard]] std::vector<nlohmann::json> history(const std::string& serial);
    [[nodiscard]] nlohmann::json index_state();
    [[nodiscard]] nlohmann::json causes(const Judgement& judgement, const Evidence& evidence) const;
    void name_causes(nlohmann::json& yield) const;

    std::filesystem::path journals_;
    SharedIndex index_;
    index::Outbox outbox_;
    std::vector<Dictionary> dictionaries_;
};

}  // namespace station::web
