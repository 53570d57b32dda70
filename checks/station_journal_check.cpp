// Journals that were cut, altered or left unfinished; plans that are wrong; how fast a journal is
// judged.
#include <sys/resource.h>

#include <filesystem>
#include <fstream>

#include "checks/attempts.h"
#include "checks/programs.h"
#include "station/plan.h"
#include "station/text.h"

namespace {

using namespace checks;
using station::Journal;
using station::Verdict;

const Played& good_run() {
    static const Played played = play(healthy(), "netQ7test");
    return played;
}

JournalText good_attempt() {
    return {plan_text("healthy"),
            "45270-2648-0413",
            {{"net", good_run()}},
            {{"panel-leds", "yes"}, {"panel-keys", "yes"}, {"buzzer", "yes"}}};
}

Verdict verdict_of(const std::string& text) {
    return station::judge(station::parse_journal(text)).verdict;
}

std::string reasons_of(const std::string& text) {
    std::string codes;
    for (const station::Item& item : station::judge(station::parse_journal(text)).items) {
        for (const station::Reason& reason : item.reasons)
            codes += reason.code + ":" + std::to_string(reason.line) + " ";
    }
    return codes;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t from = 0, end; (end = text.find('\n', from)) != text.npos; from = end + 1)
        lines.push_back(text.substr(from, end + 1 - from));
    return lines;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line;
    return text;
}

TEST(StationJournal, CutOrAlteredAnywhereItIsNoPass) {
    const std::string good = journal_of(good_attempt());
    ASSERT_EQ(verdict_of(good), Verdict::pass) << reasons_of(good);
    const std::size_t step = full_form() ? 1 : 97;
    std::size_t cuts = 0;
    for (std::size_t at = 0; at < good.size(); ++at) {
        const bool at_line_end = good[at] == '\n' || (at > 0 && good[at - 1] == '\n');
        if (at % step != 0 && !at_line_end) continue;
        ASSERT_EQ(verdict_of(good.substr(0, at)), Verdict::incomplete) << at;
        std::string altered = good;
        altered[at] = static_cast<char>(altered[at] ^ (at % 7 + 1));
        ASSERT_NE(verdict_of(altered), Verdict::pass) << at;
        ++cuts;
    }
    std::printf("%zu journals cut and %zu altered\n", cuts, cuts);
}

TEST(StationJournal, ALineThatIsMissingDoubledOrMovedIsSeen) {
    const std::vector<std::string> good = lines_of(journal_of(good_attempt()));
    for (std::size_t i = 0; i < good.size(); ++i) {
        std::vector<std::string> lines = good;
        lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(i));
        EXPECT_NE(verdict_of(joined(lines)), Verdict::pass) << i;
        lines = good;
        lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(i), good[i]);
        EXPECT_NE(verdict_of(joined(lines)), Verdict::pass) << i;
        if (i == 0) continue;
        lines = good;
        std::swap(lines[i], lines[i - 1]);
        EXPECT_NE(verdict_of(joined(lines)), Verdict::pass) << i;
    }
}

// A whole journal again, with one text in it exchanged: as if somebody had written it so.
std::string rewritten(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, text.npos) << from;
    text.replace(at, from.size(), to);
    std::string previous(64, '0'), result;
    for (const std::string& line : lines_of(text)) {
        std::string open = line.substr(0, line.rfind(",\"crc\":"));
        open.replace(open.find("\"prev\":\"") + 8, 64, previous);
        const std::string whole = station::with_crc(open);
        previous = station::sha256(whole);
        result += whole + "\n";
    }
    return result;
}

