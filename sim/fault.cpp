#include "sim/fault.h"

#include <cstring>
#include <set>

#include "sim/board.h"
#include "sim/process.h"
#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

constexpr int kLastErrno = 133;

std::string errno_names() {
    std::string names;
    for (int number = 1; number <= kLastErrno; ++number) {
        const char* known = strerrorname_np(number);
        if (known != nullptr) names += (names.empty() ? "" : ", ") + std::string(known);
    }
    return names;
}

bool set_errno(int& error, const std::string& name) {
    for (int number = 1; number <= kLastErrno; ++number) {
        const char* known = strerrorname_np(number);
        if (known != nullptr && name == known) error = number;
        if (known != nullptr && name == known) return true;
    }
    return false;
}

// The platform calls, as the event log names them.
const std::set<std::string> kCalls = {
    "_exit",  "access",        "close",          "closedir",  "exit",  "fork",
    "ioctl",  "lseek",         "mkdir",          "mount",     "open",  "opendir",
    "pipe",   "pread",         "pthread_create", "raise",     "read",  "readdir",
    "remove", "rmdir",         "setuid",         "signal",    "sleep", "socket",
    "statfs", "system",        "tcgetattr",      "tcsetattr", "time",  "umount",
    "uname",  "wait_readable", "wait_writable",  "waitpid",   "write"};

bool concerns(const Fault& fault, const Event& event) {
    return (fault.call.empty() || fault.call == event.function)
           && (fault.path.empty() || fault.path == world->log.path_of(event))
           && (fault.request == 0 || fault.request == event.request)
           && (fault.actor.empty() || fault.actor == world->name_of(world->actors[self]));
}

}  // namespace

void describe(Keys& keys, Fault& fault) {
    fault.place = keys.place();
    std::string calls;
    for (const std::string& call : kCalls)
        calls += (calls.empty() ? "" : ", ") + call;
    keys.key("call",
             Word{"one of " + calls, "any",
                  [&](const std::string& name) {
                      fault.call = name;
                      return kCalls.count(name) != 0;
                  }},
             "what goes wrong, as the event log names it");
    keys.key("path", fault.path, "path that the call works on; \"\" = any");
    keys.key("actor", fault.actor, "\"main\", \"thread1\", \"child1\" ...; \"\" = any");
    keys.key("request", fault.request, "request of an ioctl; 0 = any");
    keys.key("nth", fault.nth, "which of the matching calls", {1});
    keys.key("onwards", fault.onwards, "that call and each matching one after it");
    keys.key(
        "effect",
        choice(fault.effect, {{"error", Fault::Effect::error},
                              {"short", Fault::Effect::shorten},
                              {"interrupt", Fault::Effect::interrupt},
                              {"power cut", Fault::Effect::power_cut}}),
        "what happens: it fails, transfers `count` bytes at most, Ctrl-C comes, the power goes");
    keys.key("errno",
             Word{"one of " + errno_names(), "\"EIO\"",
                  [&](const std::string& name) { return set_errno(fault.error, name); }},
             "with which it fails");
    keys.key("count", fault.count, "bytes that a short transfer takes at most");
    const bool transfers = fault.call.empty() || fault.call == "read" || fault.call == "pread"
                           || fault.call == "write";
    keys.only_if(transfers, {"count"}, "call = \"read\", \"pread\" or \"write\"");
    keys.only_if(fault.effect == Fault::Effect::error, {"errno"}, "effect = \"error\"");
    keys.only_if(fault.effect == Fault::Effect::shorten, {"count"}, "effect = \"short\"");
    keys.only_if(fault.call.empty() || fault.call == "ioctl", {"request"}, "call = \"ioctl\"");
}

const Fault* matching_fault(const Event& event) {
    const Fault* found = nullptr;
    for (std::size_t i = 0; i < scenario->faults.size(); ++i) {
        const Fault& fault = scenario->faults[i];
        if (!concerns(fault, event)) continue;
        const std::uint32_t match = ++world->fault_matches[i];
        if (match == fault.nth || (fault.onwards && match > fault.nth)) found = &fault;
    }
    return found;
}

}  // namespace sim
