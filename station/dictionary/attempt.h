// Attempts on simulated boards, as a station would have kept them.
#pragma once

#include <toml++/toml.h>
#include <functional>
#include <string>
#include <vector>

#include "station/dictionary/simulator.h"
#include "station/judge.h"

namespace station {

struct SimulatedAttempt {
    Journal journal;
    Evidence evidence;
    Judgement judgement;
};

// Runs the commands of a plan on one board and its variants, with an operator who answers the
// plan's questions by what the simulated panel and buzzer did. Throws as Simulator does.
class AttemptSimulator {
  public:
    using Change = std::function<void(toml::table& board)>;

    // `variation` is a change under which the board is as good as before.
    AttemptSimulator(const std::filesystem::path& program, const std::filesystem::path& scenario,
                     Plan plan, std::string plan_text, const Change& variation = nullptr);

    const toml::table& board() const { return board_; }  // with its variation
    const Plan& plan() const { return plan_; }
    const CallCounts& calls() const { return calls_; }  // the most in a healthy command
    const SimulatedAttempt& healthy() const { return healthy_; }

    // What makes the defect out of the scenario: TOML, a key a line.
    std::string change(const Change& defect) const;

    // May be called from several threads.
    SimulatedAttempt run(const Change& defect) const;
    SimulatedAttempt run(const std::string& change) const;

  private:
    SimulatedAttempt attempt(const std::string& change, Simulator::Log log,
                             std::vector<SimulatedCommand>& commands) const;
    std::vector<Answer> answers_to(const SimulatedCommand& command) const;

    Simulator simulator_;
    Plan plan_;
    std::string plan_text_;
    toml::table scenario_, board_;
    CallCounts calls_;
    SimulatedCommand reference_;  // the healthy run of the first command
    SimulatedAttempt healthy_;
};

}  // namespace station
