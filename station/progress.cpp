#include "station/progress.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace station {
namespace {

std::string seconds(std::int64_t time_us) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", static_cast<double>(time_us) / 1e6);
    return text;
}

std::string safe(const std::string& text) {
    std::string result;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        result += byte < 0x20 || byte == 0x7F ? '?' : character;
    }
    return result;
}

const CommandSeen* command_of(const Evidence& evidence, int number) {
    for (const CommandSeen& command : evidence.commands) {
        if (command.number == number) return &command;
    }
    return nullptr;
}

}  // namespace

void Progress::print(const std::string& text) {
    std::string all = has_status_ ? "\r\033[K" + text : text;
    has_status_ = false;
    for (std::size_t at = 0; at < all.size();) {
        const ssize_t count = ::write(fd_, all.data() + at, all.size() - at);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return;  // whoever watched has gone
        at += static_cast<std::size_t>(count);
    }
}

void Progress::note(const std::string& text) { print(safe(text) + "\n"); }

void Progress::show(const Evidence& evidence, const Plan& plan) {
    std::string text;
    for (const StepSeen& step : evidence.steps) {
        if (!shown_.insert("step " + step.name).second) continue;
        const CommandSeen* command = command_of(evidence, step.command);
        const std::int64_t start_us = command == nullptr ? step.time_us : command->start_us;
        text += step.name + "  " + seconds(step.time_us - start_us) + "\n";
    }
    for (const Fact& fact : evidence.facts) {
        if (fact.derived || !shown_.insert(fact.name).second) continue;
        text += "    " + fact.name + " = " + safe(to_text(fact.value, fact.unit));
        if (!fact.unit.empty() && fact.unit != "bits") text += " " + fact.unit;
        text += "\n";
    }
    for (const Finding& finding : evidence.findings) {
        if (!finding.settled || explains(plan, finding)) continue;
        const std::string key = "line " + std::to_string(finding.line) + " " + finding.text;
        if (!shown_.insert(key).second) continue;

        const bool unexplained = finding.kind == Finding::Kind::unexplained;
        text += (unexplained ? "    ? " : "    ! ") + safe(finding.text) + "\n";
    }
    if (!text.empty()) print(text);
    if (look_ == Look::terminal) show_status(evidence);
}

void Progress::show_status(const Evidence& evidence) {
    if (evidence.steps.empty() || evidence.pieces.empty()) return;
    const StepSeen& step = evidence.steps.back();
    if (step.finished) return;
    const std::int64_t passed_us = evidence.pieces.back().time_us - step.time_us;
    print("\033[1;37;44m " + step.name + " \033[0m " + seconds(passed_us));
    has_status_ = true;
}

void Progress::show(const Judgement& judgement) {
    print(reason_lines(judgement, look_) + verdict_text(judgement, look_));
}

}  // namespace station
