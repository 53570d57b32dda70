// How fast the index is, on SQLite. The short form has 50,000 attempts, the full form a million.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>

#include "checks/attempts.h"
#include "checks/index_attempts.h"
#include "checks/programs.h"
#include "station/index/index.h"
#include "station/journal.h"

namespace checks {
namespace {

namespace fs = std::filesystem;
using namespace station::index;

class ScratchFolder {
  public:
    ScratchFolder() : path(scratch("scale")) { fs::create_directories(path); }
    ~ScratchFolder() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    const fs::path path;
};

// Of this process: all data are in memory, so this is the time of a page on a free processor.
double processor_ms() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

double best_ms(const std::function<void()>& action) {
    double best = 1e9;
    for (int i = 0; i < 7; ++i) {
        const double before = processor_ms();
        action();
        best = std::min(best, processor_ms() - before);
    }
    return best;
}

void fill(Index& index, long count) {
    std::mt19937 random(1);
    std::vector<AttemptRecord> batch;
    for (long i = 0; i < count; ++i) {
        batch.push_back(generated_attempt(random, i));
        if (batch.size() < 1000 && i + 1 < count) continue;
        index.add(batch);
        batch.clear();
    }
}

// Everything that the page shows when it is opened, over all of history: no page asks for more.
void yield_page(Index& index) {
    const auto days = index.yield_by(By::day, {});
    const auto items = index.failing_items({});
    const auto causes = index.likely_causes({});
    const auto drift = index.drift("rtc.difference", {});
    ASSERT_FALSE(days.empty() || items.empty() || causes.empty() || drift.empty());
    ASSERT_EQ(index.models().size(), 4u);
    ASSERT_EQ(index.stations().size(), 10u);
    ASSERT_FALSE(index.plans().empty());
    index.cause_hits();
    index.indexed_until();
}

TEST(IndexScale, PagesOfManyAttemptsCostsLittleRealTime) {
    const bool full = std::getenv("Q7_FULL") != nullptr;
    const long count = full ? 1'000'000 : 50'000;
    const ScratchFolder folder;
    Index index(folder.path / "index.sqlite");
    fill(index, count);
    ASSERT_EQ(index.attempts(), count);
    // The board with the most attempts.
    std::string serial;
    std::size_t most = 0;
    for (long i = 0; i < 1000; ++i) {
        char text[32];
        std::snprintf(text, sizeof text, "45270-%04ld-%04ld", i / 10000, i % 10000);
        const std::size_t attempts = index.history(text).size();
        if (attempts > most) serial = text, most = attempts;
    }
    ASSERT_GT(most, 1u);
    const double board = best_ms([&] { ASSERT_EQ(index.history(serial).size(), most); });
    const double yield = best_ms([&] { yield_page(index); });
    const double list = best_ms([&] {
        ASSERT_EQ(index.boards({}, {.final = "not PASS"}).size(), 100u);
        ASSERT_EQ(index.left_out("INCOMPLETE", {}).size(), 100u);
    });
    std::printf("%ld attempts: board %.1f ms, yield %.1f ms, lists %.1f ms\n", count, board, yield,
                list);
    EXPECT_LT(board, 100);
    EXPECT_LT(yield, 100);
    EXPECT_LT(list, 100);
}

// The processor time of the program that indexes this folder: what else the machine does, does not
// count.
double index_with_program(const fs::path& folder, long count) {
    const auto used = [] {
        rusage usage{};
        getrusage(RUSAGE_CHILDREN, &usage);
        return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
               + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    };
    const double before = used();
    const Finished run = shell(Q7_BINARIES "/q7-station index --journals " + folder.string());
    EXPECT_EQ(run.out,
              std::to_string(count) + " new, 0 known, 0 running, 0 not indexed, 0 unsent\n")
        << run.err;
    return used() - before;
}

TEST(IndexScale, StoredJudgementsCostsLittleRealTime) {
    const long count = std::getenv("Q7_FULL") != nullptr ? 100'000 : 5'000;
    const ScratchFolder folder;
    std::mt19937 random(1);
    for (int day = 0; day * 4000 < count; ++day) {
        const fs::path place = folder.path / std::to_string(20260101 + day);
        fs::create_directories(place);
        for (long i = day * 4000; i < std::min(count, (day + 1) * 4000L); ++i) {
            const AttemptRecord record = generated_attempt(random, i);
            std::ofstream(place / (record.id + ".judgement.json")) << judgement_of(record) << "\n";
            std::ofstream(place / (record.id + ".journal"));
        }
    }
    const double rate = double(count) / index_with_program(folder.path, count);
    std::printf("%.0f attempts a second of processor time from stored judgements\n", rate);
    EXPECT_GT(rate, 5000);
}

TEST(IndexScale, JournalsCostsLittleRealTime) {
    const int count = std::getenv("Q7_FULL") != nullptr ? 10'000 : 200;
    const ScratchFolder folder;
    const std::vector<std::string> events = events_of(play(healthy(), "netQ7test"));
    ASSERT_GT(events.size(), 100u);
    for (int i = 0; i < count; ++i) {
        station::Identity identity;
        identity.station = "S1";
        identity.serial = "45270-2648-" + std::to_string(1000 + i % 9000);
        identity.model = "QM-45270";
        identity.operator_id = "W1017";
        identity.plan_text = plan_text("healthy");
        auto writer = station::JournalWriter::create(folder.path, identity);
        writer.line("command", {{"command", 1},
                                {"name", "net"},
                                {"run", "R"},
                                {"words", nlohmann::json::array({"netQ7test"})}});
        for (const std::string& event : events)
            writer.board(1, event);
        writer.line("end", {{"commands", 1}});
    }
    const double rate = count / index_with_program(folder.path, count);
    std::printf("%.0f attempts a second of processor time from journals\n", rate);
    EXPECT_GT(rate, 800);
    // Judged, not merely read: nobody answered the questions.
    const auto attempts = Index(folder.path / "index.sqlite").history("45270-2648-1000");
    ASSERT_FALSE(attempts.empty());
    EXPECT_EQ(first_failing(attempts[0])->name, "buzzer");
    EXPECT_EQ(attempts[0].measurements.size(), 1u);
}

}  // namespace
}  // namespace checks
