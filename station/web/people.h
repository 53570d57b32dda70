// Who may work at the station: a file of the line, with a badge for each person.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace station::web {

enum class Role : unsigned char { operates, supervises, repairs };

struct Person {
    std::string name, badge;
    Role role = Role::operates;
};

// [[operator]], [[supervisor]] and [[repairer]] tables, each with name and badge. Throws std::runtime_error:
// "FILE: what". A supervisor's badge has 16 characters or more, so that nobody prints it from memory.
std::vector<Person> read_people(const std::filesystem::path& file);

std::optional<Person> find_badge(const std::vector<Person>& people, const std::string& badge);

}  // namespace station::web
