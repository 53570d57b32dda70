// Repairs that were entered and wait for the board's next attempt, whose journal they become part
// of: files beside the journals, in JOURNALS/repairs.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "station/journal.h"

namespace station::web {

// Adds one; it is on the disk when this returns. Throws std::system_error.
void enter_repair(const std::filesystem::path& journals, const std::string& serial,
                  const Repair& repair);

// Those of a serial number, in the order in which they were entered.
std::vector<Repair> waiting_repairs(const std::filesystem::path& journals,
                                    const std::string& serial);

// Forgets those that a journal has taken over.
void forget_repairs(const std::filesystem::path& journals, const std::string& serial,
                    const std::vector<Repair>& taken);

}  // namespace station::web
