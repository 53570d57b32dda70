// The documents against their subjects: the texts in the product's sources, the keys of a scenario,
// and the sessions shown.
#include <cctype>
#include <filesystem>
#include <fstream>
#include <regex>

#include "checks/harness.h"
#include "checks/programs.h"
#include "driver/test_table.h"

namespace {

using namespace checks;
using Texts = std::set<std::string>;

// Literals that are shown to nobody; paths and texts without letters are not shown either.
constexpr char kNotShown[] =
    "`-o` `-O` `-h` `--help` `netQ7test` `eth0` `eth1` `eth2` `eth3` `sas1` `vfat` `mkdir …` "
    "`mount -t vfat …  …` `测` `the texts must be compiled to GBK (-fexec-charset=GBK)`";

void add_quoted(const std::string& text, Texts& quoted) {
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, '`') && std::getline(stream, part, '`');)
        quoted.insert(part);
}

// The string literals of a source as they look when shown, with … for conversions. Literals side
// by side are one; so are those of a chain of add(), with … for what is added between them.
std::string literals_of(const std::string& code) {
    std::string shown, between;
    bool quoted = false;
    for (std::size_t i = 0; i < code.size(); ++i) {
        if (code[i] == '"') {
            const bool chained = between.starts_with(").add(") && between.find(';') > code.size();
            shown += chained ? "…" : between.empty() ? "" : "\n";
            between.clear();
            quoted = !quoted;
        } else if (!quoted && (code[i] == '#' || code.compare(i, 2, "//") == 0)) {
            i = code.find('\n', i);
        } else if (!quoted) {
            if (code[i] != ' ' && code[i] != '\n') between += code[i];
        } else if (code[i] == '%') {
            i = code.find_first_not_of("0123456789.#lz", i + 1);
            if (!shown.ends_with("…")) shown += "…";
        } else if (code[i] == '\\') {
            ++i;
            shown += code[i] == 'n' ? '\n' : code[i] == 't' || code[i] == 'r' ? ' ' : code[i];
        } else {
            shown += code[i];
        }
    }
    return shown;
}

// Split into lines, without trailing blanks.
void add_texts(const std::filesystem::path& source, Texts& texts) {
    std::ifstream file(source);
    std::istringstream shown(literals_of({std::istreambuf_iterator<char>(file), {}}));
    for (std::string line; std::getline(shown, line);) {
        line.erase(line.find_last_not_of(' ') + 1);
        texts.insert(line.erase(0, line.find_first_not_of(' ')));
    }
}

// The bytes of a Chinese character begin above those of …
bool is_message(const std::string& text) {
    const auto is_letter = [](unsigned char c) { return std::isalpha(c) != 0 || c > 0xE2; };
    return text[0] != '/' && std::any_of(text.begin(), text.end(), is_letter);
}

// The operator's page in each language, with the heading of a test's section before its number.
struct OperatorPage : testing::TestWithParam<std::pair<const char*, const char*>> {
    std::string page = content_of(Q7_SOURCE + std::string(GetParam().first));
};

TEST_P(OperatorPage, ExplainsEveryTextThatIsShownAndNoOther) {
    Texts in_sources, listed;
    for (const char* folder : {"/device", "/driver", "/pmp", "/tests"}) {
        for (const auto& entry :
             std::filesystem::directory_iterator(Q7_SOURCE + std::string(folder)))
            add_texts(entry.path(), in_sources);
    }
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("| `")) add_quoted(line.substr(0, line.find('|', 1)), listed);
    add_quoted(kNotShown, listed);
    for (const std::string& text : in_sources)
        EXPECT_TRUE(!is_message(text) || listed.count(text) != 0) << "not explained: " << text;
    for (const std::string& text : listed)
        EXPECT_EQ(in_sources.count(text), 1u) << "not in the sources: " << text;
}

TEST_P(OperatorPage, HasASectionForEachTest) {
    int number = 0;
    for (const NumberedTest& test : numbered_tests()) {
        const std::string name = std::to_string(++number);
        EXPECT_THAT(test.usage, StartsWith("No." + name));
        EXPECT_THAT(page, HasSubstr("\n## " + (GetParam().second + name)));
    }
}

