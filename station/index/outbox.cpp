#include "station/index/outbox.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "station/index/database.h"
#include "station/index/index.h"
#include "station/journal.h"

namespace station::index {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr auto kRetryInterval = 5s;

// The copies that wait, by name, and so each station's in the order of their ids.
std::vector<fs::path> waiting_copies(const fs::path& folder) {
    std::vector<fs::path> copies;
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        if (at->path().extension() == ".json") copies.push_back(at->path());
    }
    std::sort(copies.begin(), copies.end());
    return copies;
}

}  // namespace

fs::path waiting_copy(const fs::path& folder, const std::string& id) {
    const bool plain = !id.empty() && std::all_of(id.begin(), id.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')
               || c == '-';
    });
    if (!plain) throw std::invalid_argument("no attempt's id: " + id);
    return folder / (id + ".json");
}

void write_waiting_copy(const fs::path& folder, const AttemptRecord& record) {
    write_file(
        waiting_copy(folder, record.id),
        to_json(record).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace) + "\n");
}

std::size_t count_waiting(const fs::path& folder) { return waiting_copies(folder).size(); }

// Shared with the thread, which may outlive the Outbox while a database does not answer.
struct Outbox::Sender {
    fs::path folder;
    std::string url;

    std::mutex mutex;
    std::condition_variable changed;
    bool wake = false, stop = false, finished = false;
    std::set<std::string> awaited;  // ids that store() waits for
    std::string problem;

    std::optional<Index> index;  // of the thread

    void run();
    void send_all();
    bool connect();
    void send(const fs::path& copy);
    void say(const std::string& text) {
        const std::lock_guard lock(mutex);
        problem = text;
    }
};

void Outbox::Sender::run() {
    std::unique_lock lock(mutex);
    while (!stop) {
        wake = false;
        lock.unlock();
        send_all();
        lock.lock();
        changed.wait_for(lock, kRetryInterval, [this] { return wake || stop; });
    }
    finished = true;
    changed.notify_all();
}

// What store() waits for goes first, also when it comes while a backlog is sent.
void Outbox::Sender::send_all() {
    std::vector<fs::path> copies = waiting_copies(folder);
    {
        const std::lock_guard lock(mutex);
        std::stable_partition(copies.begin(), copies.end(), [this](const fs::path& copy) {
            return awaited.contains(copy.stem().string());
        });
    }
    for (const fs::path& copy : copies) {
        {
            const std::lock_guard lock(mutex);
            if (stop || wake) return;
        }
        if (!connect()) return;
        send(copy);
    }
}

bool Outbox::Sender::connect() {
    if (index) return true;
    try {
        index.emplace(url);
        return true;
    } catch (const std::exception& error) {
        say(error.what());
        return false;
    }
}

// A copy that cannot be sent stays, and the next one has its turn.
void Outbox::Sender::send(const fs::path& copy) {
    AttemptRecord record;
    try {
        record = from_json(nlohmann::json::parse(std::ifstream(copy)));
    } catch (const std::exception& error) {
        if (fs::exists(copy)) say(copy.string() + ": " + error.what());
        return;  // otherwise another process has sent it
    }
    try {
        if (index->add({&record, 1}).front() == Added::conflict) {
            say("the index has another attempt " + record.id);
            return;
        }
    } catch (const std::exception& error) {
        index.reset();
        say(error.what());
        return;
    }
    std::error_code ignored;  // a copy that stays is known to the index when it is sent again
    fs::remove(copy, ignored);
    const std::lock_guard lock(mutex);
    problem.clear();
    awaited.erase(record.id);
    changed.notify_all();
}

Outbox::Outbox(fs::path folder, std::string url) : sender_(std::make_shared<Sender>()) {
    sender_->folder = std::move(folder);
    sender_->url = std::move(url);
    fs::create_directories(sender_->folder);
    std::thread([sender = sender_] { sender->run(); }).detach();
}

Outbox::~Outbox() {
    std::unique_lock lock(sender_->mutex);
    sender_->stop = true;
    sender_->changed.notify_all();
    sender_->changed.wait_for(lock, std::chrono::seconds(kPatience_s),
                              [this] { return sender_->finished; });
}

Outbox::Stored Outbox::store(const AttemptRecord& record) {
    write_waiting_copy(sender_->folder, record);
    std::unique_lock lock(sender_->mutex);
    sender_->awaited.insert(record.id);
    sender_->wake = true;
    sender_->changed.notify_all();
    const bool committed = sender_->changed.wait_for(lock, std::chrono::seconds(kPatience_s), [&] {
        return !sender_->awaited.contains(record.id);
    });
    sender_->awaited.erase(record.id);
    lock.unlock();
    return {committed, unsent()};
}

std::size_t Outbox::unsent() const { return count_waiting(sender_->folder); }

std::string Outbox::problem() const {
    const std::lock_guard lock(sender_->mutex);
    return sender_->problem;
}

}  // namespace station::index
