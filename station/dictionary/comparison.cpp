#include "station/dictionary/comparison.h"

#include <algorithm>
#include <cmath>

namespace station {
namespace {

// What few signatures have says more than what many have: 0 to 1.
double rarity(int signatures_with, std::size_t signatures) {
    const double count = static_cast<double>(signatures) + 2;
    return std::log(count / (signatures_with + 1)) / std::log(count);
}

bool by_name(const Compared::Vain& a, const Compared::Vain& b) { return a.name < b.name; }

}  // namespace

Comparison::Comparison(const Dictionary& dictionary, const Symptoms& shown)
    : dictionary_(dictionary) {
    std::map<std::string, int> frequency;
    for (const auto& [name, value] : shown)
        frequency[name] = 0;
    for (const Signature& signature : dictionary.signatures)
        for (const auto& [name, value] : signature.symptoms)
            ++frequency[name];
    constexpr double kLeast = 0.3;
    for (const auto& [name, count] : frequency) {
        const double weight = weight_of(name).weight;
        names_[name] = {static_cast<int>(names_.size()),
                        weight * (kLeast + rarity(count, dictionary.signatures.size()))};
    }
    for (const auto& [name, value] : shown) {
        shown_.push_back({&name, &value, names_.at(name).weight});
        all_shown_ += shown_.back().weight;
    }
}

std::vector<Compared> Comparison::compared() const {
    std::vector<Compared> all;
    for (const Signature& signature : dictionary_.signatures) {
        const bool common = std::any_of(shown_.begin(), shown_.end(), [&](const Shown& symptom) {
            return signature.symptoms.count(*symptom.name) != 0;
        });
        if (common) all.push_back(compare(signature));
    }
    return all;
}

Compared Comparison::compare(const Signature& signature) const {
    Compared result{&signature, {}, {}, {}, {}, 0};
    double expected_in_vain = 0;
    for (const Shown& symptom : shown_) {
        const auto expected = signature.symptoms.find(*symptom.name);
        const bool none = expected == signature.symptoms.end();
        const double like = none ? 0 : likeness(*symptom.name, expected->second, *symptom.value);
        result.likeness.push_back(like);
        result.fit.shared += like * symptom.weight;
    }
    std::size_t at = 0;  // both are sorted by name
    for (const auto& [name, value] : signature.symptoms) {
        if (name.starts_with("step ")) result.steps_lost.push_back(name.substr(5));
        while (at < shown_.size() && *shown_[at].name < name)
            ++at;
        if (at < shown_.size() && *shown_[at].name == name) continue;
        const Name& known = names_.find(name)->second;
        result.vain.push_back({known.number, known.weight, step_of(name)});
        expected_in_vain += known.weight;
    }
    std::sort(result.vain.begin(), result.vain.end(), by_name);
    result.fit.all = all_shown_ + expected_in_vain;
    const double shared = result.fit.shared;
    result.promise = shared == 0 ? 0 : shared * shared / (shared + expected_in_vain);
    return result;
}

double Comparison::vain_weight(const Compared& own, const Compared& other) const {
    double weight = 0;
    for (const Compared::Vain& symptom : own.vain) {
        const auto& lost = other.steps_lost;
        if (lost.empty() || std::find(lost.begin(), lost.end(), symptom.step) == lost.end())
            weight += symptom.weight;
    }
    return weight;
}

Fit Comparison::pair(const Compared& a, const Compared& b) const {
    Fit fit;
    for (std::size_t i = 0; i < shown_.size(); ++i)
        fit.shared += shown_[i].weight * std::max(a.likeness[i], b.likeness[i]);
    fit.all = all_shown_ + vain_weight(a, b) + vain_weight(b, a);
    auto from = b.vain.begin();  // what both expect in vain counts once
    for (const Compared::Vain& symptom : a.vain) {
        from = std::lower_bound(from, b.vain.end(), symptom, by_name);
        if (from == b.vain.end()) break;
        if (from->name == symptom.name) fit.all -= symptom.weight;
    }
    return fit;
}

bool Comparison::adds(const Compared& a, const Compared& b) {
    for (std::size_t i = 0; i < a.likeness.size(); ++i)
        if (a.likeness[i] < kExplained && b.likeness[i] > a.likeness[i]) return true;
    return false;
}

}  // namespace station
