#include "station/web/records.h"

#include <algorithm>
#include <set>

#include "station/text.h"
#include "station/web/record.h"
#include "station/web/repairs.h"
#include "station/web/yield.h"

namespace station::web {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr std::chrono::seconds kAwayFor{5};
constexpr std::int64_t kSameForSupervisor = 3;

index::AttemptRecord record_of(const Judgement& judgement) {
    return index::from_json(json(to_json(judgement)));
}

}  // namespace

void SharedIndex::open() {
    const auto now = std::chrono::steady_clock::now();
    if (failed_at_ && now - *failed_at_ < kAwayFor) throw std::runtime_error("the index is away");
    try {
        index_.emplace(url_);
        failed_at_.reset();
    } catch (...) {
        failed_at_ = std::chrono::steady_clock::now();
        throw;
    }
}

Archive::Archive(fs::path journals, const std::string& url, const fs::path& dictionaries)
    : journals_(std::move(journals)), index_(url), outbox_(journals_ / "unsent", url) {
    if (dictionaries.empty()) return;
    for (const fs::directory_entry& entry : fs::directory_iterator(dictionaries)) {
        if (!entry.is_regular_file()) continue;
        const std::string path = entry.path().string();
        dictionaries_.push_back(parse_dictionary(read_file(path), path));
    }
}

// Of the dictionary that was made for the plan of the attempt, if there is one.
json Archive::causes(const Judgement& judgement, const Evidence& evidence) const {
    for (const Dictionary& dictionary : dictionaries_) {
        if (dictionary.plan_sha256 == judgement.plan_sha256 && judgement.verdict != Verdict::pass)
            return to_json(causes_of(dictionary, symptoms_of(judgement, evidence)));
    }
    return json::array();
}

// The index keeps causes as changes of the simulated board; people read their titles.
void Archive::name_causes(json& yield) const {
    const auto name = [&](json& row) {
        for (const Dictionary& dictionary : dictionaries_) {
            for (const Signature& signature : dictionary.signatures) {
                for (const KnownDefect& defect : signature.defects) {
                    if (defect.change != row.at("cause")) continue;
                    const Words words = title_of(*defect.kind, defect.places);
                    row["title"] = {{"zh", words.zh}, {"en", words.en}};
                    return;
                }
            }
        }
    };
    for (json& row : yield.at("causes").at("rows"))
        name(row);
    if (json& series = yield.at("series"); series.contains("low") && series.at("low").is_object())
        name(series.at("low"));
}

Records Archive::records() {
    Records records;
    records.next_attempt = [this](const std::string& serial, const std::string& model) {
        return index_.use([&](index::Index& index) {
            return static_cast<int>(index.next_attempt(serial, model));
        });
    };
    records.same_failures = [this](const Judgement& judgement) {
        const index::AttemptRecord record = record_of(judgement);
        return index_.use([&](index::Index& index) {
            return std::max(1, static_cast<int>(index.same_failures(record.serial, record.model,
                                                                    index::failing_set(record))));
        });
    };
    records.wants_supervisor = [this](const std::string& serial, const std::string& model) {
        return index_.use([&](index::Index& index) {
            const auto history = index.history(serial, model);
            if (history.empty() || history.back().verdict == "PASS") return false;
            const std::string failing = index::failing_set(history.back());
            return index.same_failures(serial, model, failing) >= kSameForSupervisor;
        });
    };
    records.causes = [this](const Judgement& judgement, const Evidence& evidence) {
        return causes(judgement, evidence);
    };
    records.store = [this](const json& judgement) {
        const index::Outbox::Stored stored = outbox_.store(index::from_json(judgement));
        return Records::Stored{stored.committed, stored.unsent};
    };
    records.unsent = [this] { return outbox_.unsent(); };
    records.database = [this] { return outbox_.problem().empty(); };
    records.serials_of_address = [this](const std::string& address, const std::string& serial) {
        return index_.use(
            [&](index::Index& index) { return index.other_serials(address, serial); });
    };
    return records;
}

// The attempts of the index, and those of this station that it does not have yet.
std::vector<json> Archive::history(const std::string& serial) {
    std::vector<json> local = judgements_of(journals_, serial);
    std::set<std::string> known;
    for (const json& judgement : local)
        known.insert(judgement.at("id").get<std::string>());
    try {
        for (const index::AttemptRecord& record :
             index_.use([&](index::Index& index) { return index.history(serial); }))
            if (!known.contains(record.id)) local.push_back(json(index::to_json(record)));
    } catch (const Refusal&) {
        throw;
    } catch (const std::exception&) {  // of this station alone, then
    }
    std::stable_sort(local.begin(), local.end(), [](const json& a, const json& b) {
        return a.value("start", "") < b.value("start", "");
    });
    return local;
}

json Archive::index_state() {
    json state{{"to", now_iso()}, {"unsent", outbox_.unsent()}};
    if (outbox_.unsent() == 0) return state;
    try {
        state["to"] =
            index::to_iso(index_.use([](index::Index& index) { return index.indexed_until(); }));
    } catch (const std::exception&) {
        state["to"] = nullptr;
    }
    return state;
}

json Archive::board(const std::string& serial) {
    json board = board_json(journals_, serial, history(serial));
    board["repairs"] = json::array();
    for (const Repair& one : waiting_repairs(journals_, serial))
        board["repairs"].push_back({{"of", one.of},
                                    {"defect", one.defect},
                                    {"text", one.text},
                                    {"operator", one.operator_id},
                                    {"at", one.at}});
    board["index"] = index_state();
    return board;
}

json Archive::yield(const Query& query) {
    try {
        json yield =
            index_.use([&](index::Index& index) { return yield_json(index, query, now_iso()); });
        name_causes(yield);
        yield["index"] = index_state();
        return yield;
    } catch (const Refusal&) {
        throw;
    } catch (const std::runtime_error&) {
        throw Refusal(503, "index-away");
    }
}

json Archive::list(const Query& query) {
    try {
        return index_.use([&](index::Index& index) { return list_json(index, query, now_iso()); });
    } catch (const Refusal&) {
        throw;
    } catch (const std::runtime_error&) {
        throw Refusal(503, "index-away");
    }
}

}  // namespace station::web
