// Fifty station processes on one PostgreSQL, all of them killed again and again.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <thread>

#include "checks/index_attempts.h"
#include "checks/postgres.h"
#include "checks/programs.h"
#include "station/index/index.h"
#include "station/index/outbox.h"

namespace checks {
namespace {

namespace fs = std::filesystem;
using namespace station::index;
using namespace std::chrono_literals;

constexpr int kStations = 50;

AttemptRecord attempt_of(int station, int number) {
    std::mt19937 random(unsigned(station * 1000 + number));
    AttemptRecord record = generated_attempt(random, number);
    char id[32];
    std::snprintf(id, sizeof id, "S%02d-20261123-%04d", station, number);
    record.id = id;
    // The same boards go from station to station.
    record.serial = "B" + std::to_string(random() % 200);
    record.model = "QM";
    record.station = id;
    record.station.resize(3);
    record.start.utc_ms += station;
    return record;
}

// A station: its attempts are the journals that it has, here a file each, made one after the other.
// It goes on where it was killed, and ends when nothing is left to do or to send.
[[noreturn]] void be_station(const fs::path& folder, const std::string& url, int station,
                             int attempts) {
    try {
        fs::create_directories(folder / "journals");
        Outbox outbox(folder / "unsent", url);
        for (int number = 0; number < attempts; ++number) {
            const AttemptRecord record = attempt_of(station, number);
            const fs::path journal = folder / "journals" / record.id;
            if (fs::exists(journal)) continue;
            outbox.store(record);
            // Only now is the verdict shown and the next board begun.
            if (!std::ofstream(journal)) _exit(1);
        }
        while (outbox.unsent() != 0)
            std::this_thread::sleep_for(50ms);
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "station %d: %s\n", station, problem.what());
        _exit(1);
    }
    _exit(0);
}

class Stations {
  public:
    Stations(fs::path folder, std::string url, int attempts)
        : folder_(std::move(folder)), url_(std::move(url)), attempts_(attempts) {
        for (int i = 0; i < kStations; ++i)
            start(i);
    }
    ~Stations() {
        for (int i = 0; i < kStations; ++i)
            kill_one(i);
    }

    void kill_one(int station) {
        pid_t& pid = pids_[std::size_t(station)];
        if (pid <= 1) return;
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        pid = 0;
    }
    void start(int station) {
        const pid_t pid = ::fork();
        if (pid < 0) throw std::runtime_error("fork failed");
        if (pid == 0) {
            be_station(folder_ / std::to_string(station), url_, station, attempts_);
        }
        pids_[std::size_t(station)] = pid;
    }
    bool is_running(int station) {
        pid_t& pid = pids_[std::size_t(station)];
        int status = 0;
        if (pid <= 1 || waitpid(pid, &status, WNOHANG) == 0) return pid > 1;
        pid = 0;
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "station " << station;
        return false;
    }
    int running() {
        int count = 0;
        for (int i = 0; i < kStations; ++i)
            count += is_running(i);
        return count;
    }

  private:
    fs::path folder_;
    std::string url_;
    int attempts_;
    pid_t pids_[kStations] = {};
};

TEST(ManyStations, LoseNoAttemptAndSendNoneTwice) {
    if (!Postgres::is_installed()) GTEST_SKIP() << "PostgreSQL is not installed";
    const bool full = std::getenv("Q7_FULL") != nullptr;
    const int attempts = full ? 200 : 20;
    const int kills = full ? 1000 : 100;
    Postgres postgres;
    { Index index(postgres.url()); }
    const fs::path folder = scratch("stations");
    std::mt19937 random(1);
    {
        Stations stations(folder, postgres.url(), attempts);
        for (int i = 0; i < kills && stations.running() > 0; ++i) {
            std::this_thread::sleep_for(15ms);
            const int station = int(random() % kStations);
            if (stations.is_running(station)) {
                stations.kill_one(station);
                stations.start(station);
            }
            if (i % (kills / 3) == kills / 6) {  // the database, too
                postgres.crash();
                postgres.start();
            }
        }
        const auto deadline = std::chrono::steady_clock::now() + (full ? 600s : 60s);
        while (stations.running() > 0 && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(50ms);
        }
        EXPECT_EQ(stations.running(), 0);
    }
    Index index(postgres.url());
    std::set<std::string> ids;
    index.for_each({}, [&](const AttemptRecord& record) {
        EXPECT_TRUE(ids.insert(record.id).second) << record.id << " is there twice";
        return true;
    });
    EXPECT_EQ(ids.size(), std::size_t(kStations * attempts));
    EXPECT_EQ(index.attempts(), kStations * attempts);
    EXPECT_FALSE(index.recount());
}

}  // namespace
}  // namespace checks
