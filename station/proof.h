// The proof of a shift: that this station, on this day, sees faults. It is kept beside the
// journals, in JOURNALS/proofs; the attempts that it names are journals like any other.
#pragma once

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "station/plan.h"

namespace station {

struct ProofRun {
    std::string board;            // the defect of a simulated board; empty = a reference board
    std::string serial, id;       // of the attempt
    std::string wanted, verdict;  // "FAIL" ...; of a simulated board with its items: "FAIL alarm"
    bool is_as_wanted() const { return verdict == wanted; }
};

struct Proof {
    std::string number;  // "P-0231", counted for each station; empty until it is kept
    std::string station, operator_id, plan_name, plan_sha256;
    std::string at;           // when it began, ISO 8601
    std::int64_t time_s = 0;  // the same, since 1970
    std::vector<ProofRun> simulated, references;
};

enum class ProofState : std::uint8_t {
    none,        // of this shift there is none
    failed,      // a verdict is not as it must be: another proof has to begin
    boards_due,  // reference boards of the plan have not been tested
    good,
};

// When each day's shifts begin, in minutes after midnight of the local time; in order, not empty.
using Shifts = std::vector<int>;

// "08:00,20:00". Throws std::runtime_error for anything else.
Shifts parse_shifts(const std::string& text);

// When the shift of this instant began; both in seconds since 1970.
std::int64_t shift_begin(const Shifts& shifts, std::int64_t now_s);
std::int64_t seconds_since_1970();

// Writes the proof; one without a number gets the next. Throws std::system_error.
void keep_proof(const std::filesystem::path& journals, Proof& proof);

// The latest of this station and plan that began at `since_s` or later. A file that cannot be read
// is no proof.
std::optional<Proof> latest_proof(const std::filesystem::path& journals, const std::string& station,
                                  const std::string& plan_sha256, std::int64_t since_s);

ProofState state_of(const std::optional<Proof>& proof, const Plan& plan);

// The reference board that the proof wants next; nullptr = none.
const ReferenceBoard* next_reference(const Proof& proof, const Plan& plan);

// The reference board with this serial number; nullptr = it is none.
const ReferenceBoard* reference_of(const Plan& plan, std::string_view serial);

// Adds the verdict of a reference board that the proof wants. Returns whether it was wanted;
// INCOMPLETE is no verdict here. Throws std::system_error when it cannot be kept.
bool note_reference(const std::filesystem::path& journals, Proof& proof, const Plan& plan,
                    const std::string& serial, const std::string& id, std::string_view verdict);

// Ids of the attempts on simulated boards of all proofs of a station.
std::set<std::string> simulated_attempts(const std::filesystem::path& journals,
                                         const std::string& station);

nlohmann::ordered_json to_json(const Proof& proof);

}  // namespace station
