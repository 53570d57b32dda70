// The list of defects while it grows, and what its parts ask of the board. The rows of each part
// are its calls of add().
#pragma once

#include "station/dictionary/changes.h"

namespace station {

struct Enumeration {
    const toml::table& board;
    const CallCounts& calls;
    std::vector<Defect> defects;

    void add(std::string_view kind, std::vector<std::string> places, Apply apply);

    std::int64_t number(std::string_view table, std::string_view key) const;  // 0 = none
    // Keys of a table, or of a table in it.
    std::vector<std::string> names(std::string_view table, std::string_view in = {}) const;
    // Disks, internal or external, that the board has.
    std::vector<std::string> nodes(bool external) const;
    std::int64_t count_of(const SystemCall& call) const;
};

void add_alarm(Enumeration& all);
void add_network(Enumeration& all);
void add_clock(Enumeration& all);
void add_usb(Enumeration& all);
void add_disks(Enumeration& all);
void add_rs485(Enumeration& all);
void add_panel(Enumeration& all);
void add_description(Enumeration& all);
void add_bridges(Enumeration& all);
void add_calls(Enumeration& all);

}  // namespace station
