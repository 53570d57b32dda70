#include "station/proof.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <system_error>

#include "station/journal.h"
#include "station/text.h"

namespace station {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using nlohmann::ordered_json;

constexpr int kDay_min = 24 * 60;

fs::path folder_of(const fs::path& journals) { return journals / "proofs"; }

fs::path file_of(const fs::path& journals, const std::string& station, const std::string& number) {
    return folder_of(journals) / (station + "-" + number + ".json");
}

// The files of a station, the latest first.
std::vector<fs::path> files_of(const fs::path& journals, const std::string& station) {
    std::vector<fs::path> files;
    std::error_code error;
    for (fs::directory_iterator at(folder_of(journals), error), end; !error && at != end;
         at.increment(error)) {
        const std::string name = at->path().filename().string();
        if (name.starts_with(station + "-P-") && name.ends_with(".json"))
            files.push_back(at->path());
    }
    std::sort(files.begin(), files.end(), [](const fs::path& a, const fs::path& b) {
        const std::size_t left = a.native().size(), right = b.native().size();
        return left != right ? left > right : a > b;  // P-10000 is later than P-9999
    });
    return files;
}

// Takes the next number: makes its file, empty, so that nobody else takes it.
std::string take_number(const fs::path& journals, const std::string& station) {
    fs::create_directories(folder_of(journals));
    const std::vector<fs::path> files = files_of(journals, station);
    int next = 1;
    if (!files.empty()) {
        const std::string name = files.front().stem().string();
        next = std::atoi(name.c_str() + name.rfind('-') + 1) + 1;
    }
    for (;; ++next) {
        char number[24];
        std::snprintf(number, sizeof number, "P-%04d", next);
        const fs::path file = file_of(journals, station, number);
        const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd >= 0) {
            ::close(fd);
            return number;
        }
        if (errno != EEXIST) throw std::system_error(errno, std::generic_category(), file.string());
    }
}

ordered_json runs_json(const std::vector<ProofRun>& runs) {
    ordered_json rows = ordered_json::array();
    for (const ProofRun& run : runs)
        rows.push_back({{"board", run.board},
                        {"serial", run.serial},
                        {"id", run.id},
                        {"wanted", run.wanted},
                        {"verdict", run.verdict}});
    return rows;
}

std::vector<ProofRun> read_runs(const json& rows) {
    std::vector<ProofRun> runs;
    for (const json& row : rows)
        runs.push_back(
            {row.at("board"), row.at("serial"), row.at("id"), row.at("wanted"), row.at("verdict")});
    return runs;
}

