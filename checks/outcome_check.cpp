// The cases of checks/outcomes: a command on the healthy board, and everything that it shows, sends
// and concludes; on a board with changes, the lines that come (+) and go (-) by them. With Q7_UPDATE
// in the environment the files are written anew.
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "checks/harness.h"
#include "checks/programs.h"

namespace {

using namespace checks;
namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

// Console (without the usual texts of the start), standard error and records.
std::string texts_of(const Outcome& got) {
    std::string text = got.console;
    const std::string usual = kStartLine + std::string("no kill avcore\n");
    if (const std::size_t at = text.find(usual); at != std::string::npos)
        text.erase(at, usual.size());
    if (!text.ends_with('\n')) text += '\n';
    if (!got.errors.empty()) text += "[errors] " + got.errors;
    for (const std::string& record : got.records)
        text += "[record] " + record + (record.ends_with('\n') ? "" : "\n");
    return text;
}

std::string end_of(const Outcome& got) {
    const auto& events = got.world->log.all();
    const auto calls = std::count_if(events.begin(), events.end(),
                                     [](const sim::Event& event) { return !event.is_of_board(); });
    char end[100];
    std::snprintf(end, sizeof end, "%s %d after %.3f s, %zu beeps, %td calls",
                  got.signal != 0 ? "signal" : "status", got.signal != 0 ? got.signal : got.status,
                  got.end_s, got.changes("line", "4=0").size(), calls);
    std::string text = end;
    const sim::World& world = *got.world;
    const auto watchdog = world.control.watchdog_expires;
    const Results& slots = got.results;
    const std::pair<const char*, std::int64_t> values[] = {
        {"network", slots.network},
        {"rs485", slots.rs485},
        {"alarm", slots.alarm},
        {"rtc", slots.rtc},
        {"minisas", slots.minisas},
        {"usb ports", slots.usb_ports_found},
        {"disks", slots.sata_disks_found},
        {"disk faults", slots.sata_fault_mask},
        {"removed", got.count("remove")},
        {"side", world.net_port},
        {"outputs", world.alarm_outputs},
        {"resets", world.bridges[0].resets},
        {"seconds to the restart",
         watchdog == sim::kNever ? 0 : (watchdog - world.now) / 1'000'000},
        {"mounted", !got.nothing_is_mounted()}};
    for (const auto& [name, value] : values)
        if (value != 0) text += std::string(", ") + name + " " + std::to_string(value);
    text += "\n";
    return got.stopped.empty() ? text : text + got.stopped + "\n";
}

// The lines of a text; equal ones in a row are one, with their number.
Lines lines_of(const std::string& text) {
    std::istringstream stream(text);
    Lines lines;
    std::string line, before;
    for (int count = 1; std::getline(stream, line); before = line) {
        count = !lines.empty() && line == before ? count + 1 : 1;
        if (count > 2) lines.pop_back();
        lines.push_back(count > 1 ? "(" + std::to_string(count) + " times)" : line);
    }
    return lines;
}

// The lines that only one of the texts has: "-" of the first, where many are only counted,
// and "+" of the other.
std::string difference(const Lines& a, const Lines& b) {
    // How many lines the rests behind a[i] and b[k] have in common.
    std::vector<std::vector<int>> common(a.size() + 1, std::vector<int>(b.size() + 1));
    for (std::size_t i = a.size(); i-- > 0;)
        for (std::size_t k = b.size(); k-- > 0;)
            common[i][k] = a[i] == b[k] ? common[i + 1][k + 1] + 1
                                        : std::max(common[i + 1][k], common[i][k + 1]);
    std::string text;
    std::size_t i = 0, k = 0;
    while (i < a.size() || k < b.size()) {
        const std::size_t first = i;
        while (i < a.size()
               && (k == b.size() || (a[i] != b[k] && common[i + 1][k] >= common[i][k + 1])))
            ++i;
        if (i > first) text += "-" + a[first];
        if (i > first + 1) text += " ... (" + std::to_string(i - first) + " lines)";
        if (i > first) text += "\n";
        if (i < a.size() && k < b.size() && a[i] == b[k]) {
            ++i, ++k;
        } else if (k < b.size()) {
            text += "+" + b[k++] + "\n";
        }
    }
    return text;
}

class Outcomes : public testing::TestWithParam<std::string> {};

TEST_P(Outcomes, AreThose) {
    const std::string path = Q7_SOURCE "/checks/outcomes/" + GetParam() + ".txt";
    std::istringstream lines(content_of(path));
    std::string line, anew;
    std::getline(lines, line);
    EXPECT_TRUE(line.starts_with("# ")) << path << ": no case";
    while (line.starts_with("# ")) {
        std::string title = line, words, changes, expected;
        std::getline(lines, words);
        ASSERT_TRUE(words.starts_with("$ q7")) << title;
        while (std::getline(lines, line) && line != ">")
            changes += line + "\n";
        while (std::getline(lines, line) && !line.starts_with("# "))
            expected += line + "\n";
        const auto healthy_lines =
            changes.empty() ? Lines{} : lines_of(texts_of(run(words.substr(4))));
        const Outcome got = run(words.substr(4), changes);
        const std::string shown = difference(healthy_lines, lines_of(texts_of(got))) + end_of(got);
        EXPECT_TRUE(shown == expected) << path << ": " << title << "\n" << shown;
        anew += title + "\n" + words + "\n" + changes + ">\n" + shown;
    }
    if (std::getenv("Q7_UPDATE") != nullptr) std::ofstream(path) << anew;
}

Lines areas() {
#ifdef __SANITIZE_THREAD__
    return {"panel",
            "rs485"};  // what threads and processes do side by side; the others take long here
#else
    Lines names;
    for (const auto& entry : fs::directory_iterator(Q7_SOURCE "/checks/outcomes"))
        names.push_back(entry.path().stem());
    return names;
#endif
}

INSTANTIATE_TEST_SUITE_P(Of, Outcomes, testing::ValuesIn(areas()),
                         [](const auto& area) { return area.param; });

TEST(Sequence, CostsLittleRealTime) {
    auto best = std::chrono::steady_clock::duration::max();
    for (int i = 0; i < 20; ++i) {
        const auto start = std::chrono::steady_clock::now();
        run("");
        best = std::min(best, std::chrono::steady_clock::now() - start);
    }
    EXPECT_LT(best, std::chrono::milliseconds(20));
}

}  // namespace
