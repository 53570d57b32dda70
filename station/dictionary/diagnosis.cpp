#include "station/dictionary/diagnosis.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace station {
namespace {

constexpr double kExact = 0.999;
constexpr double kExplained = 0.6;        // likeness of a value of the same direction
constexpr double kLeastFit = 0.25;        // below, a cause is none
constexpr double kSecondDefect = 0.5;     // two defects at once are rarer than one
constexpr double kGainOfTwo = 0.15;       // over each of them, for a pair to be worth showing
constexpr double kForLikelihood = 0.012;  // of each point
constexpr std::size_t kFirstPartners = 40;
constexpr std::size_t kPairsShown = 3;

// Signatures under comparison with what was measured.
class Comparison {
  public:
    Comparison(const Dictionary& dictionary, const Symptoms& shown)
        : dictionary_(dictionary), shown_(shown) {
        for (const Signature& signature : dictionary.signatures)
            for (const auto& [name, value] : signature.symptoms)
                ++frequency_[name];
    }

    // Symptoms that one or two signatures share with what was measured, and all they have.
    struct Overlap {
        double shared = 0, all = 0;
        double fit() const { return all == 0 ? 0 : shared / all; }
        double cost() const {
            return all - shared;
        }  // shown and not explained, or expected in vain
    };

    Overlap single(const Symptoms& expected) const {
        Overlap overlap;
        for (const auto& [name, value] : shown_) {
            const double weight = weight_(name);
            const auto found = expected.find(name);
            overlap.all += weight;
            if (found != expected.end())
                overlap.shared += weight * likeness(name, found->second, value);
        }
        for (const auto& [name, value] : expected)
            if (shown_.count(name) == 0) overlap.all += weight_(name);
        return overlap;
    }

    // A symptom of one defect cannot be seen where the other keeps that step from running.
    Overlap pair(const Symptoms& a, const Symptoms& b) const {
        Overlap overlap;
        for (const auto& [name, value] : shown_) {
            const double weight = weight_(name);
            overlap.all += weight;
            overlap.shared +=
                weight * std::max(explained(a, name, value), explained(b, name, value));
        }
        const auto add_missing = [&](const Symptoms& own, const Symptoms& other, bool counted) {
            for (const auto& [name, value] : own) {
                if (shown_.count(name) != 0 || (counted && other.count(name) != 0)) continue;
                if (other.count("step " + step_of(name)) == 0) overlap.all += weight_(name);
            }
        };
        add_missing(a, b, false);
        add_missing(b, a, true);
        return overlap;
    }

    // How much of what was measured a signature explains, less what it expects in vain.
    double promise(const Symptoms& expected) const {
        double shared = 0, vain = 0;
        for (const auto& [name, value] : expected) {
            const auto found = shown_.find(name);
            if (found == shown_.end()) {
                vain += weight_(name);
            } else {
                shared += weight_(name) * likeness(name, value, found->second);
            }
        }
        return shared == 0 ? 0 : shared * shared / (shared + vain);
    }

    // What was measured and a signature has not, or with quite another value.
    Symptoms unexplained_by(const Symptoms& expected) const {
        Symptoms rest;
        for (const auto& [name, value] : shown_)
            if (explained(expected, name, value) < kExplained) rest.emplace(name, value);
        return rest;
    }

  private:
    static double explained(const Symptoms& expected, const std::string& name,
                            const std::string& value) {
        const auto found = expected.find(name);
        return found == expected.end() ? 0 : likeness(name, found->second, value);
    }

    // What few signatures have says more than what many have.
    double weight_(const std::string& name) const {
        const auto found = frequency_.find(name);
        const double frequency = found == frequency_.end() ? 0 : found->second;
        const double count = static_cast<double>(dictionary_.signatures.size()) + 2;
        const double rarity = std::log(count / (frequency + 1)) / std::log(count);
        return weight_of(name).weight * (0.3 + rarity);
    }

