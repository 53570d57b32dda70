// Fault dictionaries as pages for people.
#pragma once

#include <string>
#include <vector>

#include "station/dictionary/dictionary.h"

namespace station {

enum class Language : std::uint8_t { zh, en };

// What the operator sees, the possible causes, the likeliest first, and what to check; Markdown.
std::string fault_catalogue(const std::vector<Dictionary>& dictionaries, Language language);

// The heading under which the catalogue has a symptom.
std::string catalogue_entry(const std::string& symptom, const std::string& value,
                            Language language);

// Defects that no fact and no answer shows, and defects that cannot be told apart; Markdown.
std::string blind_spots(const std::vector<Dictionary>& dictionaries);

}  // namespace station
