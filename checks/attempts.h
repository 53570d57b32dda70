// Attempts without an agent: runs of the simulated board as the events that the agent would send,
// and a person's answers from what panel and buzzer did, made into journals.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "checks/harness.h"
#include "station/judge.h"

namespace checks {

struct BoardLine {
    std::string kind;  // "record", "out", "err"
    std::string bytes;
    double at_s = 0;
    bool more = false;  // of a record: the next event goes on with it
};

// One command of an attempt, with what came of it.
struct Played {
    std::string words;  // of q7
    std::vector<BoardLine> lines;
    int status = 0, signal = 0;
    // What a person saw and heard, to be compared with the same of a healthy board.
    std::vector<std::string> leds_of_keys;  // changes during the key step
    std::set<std::string> leds;             // every state
    std::vector<double> beeps;              // of the buzzer step
};

// In the order in which they came: records among the printed text, standard error at the end.
Played played_of(const Outcome& got, const std::string& words);
Played play(const Board& board, const std::string& words);

// Of the fault sweeps: such a run may pass only if every fact of it equals the healthy one's.
void judge_swept_run(const Outcome& got, const Outcome& healthy, const std::string& words);

struct Person {
    const Played* healthy;  // the same command on a healthy board
    // By question: "yes" where this board did the same as the healthy one.
    std::map<std::string, std::string> answers(const Played& played) const;
};

struct JournalText {
    std::string plan;
    std::string serial = "45270-2648-0413";
    std::vector<std::pair<std::string, Played>> commands;  // by name
    std::map<std::string, std::string> answers;
};

// The journal as q7-station would have written it, but for its times.
std::string journal_of(const JournalText& attempt);

// The same before it is text: saves the sweeps two thirds of their time.
station::Journal parsed_journal_of(const JournalText& attempt);

// Events of the board as the agent numbers and ends them.
std::vector<std::string> events_of(const Played& played);

std::string plan_text(const std::string& name);  // of plans/NAME.toml

}  // namespace checks
