// Runs the lists of docs/assurance.md line by line.
#include <cctype>

#include "checks/harness.h"
#include "sim/scenario/scenario.h"

namespace {

using namespace checks;

bool passes_sequence(const std::string& defect) {
    return run("", defect).console.find("测试结果:  OK!\n") != std::string::npos;
}

TEST(Assurance, DefectsAreNoticedOrPassAsDocumented) {
    const auto passing = documented("Defects that pass\n"),
               noticed = documented("Defects that are");
    EXPECT_GT(passing.size(), 40u);
    EXPECT_GT(noticed.size(), 20u);
    for (const std::string& defect : passing)
        EXPECT_TRUE(passes_sequence(defect)) << defect;
    for (const std::string& defect : noticed)
        EXPECT_FALSE(passes_sequence(defect)) << defect;
    std::printf("%zu defects pass, %zu are noticed\n", passing.size(), noticed.size());
}

TEST(Assurance, FlashDefectsPassTheUpdateAsDocumentedAndTheSecondRunShowsThem) {
    const auto defects = documented("firmware update");
    EXPECT_EQ(defects.size(), 6u);
    for (const std::string& defect : defects) {
        const Board board = healthy(defect);
        const Outcome got = run(board, "-o 10 2");
        const std::size_t second = got.console.find("第2次测试");
        EXPECT_LT(got.console.find("Chip1 正常\n"), second) << defect;
        const auto* cells = reinterpret_cast<const char*>(got.world->bridges[0].flash.cells);
        EXPECT_NE(std::string(cells, 4096), board.files.at("/dav0/zeb321.bin").bytes) << defect;
        EXPECT_EQ(got.console.find("is the same as binary file", second), std::string::npos);
    }
}

bool has_word(const std::string& text, const std::string& word) {
    const auto in_word = [&](std::size_t at) {
        return at < text.size()
               && (std::islower(text[at]) != 0 || std::isdigit(text[at]) != 0 || text[at] == '_');
    };
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
        if (!in_word(at - 1) && !in_word(at + word.size())) return true;
    }
    return false;
}

// The text between the first mark and the next; empty if there is none.
std::string between(const std::string& line, const std::string& open, const std::string& close) {
    const std::size_t from = line.rfind(open, 0) == 0 ? open.size() : std::string::npos;
    return from == std::string::npos ? "" : line.substr(from, line.find(close, from) - from);
}

// Each key of a scenario is listed in a defect, or among the keys that describe none.
TEST(Assurance, ListsCoverEveryKeyOfTheSimulatedBoard) {
    const auto defects = documented("Defects that"), others = documented("Keys that");
    std::istringstream reference(sim::key_reference());
    std::string section;
    int keys = 0;
    for (std::string line; std::getline(reference, line);) {
        const std::string heading = between(line, "### `[", "]"), key = between(line, "| `", "`");
        if (!heading.empty()) section = heading.substr(heading.find_first_not_of('['));
        if (key.empty()) continue;
        ++keys;
        const auto names_key = [&](const auto& list, const std::string& start) {
            return std::any_of(list.begin(), list.end(), [&](const std::string& text) {
                return text.rfind(start, 0) == 0 && has_word(text, key);
            });
        };
        EXPECT_TRUE(names_key(defects, section.substr(0, section.find('.')))
                    || names_key(others, section.empty() ? "base" : section + ":"))
            << section << " " << key;
    }
    EXPECT_GT(keys, 100);
}

}  // namespace
