// No faulty board passes the station, and no healthy one fails: the plans of plans/ against the
// lists of docs/assurance.md and against every run of the fault sweeps.
#include <cstdlib>
#include <map>
#include <random>

#include "checks/attempts.h"
#include "sim/scenario/scenario.h"
#include "station/evidence.h"
#include "station/learn.h"

namespace {

using namespace checks;
using station::Judgement;
using station::Verdict;

// Defects of the lists that may pass, each with the reason why a board with it may ship.
const std::map<std::string, std::string> kHarmless = {
    {"rtc.isdst = 1", "the driver's daylight flag is read by nobody"},
    {"usb.disks.msa1.mount = \"by shell\"", "the shell mounts it, and it is measured all the same"},
    {"usb.directories = [\"/mnt/msa1\"]", "the stick is mounted there all the same"},
    {"disks.sda.size64 = false", "the size was read all the same, by the older request"},
    {"disks.sda.size = false", "the first request makes the second needless"},
    {"disks.sda.identify_data = \"FF FF FF FF\"", "bytes of the fixture's disk that nobody reads"},
    {"disks.sda.request_time = 3", "a disk that takes its time answers all the same"},
    {"control.watchdog_bites = false", "net mode restarts no board; test 9 is there for that"},
    {"files.\"/dav2/devCfg.bin\".present = false", "what would be removed is not there"},
    {"bridges.1.flash = \"\"",
     "the attempt itself writes the firmware, and compares it afterwards"},
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

// What q7's summary calls good although it was not tested, or was silent.
TEST(StationEscape, NoStepThatDidNotRunOrWasSilentPasses) {
    const Station station("healthy", "45270-2648-0413", healthy());
    const auto faulty = [](const std::string& changes, const sim::Fault& fault) {
        Board board = healthy(changes);
        board.faults = {fault};
        return board;
    };
    const struct {
        Board board;
        Verdict verdict;
        std::string item;
    } rows[] = {
        {faulty("alarm.dead = [6]", failing_request(0x10)), Verdict::fail, "alarm"},
        {faulty("", failing("socket")), Verdict::fail, "network"},
        {healthy("rs485.fixture = false"), Verdict::fail, "rs485"},
        {healthy("control = {boot_device_type = 0x4487}"), Verdict::not_proven, "rs485"},
        {healthy("control = {boot_device_type = 0x4487, high_lines = [25]}"), Verdict::not_proven,
         "alarm"},
    };
    for (const auto& row : rows) {
        const Judgement judgement = station.judge(row.board, {});
        EXPECT_EQ(judgement.item("summary")->verdict, Verdict::pass) << "q7 calls it good";
        EXPECT_NE(judgement.item(row.item)->verdict, Verdict::pass) << reasons_of(judgement);
        EXPECT_EQ(judgement.verdict, row.verdict) << row.item << reasons_of(judgement);
    }
}

// A healthy board as the line sees it: other people, sticks, disks, days and delays.
class HealthyVariant {
  public:
    explicit HealthyVariant(unsigned seed) : random_(seed) {}

    Board of(Board board) {
        press_keys(board);
        move_stick(board);
        for (auto& [node, disk] : board.disks) {
            disk.serial = text(8, 20);
            disk.model = text(6, 40);
            disk.firmware = text(3, 8);
            disk.bytes = 1'000'000'000ull * number(2, 18'000);
        }
        for (auto& [node, disk] : board.usb.disks)
            disk.free_blocks = number(100'000, 30'000'000);
        board.usb.mount_time = fraction(0, 8);
        board.usb.shell_time = fraction(0, 2);
        board.rs485.delay = fraction(0, 1.5);
        for (std::size_t i = 0; i < number(0, 6); ++i)
            board.rs485.pieces.push_back(static_cast<std::uint32_t>(number(1, 600)));
        board.start.seconds = static_cast<std::int64_t>(number(946'684'800, 2'145'000'000));
        board.time_zone = number(0, 1) == 0 ? "UTC" : "Asia/Shanghai";
        board.rtc.offset_s = static_cast<std::int64_t>(number(0, 2)) - 1;
        return board;
    }

  private:
    std::uint64_t number(std::uint64_t low, std::uint64_t high) {
        return std::uniform_int_distribution<std::uint64_t>(low, high)(random_);
    }
    double fraction(double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random_);
    }
    std::string text(std::size_t shortest, std::size_t longest) {
        std::string text(number(shortest, longest), ' ');
        for (char& character : text)
            character = static_cast<char>(number(' ', '~'));
        text.front() = text.back() = static_cast<char>(number('A', 'Z'));
        return text;
    }
    void press_keys(Board& board) {
        double at_s = fraction(4, 10);
        for (sim::PanelFrame& frame : board.panel.frames) {
            frame.at = at_s;
            at_s += fraction(0.5, 4.5);
        }
    }
    // The upper rear port: a 2.0 stick from the first scan of /dev, from the second, or never.
    void move_stick(Board& board) {
        const std::uint64_t when = number(0, 2);
        if (when != 1) board.changes.clear();
        if (when != 0) return;
        board.usb.devices.at("4-1:1.0").present = false;
        board.usb.devices.at("3-1:1.0").present = true;
    }

    std::mt19937 random_;
};

TEST(StationFalseAlarm, HealthyBoardsPassWhateverThePeopleAndTheFixtureDo) {
    const struct {
        const char *plan, *board, *serial;
    } rows[] = {{"healthy", "healthy", "45270-2648-0413"},
                {"dvs", "dvs", "45270S-2648-0413"},
                {"nvr", "nvr", "45270N-2648-0413"}};
    const unsigned runs = full_form() ? 1000 : 60;
    for (const auto& row : rows) {
        const Board board = sim::parse_board("base = \"" + std::string(row.board) + "\"\n", "base");
        const Station station(row.plan, row.serial, board);
        for (unsigned seed = 1; seed <= runs; ++seed) {
            const Judgement judgement = station.judge(HealthyVariant(seed).of(board), {});
            ASSERT_EQ(judgement.verdict, Verdict::pass)
                << row.plan << " " << seed << reasons_of(judgement);
        }
    }
    std::printf("%u runs of each healthy board pass\n", runs);
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
    const station::Journal journal = parsed_journal_of({sequence.plan,
                                                        "45270-2648-0413",
                                                        {{"only", played}},
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
