// The grammar of q7's texts: complete, the same in every mode, and not to be fooled by transcripts
// that were altered.
#include <map>
#include <random>

#include "checks/attempts.h"
#include "sim/scenario/scenario.h"
#include "station/catalogue.h"
#include "station/learn.h"
#include "station/text.h"

namespace {

using namespace checks;
using station::Evidence;
using station::Fact;
using station::Finding;
using station::Verdict;

Evidence evidence_of(const Played& played) {
    return station::take_evidence(
        parsed_journal_of({"\nmodel = \"M\"\n", "1", {{"net", played}}, {}}));
}

TEST(StationGrammar, ExplainsEveryLineOfEveryBoardInEveryMode) {
    std::vector<std::string> commands{"", "netQ7test", "-o 4 2", "-o 7 3", "-o 10 2"};
    for (int test = 1; test <= 11; ++test)
        commands.push_back("-o " + std::to_string(test));
    int lines = 0, runs = 0;
    for (const auto& built_in : sim::built_in_boards()) {
        const Board board =
            sim::parse_board("base = \"" + std::string(built_in.name) + "\"\n", "base");
        for (const std::string& words : commands) {
            const Evidence evidence = evidence_of(play(board, words));
            SCOPED_TRACE(std::string(built_in.name) + ": q7 " + words);
            for (const Finding& finding : evidence.findings) {
                const bool by_sim = finding.text.rfind("q7-sim: ", 0) == 0;
                EXPECT_TRUE(by_sim || finding.kind != Finding::Kind::unexplained) << finding.text;
            }
            for (const Fact& fact : evidence.facts) {
                const station::KnownFact* known = station::find_known(fact.name);
                ASSERT_NE(known, nullptr) << fact.name;
                EXPECT_EQ(known->unit, fact.unit) << fact.name;
            }
            lines += static_cast<int>(evidence.pieces.size());
            ++runs;
        }
    }
    EXPECT_GT(runs, 300);
    std::printf("%d lines of %d transcripts are explained\n", lines, runs);
}

std::map<std::string, std::string> values_of(const Evidence& evidence) {
    std::map<std::string, std::string> values;
    for (const Fact& fact : evidence.facts)
        values.emplace(fact.name, station::to_text(fact.value, fact.unit));
    return values;
}

// Of the same board: what both modes, or a single test, say under the same name.
TEST(StationGrammar, TakesTheSameFactsFromBothModesAndFromSingleTests) {
    const auto net = values_of(evidence_of(play(healthy(), "netQ7test")));
    const auto console = values_of(evidence_of(play(healthy(), "")));
    EXPECT_EQ(values_of(evidence_of(play(healthy(), "netQ7test three more words"))), net);
    const auto is_of_the_mode = [](const std::string& name) {
        return name.ends_with(".clock") || name.ends_with(".system") || name == "sequence.steps"
               || name == "sequence.end" || name == "summary.rtc";
    };
    int compared = 0;
    for (const auto& [name, value] : net) {
        if (is_of_the_mode(name)) continue;
        ASSERT_EQ(console.count(name), 1u) << name;
        EXPECT_EQ(console.at(name), value) << name;
        ++compared;
    }
    EXPECT_GT(compared, 90);
    for (const char* words : {"-o 1", "-o 3", "-o 4", "-o 5", "-o 7", "-o 8"}) {
        for (const auto& [name, value] : values_of(evidence_of(play(healthy(), words)))) {
            const bool differs = is_of_the_mode(name) || name == "usb.runs";
            if (differs) continue;
            EXPECT_EQ(net.at(name), value) << words << " " << name;
        }
    }
}

TEST(StationGrammar, NamesWhatEachDefectShows) {
    const struct {
        const char *defect, *fact, *value;
    } rows[] = {
        {"alarm.dead = [6]", "alarm.output.2.inputs", "0x2202"},
        {"alarm.dead = [6]", "alarm.output.3.inputs", "0x4444"},
        {"alarm.stuck = [16]", "alarm.idle.inputs", "0x8000"},
        {"hardware.alarm_outputs = 7", "alarm.outputs", "4"},
        {"rs485.fixture = false", "rs485.good", "0"},
        {"rs485.fixture = false", "rs485.result", "timeout"},
        {"rs485.drop = [1023]", "rs485.good", "1023"},
        {"ports.eth0.copper.full_duplex = false", "network.copper.1.duplex", "half"},
        {"ports.eth3.fibre.speed = 10", "network.fibre.4.speed", "10"},
        {"ports.eth1.copper.up = false", "network.copper.2.link", "down"},
        {"hardware.channels = 0", "network.fibre.ports", "0"},
        {"rtc.offset = -2", "rtc.3.difference", "-2"},
        {"usb = {mice = 3, disks = {msb1 = {present = false}, msc1 = {present = false}, msd1 = "
         "{present = false}}}",
         "usb.mice", "3"},
        {"usb.devices = {'4-1:1.0' = {present = false}, '4-2:1.0' = {present = false}}\nchanges = "
         "[]",
         "usb.2.rear.lower", "none"},
        {"disks.esda.present = false", "sata.esda.state", "absent"},
        {"disks.esda = {size64 = false, size = false}", "sata.esda.state", "no-size"},
        {"disks.sdc.present = false", "summary.sata", "3"},
        {"hardware.minisas = 1", "summary.minisas", "bad"},
        {"hardware.cpld_date = 0", "info.cpld", "2000-00-00"},
        {"root = false", "start.root", "no"},
        {"panel.frames = [{at = 6, bytes = \"FF 06 20 FF 01 00\"}]", "panel.unknown_keys", "1"},
    };
    for (const auto& row : rows) {
        const Evidence evidence = evidence_of(play(healthy(row.defect), "netQ7test"));
        const Fact* fact = evidence.find(row.fact);
        ASSERT_NE(fact, nullptr) << row.defect << " " << row.fact;
        EXPECT_EQ(station::to_text(fact->value, fact->unit), row.value) << row.defect;
    }
    const Evidence bad_counts = evidence_of(play(healthy("hardware.alarm_inputs = 0"), "-o 5"));
    EXPECT_NE(bad_counts.find("alarm.output.4.inputs"), nullptr) << "no idle check, none awaited";
}

TEST(StationGrammar, TellsPortTypesApartWhenOneCannotBeSelected) {
    Board board = healthy("ports.eth2.fibre.speed = 100\n");
    board.faults = {failing_request(0x81)};
    const Evidence evidence = evidence_of(play(board, "netQ7test"));
    EXPECT_EQ(station::to_text(evidence.find("network.copper.selected")->value), "no");
    EXPECT_EQ(evidence.find("network.copper.1.link"), nullptr);
    EXPECT_EQ(station::to_text(evidence.find("network.fibre.3.speed")->value), "100");
    EXPECT_NE(evidence.find("network.fibre.1.link")->doubt, "");
}

// The agent cuts a record that is too long for an event, wherever that is: within a character, too.
TEST(StationGrammar, JoinsRecordsThatCameInPieces) {
    for (const char* words : {"netQ7test", ""}) {
        const Played whole = play(healthy(), words);
        const Evidence expected = evidence_of(whole);
        for (const std::size_t size : {1, 7, 30}) {
            Played pieces = whole;
            pieces.lines.clear();
            for (const BoardLine& line : whole.lines) {
                if (line.kind != "record") pieces.lines.push_back(line);
                if (line.kind != "record") continue;
                for (std::size_t at = 0; at < line.bytes.size(); at += size) {
                    const bool more = at + size < line.bytes.size();
                    pieces.lines.push_back(
                        {line.kind, line.bytes.substr(at, size), line.at_s, more});
                }
            }
            const Evidence got = station::take_evidence(station::parse_journal(
                journal_of({"\nmodel = \"M\"\n", "1", {{"net", pieces}}, {}})));
            EXPECT_EQ(values_of(got), values_of(expected));
            EXPECT_TRUE(got.findings.empty()) << got.findings.front().text;
        }
    }
}

// What the board's shell writes, where the system's call failed.
TEST(StationGrammar, KnowsWhatTheShellComplainsOf) {
    const struct {
        const char* defect;
        int failures;
    } rows[] = {
        {"usb.directories = [\"/mnt/msa1\"]", 0},
        {"usb.disks.msa1.mount = \"by shell\"", 0},
        {"usb.disks.msa1.mount = \"no file system\"", 2},
        {"usb.files = [\"/mnt/msa1\"]", 2},
    };
    for (const auto& row : rows) {
        const Played played = play(healthy(row.defect), "netQ7test");
        const Evidence evidence = evidence_of(played);
        int failures = 0;
        for (const Finding& finding : evidence.findings) {
            EXPECT_EQ(finding.kind, Finding::Kind::failure) << finding.text;
            EXPECT_THAT(finding.text, StartsWith("mount: mounting /dev/msa1 on /mnt/msa1 failed"));
            ++failures;
        }
        EXPECT_EQ(failures, row.failures) << row.defect;
        EXPECT_NE(evidence.find("usb.1.msa1.free"), nullptr) << row.defect;
    }
}

// One heading less: what stands behind the next one is read as ever.
TEST(StationGrammar, GoesOnBehindAHeadingThatIsLost) {
    const Played whole = play(healthy("rs485.fixture = false\nalarm.dead = [6]"), "netQ7test");
    const auto expected = values_of(evidence_of(whole));
    int lost = 0;
    for (std::size_t i = 0; i < whole.lines.size(); ++i) {
        const std::string text = station::gbk_to_utf8(whole.lines[i].bytes);
        const bool is_heading = text.starts_with("第") && text.find("步:") != text.npos;
        if (whole.lines[i].kind != "record" || !is_heading) continue;
        Played without = whole;
        without.lines.erase(without.lines.begin() + static_cast<std::ptrdiff_t>(i));
        const Evidence evidence = evidence_of(without);
        EXPECT_FALSE(evidence.findings.empty()) << text;
        const auto values = values_of(evidence);
        for (const char* fact : {"rs485.good", "alarm.bad", "network.copper.1.speed", "usb.1.disks",
                                 "sata.sda.state", "summary.rs485"}) {
            ASSERT_EQ(values.count(fact), 1u) << text << fact;
            EXPECT_EQ(values.at(fact), expected.at(fact)) << text << fact;
        }
        ++lost;
    }
    EXPECT_GE(lost, 9);
}

// Alterations.

// Each event of printed text made one a line, as alterations want it.
Played line_by_line(const Played& played) {
    Played result = played;
    result.lines.clear();
    for (const BoardLine& line : played.lines) {
        std::size_t from = 0;
        while (line.kind != "record" && from < line.bytes.size()) {
            const std::size_t end = std::min(line.bytes.find('\n', from), line.bytes.size() - 1);
            result.lines.push_back({line.kind, line.bytes.substr(from, end + 1 - from), line.at_s});
            from = end + 1;
        }
        if (line.kind == "record") result.lines.push_back(line);
    }
    return result;
}

constexpr int kLineOfFirst = 4;  // of the journal: attempt, command, start

class Alteration {
  public:
    explicit Alteration(unsigned seed) : random_(seed) {}