std::optional<Proof> read_proof(const fs::path& file) {
    try {
        const json object = json::parse(read_file(file.string()));
        if (object.at("version") != 1) return std::nullopt;
        Proof proof;
        proof.number = object.at("number");
        proof.station = object.at("station");
        proof.operator_id = object.at("operator");
        proof.plan_name = object.at("plan").at("name");
        proof.plan_sha256 = object.at("plan").at("sha256");
        proof.at = object.at("at");
        proof.time_s = object.at("time");
        proof.simulated = read_runs(object.at("simulated"));
        proof.references = read_runs(object.at("references"));
        return proof;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

bool all_as_wanted(const std::vector<ProofRun>& runs) {
    return std::all_of(runs.begin(), runs.end(),
                       [](const ProofRun& run) { return run.is_as_wanted(); });
}

}  // namespace

Shifts parse_shifts(const std::string& text) {
    Shifts shifts;
    const auto refuse = [] {
        throw std::runtime_error("shifts are times of day, one after the other: 08:00,20:00");
    };
    for (std::size_t from = 0; from <= text.size();) {
        const std::size_t end = std::min(text.find(',', from), text.size());
        int hour = -1, minute = -1, used = 0;
        const std::string one = text.substr(from, end - from);
        if (std::sscanf(one.c_str(), "%2d:%2d%n", &hour, &minute, &used) != 2
            || static_cast<std::size_t>(used) != one.size() || one.size() != 5 || hour < 0
            || hour > 23 || minute < 0 || minute > 59)
            refuse();
        shifts.push_back(hour * 60 + minute);
        if (shifts.size() > 1 && shifts[shifts.size() - 2] >= shifts.back()) refuse();
        from = end + 1;
    }
    return shifts;
}

std::int64_t shift_begin(const Shifts& shifts, std::int64_t now_s) {
    const std::time_t now = now_s;
    std::tm local = {};
    ::localtime_r(&now, &local);
    const int minute = local.tm_hour * 60 + local.tm_min;
    int begin = shifts.back() - kDay_min;  // yesterday's last
    for (const int shift : shifts)
        if (shift <= minute) begin = shift;
    if (begin < 0) {
        --local.tm_mday;
        begin += kDay_min;
    }
    local.tm_hour = begin / 60;
    local.tm_min = begin % 60;
    local.tm_sec = 0;
    local.tm_isdst = -1;
    return std::mktime(&local);
}

std::int64_t seconds_since_1970() {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

void keep_proof(const fs::path& journals, Proof& proof) {
    if (proof.number.empty()) proof.number = take_number(journals, proof.station);
    write_file(file_of(journals, proof.station, proof.number), to_json(proof).dump() + "\n");
}

std::optional<Proof> latest_proof(const fs::path& journals, const std::string& station,
                                  const std::string& plan_sha256, std::int64_t since_s) {
    for (const fs::path& file : files_of(journals, station)) {
        std::optional<Proof> proof = read_proof(file);
        if (!proof) continue;
        if (proof->time_s < since_s) break;
        if (proof->station == station && proof->plan_sha256 == plan_sha256) return proof;
    }
    return std::nullopt;
}

ProofState state_of(const std::optional<Proof>& proof, const Plan& plan) {
    if (!proof || proof->simulated.empty()) return ProofState::none;
    if (!all_as_wanted(proof->simulated) || !all_as_wanted(proof->references))
        return ProofState::failed;
    return next_reference(*proof, plan) != nullptr ? ProofState::boards_due : ProofState::good;
}

const ReferenceBoard* next_reference(const Proof& proof, const Plan& plan) {
    for (const ReferenceBoard& board : plan.references) {
        const bool seen =
            std::any_of(proof.references.begin(), proof.references.end(),
                        [&](const ProofRun& run) { return run.serial == board.serial; });
        if (!seen) return &board;
    }
    return nullptr;
}

const ReferenceBoard* reference_of(const Plan& plan, std::string_view serial) {
    const auto found =
        std::find_if(plan.references.begin(), plan.references.end(),
                     [&](const ReferenceBoard& board) { return board.serial == serial; });
    return found == plan.references.end() ? nullptr : &*found;
}

bool note_reference(const fs::path& journals, Proof& proof, const Plan& plan,
                    const std::string& serial, const std::string& id, std::string_view verdict) {
    const ReferenceBoard* const board = reference_of(plan, serial);
    const bool seen = std::any_of(proof.references.begin(), proof.references.end(),
                                  [&](const ProofRun& run) { return run.serial == serial; });
    if (board == nullptr || seen || verdict == "INCOMPLETE") return false;
    proof.references.push_back({"", serial, id, board->verdict, std::string(verdict)});
    keep_proof(journals, proof);
    return true;
}

std::set<std::string> simulated_attempts(const fs::path& journals, const std::string& station) {
    std::set<std::string> ids;
    for (const fs::path& file : files_of(journals, station)) {
        const std::optional<Proof> proof = read_proof(file);
        if (!proof) continue;
        for (const ProofRun& run : proof->simulated)
            ids.insert(run.id);
    }
    return ids;
}

ordered_json to_json(const Proof& proof) {
    return {{"version", 1},
            {"number", proof.number},
            {"station", proof.station},
            {"operator", proof.operator_id},
            {"at", proof.at},
            {"time", proof.time_s},
            {"plan", {{"name", proof.plan_name}, {"sha256", proof.plan_sha256}}},
            {"simulated", runs_json(proof.simulated)},
            {"references", runs_json(proof.references)}};
}

}  // namespace station
