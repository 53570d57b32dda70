#include "sim/occurrence.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

#include "sim/device.h"
#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {

const Board* scenario = nullptr;

namespace {

Board present;               // the copy of this process
std::uint32_t followed = 0;  // changes applied to it

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

void describe_call(Keys& keys, Occurrence& occurrence) {
    occurrence.place = keys.place();
    keys.key("call", choice(occurrence.call, calls()), "which call it is; any without this key");
    keys.key("path", occurrence.path, "path that the call works on; \"\" = any");
    keys.key("actor", occurrence.actor, "\"main\", \"thread1\", \"child1\" ...; \"\" = any");
    keys.key("request", occurrence.request, "request of an ioctl; 0 = any");
    keys.key("opcode", occurrence.opcode, "opcode of a bridge request; 0 = any", {0, 255});
    keys.key("nth", occurrence.nth, "which of the matching calls", {1});
    keys.only_if(occurrence.call.empty() || occurrence.call == "ioctl", "request",
                 "call = \"ioctl\"");
}

// When a change by time next comes; kNever = no more.
Microseconds due_at(const Change& change, const OccurrenceState& state) {
    const Microseconds period = from_seconds(change.every);
    const bool is_over = state.came > 0 && period == 0;
    if (change.trigger != Change::Trigger::time || is_over) return kNever;
    return from_seconds(change.at) + state.came * period;
}

// Applies a change, for all processes.
void make(std::size_t place) {
    if (world->changes_made == std::size(world->made))
        stop_here("more than %zu changes", std::size(world->made));
    ++world->changes[place].came;
    note("change", "%s", present.changes[place].place.c_str());
    for (const Device* device : kDevices)
        device->before_change();
    world->made[world->changes_made++] = static_cast<std::uint8_t>(place);
    follow_changes();
}

// Makes each change with this trigger that has come; false = none.
template <class HasCome>
bool make_changes(Change::Trigger trigger, HasCome has_come) {
    bool any = false;
    for (std::size_t i = 0; i < present.changes.size(); ++i) {
        const Change& change = present.changes[i];
        if (change.trigger != trigger || !has_come(change, world->changes[i])) continue;
        make(i);
        any = true;
    }
    return any;
}

}  // namespace

bool Occurrence::concerns(const Event& event) const {
    return (call.empty() || call == event.function) && (path.empty() || path == event.path)
           && (request == 0 || request == event.request)
           && (opcode == 0 || opcode == opcode_of(event))
           && (actor.empty() || actor == event.actor);
}

void describe(Keys& keys, Fault& fault) {
    describe_call(keys, fault);
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

void describe(Keys& keys, Change& change) {
    describe_call(keys, change);
    keys.key("at", change.at, "second at which it comes");
    keys.key("every", change.every, "seconds after which it comes again; 0 = never");
    keys.key("key", change.key, "key that a person presses, with --pace at a terminal", {1, 1});
    change.trigger = keys.says("at")    ? Change::Trigger::time
                     : keys.says("key") ? Change::Trigger::key
                                        : Change::Trigger::call;
    keys.one_of({"at", "key", "call"});
    keys.one_of({"at", "key", "path"});
    keys.one_of({"at", "key", "nth"});
    keys.only_if(keys.says("at"), "every", "at");
}

const Fault* matching_fault(const Event& event) {
    const Fault* found = nullptr;
    for (std::size_t i = 0; i < scenario->faults.size(); ++i) {
        const Fault& fault = scenario->faults[i];
        if (!fault.concerns(event)) continue;
        OccurrenceState& state = world->faults[i];
        ++state.matches;
        if (state.matches != fault.nth && !(fault.onwards && state.matches > fault.nth)) continue;
        ++state.came;
        found = &fault;
    }
    return found;
}

void start_occurrences(const Board& description) {
    present = description;
    scenario = &present;
    followed = 0;
    if (present.faults.size() > kMostFaults) stop_here("more than %zu faults", kMostFaults);
    if (present.changes.size() > kMostChanges) stop_here("more than %zu changes", kMostChanges);
}

void follow_changes() {
    while (followed < world->changes_made) {
        // A change cannot alter the list of changes.
        const std::function<void(Board&)> apply = present.changes[world->made[followed++]].apply;
        apply(present);
    }
}

Microseconds next_change_at() {
    Microseconds at = kNever;
    for (std::size_t i = 0; i < scenario->changes.size(); ++i)
        at = std::min(at, due_at(scenario->changes[i], world->changes[i]));
    return at;
}

void make_due_changes() {
    make_changes(Change::Trigger::time, [](const Change& change, const OccurrenceState& state) {
        return due_at(change, state) <= world->now;
    });
}

void make_changes_of_call(const Event& call) {
    make_changes(Change::Trigger::call, [&](const Change& change, OccurrenceState& state) {
        return change.concerns(call) && ++state.matches == change.nth;
    });
}

bool make_changes_of_key(std::string_view key) {
    return make_changes(Change::Trigger::key,
                        [&](const Change& change, auto&) { return change.key == key; });
}

}  // namespace sim
