// Attempts for the checks of the index.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "station/index/record.h"

namespace checks {

// The n-th attempt of a line of ten stations and four models: a fifth are of boards that were
// tested before, 5 % fail, some are not proven, incomplete or of reference boards.
station::index::AttemptRecord generated_attempt(std::mt19937& random, long n);

// What the judge writes of it.
std::string judgement_of(const station::index::AttemptRecord& record);

// An attempt that uses every field, with the worst texts that may come from outside.
station::index::AttemptRecord full_attempt();

}  // namespace checks
