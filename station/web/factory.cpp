#include "station/web/factory.h"

#include <utility>

#include "station/hooks.h"

namespace station::web {

Factory::Factory(std::string before, std::string after)
    : before_(std::move(before)), after_(std::move(after)) {
    if (!after_.empty()) worker_ = std::thread([this] { work(); });
}

Factory::~Factory() {
    {
        const std::lock_guard lock(mutex_);
        leaving_ = true;
    }
    due_.notify_all();
    if (worker_.joinable()) worker_.join();
}

std::optional<std::string> Factory::refusal(const std::string& question) const {
    const HookResult result = run_hook(before_, question);
    if (result.agrees()) return std::nullopt;
    return words_of(result);
}

void Factory::tell(std::string judgement) {
    if (after_.empty()) return;
    {
        const std::lock_guard lock(mutex_);
        judgements_.push_back(std::move(judgement));
    }
    due_.notify_all();
}

std::string Factory::problem() {
    const std::lock_guard lock(mutex_);
    return problem_;
}

void Factory::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        due_.wait(lock, [this] { return leaving_ || !judgements_.empty(); });
        if (judgements_.empty()) return;
        const std::string judgement = std::move(judgements_.front());
        judgements_.pop_front();
        lock.unlock();
        const HookResult result = run_hook(after_, judgement);
        lock.lock();
        problem_ = result.agrees() ? "" : words_of(result);
    }
}

}  // namespace station::web