    const Dictionary& dictionary_;
    const Symptoms& shown_;
    std::map<std::string, int> frequency_;
};

bool have_common(const Symptoms& a, const Symptoms& b) {
    return std::any_of(a.begin(), a.end(),
                       [&](const auto& symptom) { return b.count(symptom.first) != 0; });
}

struct Candidate {
    const Signature *first, *second;  // second may be nullptr
    double fit, cost, rank;           // the smallest rank comes first
};

double likelihood_of(const Signature& signature) {
    return kForLikelihood * signature.defects.front().kind->likelihood;
}

bool comes_before(const Candidate& a, const Candidate& b) { return a.rank < b.rank; }

std::vector<Candidate> singles(const Dictionary& dictionary, const Comparison& comparison) {
    std::vector<Candidate> found;
    for (const Signature& signature : dictionary.signatures) {
        const Comparison::Overlap overlap = comparison.single(signature.symptoms);
        if (overlap.shared <= 0) continue;
        found.push_back({&signature, nullptr, overlap.fit(), overlap.cost(),
                         overlap.cost() - likelihood_of(signature)});
    }
    std::stable_sort(found.begin(), found.end(), comes_before);
    return found;
}

// Pairs in which each explains something that the other does not.
std::vector<Candidate> pairs(const Comparison& comparison, const std::vector<Candidate>& singles) {
    std::map<std::string, double> alone;  // the least cost of a cause without another
    const auto cause = [](const Candidate& single) {
        return single.first->defects.front().cause();
    };
    for (const Candidate& single : singles) {
        const auto [place, is_new] = alone.emplace(cause(single), single.cost);
        place->second = std::min(place->second, single.cost);
    }
    std::vector<std::pair<double, const Candidate*>> partners;
    for (const Candidate& single : singles)
        partners.emplace_back(comparison.promise(single.first->symptoms), &single);
    std::stable_sort(partners.begin(), partners.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });

    std::vector<Candidate> found;
    for (std::size_t i = 0; i < std::min(partners.size(), kFirstPartners); ++i) {
        const Candidate& a = *partners[i].second;
        const Symptoms rest = comparison.unexplained_by(a.first->symptoms);
        for (std::size_t k = i + 1; k < partners.size(); ++k) {
            const Candidate& b = *partners[k].second;
            if (!have_common(rest, b.first->symptoms)) continue;
            const auto overlap = comparison.pair(a.first->symptoms, b.first->symptoms);
            const double least = std::min(alone.at(cause(a)), alone.at(cause(b)));
            if (overlap.cost() > least - kGainOfTwo) continue;
            const double likelihood = std::min(likelihood_of(*a.first), likelihood_of(*b.first));
            found.push_back({a.first, b.first, overlap.fit(), overlap.cost(),
                             overlap.cost() + kSecondDefect - likelihood});
        }
    }
    std::stable_sort(found.begin(), found.end(), comes_before);
    return found;
}

// The signature's defects, each cause once.
std::vector<const KnownDefect*> group_of(const Signature& signature) {
    std::vector<const KnownDefect*> group;
    std::set<std::string> seen;
    for (const KnownDefect& defect : signature.defects)
        if (seen.insert(defect.cause()).second) group.push_back(&defect);
    return group;
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

Cause cause_of(const Candidate& candidate, const Symptoms& shown) {
    Cause cause;
    for (const Signature* signature : {candidate.first, candidate.second}) {
        if (signature == nullptr) continue;
        std::vector<const KnownDefect*> group = group_of(*signature);
        cause.defects.push_back(group.front());
        group.erase(group.begin());
        cause.alternatives.push_back(std::move(group));
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
    std::vector<Candidate> candidates = singles(dictionary, comparison);
    const bool known = !candidates.empty() && candidates.front().fit > kExact;
    if (!known) {
        std::vector<Candidate> two = pairs(comparison, candidates);
        two.resize(std::min(two.size(), kPairsShown));
        candidates.insert(candidates.end(), two.begin(), two.end());
        std::stable_sort(candidates.begin(), candidates.end(), comes_before);
    }
    std::set<std::string> named;  // a cause that shows in several ways is named once
    for (const Candidate& candidate : candidates) {
        if (causes.size() == kCausesShown) break;
        if (candidate.fit < kLeastFit) continue;
        Cause cause = cause_of(candidate, shown);
        std::string name;
        for (const KnownDefect* defect : cause.defects)
            name += defect->cause() + "\n";
        if (named.insert(name).second) causes.push_back(std::move(cause));
    }
    return causes;
}

std::vector<Cause> causes_of(const Dictionary& dictionary, const Judgement& judgement,
                             const Evidence& evidence) {
    if (dictionary.plan_sha256 != judgement.plan_sha256)
        throw DictionaryError("the fault dictionary was made for another plan than "
                              + judgement.plan_name + " revision "
                              + std::to_string(judgement.plan_revision));
    return causes_of(dictionary, symptoms_of(judgement, evidence));
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

}  // namespace station
