// How well signatures of a dictionary fit what was measured.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "station/dictionary/dictionary.h"

namespace station {

// A signature, or two of them, against what was measured; each symptom by its weight.
struct Fit {
    double shared = 0, all = 0;  // what both have, and what either has

    double share() const { return all == 0 ? 0 : shared / all; }
    double cost() const { return all - shared; }  // shown in spite of it, or expected in vain
};

// A signature that has something in common with what was measured.
struct Compared {
    struct Vain {
        int name;
        double weight;
        std::string step;
    };

    const Signature* signature;
    std::vector<double> likeness;         // by symptom that was measured: 0 = not expected
    std::vector<Vain> vain;               // expected, and not measured; by name
    std::vector<std::string> steps_lost;  // that do not run with this defect
    Fit fit;
    double promise = 0;  // how good a partner of a pair it may be
};

class Comparison {
  public:
    Comparison(const Dictionary& dictionary, const Symptoms& shown);

    // Those with anything in common.
    std::vector<Compared> compared() const;

    // Both defects at once. What one of them would show counts for nothing where the other keeps
    // that step from running.
    Fit pair(const Compared& a, const Compared& b) const;

    // True when `b` explains something that `a` does not.
    static bool adds(const Compared& a, const Compared& b);

  private:
    Compared compare(const Signature& signature) const;
    double vain_weight(const Compared& own, const Compared& other) const;

    const Dictionary& dictionary_;
    struct Shown {
        const std::string *name, *value;
        double weight;
    };
    std::vector<Shown> shown_;
    struct Name {
        int number;
        double weight;
    };
    std::map<std::string, Name, std::less<>> names_;  // of all symptoms
    double all_shown_ = 0;
};

}  // namespace station