TEST(StationJournal, WhatItDoesNotKnowOrHaveIsSaid) {
    const std::string good = journal_of(good_attempt());
    const struct {
        std::string from, to, code;
    } rows[] = {
        {"\"version\":1", "\"version\":2", "version:1 "},
        {"\"kind\":\"answer\"", "\"kind\":\"wish\"", "version:"},
        {"QM-45270 DVR", "QM-45270 DVX", "altered:1 "},
        {"\"operator\":\"W1032\"", "\"operator\":\"\"", "identity:1 "},
        {"\"serial\":\"45270-2648-0413\"", "\"serial\":\"45271-2648-0413\"", "serial-pattern:1 "},
        {"\"words\":[\"netQ7test\"]", "\"words\":[\"netQ7test\",\"x\"]", "wrong-command:2 "},
        {"\"answer\":\"yes\"", "\"answer\":\"unsure\"", "answer-unsure:"},
        {"\"answer\":\"yes\"", "\"answer\":\"no\"", "answer-no:"},
        {"\"answer\":\"yes\"", "\"answer\":\"none\"", "answer-missing:"},
        {"\"kind\":\"answer\",\"question\":\"buzzer\",\"answer\":\"yes\",\"operator\":\"W1032\","
         "\"via\":\"option\"",
         "\"kind\":\"limit\",\"limit\":\"silence\",\"command\":1", "time-limit:"},
    };
    for (const auto& row : rows) {
        const std::string text = rewritten(good, row.from, row.to);
        EXPECT_NE(verdict_of(text), Verdict::pass) << row.to;
        EXPECT_THAT(reasons_of(text), HasSubstr(row.code)) << row.to;
    }
    JournalText without = good_attempt();
    without.plan = "\nmodel = \"QM-45270\"\n";
    EXPECT_THAT(reasons_of(journal_of(without)), StartsWith("plan:1"));
    JournalText unsigned_plan = good_attempt();
    const std::size_t at = unsigned_plan.plan.find("by = \"");
    unsigned_plan.plan.replace(at, unsigned_plan.plan.find('"', at + 6) + 1 - at, "by = \"\"");
    EXPECT_EQ(reasons_of(journal_of(unsigned_plan)), "plan-unsigned:1 ");
}

TEST(StationJournal, LostRecordsAGapAndASignalAreIncomplete) {
    const auto with = [](const std::string& kind, const std::string& bytes) {
        JournalText attempt = good_attempt();
        attempt.commands[0].second.lines.push_back({kind, bytes, 60});
        return journal_of(attempt);
    };
    EXPECT_THAT(reasons_of(with("out", "write error file = nic ,line = 87 \n")),
                StartsWith("records-lost:"));
    EXPECT_THAT(reasons_of(with("torn", "x")), StartsWith("records-lost:"));
    JournalText interrupted = good_attempt();
    interrupted.commands[0].second.signal = 2;
    EXPECT_EQ(verdict_of(journal_of(interrupted)), Verdict::incomplete);
    Journal gap = parsed_journal_of(good_attempt());
    gap.events.erase(gap.events.begin() + 2);
    const station::Judgement judgement = station::judge(gap);
    EXPECT_EQ(judgement.item("run")->reasons.front().code, "records-lost");
}

// Killed at any byte, a station goes on where the numbers of the board stop.
TEST(StationJournal, GoesOnBehindATornLine) {
    const std::string good = journal_of(good_attempt()), path = scratch("station.journal");
    const std::vector<std::string> events = events_of(good_run());
    const std::size_t first = lines_of(good).front().size();
    for (std::size_t at = first + 1; at < good.size() - 1000; at += full_form() ? 11 : 1117) {
        std::ofstream(path, std::ios::binary) << good.substr(0, at);
        {
            station::JournalWriter writer = station::JournalWriter::resume(path);
            const Journal so_far = station::read_journal(path);
            if (so_far.commands.empty()) {
                writer.line(
                    "command",
                    {{"command", 1}, {"name", "net"}, {"run", "R"}, {"words", {"netQ7test"}}});
            }
            for (std::size_t i = so_far.events.size(); i < events.size(); ++i)
                writer.board(1, events[i]);
            for (const char* question : {"panel-leds", "panel-keys", "buzzer"}) {
                writer.line("answer", {{"question", question},
                                       {"answer", "yes"},
                                       {"operator", "W1"},
                                       {"via", "option"}});
            }
            writer.line("end", {{"commands", 1}});
            writer.sync();
        }
        ASSERT_EQ(verdict_of(content_of(path)), Verdict::pass)
            << at << reasons_of(content_of(path));
        EXPECT_THAT(content_of(path), HasSubstr("\"kind\":\"resumed\""));
    }
    EXPECT_THROW(station::JournalWriter::resume(path), std::runtime_error) << "it has its end";
    std::remove(path.c_str());
}