INSTANTIATE_TEST_SUITE_P(Languages, OperatorPage,
                         testing::Values(std::pair("/docs/operator.md", "Test "),
                                         std::pair("/docs/operator.zh.md", "测试 ")));

TEST(ManualPage, NamesEveryExitStatus) {
    const std::string page = content_of(Q7_SOURCE "/man/q7.1");
    const std::string section = page.substr(page.find(".SH EXIT STATUS"));
    std::set<int> named, seen;
    for (std::size_t at = 0; (at = section.find(".TP\n", at)) != std::string::npos;) {
        at += 4;
        std::istringstream statuses(section.substr(at, section.find('\n', at) - at));
        for (std::string status; std::getline(statuses, status, ',');)
            named.insert(std::stoi(status));
    }
    for (const char* change : {"", "control.present = false", "faults = [{request = 0x20}]",
                               "faults = [{request = 0x20}, {request = 0x04}]"}) {
        for (const char* words : {"-o 2", "netQ7test"})
            seen.insert(run(words, change).status);
    }
    EXPECT_EQ(named, seen);
}

// A heading as the name of its place in the page: "## What is `kept`?" is what-is-kept.
std::string anchor_of(const std::string& heading) {
    std::string anchor;
    for (const char c : heading.substr(heading.find(' ') + 1)) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == ' ') anchor += '-';
        if (std::isalnum(byte) != 0 || c == '-' || c == '_' || byte >= 0x80)
            anchor += static_cast<char>(std::tolower(byte));
    }
    return anchor;
}

std::set<std::string> anchors_of(const std::string& page) {
    std::set<std::string> anchors;
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("#")) anchors.insert(anchor_of(line));
    return anchors;
}

TEST(Documents, EachLinkLeadsSomewhere) {
    namespace fs = std::filesystem;
    std::vector<fs::path> pages{Q7_SOURCE "/README.md"};
    for (const auto& entry : fs::directory_iterator(Q7_SOURCE "/docs"))
        if (entry.path().extension() == ".md") pages.push_back(entry.path());
    int links = 0;
    for (const fs::path& path : pages) {
        const std::string page = content_of(path);
        const std::regex link("\\]\\(([\\w./-]*)#?([^) ]*)\\)");
        for (std::sregex_iterator at(page.begin(), page.end(), link), end; at != end; ++at) {
            const fs::path to = (*at)[1].length() == 0 ? path : path.parent_path() / (*at)[1].str();
            const std::string anchor = (*at)[2];
            EXPECT_TRUE(fs::exists(to)) << path << ": " << (*at)[0];
            EXPECT_TRUE(anchor.empty() || anchors_of(content_of(to)).count(anchor) != 0)
                << path << ": " << (*at)[0];
            ++links;
        }
    }
    EXPECT_GT(links, 40);
}

// The fenced blocks of a page in this language, without the fences.
std::vector<std::string> blocks(const std::string& page, const std::string& language) {
    std::vector<std::string> found;
    const std::string open = "\n```" + language + "\n";
    for (std::size_t at = 0; (at = page.find(open, at)) != std::string::npos;) {
        at += open.size();
        found.push_back(page.substr(at, page.find("\n```", at) + 1 - at));
    }
    return found;
}

// A session without its numbers of source lines, which move with the code.
std::string masked(std::string session) {
    const std::string mark = ",line = ";
    for (std::size_t at = 0; (at = session.find(mark, at)) != std::string::npos;) {
        at += mark.size();
        session.replace(at, session.find_first_not_of("0123456789", at) - at, "N");
    }
    return session;
}

// Writes each board of the page next to a folder named build, and runs each command there.
TEST(Sessions, GoAsTheyAreShown) {
    const std::string place = folder_of_document("session");
    int sessions = 0;
    for (const char* name : {"/README.md", "/docs/simulator.md", "/checks/sessions.md"}) {
        const std::string page = content_of(Q7_SOURCE + std::string(name));
        for (const std::string& board : blocks(page, "toml")) {
            ASSERT_TRUE(board.starts_with("# ")) << board;
            std::ofstream(place + "/" + board.substr(2, board.find('\n') - 2)) << board;
        }
        for (const std::string& session : blocks(page, "console")) {
            EXPECT_EQ(masked(play(session, place)), masked(session)) << name;
            ++sessions;
        }
    }
    EXPECT_GT(sessions, 8);
}

}  // namespace
