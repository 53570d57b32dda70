// The recorder: runs q7 and keeps all that it says.
#pragma once

#include "station/agent/descriptor.h"
#include "station/agent/spool.h"
#include "station/agent/status.h"

namespace agent {

struct RunOptions {
    const char* name = nullptr;  // nullptr = one is made
    const char* fifo = "/var/q7.fifo";
    const char* folder = "/var/q7-agent";
    std::int64_t time_limit_s = 0;       // 0 = none
    std::int64_t size_limit = 16 << 20;  // bytes of the spool
    char* const* command = nullptr;      // ended by a nullptr
};

// The recorder's word that q7 runs, or why it does not: called once.
using Report = void (*)(int to, const Result& result);

// Records one run in this process, from the FIFO to the event "end". `lock` is the folder's, taken
// for this run; the program inherits it. Returns the status of the recorder.
int record(const RunOptions& options, const Folder& folder, const Run& run, Descriptor lock,
           Report report, int report_to);

}  // namespace agent
