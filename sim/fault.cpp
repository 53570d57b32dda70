#include "sim/fault.h"

#include <cstring>
#include <utility>
#include <vector>

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

std::vector<std::pair<std::string, int>> errors() {
    constexpr int kLastErrno = 133;
    std::vector<std::pair<std::string, int>> names;
    for (int number = 1; number <= kLastErrno; ++number)
        if (const char* name = strerrorname_np(number)) names.emplace_back(name, number);
    return names;
}

// The platform calls, as the event log names them.
std::vector<std::pair<std::string, std::string>> calls() {
    std::vector<std::pair<std::string, std::string>> names;
    for (const char* name :
         {"_exit",  "access",        "close",          "closedir",  "exit",  "fork",
          "ioctl",  "lseek",         "mkdir",          "mount",     "open",  "opendir",
          "pipe",   "pread",         "pthread_create", "raise",     "read",  "readdir",
          "remove", "rmdir",         "setuid",         "signal",    "sleep", "socket",
          "statfs", "system",        "tcgetattr",      "tcsetattr", "time",  "umount",
          "uname",  "wait_readable", "wait_writable",  "waitpid",   "write"})
        names.emplace_back(name, name);
    return names;
}

std::uint32_t opcode_of(const Event& event) {
    const bool has_opcode = event.request == 0x197B && event.sent.size() > 1;
    return has_opcode ? static_cast<std::uint8_t>(event.sent[1]) : 0;
}

}  // namespace

bool Match::concerns(const Event& event) const {
    return (call.empty() || call == event.function) && (path.empty() || path == event.path)
           && (request == 0 || request == event.request)
           && (opcode == 0 || opcode == opcode_of(event))
           && (actor.empty() || actor == event.actor);
}

void describe(Keys& keys, Match& match) {
    match.place = keys.place();
    keys.key("call", choice(match.call, calls()), "which call it is; any without this key");
    keys.key("path", match.path, "path that the call works on; \"\" = any");
    keys.key("actor", match.actor, "\"main\", \"thread1\", \"child1\" ...; \"\" = any");
    keys.key("request", match.request, "request of an ioctl; 0 = any");
    keys.key("opcode", match.opcode, "opcode of a bridge request; 0 = any", {0, 255});
    keys.key("nth", match.nth, "which of the matching calls", {1});
    keys.only_if(match.call.empty() || match.call == "ioctl", "request", "call = \"ioctl\"");
}

void describe(Keys& keys, Fault& fault) {
    describe(keys, static_cast<Match&>(fault));
    keys.key("onwards", fault.onwards, "that call and each matching one after it");
    keys.key(
        "effect",
        choice(fault.effect, {{"error", Fault::Effect::error},
                              {"short", Fault::Effect::shorten},
                              {"value", Fault::Effect::value},
                              {"interrupt", Fault::Effect::interrupt},
                              {"power cut", Fault::Effect::power_cut}}),
        "what happens: it fails, transfers `count` bytes at most, returns `value`, Ctrl-C comes, "
        "the power goes");
    keys.key("errno", choice(fault.error, errors()), "with which it fails");
    keys.key("value", fault.value, "that it returns, once it is carried out", {0, INT32_MAX});
    keys.key("count", fault.count, "bytes that a short transfer takes at most");
    const bool transfers = fault.call.empty() || fault.call == "read" || fault.call == "pread"
                           || fault.call == "write";
    keys.only_if(transfers, "count", "call = \"read\", \"pread\" or \"write\"");
    keys.only_if(fault.effect == Fault::Effect::error, "errno", "effect = \"error\"");
    keys.only_if(fault.effect == Fault::Effect::value, "value", "effect = \"value\"");
    keys.only_if(fault.effect == Fault::Effect::shorten, "count", "effect = \"short\"");
}

const Fault* matching_fault(const Event& event) {
    const Fault* found = nullptr;
    for (std::size_t i = 0; i < scenario->faults.size(); ++i) {
        const Fault& fault = scenario->faults[i];
        if (!fault.concerns(event)) continue;
        MatchState& state = world->faults[i];
        ++state.matches;
        if (state.matches != fault.nth && !(fault.onwards && state.matches > fault.nth)) continue;
        ++state.came;
        found = &fault;
    }
    return found;
}

}  // namespace sim
