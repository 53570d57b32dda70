// The grammar of q7's texts: complete, the same in every mode, and not to be fooled by transcripts
// that were altered.
#include <map>
#include <random>

#include "checks/attempts.h"
#include "sim/scenario/scenario.h"
#include "station/catalogue.h"
#include "station/learn.h"

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

// What said that the board is bad still stands there, but what it stood in is gone: a heading, say.
// Nothing explains it then.
bool lost_its_place(const std::set<std::string>& reasons, const Evidence& evidence) {
    return std::any_of(
        evidence.findings.begin(), evidence.findings.end(), [&](const Finding& finding) {
            return finding.kind == Finding::Kind::unexplained
                   && std::any_of(reasons.begin(), reasons.end(), [&](const std::string& text) {
                          return finding.text.find(text) != std::string::npos;
                      });
        });
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
        std::set<std::string> reason_texts;
        for (const station::Piece& piece : original_evidence.pieces) {
            if (reason_lines.count(piece.line) != 0) reason_texts.insert(piece.text);
        }
        if (original.lines.empty()) continue;
        for (unsigned seed = 1; seed <= rounds; ++seed) {
            std::set<int> touched;
            const Played changed = Alteration(seed).of(original, touched);
            Evidence evidence;
            const station::Judgement now = viewer.judge(changed, &evidence);
            SCOPED_TRACE(std::string(built_in.name) + " " + words + " " + std::to_string(seed));
            const bool touches_reason = reason_lines.count(*touched.begin()) != 0;
            EXPECT_TRUE(touches_reason || now.verdict >= judgement.verdict
                        || (now.verdict != Verdict::pass && lost_its_place(reason_texts, evidence)))
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
