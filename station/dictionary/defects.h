// Every single defect that a simulated board can have, by enumeration over its description.
#pragma once

#include <toml++/toml.h>
#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "station/dictionary/kinds.h"

namespace station {

// One way in which a defect shows. Several may be of the same kind and place: a clock that is wrong
// by ten seconds, and one that is wrong by an hour.
struct Defect {
    const Kind* kind;
    std::vector<std::string> places;
    std::function<void(toml::table& board)> apply;

    std::string name() const;  // "alarm.input.open 6": kind and places
};

// A function of the system that the healthy run calls, as the event log names it.
struct SystemCall {
    std::string function, path, request;  // request = "0x81"; empty = no ioctl
    bool operator<(const SystemCall& other) const {
        return std::tie(function, path, request)
               < std::tie(other.function, other.path, other.request);
    }
};
using CallCounts = std::map<SystemCall, int>;  // how often each was called

std::vector<Defect> defects_of(const toml::table& board, const CallCounts& calls);

}  // namespace station