// By the program itself, for the checks are not optimized.
TEST(StationJournal, JudgesAThousandASecond) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "time is measured in the plain build alone";
#endif
    const std::string path = scratch("station.journal");
    std::ofstream(path, std::ios::binary) << journal_of(good_attempt());
    std::string command = Q7_BINARIES "/q7-station judge";
    for (int i = 0; i < 500; ++i)
        command += " " + path;
    const auto cpu_s = [] {
        rusage usage{};
        ::getrusage(RUSAGE_CHILDREN, &usage);
        return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
               + static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    };
    double best_s = 1e9;
    for (int attempt = 0; attempt < 5; ++attempt) {
        const double before_s = cpu_s();
        EXPECT_EQ(shell(command).status, 0);
        best_s = std::min(best_s, (cpu_s() - before_s) / 500);
    }
    std::remove(path.c_str());
    std::printf("%.0f journals a second on one core\n", 1 / best_s);
    EXPECT_LT(best_s, 1e-3);
}

TEST(StationPlan, SaysWithFileAndLineWhatIsWrong) {
    const std::string good =
        "version = 1\nname = \"n\"\nmodel = \"m\"\nserial = 'x'\n"
        "[[commands]]\nname = \"net\"\nwords = []\nsteps = [\"usb\"]\n"
        "[facts]\n";
    EXPECT_NO_THROW(station::Plan::parse(good, "p.toml"));
    const struct {
        std::string rule, error;
    } rows[] = {
        {"netwrk.copper.1.speed = 1000",
         "p.toml:10: unknown fact netwrk.copper.1.speed (known names are near it: "
         "network.*.*.speed"},
        {"rs485.good = {min = 5, max = 4}", "p.toml:10: impossible range: min 5 is above max 4"},
        {"network.copper.1.speed = {min = 2000}",
         "p.toml:10: min must be a whole number from 0 to 1000"},
        {"network.copper.1.link = \"upp\"",
         "p.toml:10: network.*.*.link can be up, down, unknown, never upp"},
        {"info.arm = {min = 3}", "p.toml:10: a range is for a number"},
        {"info.arm = {pattern = '('}", "p.toml:10: \"(\" is no regular expression"},
        {"rs485.good = {least = 3, min = 2}", "p.toml:10: unknown key least (known: equal, min"},
        {"rs485.good = {optional = true}", "p.toml:10: no condition"},
        {"\"usb.*.*.free\" = {open = true, min = 3}", "p.toml:10: a fact that is left open"},
        {"rs485.good = \"1024\"", "p.toml:10: rs485.good is a whole number"},
        {"[[questions]]\nname = \"buzer\"\nstep = \"usb\"",
         "p.toml:11: name is \"buzer\", but must be one of panel-leds, panel-keys, buzzer"},
        {"[[questions]]\nname = \"buzzer\"\nstep = \"buzzer\"",
         "p.toml:12: the command has no step buzzer (it has: usb)"},
        {"[[commands]]\nname = \"usb\"\nwords = []\nsteps = [\"usb\"]",
         "p.toml:11: usb is the name of a group of facts"},
        {"[[explained]]\ntext = \"x\"", "p.toml:10: reason is missing"},
        {"x = 'y", "p.toml:10: "},
    };
    for (const auto& row : rows) {
        try {
            station::Plan::parse(good + row.rule + "\n", "p.toml");
            ADD_FAILURE() << row.rule;
        } catch (const station::PlanError& error) {
            EXPECT_THAT(error.what(), StartsWith(row.error)) << row.rule;
        }
    }
}

TEST(StationPlan, EachPlanHasNothingMissing) {
    int plans = 0;
    for (const auto& entry : std::filesystem::directory_iterator(Q7_SOURCE "/plans")) {
        const station::Plan plan =
            station::Plan::parse(content_of(entry.path()), entry.path().string());
        for (const std::string& remark : plan.remarks()) {
            const bool no_keys = entry.path().stem() == "dvs" && remark.find("panel:") == 0;
            const bool asked_before = remark.rfind("reset.panel: no question", 0) == 0;
            EXPECT_TRUE(no_keys || asked_before) << entry.path() << ": " << remark;
        }
        ++plans;
    }
    EXPECT_GE(plans, 5);
}

}  // namespace
