#include "station/dictionary/diagnosis.h"

#include <algorithm>
#include <memory>
#include <numeric>
#include <set>

#include "station/dictionary/comparison.h"
#include "station/text.h"

namespace station {
namespace {

constexpr double kExact = 0.999;
constexpr double kLeastFit = 0.3;         // below, a cause is none
constexpr double kSecondDefect = 0.5;     // two defects at once are rarer than one
constexpr double kGainOfTwo = 0.15;       // over each of them, for a pair to be worth showing
constexpr double kForLikelihood = 0.012;  // of each point
constexpr std::size_t kFirstPartners = 40;
constexpr std::size_t kPairsShown = 3;

struct Candidate {
    const Signature *first, *second;  // second may be nullptr
    double fit, rank;                 // the smallest rank comes first
};

double likelihood_of(const Signature& signature) {
    return kForLikelihood * signature.defects.front().likelihood();
}

bool comes_before(const Candidate& a, const Candidate& b) { return a.rank < b.rank; }

std::vector<Candidate> singles(const std::vector<Compared>& compared) {
    std::vector<Candidate> found;
    found.reserve(compared.size());
    for (const Compared& each : compared)
        found.push_back({each.signature, nullptr, each.fit.share(),
                         each.fit.cost() - likelihood_of(*each.signature)});
    std::stable_sort(found.begin(), found.end(), comes_before);
    return found;
}

// The least cost of each signature's cause without a second one, which may show in several ways.
std::vector<double> costs_alone(const std::vector<Compared>& compared) {
    std::map<std::string, double> least;
    std::vector<std::string> causes;
    for (const Compared& each : compared) {
        causes.push_back(each.signature->defects.front().cause());
        const auto [place, is_new] = least.emplace(causes.back(), each.fit.cost());
        place->second = std::min(place->second, each.fit.cost());
    }
    std::vector<double> costs;
    costs.reserve(causes.size());
    for (const std::string& cause : causes)
        costs.push_back(least.at(cause));
    return costs;
}

// Pairs in which each explains something that the other does not.
std::vector<Candidate> pairs(const Comparison& comparison, const std::vector<Compared>& compared) {
    const std::vector<double> alone = costs_alone(compared);
    std::vector<std::size_t> partners(compared.size());
    std::iota(partners.begin(), partners.end(), std::size_t{0});
    std::stable_sort(partners.begin(), partners.end(), [&](std::size_t a, std::size_t b) {
        return compared[a].promise > compared[b].promise;
    });
    std::vector<Candidate> found;
    for (std::size_t i = 0; i < std::min(partners.size(), kFirstPartners); ++i)
        for (std::size_t k = i + 1; k < partners.size(); ++k) {
            const Compared &a = compared[partners[i]], &b = compared[partners[k]];
            if (!Comparison::adds(a, b)) continue;
            const Fit fit = comparison.pair(a, b);
            const double least = std::min(alone[partners[i]], alone[partners[k]]);
            if (fit.cost() > least - kGainOfTwo) continue;
            const double likelihood =
                std::min(likelihood_of(*a.signature), likelihood_of(*b.signature));
            found.push_back(
                {a.signature, b.signature, fit.share(), fit.cost() + kSecondDefect - likelihood});
        }
    std::stable_sort(found.begin(), found.end(), comes_before);
    return found;
}

using Group = std::vector<const KnownDefect*>;

// The signature's defects, each cause once, without causes that were named before.
Group group_of(const Signature& signature, std::set<std::string> named = {}) {
    Group group;
    for (const KnownDefect& defect : signature.defects)
        if (named.insert(defect.cause()).second) group.push_back(&defect);
    return group;
}

// One group, or the two of a pair. A cause that shows in several ways is named once; empty = it was.
std::vector<Group> groups_of(const Candidate& candidate, std::set<std::string>& named) {
    if (candidate.second != nullptr) {
        std::vector<Group> two{group_of(*candidate.first), group_of(*candidate.second)};
        const bool is_new =
            named.insert(two[0].front()->cause() + "\n" + two[1].front()->cause()).second;
        return is_new ? two : std::vector<Group>{};
    }
    const Group group = group_of(*candidate.first, named);
    for (const KnownDefect* defect : group)
        named.insert(defect->cause());
    return group.empty() ? std::vector<Group>{} : std::vector<Group>{group};
}

Symptoms expected_of(const Candidate& candidate, const Symptoms& shown) {
    Symptoms expected = candidate.first->symptoms;
    if (candidate.second == nullptr) return expected;
    for (const auto& [name, value] : candidate.second->symptoms) {
        const auto [place, is_new] = expected.emplace(name, value);
        const auto measured = shown.find(name);
        if (is_new || measured == shown.end()) continue;
        if (likeness(name, value, measured->second)
            > likeness(name, place->second, measured->second))
            place->second = value;
    }
    return expected;
}

// A word of bits that two defects change is explained bit by bit.
bool is_explained(const std::string& name, const Symptoms& expected, const Symptoms& shown) {
    const auto found = expected.find(name);
    if (found == expected.end()) return false;
    const auto bits = [&](const Symptoms& symptoms) {
        std::set<std::string> all;
        for (auto bit = symptoms.lower_bound(name + "#");
             bit != symptoms.end() && bit->first.starts_with(name + "#"); ++bit)
            all.insert(bit->first + bit->second);
        return all;
    };
    if (const auto measured = bits(shown); !measured.empty()) return measured == bits(expected);
    return likeness(name, found->second, shown.at(name)) >= kExplained;
}

Cause cause_of(const Candidate& candidate, const std::vector<Group>& groups,
               const Symptoms& shown) {
    Cause cause;
    for (const Group& group : groups) {
        cause.defects.push_back(group.front());
        cause.alternatives.emplace_back(group.begin() + 1, group.end());
    }
    cause.fit = candidate.fit;
    cause.exact = candidate.fit > kExact;
    const Symptoms expected = expected_of(candidate, shown);
    for (const auto& [name, value] : shown) {
        if (!weight_of(name).shown) continue;
        const bool explained = is_explained(name, expected, shown);
        (explained ? cause.explains : cause.unexplained).push_back(name);
        if (const auto other = expected.find(name);
            other != expected.end() && other->second != value && !cause.exact)
            cause.would_show.push_back({name, other->second});
    }
    cause.of = static_cast<int>(cause.explains.size() + cause.unexplained.size());
    cause.matched = static_cast<int>(cause.explains.size());
    for (const auto& [name, value] : expected) {
        if (!weight_of(name).shown || shown.count(name) != 0) continue;
        cause.would_show.push_back({name, value});
        ++cause.of;
    }
    return cause;
}

}  // namespace

std::vector<Cause> causes_of(const Dictionary& dictionary, const Symptoms& shown) {
    std::vector<Cause> causes;
    if (shown.empty()) return causes;
    const Comparison comparison(dictionary, shown);
    const std::vector<Compared> compared = comparison.compared();
    std::vector<Candidate> candidates = singles(compared);
    const bool known = !candidates.empty() && candidates.front().fit > kExact;
    if (!known) {
        std::vector<Candidate> two = pairs(comparison, compared);
        two.resize(std::min(two.size(), kPairsShown));
        candidates.insert(candidates.end(), two.begin(), two.end());
        std::stable_sort(candidates.begin(), candidates.end(), comes_before);
    }
    std::set<std::string> named;
    for (const Candidate& candidate : candidates) {
        if (causes.size() == kCausesShown) break;
        if (candidate.fit < kLeastFit) continue;
        const std::vector<Group> groups = groups_of(candidate, named);
        if (!groups.empty()) causes.push_back(cause_of(candidate, groups, shown));
    }
    return causes;
}

namespace {

using Json = nlohmann::ordered_json;

Json words(const Words& words) { return {{"zh", words.zh}, {"en", words.en}}; }

Json defect_to_json(const KnownDefect& defect) {
    return {{"name", defect.cause()},
            {"defect", defect.change},
            {"title", words(title_of(*defect.kind, defect.places))},
            {"check", words(check_of(*defect.kind, defect.places))}};
}

Words joined(const std::vector<const KnownDefect*>& defects,
             Words (*part)(const Kind&, const std::vector<std::string>&)) {
    Words all;
    for (const KnownDefect* defect : defects) {
        const Words one = part(*defect->kind, defect->places);
        all.zh += (all.zh.empty() ? "" : "；") + one.zh;
        all.en += (all.en.empty() ? "" : "; ") + one.en;
    }
    return all;
}

}  // namespace

Json to_json(const std::vector<Cause>& causes) {
    Json list = Json::array();
    for (const Cause& cause : causes) {
        Json would_show = Json::array(), parts = Json::array();
        for (const Measured& measured : cause.would_show)
            would_show.push_back({{"fact", measured.fact}, {"value", measured.value}});
        std::string change;
        for (std::size_t i = 0; i < cause.defects.size(); ++i) {
            Json part = defect_to_json(*cause.defects[i]), alternatives = Json::array();
            for (const KnownDefect* other : cause.alternatives[i])
                alternatives.push_back(defect_to_json(*other));
            part["alternatives"] = std::move(alternatives);
            parts.push_back(std::move(part));
            change += cause.defects[i]->change;
        }
        list.push_back({{"defect", change},
                        {"title", words(joined(cause.defects, title_of))},
                        {"check", words(joined(cause.defects, check_of))},
                        {"exact", cause.exact},
                        {"matched", cause.matched},
                        {"of", cause.of},
                        {"explains", cause.explains},
                        {"unexplained", cause.unexplained},
                        {"would_show", std::move(would_show)},
                        {"defects", std::move(parts)}});
    }
    return list;
}

namespace {

void insist_on_plan(const Dictionary& dictionary, const std::string& sha256) {
    if (dictionary.plan_sha256 == sha256) return;
    throw DictionaryError("the fault dictionary was made for another plan, " + dictionary.plan_name
                          + " revision " + std::to_string(dictionary.plan_revision)
                          + ": make it again");
}

}  // namespace

std::vector<Cause> causes_of(const Dictionary& dictionary, const Judgement& judgement,
                             const Evidence& evidence) {
    insist_on_plan(dictionary, judgement.plan_sha256);
    if (judgement.verdict == Verdict::pass) return {};
    return causes_of(dictionary, symptoms_of(judgement, evidence));
}

void diagnose(const Dictionary& dictionary, Judgement& judgement, const Evidence& evidence) {
    judgement.causes = to_json(causes_of(dictionary, judgement, evidence));
    judgement.dictionary = {{"board", dictionary.board}, {"defects", dictionary.defects()}};
}

std::function<void(Judgement&, const Evidence&)> diagnosis_by(const std::string& file,
                                                              const Plan& plan) {
    if (file.empty()) return nullptr;
    auto dictionary = std::make_shared<Dictionary>(parse_dictionary(read_file(file), file));
    if (!plan.sha256.empty()) insist_on_plan(*dictionary, plan.sha256);
    return [dictionary](Judgement& judgement, const Evidence& evidence) {
        if (judgement.plan_sha256 == dictionary->plan_sha256)
            diagnose(*dictionary, judgement, evidence);
    };
}

namespace {

constexpr std::size_t kNamesShown = 6;

// A line "WORDS: A, B, C ... (9)"; empty when there is no name.
std::string names_line(const char* words, const std::vector<std::string>& names) {
    if (names.empty()) return {};
    std::string line = std::string("         ") + words + ": ";
    for (std::size_t i = 0; i < std::min(names.size(), kNamesShown); ++i)
        line += (i == 0 ? "" : ", ") + names[i];
    if (names.size() > kNamesShown) line += " ... (" + std::to_string(names.size()) + ")";
    return line + "\n";
}

// The titles of defects with an equal signature, each once.
std::vector<std::string> alternatives_of(const Json& cause) {
    std::vector<std::string> titles;
    for (const Json& part : cause.at("defects"))
        for (const Json& other : part.at("alternatives")) {
            const Json& title = other.at("title");
            titles.push_back(title.at("en").get<std::string>() + " "
                             + title.at("zh").get<std::string>());
        }
    return titles;
}

}  // namespace

std::string cause_lines(const Judgement& judgement) {
    if (judgement.dictionary.is_null() || judgement.verdict == Verdict::pass) return {};
    if (judgement.causes.empty())
        return "cause: the fault dictionary knows no defect that fits\n"
               "       故障字典里没有吻合的故障\n";
    std::string text;
    int number = 0;
    for (const Json& cause : judgement.causes) {
        const auto words = [&](const char* part, const char* language) {
            return cause.at(part).at(language).get<std::string>();
        };
        const std::string fit = cause.at("exact")
                                    ? "exact"
                                    : std::to_string(cause.at("matched").get<int>()) + " of "
                                          + std::to_string(cause.at("of").get<int>());
        text += "cause " + std::to_string(++number) + " (" + fit + "): " + words("title", "en")
                + ". " + words("check", "en") + "\n         " + words("title", "zh") + "。"
                + words("check", "zh") + "\n" + names_line("or 或", alternatives_of(cause));
        if (cause.at("exact")) continue;
        text += names_line("explains 能解释", cause.at("explains"))
                + names_line("leaves unexplained 未解释", cause.at("unexplained"));
    }
    return text;
}

}  // namespace station
