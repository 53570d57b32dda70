// The factory's own commands, as the served station runs them: before a start, and after a verdict
// in a thread of its own, so that a slow one delays nothing.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace station::web {

class Factory {
  public:
    // Shell commands; empty = none.
    Factory(std::string before, std::string after);
    // Waits for the commands that are due.
    ~Factory();
    Factory(const Factory&) = delete;
    Factory& operator=(const Factory&) = delete;

    [[nodiscard]] bool is_asked() const { return !before_.empty(); }
    // The words of its refusal; none = the start goes on. Takes up to kHookLimit.
    [[nodiscard]] std::optional<std::string> refusal(const std::string& question) const;

    void tell(std::string judgement);
    // Why the latest command after a verdict failed; empty = it did not.
    [[nodiscard]] std::string problem();

  private:
    void work();

    const std::string before_, after_;
    std::mutex mutex_;  // of what follows
    std::condition_variable due_;
    std::deque<std::string> judgements_;
    std::string problem_;
    bool leaving_ = false;
    std::thread worker_;
};

}  // namespace station::web
