#include "station/dictionary/pages.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <set>

namespace station {
namespace {

constexpr std::size_t kKindsShown = 8;
constexpr std::size_t kPlacesNamed = 4;

struct StepTitle {
    std::string_view step, zh, en;
};
constexpr StepTitle kSteps[] = {
    {"start", "启动", "Start"},
    {"buzzer", "蜂鸣器", "Buzzer"},
    {"panel", "前面板", "Front panel"},
    {"network", "网络", "Network"},
    {"alarm", "报警", "Alarm"},
    {"rtc", "时钟", "Clock"},
    {"usb", "USB", "USB"},
    {"sata", "硬盘", "Disks"},
    {"rs485", "RS-485", "RS-485"},
    {"info", "板信息", "Board information"},
    {"pmp", "桥片", "Port multipliers"},
    {"summary", "汇总", "Summary"},
    {"sequence", "流程", "Sequence"},
    {"exit", "退出", "End"},
    {"answer", "操作员", "Operator"},
    {"run", "运行", "Run"},
    {"text", "其他文字", "Other texts"},
};

struct Answer {
    std::string_view question, zh, en;
};
constexpr Answer kAnswers[] = {
    {"buzzer", "操作员：没听到蜂鸣器", "Operator: the buzzer was not heard"},
    {"panel-leds", "操作员：有灯不亮", "Operator: not every LED lit"},
    {"panel-keys", "操作员：有键没反应", "Operator: not every key acted"},
};

std::string_view chosen(Language language, std::string_view zh, std::string_view en) {
    return language == Language::zh ? zh : en;
}

std::string step_title(std::string_view step, Language language) {
    for (const StepTitle& row : kSteps)
        if (row.step == step) return std::string(chosen(language, row.zh, row.en));
    return std::string(step);
}

bool is_number(std::string_view text) {
    return !text.empty() && text.find_first_not_of("-0123456789") == std::string_view::npos;
}

// "sdb", "esda", "msa1"; not "esata".
bool is_node(std::string_view text) {
    return text.starts_with("sd") || text.starts_with("esd")
           || (text.starts_with("ms") && text.find(' ') == std::string_view::npos);
}

// "network.copper.2.link" -> "network.copper.N.link", "sata.sdb.state" -> "sata.DISK.state"
std::string without_places(std::string_view fact) {
    std::string result;
    while (true) {
        const std::size_t dot = fact.find('.');
        const std::string_view part = fact.substr(0, dot);
        const bool is_node =
            part.starts_with("sd") || part.starts_with("esd") || part.starts_with("ms");
        result += is_number(part) ? "N" : is_node ? "DISK" : part;
        if (dot == std::string_view::npos) return result;
        result += '.';
        fact.remove_prefix(dot + 1);
    }
}

// "verify.pmp.chip.1.state" -> "pmp.chip.1.state"
std::string without_command(const std::string& fact) {
    const std::size_t at = fact.find(step_of(fact) + ".");
    return at == std::string::npos ? fact : fact.substr(at);
}

std::string trimmed(std::string text) {
    text.erase(0, std::min(text.find_first_not_of(" \n"), text.size()));
    text.erase(text.find_last_not_of(" \n") + 1);
    for (char& c : text)
        if (c == '\n' || c == '`') c = ' ';
    return text;
}

std::string section_of(const std::string& symptom) {
    const std::size_t space = symptom.find(' ');
    if (space == std::string::npos || symptom.starts_with("doubled ")) return step_of(symptom);
    if (symptom.starts_with("step ")) {
        const std::string step = symptom.substr(space + 1);
        return step.substr(step.rfind('.') + 1);
    }
    return symptom.substr(0, space);
}

// --- The entry of a symptom --------------------------------------------------------------------

std::string entry_of_words(const std::string& symptom, const std::string& value,
                           Language language) {
    const std::size_t space = symptom.find(' ');
    const std::string kind = symptom.substr(0, space), rest = symptom.substr(space + 1);
    if (kind == "answer") {
        for (const Answer& answer : kAnswers)
            if (answer.question == rest) return std::string(chosen(language, answer.zh, answer.en));
    }
    if (kind == "step") {
        const std::string title = step_title(section_of(symptom), language);
        if (language == Language::zh)
            return "“" + title + "”这一步" + (value == "absent" ? "没有运行" : "不该运行");
        return "Step \"" + title + "\" " + (value == "absent" ? "did not run" : "should not run");
    }
    if (kind == "doubled")
        return std::string(
            chosen(language, "两块硬盘序列号相同", "Two disks show one serial number"));
    if (rest == "time-limit")
        return std::string(chosen(language, "q7 停住不动，超时", "q7 stands still: time limit"));
    if (rest == "exit")
        return std::string(chosen(language, "q7 被信号终止", "q7 was ended by a signal"));
    if (rest == "records-lost")
        return std::string(chosen(language, "记录丢失：`write error file`",
                                  "Records are lost: `write error file`"));
    return "`" + trimmed(rest) + "`";
}

std::string entry_of(const std::string& symptom, const std::string& value, Language language) {
    if (symptom.find(' ') != std::string::npos) return entry_of_words(symptom, value, language);
    // The table of capabilities is one line: it is there or not.
    const bool is_start = symptom.find("start.") != std::string::npos && symptom != "start.root";
    const bool is_missing = value == "absent";
    const std::string fact =
        "`" + (is_start && is_missing ? "start.*" : without_places(without_command(symptom))) + "`";
    if (is_missing) return fact + std::string(chosen(language, " 缺失", " missing"));
    const bool is_word = !value.empty() && std::islower(static_cast<unsigned char>(value[0])) != 0;
    return fact + (is_word ? " = " + value : std::string(chosen(language, " 不对", " wrong")));
}

// --- The causes of an entry --------------------------------------------------------------------

struct KindSeen {
    const Kind* kind = nullptr;
    std::set<std::vector<std::string>> places;
    int defects = 0;
};
using Kinds = std::map<std::string_view, KindSeen>;

void add(Kinds& kinds, const KnownDefect& defect) {
    KindSeen& seen = kinds[defect.kind->name];
    seen.kind = defect.kind;
    seen.places.insert(defect.places);
    ++seen.defects;
}

// Places as a person would say them of many defects: "N" and "M", or the names of a few.
std::vector<std::string> places_for_all(const KindSeen& seen) {
    if (seen.places.size() == 1) return *seen.places.begin();
    const std::size_t count = seen.places.begin()->size();
    std::vector<std::string> all;
    for (std::size_t i = 0; i < count; ++i) {
        std::set<std::string> names;
        for (const auto& places : seen.places)
            names.insert(places[i]);
        if (std::all_of(names.begin(), names.end(), is_number)) {
            all.emplace_back(i == 0 ? "N" : "M");
            continue;
        }
        std::string text;
        std::size_t named = 0;
        for (const std::string& name : names) {
            if (named++ == kPlacesNamed) break;
            text += (text.empty() ? "" : ", ") + name;
        }
        all.push_back(text + (names.size() > kPlacesNamed ? " ..." : ""));
    }
    return all;
}

std::string text_of(Language language, const Words& words) {
    return language == Language::zh ? words.zh : words.en;
}

std::vector<const KindSeen*> likeliest_first(const Kinds& kinds) {
    std::vector<const KindSeen*> order;
    for (const auto& [name, seen] : kinds)
        order.push_back(&seen);
    std::stable_sort(order.begin(), order.end(), [](const KindSeen* a, const KindSeen* b) {
        if (a->kind->likelihood != b->kind->likelihood)
            return a->kind->likelihood > b->kind->likelihood;
        return a->defects > b->defects;
    });
    return order;
}

std::string bullets(const Kinds& kinds, Language language) {
    std::string text;
    const std::vector<const KindSeen*> order = likeliest_first(kinds);
    for (std::size_t i = 0; i < std::min(order.size(), kKindsShown); ++i) {
        const std::vector<std::string> places = places_for_all(*order[i]);
        text += "- **" + text_of(language, title_of(*order[i]->kind, places)) + "** "
                + text_of(language, check_of(*order[i]->kind, places)) + "\n";
    }
    if (order.size() > kKindsShown) {
        const std::string more = std::to_string(order.size() - kKindsShown);
        text += language == Language::zh ? "- 另有 " + more + " 种较少见的原因\n"
                                         : "- " + more + " less likely kinds of causes\n";
    }
    return text;
}

struct Entry {
    std::string example;  // a line of the transcript
    Kinds kinds;
};

void add_signature(const Dictionary& dictionary, const Signature& signature, Language language,
                   std::map<std::string, std::map<std::string, Entry>>& sections) {
    for (const auto& [name, value] : signature.symptoms) {
        if (!weight_of(name).shown) continue;
        Entry& entry = sections[section_of(name)][entry_of(name, value, language)];
        const auto text = dictionary.texts.find(std::string(name).append("=").append(value));
        if (entry.example.empty() && text != dictionary.texts.end())
            entry.example = trimmed(text->second);
        for (const KnownDefect& defect : signature.defects)
            add(entry.kinds, defect);
    }
}

std::string preface(const std::vector<Dictionary>& dictionaries, Language language) {
    std::string plans;
    for (const Dictionary& dictionary : dictionaries)
        plans.append(plans.empty() ? "" : " / ").append(dictionary.plan_name);
    if (language == Language::zh)
        return "# 故障目录\n\n"
               "看到什么，可能是什么坏了（最可能的在前），先查什么。由 `tools/faults` "
               "从故障字典生成，"
               "请勿手改。\n\n"
               "字典的做法：在模拟板上逐个做出每一种单一故障，记下与好板的差别。"
               "N、M 是端口号，DISK 是盘名。计划："
               + plans + "。\n";
    return "# Fault catalogue\n\n"
           "What is seen, what may be broken (the likeliest first), and what to check. "
           "`tools/faults` makes this page from the fault\ndictionaries: do not edit it.\n\n"
           "A dictionary holds, for every single defect that the simulated board can have, what "
           "differs from a good board.\nN and M are numbers of ports, DISK is a node. Plans: "
           + plans + ".\n";
}

}  // namespace

std::string catalogue_entry(const std::string& symptom, const std::string& value,
                            Language language) {
    return entry_of(symptom, value, language);
}

std::string fault_catalogue(const std::vector<Dictionary>& dictionaries, Language language) {
    std::map<std::string, std::map<std::string, Entry>> sections;
    for (const Dictionary& dictionary : dictionaries)
        for (const Signature& signature : dictionary.signatures)
            add_signature(dictionary, signature, language, sections);

    std::string page = preface(dictionaries, language);
    for (const StepTitle& step : kSteps) {
        const auto section = sections.find(std::string(step.step));
        if (section == sections.end()) continue;
        page += "\n## " + std::string(chosen(language, step.zh, step.en)) + "\n";
        for (const auto& [heading, entry] : section->second) {
            page += "\n### " + heading + "\n\n";
            const bool is_missing =
                heading.find(chosen(language, "缺失", "missing")) != std::string::npos;
            if (!entry.example.empty())
                page += (is_missing ? std::string(chosen(language, "没有这一行：", "Not there: "))
                                    : std::string(chosen(language, "例如：", "For example: ")))
                        + "`" + entry.example + "`\n\n";
            page += bullets(entry.kinds, language);
        }
        sections.erase(section);
    }
    return page;
}

// --- What the station cannot see ---------------------------------------------------------------

namespace {

std::string one_line(std::string change) {
    while (!change.empty() && change.back() == '\n')
        change.pop_back();
    for (std::size_t at; (at = change.find('\n')) != std::string::npos;)
        change.replace(at, 1, " ; ");
    constexpr std::size_t kLongest = 100;
    if (change.size() > kLongest) change = change.substr(0, kLongest) + " ...";
    return change;
}

struct Hidden {
    std::map<std::string, std::pair<int, int>> plans;  // hidden, of all that were simulated
    const KnownDefect* example = nullptr;
    KindSeen seen;
};

// "13 of 53 with every plan", or plan by plan.
std::string counts_of(const Hidden& hidden, std::size_t plans) {
    std::set<std::pair<int, int>> different;
    std::string text;
    for (const auto& [plan, count] : hidden.plans) {
        different.insert(count);
        text += (text.empty() ? "" : "; ") + std::to_string(count.first) + " of "
                + std::to_string(count.second) + " " + plan;
    }
    if (different.size() > 1 || hidden.plans.size() < plans) return text;
    return std::to_string(different.begin()->first) + " of "
           + std::to_string(different.begin()->second) + " with every plan";
}

std::string hidden_table(const std::vector<Dictionary>& dictionaries) {
    std::map<std::string_view, Hidden> kinds;
    for (const Dictionary& dictionary : dictionaries)
        for (const Signature& signature : dictionary.signatures)
            for (const KnownDefect& defect : signature.defects) {
                Hidden& hidden = kinds[defect.kind->name];
                auto& [count, of] = hidden.plans[dictionary.plan_name];
                ++of;
                if (!signature.symptoms.empty()) continue;
                ++count;
                hidden.example = &defect;
                hidden.seen.kind = defect.kind;
                hidden.seen.places.insert(defect.places);
            }
    std::string text = "| defect | not seen, of those simulated | for example |\n|---|---|---|\n";
    for (const auto& [name, hidden] : kinds) {
        if (hidden.example == nullptr) continue;
        const bool is_call = name == "call.fails";
        const std::vector<std::string> places =
            is_call ? std::vector<std::string>{"..."} : places_for_all(hidden.seen);
        text += "| " + title_of(*hidden.seen.kind, places).en + " | ";
        text += counts_of(hidden, dictionaries.size()) + " | ";
        text += hidden.example->change.empty() ? "the same connection"
                                               : "`" + one_line(hidden.example->change) + "`";
        text += " |\n";
    }
    return text;
}

// Causes of one signature, with numbers for places, and in how many signatures they are together.
std::string group_table(const std::vector<Dictionary>& dictionaries) {
    std::map<std::string, int> groups;
    for (const Dictionary& dictionary : dictionaries)
        for (const Signature& signature : dictionary.signatures) {
            if (signature.symptoms.empty()) continue;
            Kinds kinds;
            for (const KnownDefect& defect : signature.defects)
                add(kinds, defect);
            std::size_t causes = 0;
            for (const auto& [name, seen] : kinds)
                causes += seen.places.size();
            const bool calls_alone = kinds.size() == 1 && kinds.begin()->first == "call.fails";
            if (causes < 2 || calls_alone) continue;
            std::string text;
            for (const KindSeen* seen : likeliest_first(kinds)) {
                const std::size_t count = seen->places.size();
                std::vector<std::string> places = places_for_all(*seen);
                for (std::string& place : places)
                    place = is_number(place) ? "N" : is_node(place) ? "DISK" : place;
                if (seen->kind->name == "call.fails")
                    places = {count == 1 ? "..." : std::to_string(count) + " of them"};
                text += (text.empty() ? "" : "; ") + title_of(*seen->kind, places).en;
            }
            ++groups[text];
        }
    std::string text = "| defects with one signature | signatures |\n|---|---|\n";
    for (const auto& [group, count] : groups)
        text += "| " + group + " | " + std::to_string(count) + " |\n";
    return text;
}

}  // namespace

std::string blind_spots(const std::vector<Dictionary>& dictionaries) {
    return "### No fact and no answer shows them\n\n" + hidden_table(dictionaries)
           + "\n### They cannot be told apart\n\n" + group_table(dictionaries);
}

}  // namespace station
