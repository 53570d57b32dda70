#include "sim/change.h"

#include <algorithm>
#include <iterator>

#include "sim/device.h"
#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {

const Board* scenario = nullptr;

namespace {

Board present;               // the copy of this process
std::uint32_t followed = 0;  // changes applied to it

// Applies the change for the whole run.
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

// Makes each change whose trigger, of this kind, has come; false = none.
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

void describe(Keys& keys, Change& change) {
    describe(keys, static_cast<Match&>(change));
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

void start_changes(const Board& description) {
    present = description;
    scenario = &present;
    followed = 0;
    if (present.changes.size() > kMostChanges) stop_here("more than %zu changes", kMostChanges);
    for (std::size_t i = 0; i < present.changes.size(); ++i) {
        const Change& change = present.changes[i];
        const bool timed = change.trigger == Change::Trigger::time;
        world->changes[i].due = timed ? from_seconds(change.at) : kNever;
    }
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
        at = std::min(at, world->changes[i].due);
    return at;
}

void make_due_changes() {
    make_changes(Change::Trigger::time, [](const Change& change, ChangeState& state) {
        if (state.due > world->now) return false;
        const Microseconds period = from_seconds(change.every);
        state.due = period > 0 ? state.due + period : kNever;
        return true;
    });
}

void make_changes_of_call(const Event& call) {
    make_changes(Change::Trigger::call, [&](const Change& change, ChangeState& state) {
        return change.concerns(call) && ++state.matches == change.nth;
    });
}

bool make_changes_of_key(std::string_view key) {
    return make_changes(Change::Trigger::key,
                        [&](const Change& change, auto&) { return change.key == key; });
}

}  // namespace sim
