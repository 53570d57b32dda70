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
    std::int64_t running = 0;   // not indexed yet
    std::int64_t problems = 0;  // unreadable, or another attempt has the id
};

// Adds each attempt of the journals FOLDER/YYYYMMDD/ID.journal, in commits of some hundred, and
// each copy that waits in FOLDER/unsent; a copy that is in the index is removed. A journal without
// its judgement is judged here; one without an end counts as running for an hour after its last
// line, and a board that awaits its release for a day. `complain` gets a line for each problem.
// Throws std::runtime_error when the database fails.
FolderResult index_folder(Index& index, const std::filesystem::path& folder,
                          const std::function<void(const std::string&)>& complain);

}  // namespace station::index
