// Verdicts and progress as texts for a person.
#pragma once

#include <string>

#include "station/judge.h"

namespace station {

enum class Look : unsigned char { plain, terminal };  // lines alone; colours and boxes as well

// Plain on what is no terminal.
Look look_of(int fd);

// The reasons, the worst first, a line each:
// "FAIL alarm: alarm.output.2.inputs is 0x2202, wanted 0x2222 (line 213)". Many missing facts, steps
// or answers share a line.
std::string reason_lines(const Judgement& judgement, Look look);

// The verdict with the attempt's number and the serial number: a box on a terminal, else one line.
std::string verdict_text(const Judgement& judgement, Look look);

std::string one_line(const Reason& reason);

}  // namespace station
