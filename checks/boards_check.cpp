// The built-in boards, each against the texts quoted in its story.
#include "checks/harness.h"
#include "sim/scenario/scenario.h"

namespace {

using namespace checks;

std::vector<std::string> promised(const std::string& story) {
    std::vector<std::string> texts;
    std::size_t end = 0;
    for (std::size_t at; (at = story.find('"', end)) != std::string::npos; ++end) {
        end = story.find('"', at + 1);
        texts.push_back(story.substr(at + 1, end - at - 1));
    }
    return texts;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        line.erase(line.find_last_not_of(' ') + 1);
        lines.push_back(line);
    }
    return lines;
}

// The end of a run: the faults or the OK of the summary, the rows of test 10's table, or the last line
// if q7 gave up before.
std::vector<std::string> verdict(const std::string& console) {
    const auto lines = lines_of(console);
    const auto place = [&](const std::string& start) {
        return std::find_if(lines.begin(), lines.end(),
                            [&](const std::string& line) { return line.starts_with(start); });
    };
    if (const auto summary = place("Q7测试结果如下:"); summary != lines.end()) {
        return {summary + 3, lines.end() - 2};  // behind the two counts, before the end
    }
    return {std::min(place("Chip1"), lines.end() - 1), lines.end()};
}

TEST(Boards, EachEndsAsItsStoryPromises) {
    const auto& boards = sim::built_in_boards();
    EXPECT_GT(boards.size(), 20u);
    for (const sim::BuiltInBoard& built_in : boards) {
        const Board board = sim::load_board(built_in.name);
        const bool flash = board.story.starts_with("test 10: ");
        const Outcome got = run(board, flash ? "-o 10" : "");
        EXPECT_EQ(verdict(got.console), promised(board.story)) << built_in.name << got.console;
        EXPECT_EQ(got.stopped, "") << built_in.name;
    }
}

}  // namespace
