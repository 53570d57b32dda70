// The station's page and manual page against the program.
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "checks/harness.h"
#include "checks/programs.h"

namespace {

using namespace checks;
namespace fs = std::filesystem;

std::set<std::string> options_in(const std::string& text) {
    std::set<std::string> options;
    static const std::regex kOption("--[a-z][a-z-]*");
    for (std::sregex_iterator at(text.begin(), text.end(), kOption), end; at != end; ++at)
        options.insert(at->str());
    return options;
}

std::string between(const std::string& text, const std::string& from, const std::string& to) {
    const std::size_t begin = text.find(from);
    if (begin == std::string::npos) return "";
    const std::size_t end = text.find(to, begin + from.size());
    return text.substr(begin, end - begin);
}

// Each command of the program by name, with its options.
std::map<std::string, std::set<std::string>> commands() {
    std::map<std::string, std::set<std::string>> commands;
    std::istringstream lines(shell(Q7_BINARIES "/q7-station --help").out);
    bool listed = false;
    for (std::string line; std::getline(lines, line);) {
        if (listed && line.starts_with("  ")) {
            const std::string name = line.substr(2, line.find(' ', 2) - 2);
            if (name.empty()) continue;
            commands[name] = options_in(shell(Q7_BINARIES "/q7-station " + name + " --help").out);
            commands[name].erase("--help");
        }
        listed = listed || line == "Subcommands:";
    }
    return commands;
}

TEST(StationManual, NamesEveryCommandAndOption) {
    const std::string page = content_of(Q7_SOURCE "/man/q7-station.1");
    const std::string body = between(page, "\n.SH COMMANDS", "\n.SH OPTIONS OF RUN");
    std::set<std::string> known{"--gbk", "--help", "--version"};
    int options = 0;
    for (const auto& [command, its_options] : commands()) {
        std::string text = between(body, "\n.TP\n.B " + command + "\n", "\n.TP\n");
        ASSERT_FALSE(text.empty()) << command;
        EXPECT_THAT(page, HasSubstr("\nq7-station " + command + " "));
        if (command == "run") text += between(page, "\n.SH OPTIONS OF RUN", "\n.SH EXIT");
        if (command == "serve") text += content_of(Q7_SOURCE "/docs/pages.md");
        const std::set<std::string> of_the_index{"index", "history", "yield", "export"};
        if (of_the_index.count(command) != 0) text += between(body, "\nThese four read", "\n.TP\n");
        const std::set<std::string> named = options_in(text);
        for (const std::string& option : its_options) {
            EXPECT_EQ(named.count(option), 1u) << "q7-station " << command << " " << option;
            known.insert(option);
            ++options;
        }
    }
    EXPECT_GT(options, 40);
    for (const std::string& option : options_in(page))
        EXPECT_EQ(known.count(option), 1u) << option << " is no option";
}

// What the page shows, played again: its journal is kept as a file, so every byte is the same.
TEST(StationPage, ShowsWhatTheProgramPrints) {
    const std::string page = content_of(Q7_SOURCE "/docs/station.md"),
                      place = folder_of_document("page");
    const std::string session = between(page, "\n```console\n", "\n```\n").substr(12) + "\n";
    EXPECT_EQ(play(session, place), session);
    EXPECT_THAT(session, HasSubstr("\nFAIL "));
}

// The proof of a shift. Its attempts are named after the day.
TEST(QualityPage, ItsShiftBeginsAsShown) {
    const std::string page = content_of(Q7_SOURCE "/docs/quality.md"),
                      place = folder_of_document("shift");
    std::ofstream(place + "/references.toml") << between(page, "# references.toml\n", "```\n");
    const std::string session = between(page, "\n```console\n", "\n```\n").substr(12) + "\n";
    std::istringstream lines(session);
    std::string commands, shown;
    for (std::string line; std::getline(lines, line);) {
        const bool is_command = line.starts_with("$ ");
        (is_command ? commands : shown) += line.substr(is_command ? 2 : 0) + "\n";
    }
    std::ofstream(place + "/commands") << "set -e\n" << commands;
    const Finished got = shell("sh -c 'cd " + place + "; sh ./commands'");
    EXPECT_EQ(got.status, 0) << got.err;
    const auto on_some_day = [](const std::string& text) {
        return std::regex_replace(text, std::regex("3L02-\\d{8}-"), "3L02-DAY-");
    };
    EXPECT_EQ(on_some_day(got.out), on_some_day(shown));
    EXPECT_THAT(shown, HasSubstr("P-0001: "));
}

// What the Chinese pages quote in 「」 is what the station's screen shows, but for its numbers.
TEST(StationScreen, ShowsWhatThePagesQuote) {
    const std::string texts = content_of(Q7_SOURCE "/station/web/page/texts.js");
    int quotations = 0;
    for (const char* name : {"/docs/operator.zh.md", "/docs/card.zh.md"}) {
        const std::string page = content_of(Q7_SOURCE + std::string(name));
        const std::string open = "「", close = "」";
        for (std::size_t at = 0; (at = page.find(open, at)) != std::string::npos;) {
            at += open.size();
            const std::string quoted = page.substr(at, page.find(close, at) - at);
            EXPECT_TRUE(quoted.empty() || texts.find(quoted) != std::string::npos) << quoted;
            ++quotations;
        }
    }
    EXPECT_GT(quotations, 20);
}

// The first attempt of the page, in a folder of this check's own.
TEST(StationPage, ItsFirstAttemptPasses) {
    const std::string page = content_of(Q7_SOURCE "/docs/station.md"),
                      place = folder_of_document("attempt");
    std::string command = between(page, "    build/q7-station run ", "\n\n");
    for (std::size_t at; (at = command.find("/tmp/spool")) != std::string::npos;)
        command.replace(at, 10, "spool");
    std::ofstream(place + "/command") << "mkdir spool; " << command << " </dev/null\n";
    const Finished got = shell("sh -c 'cd " + place + "; sh ./command'");
    EXPECT_EQ(got.status, 0) << got.err;
    EXPECT_THAT(got.out, HasSubstr("\nPASS 45270-2648-0413   1-"));
}

}  // namespace
