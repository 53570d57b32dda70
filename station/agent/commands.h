// The commands of q7-agent, apart from its command line. Each returns a status, and says on
// standard error why it is not kGood.
#pragma once

#include "station/agent/recorder.h"

namespace agent {

int run(const RunOptions& options);     // starts a run, or finds it, and follows it
int start(const RunOptions& options);   // starts a run, or finds it, and prints its name
int record(const RunOptions& options);  // the recorder itself, in this process

int follow(const char* folder, const char* name, std::uint64_t from);
int stop(const char* folder, const char* name);     // returns when the run has ended
int release(const char* folder, const char* name);  // removes what is stored of a run
int list(const char* folder);

}  // namespace agent