    // The places whose lines it touched are in `touched`, as lines of the original journal.
    Played of(Played played, std::set<int>& touched) {
        const std::size_t at = number(played.lines.size());
        touched.insert(kLineOfFirst + static_cast<int>(at));
        const auto place = played.lines.begin() + static_cast<std::ptrdiff_t>(at);
        const BoardLine line = *place;
        switch (number(4)) {
        case 0:
            played.lines.erase(place);
            break;
        case 1:
            played.lines.insert(place, line);
            break;
        case 2: {
            played.lines.erase(place);
            const std::size_t to = number(played.lines.size() + 1);
            played.lines.insert(played.lines.begin() + static_cast<std::ptrdiff_t>(to), line);
            break;
        }
        default:
            change_digit(*place);
        }
        return played;
    }

    // A text of a disk: a line end and what a report says.
    std::string like_a_report(const Played& played, std::size_t size) {
        std::string bytes = "\n";
        while (bytes.size() < size)
            bytes += played.lines[number(played.lines.size())].bytes;
        return bytes.substr(0, size);
    }

    std::size_t number(std::size_t count) {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
    }

  private:
    void change_digit(BoardLine& line) {
        std::vector<std::size_t> digits;
        for (std::size_t i = 0; i < line.bytes.size(); ++i) {
            if (std::isdigit(static_cast<unsigned char>(line.bytes[i])) != 0) digits.push_back(i);
        }
        if (digits.empty()) return;
        char& digit = line.bytes[digits[number(digits.size())]];
        digit = static_cast<char>('0' + (digit - '0' + 1 + static_cast<int>(number(9))) % 10);
    }

