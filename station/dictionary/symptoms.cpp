#include "station/dictionary/symptoms.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "station/catalogue.h"

namespace station {
namespace {

using Compare = Weight::Compare;

struct Row {
    std::string_view pattern;  // "*" stands for one component
    Compare compare;
    double weight;
};

// What follows from other facts, or counts them, weighs little; the values of such counts add up
// when two defects meet, so they are not compared. What the board says of itself at the start
// decides what is tested afterwards, and no defect of a tested part changes it: it weighs much.
constexpr Row kRows[] = {
    {"summary.network", Compare::presence, 0.2},
    {"summary.alarm", Compare::presence, 0.2},
    {"summary.usb", Compare::presence, 0.2},
    {"summary.rs485", Compare::presence, 0.2},
    {"summary.sata", Compare::presence, 0.2},
    {"summary.rtc", Compare::presence, 0.2},
    {"summary.minisas", Compare::presence, 0.2},
    {"summary.result", Compare::presence, 0.1},
    {"alarm.good", Compare::presence, 0.1},
    {"alarm.bad", Compare::presence, 0.1},
    {"alarm.idle.inputs", Compare::presence, 0.3},
    {"alarm.output.*.inputs", Compare::presence, 0.3},
    {"usb.*.disks", Compare::presence, 0.3},
    {"usb.*.failed", Compare::presence, 0.3},
    {"usb.found", Compare::magnitude, 0.5},
    {"usb.mice", Compare::magnitude, 0.5},
    {"usb.*.*.free", Compare::magnitude, 1},
    {"sata.found", Compare::magnitude, 0.3},
    {"sata.*.size", Compare::magnitude, 1},
    {"rs485.good", Compare::magnitude, 0.3},
    {"rs485.bad", Compare::magnitude, 0.3},
    {"rtc.*.difference", Compare::magnitude, 0.3},
    {"start.*", Compare::magnitude, 5},
    {"exit.status", Compare::exact, 0.3},
    {"exit.signal", Compare::exact, 0.3},
};

// Facts of a later command, or repetition, weigh as those of the first.
std::string_view bare(std::string_view symptom) {
    while (find_known(symptom.substr(0, symptom.find('#'))) == nullptr) {
        const std::size_t dot = symptom.find('.');
        if (dot == std::string_view::npos) break;
        symptom.remove_prefix(dot + 1);
    }
    return symptom;
}

void add_bits(Symptoms& symptoms, const Reason& reason) {
    const auto value = std::strtoull(reason.value.c_str(), nullptr, 0);
    const auto wanted = std::strtoull(reason.wanted.c_str(), nullptr, 0);
    for (int bit = 0; bit < 32; ++bit) {
        if (((value ^ wanted) >> bit & 1) == 0) continue;
        symptoms[reason.fact + "#" + std::to_string(bit + 1)] = (value >> bit & 1) != 0 ? "1" : "0";
    }
}

// "1,3" = ports 1 and 3.
void add_ports(Symptoms& symptoms, const Reason& reason) {
    std::string port;
    for (const char c : reason.value + ",") {
        if (c != ',') {
            port += c;
        } else if (!port.empty()) {
            symptoms[reason.fact + "#" + port] = "0";
            port.clear();
        }
    }
}

// Without the name of an error at its end, and without numbers, but those of a name: "msa1". They
// are facts of their own, or differ from board to board.
std::string without_values(std::string text) {
    constexpr int kErrors = 134;
    constexpr std::size_t kLongestName = 2;  // digits of a disk, a port
    for (int error = 1; error < kErrors; ++error) {
        const std::string name = std::string(": ") + std::strerror(error);
        if (text.ends_with(name)) text.resize(text.size() - name.size());
    }
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = at;
        while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) != 0)
            ++end;
        const bool in_name =
            !result.empty() && std::isalpha(static_cast<unsigned char>(result.back())) != 0;
        const bool is_value = end > at && !(in_name && end - at <= kLongestName);
        end = std::max(end, at + 1);
        result += is_value ? "#" : text.substr(at, end - at);
        at = end;
    }
    return result;
}

void add(Symptoms& symptoms, const Reason& reason) {
    const std::string& code = reason.code;
    if (code == "wrong") {
        symptoms[reason.fact] = reason.value;
        if (reason.unit == "bits") add_bits(symptoms, reason);
        if (bare(reason.fact) == "summary.sata" && reason.value != "bad")
            add_ports(symptoms, reason);
    } else if (code == "missing-fact") {
        symptoms[reason.fact] = "absent";
    } else if (code == "extra-fact") {
        symptoms[reason.fact] = reason.value;
    } else if (code == "not-distinct") {
        symptoms["doubled " + reason.fact] = reason.wanted;
    } else if (code == "failure" || code == "unexplained") {
        symptoms["text " + without_values(reason.text)] = code;
    } else if (code == "answer-no") {
        symptoms["answer " + reason.text] = "no";
    } else if (code == "records-lost" || code == "exit" || code == "time-limit") {
        symptoms["run " + code] = without_values(reason.text);
    }
}

