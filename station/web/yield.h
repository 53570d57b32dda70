// The Yield page and the lists behind its numbers, from the index.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "station/index/index.h"
#include "station/web/server.h"

namespace station::web {

// `now` is an ISO time; the pages' filters are as docs/api.md describes them.
nlohmann::json yield_json(index::Index& index, const Query& query, const std::string& now);
nlohmann::json list_json(index::Index& index, const Query& query, const std::string& now);

}  // namespace station::web