    std::mt19937 random_;
};

// A station's view of one transcript: everybody answers yes.
struct Viewer {
    std::string text;
    station::Plan plan;

    explicit Viewer(const Played& healthy_run) {
        const station::Journal journal = parsed_journal_of(
            {"\nmodel = \"QM-45270\"\n", "45270-2648-0413", {{"net", healthy_run}}, {}});
        text = station::learn_plan({journal}, "");
        text.replace(text.find("by = \"\""), 7, "by = \"x\"");
        text.replace(text.find("= \"unique\""), 10, "= \"ignored\"");
        plan = station::Plan::parse(text, "plan");
    }

    station::Judgement judge(const Played& played, Evidence* evidence = nullptr) const {
        const station::Journal journal =
            parsed_journal_of({text,
                               "45270-2648-0413",
                               {{"net", played}},
                               {{"panel-leds", "yes"}, {"panel-keys", "yes"}, {"buzzer", "yes"}}});
        Evidence found = station::take_evidence(journal);
        station::Judgement judgement = station::judge(journal, found, plan);
        if (evidence != nullptr) *evidence = std::move(found);
        return judgement;
    }
};

bool is_open(const station::Plan& plan, const std::string& name) {
    const station::Rule* rule = station::rule_of(plan, name);
    return rule != nullptr && !rule->equal;
}

void alter(const char* words, unsigned rounds, int& altered, int& passed) {
    const Viewer viewer(line_by_line(play(healthy(), words)));
    for (const auto& built_in : sim::built_in_boards()) {
        const Board board =
            sim::parse_board("base = \"" + std::string(built_in.name) + "\"\n", "base");
        const Played original = line_by_line(play(board, words));
        Evidence original_evidence;
        const station::Judgement judgement = viewer.judge(original, &original_evidence);
        const auto original_values = values_of(original_evidence);
        std::set<int> reason_lines;
        for (const station::Item& item : judgement.items) {
            for (const station::Reason& reason : item.reasons)
                reason_lines.insert(reason.line);
        }
        if (original.lines.empty()) continue;
        for (unsigned seed = 1; seed <= rounds; ++seed) {
            std::set<int> touched;
            const Played changed = Alteration(seed).of(original, touched);
            Evidence evidence;
            const station::Judgement now = viewer.judge(changed, &evidence);
            SCOPED_TRACE(std::string(built_in.name) + " " + words + " " + std::to_string(seed));
            const bool touches_reason = reason_lines.count(*touched.begin()) != 0;
            EXPECT_TRUE(touches_reason || now.verdict >= judgement.verdict)
                << "was " << static_cast<int>(judgement.verdict) << ", is "
                << static_cast<int>(now.verdict);
            ++altered;
            if (now.verdict != Verdict::pass) continue;
            ++passed;
            for (const auto& [name, value] : values_of(evidence)) {
                const auto before = original_values.find(name);
                const bool same = before != original_values.end() && before->second == value;
                EXPECT_TRUE(same || is_open(viewer.plan, name)) << name << " " << value;
            }
        }
    }
}

TEST(StationGrammar, AlteredTranscriptsAreNeverJudgedBetter) {
    int altered = 0, passed = 0;
    const unsigned rounds = full_form() ? 2100 : 60;
    alter("netQ7test", rounds, altered, passed);
    alter("", rounds, altered, passed);
    std::printf("%d altered transcripts, %d of them changed nothing that the plan wants\n", altered,
                passed);
}

TEST(StationGrammar, DiskTextsThatLookLikeReportsPassNothing) {
    const Played report = line_by_line(play(healthy(), "netQ7test"));
    const int rounds = full_form() ? 3000 : 100;
    for (const char* words : {"netQ7test", ""}) {
        const Viewer viewer(line_by_line(play(healthy(), words)));
        for (int seed = 1; seed <= rounds; ++seed) {
            Alteration random(static_cast<unsigned>(seed));
            Board board = healthy(seed % 2 == 0 ? "disks.sdc.size64 = false\ndisks.sdc.size = false"
                                                : "disks.esda.present = false");
            sim::Disk& disk = board.disks.at(random.number(2) == 0 ? "sda" : "sdd");
            std::string& text = random.number(2) == 0 ? disk.model : disk.serial;
            text = random.like_a_report(report, &text == &disk.model ? 40 : 20);
            EXPECT_EQ(viewer.judge(play(board, words)).verdict, Verdict::fail) << seed;
        }
    }
}

}  // namespace