bool has_prefix(const Symptoms& symptoms, std::string_view prefix) {
    const auto place = symptoms.lower_bound(std::string(prefix));
    return place != symptoms.end() && place->first.starts_with(prefix);
}

const std::int64_t* number(const Evidence& evidence, std::string_view fact) {
    const Fact* found = evidence.find(fact);
    return found == nullptr ? nullptr : std::get_if<std::int64_t>(&found->value);
}

// Whether bytes were lost, or came and were wrong.
void add_rs485(Symptoms& symptoms, const Judgement& judgement, const Evidence& evidence) {
    const std::int64_t* good = number(evidence, "rs485.good");
    const std::int64_t* bad = number(evidence, "rs485.bad");
    if (good == nullptr || bad == nullptr) return;
    const Item* item = judgement.item("rs485");
    for (const Reason& reason : item != nullptr ? item->reasons : std::vector<Reason>{}) {
        if (reason.fact != "rs485.good") continue;
        const long long wanted = std::atoll(reason.wanted.c_str());
        symptoms["rs485.received"] = *good + *bad == 0       ? "none"
                                     : *good + *bad < wanted ? "fewer"
                                                             : "all";
    }
}

// Whether the clock runs with the system's, and shows its year.
void add_rtc(Symptoms& symptoms, const Evidence& evidence) {
    if (!has_prefix(symptoms, "rtc.")) return;
    const std::int64_t* first = number(evidence, "rtc.1.difference");
    const std::int64_t* last = number(evidence, "rtc.3.difference");
    if (first != nullptr && last != nullptr && std::abs(*last - *first) > 1)
        symptoms["rtc.trend"] = *last < *first ? "loses" : "gains";
    const Fact* clock = evidence.find("rtc.1.clock");
    const Fact* system = evidence.find("rtc.1.system");
    if (clock == nullptr || system == nullptr) return;
    const int years =
        std::atoi(to_text(clock->value).c_str()) - std::atoi(to_text(system->value).c_str());
    if (std::abs(years) > 1) symptoms["rtc.year"] = years < 0 ? "earlier" : "later";
}

}  // namespace

Symptoms symptoms_of(const Judgement& judgement, const Evidence& evidence) {
    Symptoms symptoms;
    for (const Item& item : judgement.items) {
        for (const Reason& reason : item.reasons) {
            add(symptoms, reason);
            if (reason.code == "missing-step" || reason.code == "extra-step")
                symptoms["step " + item.name] = reason.code == "missing-step" ? "absent" : "extra";
        }
    }
    add_rs485(symptoms, judgement, evidence);
    add_rtc(symptoms, evidence);
    return symptoms;
}

Weight weight_of(std::string_view symptom) {
    if (symptom == "rs485.received" || symptom == "rtc.trend" || symptom == "rtc.year")
        return {Compare::exact, 1, false};
    if (symptom.find(' ') != std::string_view::npos) {
        const bool has_detail = symptom.starts_with("run ");
        return {has_detail ? Compare::presence : Compare::exact, 1, true};
    }
    if (symptom.find('#') != std::string_view::npos) return {Compare::exact, 1, false};
    const std::string_view name = bare(symptom);
    for (const Row& row : kRows)
        if (name_fits(row.pattern, name)) return {row.compare, row.weight, true};
    return {Compare::exact, 1, true};
}

double likeness(std::string_view symptom, const std::string& a, const std::string& b) {
    const Compare compare = weight_of(symptom).compare;
    if (a == b || compare == Compare::presence) return 1;
    constexpr double kSameFactOtherValue = 0.4;
    if (compare == Compare::exact) return kSameFactOtherValue;
    char *end_a = nullptr, *end_b = nullptr;
    const double x = std::strtod(a.c_str(), &end_a), y = std::strtod(b.c_str(), &end_b);
    if (end_a == a.c_str() || end_b == b.c_str()) return kSameFactOtherValue;
    if ((x < 0) != (y < 0)) return 0.5;
    const double ratio = std::abs(std::log((std::abs(x) + 1) / (std::abs(y) + 1)));
    return std::max(0.6, 0.98 - 0.08 * ratio);
}

std::string step_of(std::string_view symptom) {
    if (symptom.starts_with("doubled ")) symptom.remove_prefix(8);
    if (symptom.find(' ') != std::string_view::npos) return {};
    const std::string_view name = bare(symptom);
    std::string step(name.substr(0, name.find('.')));
    return step == "minisas" ? "sata" : step;
}

}  // namespace station
