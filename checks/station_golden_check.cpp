// Journals that are kept as files: every version of the program, on every machine, judges them as the
// version did that wrote the judgements beside them.
#include <filesystem>
#include <fstream>

#include "checks/attempts.h"
#include "checks/programs.h"
#include "sim/scenario/scenario.h"
#include "station/plan.h"

namespace {

using namespace checks;
using nlohmann::ordered_json;

const std::string kFolder = Q7_SOURCE "/checks/journals/";

// What the journal says, and no more: not which program judged it.
std::string judged(const std::string& journal) {
    ordered_json judgement = station::to_json(station::judge(station::parse_journal(journal)));
    judgement.erase("program");
    return judgement.dump();
}

TEST(StationGolden, JournalsAreJudgedTheSameForEver) {
    std::map<std::string, int> verdicts;
    std::ifstream judgements(kFolder + "judgements.jsonl");
    for (std::string name, wanted;
         judgements >> name && std::getline(judgements >> std::ws, wanted);) {
        const Finished journal = shell("gzip -dc " + kFolder + name + ".journal.gz");
        ASSERT_EQ(journal.status, 0) << name << journal.err;
        EXPECT_EQ(judged(journal.out), wanted) << name;
        ++verdicts[ordered_json::parse(wanted).at("verdict")];
    }
    EXPECT_EQ(verdicts, (std::map<std::string, int>{{"PASS", 6}, {"FAIL", 3}, {"INCOMPLETE", 1}}));
}

// The commands of the plan on the board, each on the flash that the one before it left.
JournalText attempt_of(const std::string& plan, const std::string& serial, Board board) {
    JournalText attempt{plan_text(plan), serial, {}, {}};
    for (const station::PlannedCommand& command :
         station::Plan::parse(attempt.plan, plan).commands) {
        std::string words;
        for (const std::string& word : command.words)
            words += (words.empty() ? "" : " ") + word;
        const Outcome got = run(board, words);
        attempt.commands.emplace_back(command.name, played_of(got, words));
        std::size_t index = 0;
        for (auto& [bridge, description] : board.bridges) {
            const auto& cells = got.world->bridges[index++].flash.cells;
            description.flash.assign(reinterpret_cast<const char*>(cells), sizeof cells);
        }
    }
    attempt.answers = {{"panel-leds", "yes"}, {"panel-keys", "yes"}, {"buzzer", "yes"}};
    return attempt;
}

// Not run by itself: adds the journals that are not there yet. Those that are there never change.
TEST(StationGolden, DISABLED_WritesJournals) {
    const struct {
        std::string name, plan, serial;
    } rows[] = {
        {"healthy", "healthy", "45270-2648-0413"},
        {"healthy-bridge", "healthy-bridge", "45270B-2648-0413"},
        {"healthy-restore", "healthy-restore", "45270R-2648-0413"},
        {"dvs", "dvs", "45270S-2648-0413"},
        {"nvr", "nvr", "45270N-2648-0413"},
        {"nvr-bridge", "nvr-bridge", "45270NB-2648-0413"},
        {"alarm-input-dead", "healthy", "45270-2648-0414"},
        {"network-fibre-down", "healthy", "45270-2648-0415"},
        {"rs485-silent", "healthy", "45270-2648-0416"},
        {"healthy-cut", "healthy", "45270-2648-0417"},
    };
    std::ofstream judgements(kFolder + "judgements.jsonl", std::ios::app);
    for (const auto& row : rows) {
        if (std::filesystem::exists(kFolder + row.name + ".journal.gz")) continue;
        const std::string base = row.name.substr(0, row.name.find("-bridge"));
        const bool is_board = std::filesystem::exists(Q7_SOURCE "/boards/" + base + ".toml");
        const Board board =
            sim::parse_board("base = \"" + (is_board ? base : "healthy") + "\"\n", "base");
        std::string journal = journal_of(attempt_of(row.plan, row.serial, board));
        if (row.name == "healthy-cut") journal.resize(journal.rfind('\n', journal.size() / 2) + 1);
        std::ofstream(kFolder + row.name + ".journal", std::ios::binary) << journal;
        ASSERT_EQ(shell("gzip -9n " + kFolder + row.name + ".journal").status, 0);
        judgements << row.name << " " << judged(journal) << "\n";
    }
}

}  // namespace
