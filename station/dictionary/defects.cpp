#include "station/dictionary/defects.h"

#include <stdexcept>

#include "station/dictionary/enumeration.h"

namespace station {

void Enumeration::add(std::string_view kind, std::vector<std::string> places, Apply apply) {
    const Kind* known = find_kind(kind);
    if (known == nullptr) throw std::logic_error("no kind of defect " + std::string(kind));
    defects.push_back({known, std::move(places), std::move(apply)});
}

std::int64_t Enumeration::number(std::string_view table, std::string_view key) const {
    return board[table][key].value_or(std::int64_t{0});
}

std::vector<std::string> Enumeration::names(std::string_view table, std::string_view in) const {
    std::vector<std::string> names;
    const auto found = in.empty() ? board[table] : board[table][in];
    if (const toml::table* keys = found.as_table())
        for (const auto& [key, value] : *keys)
            names.emplace_back(key);
    return names;
}

std::vector<std::string> Enumeration::nodes(bool external) const {
    std::vector<std::string> found;
    for (const std::string& node : names("disks")) {
        const bool present = board["disks"][node]["present"].value_or(true);
        if (present && (node.rfind("sd", 0) != 0) == external) found.push_back(node);
    }
    return found;
}

std::int64_t Enumeration::count_of(const SystemCall& call) const {
    const auto found = calls.find(call);
    return found == calls.end() ? 0 : found->second;
}

std::string Defect::name() const {
    std::string text(kind->name);
    for (const std::string& place : places)
        text += " " + place;
    return text;
}

std::vector<Defect> defects_of(const toml::table& board, const CallCounts& calls) {
    Enumeration all{board, calls, {}};
    for (const auto part : {add_alarm, add_network, add_clock, add_usb, add_disks, add_rs485,
                            add_panel, add_description, add_bridges, add_calls})
        part(all);
    return std::move(all.defects);
}

}  // namespace station
