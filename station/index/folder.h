// The attempts of a folder of journals on their way into the index.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "station/index/index.h"

namespace station::index {

struct FolderResult {
    std::int64_t stored = 0, known = 0;
    std::int64_t problems = 0;  // unreadable, or another attempt has the id
};

// Adds each attempt that has a judgement, FOLDER/YYYYMMDD/ID.judgement.json, and each copy that
// waits in FOLDER/unsent, in commits of some hundred; a copy that is in the index is removed.
// `complain` gets a line for each problem. Throws std::runtime_error when the database fails.
FolderResult index_folder(Index& index, const std::filesystem::path& folder,
                          const std::function<void(const std::string&)>& complain);

}  // namespace station::index
