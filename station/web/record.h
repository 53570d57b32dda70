// Attempts as the Board page shows them, made from journals and judgements.
#pragma once

#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace station::web {

// The journal of an attempt. Throws Refusal where the id is not one, or nothing has it.
std::filesystem::path journal_of(const std::filesystem::path& journals, const std::string& id);

// One attempt with its transcript, as docs/api.md describes it.
nlohmann::json attempt_json(const std::filesystem::path& journals, const std::string& id);

// The same attempt as the Station page showed it: its states at `at` seconds after its start, each
// with the facts that are new, and the verdict.
nlohmann::json replay_json(const std::filesystem::path& journals, const std::string& id);

// Every judgement of a serial number in the folder, oldest first.
std::vector<nlohmann::json> judgements_of(const std::filesystem::path& journals,
                                          const std::string& serial);

// The Board page of a serial number; `judgements` are all of it, oldest first.
nlohmann::json board_json(const std::filesystem::path& journals, const std::string& serial,
                          const std::vector<nlohmann::json>& judgements);

}  // namespace station::web
