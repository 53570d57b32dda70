// No faulty board passes the station, and no healthy one fails: the plans of plans/ against the
// lists of docs/assurance.md and against every run of the fault sweeps.
#include <cstdlib>
#include <map>
#include <random>

#include "checks/attempts.h"
#include "sim/scenario.h"
#include "station/evidence.h"
#include "station/learn.h"

namespace {

using namespace checks;
using station::Judgement;
using station::Verdict;

// Defects of the lists that may pass, each with the reason why a board with it may ship.
const std::map<std::string, std::string> kHarmless = {
    {"rtc.isdst = 1", "the driver's daylight flag is read by nobody"},
    {"usb.directories = [\"/mnt/msa1\"]", "an empty directory left from earlier"},
    {"disks.sda.size64 = false", "the size was read all the same, by the older request"},
    {"disks.sda.size = false", "the first request makes the second needless"},
    {"disks.sda.identify_data = \"FF FF FF FF\"", "bytes of the fixture's disk that nobody reads"},
    {"files.\"/dav2/devCfg.bin\".present = false", "what would be removed is not there"},
    {"bridges.1.flash = \"\"", "the attempt itself writes the firmware, and compares it afterwards"},
};

Judgement judge_attempt(const JournalText& attempt) {
    const station::Plan plan = station::Plan::parse(attempt.plan, "plan");
    const station::Journal journal = parsed_journal_of(attempt);
    return station::judge(journal, station::take_evidence(journal), plan);
}

std::string reasons_of(const Judgement& judgement) {
    std::string text;
    for (const station::Item& item : judgement.items) {
        for (const station::Reason& reason : item.reasons) {
            text += "\n  " + item.name + " " + reason.code + " " + reason.fact + " " + reason.value
                    + " " + reason.wanted + " " + reason.text;
        }
    }
    return text;
}

// A station with the plan of a board that is healthy.
struct Station {
    std::string plan, serial;
    Played healthy;

    Station(const std::string& plan_name, const std::string& number, const Board& board)
        : plan(plan_text(plan_name)), serial(number), healthy(play(board, "netQ7test")) {}

    // Each command only when all before it passed, on the same flash.
    Judgement judge(Board board, const std::vector<std::string>& more) const {
        const Played played = play(board, "netQ7test");
        JournalText attempt{plan, serial, {{"net", played}}, Person{&healthy}.answers(played)};
        Judgement judgement = judge_attempt(attempt);
        for (const std::string& name : more) {
            const bool waits = judgement.verdict == Verdict::incomplete
                               && reasons_of(judgement) == "\n  run no-command    ";
            if (!waits) break;
            const Outcome got = run(board, "-o 10");
            attempt.commands.emplace_back(name, played_of(got, "-o 10"));
            std::size_t index = 0;
            for (auto& [bridge, description] : board.bridges) {
                const auto& cells = got.world->bridges[index++].flash.cells;
                description.flash.assign(reinterpret_cast<const char*>(cells), sizeof cells);
            }
            judgement = judge_attempt(attempt);
        }
        return judgement;
    }
};

TEST(StationEscape, NoDefectThatPassesQ7PassesTheStation) {
    const Station station("healthy-bridge", "45270B-2648-0413", healthy());
    const std::vector<std::string> more{"update", "verify"};
    const Judgement good = station.judge(healthy(), more);
    ASSERT_EQ(good.verdict, Verdict::pass) << reasons_of(good);
    std::map<Verdict, int> verdicts;
    for (const std::string& defect : documented("Defects that pass\n")) {
        const Judgement judgement = station.judge(healthy(defect), more);
        ++verdicts[judgement.verdict];
        EXPECT_EQ(judgement.verdict == Verdict::pass, kHarmless.count(defect) != 0)
            << defect << reasons_of(judgement);
    }
    for (const char* heading : {"Defects that are", "firmware update"}) {
        for (const std::string& defect : documented(heading)) {
            const Judgement judgement = station.judge(healthy(defect), more);
            EXPECT_NE(judgement.verdict, Verdict::pass) << defect;
        }
    }
    EXPECT_EQ(verdicts[Verdict::pass], static_cast<int>(kHarmless.size()));
    std::printf("of the defects that pass q7, %d pass the station, %d are not proven, %d fail\n",
                verdicts[Verdict::pass], verdicts[Verdict::not_proven], verdicts[Verdict::fail]);
}

}  // namespace

namespace checks {

// Both sequences, each as an attempt of one command, by the plan that its healthy run teaches.
struct Sequence {
    Played healthy;
    std::string plan;
    std::map<std::string, station::Value> facts;

    Sequence(const Outcome& got, const std::string& words) : healthy(played_of(got, words)) {
        const std::string serial = "45270-2648-0413";
        const std::string shell = "\nmodel = \"QM-45270\"\n";
        const station::Journal journal =
            parsed_journal_of({shell, serial, {{"only", healthy}}, {}});
        plan = station::learn_plan({journal}, "");
        plan.replace(plan.find("by = \"\""), 7, "by = \"x\"");
        plan.replace(plan.find("= \"unique\""), 10, "= \"ignored\"");
        for (const station::Fact& fact : station::take_evidence(journal).facts)
            facts.emplace(fact.name, fact.value);
    }
};

void judge_swept_run(const Outcome& got, const Outcome& healthy, const std::string& words) {
    static std::map<std::string, Sequence> sequences;
    const auto& sequence = sequences.try_emplace(words, healthy, words).first->second;
    const Played played = played_of(got, words);
    const station::Journal journal =
        parsed_journal_of({sequence.plan, "45270-2648-0413", {{"only", played}},
                           Person{&sequence.healthy}.answers(played)});
    const station::Evidence evidence = station::take_evidence(journal);
    static std::map<std::string, station::Plan> plans;
    const auto& plan =
        plans.try_emplace(words, station::Plan::parse(sequence.plan, "plan")).first->second;
    const Judgement judgement = station::judge(journal, evidence, plan);
    if (judgement.verdict != Verdict::pass) return;
    EXPECT_EQ(evidence.facts.size(), sequence.facts.size());
    for (const station::Fact& fact : evidence.facts) {
        const bool is_time = fact.name.ends_with(".clock") || fact.name.ends_with(".system");
        EXPECT_TRUE(is_time || sequence.facts.at(fact.name) == fact.value) << fact.name;
    }
}

}  // namespace checks
