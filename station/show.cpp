#include "station/show.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <map>

namespace station {
namespace {

struct Wording {
    std::string_view code, text;
};
// What a reason says when no fact stands for it; its own text follows.
constexpr Wording kWordings[] = {
    {"missing-step", "the plan wants this step, and the transcript does not have it"},
    {"extra-step", "the plan does not have this step"},
    {"failure", "q7 reported a failure"},
    {"answer-no", "the operator answered no"},
    {"answer-missing", "no answer"},
    {"answer-unsure", "the operator could not tell"},
    {"cut-off", "cut off"},
    {"altered", "the journal was altered"},
    {"version", "unknown version"},
    {"records-lost", "something was lost"},
    {"recorder-dead", "the recorder on the board died"},
    {"interrupted", "q7 was interrupted"},
    {"stopped", "stopped by somebody"},
    {"time-limit", "a time limit passed"},
    {"station-failed", "the station could not go on"},
    {"no-command", "a command of the plan did not run"},
    {"extra-command", "a command that the plan does not have"},
    {"wrong-command", "the command is not the plan's"},
    {"not-run", "q7 was not started"},
    {"exit", "q7 did not end by itself"},
    {"identity", "the identity is not complete"},
    {"no-address", "no network address of the board is known, or it was not looked up"},
    {"address-seen", "this network address belongs to another serial number"},
    {"serial-pattern", "the serial number does not fit the plan"},
    {"scan-out", "another serial number was scanned at the release"},
    {"unexplained", "a line that nothing explains"},
    {"plan-unsigned", "nobody has signed the plan off"},
    {"plan", "the plan is unusable"},
};

std::string_view wording(std::string_view code) {
    const auto* found = std::find_if(std::begin(kWordings), std::end(kWordings),
                                     [&](const Wording& row) { return row.code == code; });
    return found == std::end(kWordings) ? code : found->text;
}

// Control characters as a terminal must not get them from a disk or a board.
std::string printable(std::string_view text) {
    std::string result;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte != 0x7F) {
            result += character;
            continue;
        }
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02X", byte);
        result += escape;
    }
    return result;
}

std::string quoted_value(const std::string& value) { return value.empty() ? "\"\"" : value; }

const char* colour_of(Verdict verdict) {
    constexpr std::array<const char*, 4> kColours{"\033[1;97;42m", "\033[1;30;43m",
                                                  "\033[1;97;100m", "\033[1;97;41m"};
    return kColours.at(static_cast<std::size_t>(verdict));
}

std::string marked(Verdict verdict, Look look) {
    const std::string word(name_of(verdict));
    if (look == Look::plain) return word + " ";
    return colour_of(verdict) + (" " + word) + " \033[0m ";
}

// Reasons that come in crowds when a run is cut off, and then stand in one line.
struct Fold {
    std::string_view code, text;
    std::size_t least;  // reasons of this code; fewer stand for themselves
};
constexpr Fold kFolds[] = {
    {"missing-step", "steps were not seen", 3},
    {"missing-fact", "facts were not seen", 3},
    {"answer-missing", "questions have no answer", 3},
    {"unexplained", "lines are not explained", 9},
};
constexpr std::size_t kMostNamed = 12;

const Fold* fold_of(const Reason& reason) {
    for (const Fold& fold : kFolds) {
        if (fold.code == reason.code) return &fold;
    }
    return nullptr;
}

std::vector<std::string> names_in(const Judgement& judgement, const Fold& fold) {
    std::vector<std::string> names;
    for (const Item& item : judgement.items) {
        for (const Reason& reason : item.reasons) {
            if (reason.code != fold.code) continue;
            names.push_back(!reason.fact.empty()   ? reason.fact
                            : !reason.text.empty() ? reason.text
                                                   : item.name);
        }
    }
    return names;
}

bool is_folded(const Judgement& judgement, Verdict verdict, const Fold& fold) {
    return verdict == Verdict::not_proven && names_in(judgement, fold).size() >= fold.least;
}

std::string folded_line(const Judgement& judgement, const Fold& fold, Look look) {
    const std::vector<std::string> names = names_in(judgement, fold);
    std::string text = marked(Verdict::not_proven, look) + std::to_string(names.size()) + " "
                       + std::string(fold.text) + ": ";
    for (std::size_t i = 0; i < std::min(names.size(), kMostNamed); ++i)
        text += (i == 0 ? "" : ", ") + printable(names[i]);
    return text + (names.size() > kMostNamed ? ", ...\n" : "\n");
}

}  // namespace

Look look_of(int fd) { return ::isatty(fd) == 1 ? Look::terminal : Look::plain; }

std::string one_line(const Reason& reason) {
    std::string text;
    if (reason.code == "wrong" || reason.code == "not-distinct") {
        text = reason.fact + " is " + quoted_value(reason.value) + ", wanted " + reason.wanted;
    } else if (reason.code == "missing-fact") {
        text = reason.fact + " is missing, wanted " + reason.wanted;
    } else if (reason.code == "extra-fact") {
        text =
            reason.fact + " is " + quoted_value(reason.value) + ", of which the plan says nothing";
    } else {
        text = wording(reason.code);
        if (!reason.text.empty()) text += ": " + reason.text;
        if (!reason.value.empty()) text += ": " + reason.value;
        if (!reason.wanted.empty()) text += ", wanted " + reason.wanted;
    }
    if (reason.line > 0) text += " (line " + std::to_string(reason.line) + ")";
    return printable(text);
}

std::string reason_lines(const Judgement& judgement, Look look) {
    std::string text;
    for (int rank = static_cast<int>(Verdict::fail); rank > 0; --rank) {
        const auto verdict = static_cast<Verdict>(rank);
        for (const Fold& fold : kFolds) {
            if (is_folded(judgement, verdict, fold)) text += folded_line(judgement, fold, look);
        }
        for (const Item& item : judgement.items) {
            for (const Reason& reason : item.reasons) {
                if (reason.verdict != verdict) continue;
                const Fold* fold = fold_of(reason);
                if (fold != nullptr && is_folded(judgement, verdict, *fold)) continue;
                text += marked(verdict, look) + item.name + ": " + one_line(reason) + "\n";
            }
        }
    }
    return text;
}

std::string verdict_text(const Judgement& judgement, Look look) {
    const std::string word(name_of(judgement.verdict));
    const std::string who = printable(judgement.identity.serial + "   " + judgement.identity.id);
    if (look == Look::plain) return word + " " + who + "\n";
    const std::size_t width = std::max<std::size_t>(40, who.size() + 6);
    const auto row = [&](const std::string& content) {
        const std::size_t left = (width - content.size()) / 2;
        return std::string(colour_of(judgement.verdict)) + std::string(left, ' ') + content
               + std::string(width - content.size() - left, ' ') + "\033[0m\n";
    };
    std::string spaced;
    for (const char letter : word)
        spaced += (spaced.empty() ? "" : " ") + std::string(1, letter);
    return row("") + row(spaced) + row("") + row(who) + row("");
}

}  // namespace station
