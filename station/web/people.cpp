#include "station/web/people.h"

#include <toml++/toml.h>
#include <algorithm>
#include <stdexcept>

namespace station::web {
namespace {

constexpr std::size_t kShortestSupervisorBadge = 16;

void read_group(const toml::table& root, const char* group, Role role, const std::string& file,
                std::vector<Person>& people) {
    const toml::array* rows = root[group].as_array();
    if (rows == nullptr) return;
    for (const toml::node& row : *rows) {
        const toml::table* table = row.as_table();
        const auto name = table == nullptr ? std::nullopt : (*table)["name"].value<std::string>();
        const auto badge = table == nullptr ? std::nullopt : (*table)["badge"].value<std::string>();
        if (!name || name->empty() || !badge || badge->empty())
            throw std::runtime_error(file + ": each " + group + " needs name and badge");
        if (role == Role::supervises && badge->size() < kShortestSupervisorBadge)
            throw std::runtime_error(file + ": the badge of supervisor " + *name
                                     + " has fewer than 16 characters");
        if (find_badge(people, *badge))
            throw std::runtime_error(file + ": two people have the badge of " + *name);
        people.push_back({*name, *badge, role});
    }
}

}  // namespace

std::vector<Person> read_people(const std::filesystem::path& file) {
    std::vector<Person> people;
    try {
        const toml::table root = toml::parse_file(file.string());
        read_group(root, "operator", Role::operates, file.string(), people);
        read_group(root, "supervisor", Role::supervises, file.string(), people);
        read_group(root, "repairer", Role::repairs, file.string(), people);
    } catch (const toml::parse_error& error) {
        throw std::runtime_error(file.string() + ":" + std::to_string(error.source().begin.line)
                                 + ": " + std::string(error.description()));
    }
    if (people.empty()) throw std::runtime_error(file.string() + ": nobody is named");
    return people;
}

std::optional<Person> find_badge(const std::vector<Person>& people, const std::string& badge) {
    const auto found = std::find_if(people.begin(), people.end(),
                                    [&](const Person& one) { return one.badge == badge; });
    if (found == people.end()) return std::nullopt;
    return *found;
}

}  // namespace station::web
