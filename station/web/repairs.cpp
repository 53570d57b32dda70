#include "station/web/repairs.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "station/text.h"

namespace station::web {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

struct Waiting {
    fs::path file;
    std::string serial;
    Repair repair;
};

fs::path folder_of(const fs::path& journals) { return journals / "repairs"; }

// A file that cannot be read is passed over, and stays.
std::vector<Waiting> all_waiting(const fs::path& journals) {
    std::vector<Waiting> all;
    std::error_code error;
    for (fs::directory_iterator at(folder_of(journals), error), end; !error && at != end;
         at.increment(error)) {
        if (at->path().extension() != ".json") continue;
        try {
            const json row = json::parse(read_file(at->path().string()));
            all.push_back({at->path(),
                           row.at("serial"),
                           {row.at("of"), row.at("defect"), row.at("text"), row.at("operator"),
                            row.at("entered")}});
        } catch (const std::exception&) {
            continue;
        }
    }
    std::sort(all.begin(), all.end(),
              [](const Waiting& a, const Waiting& b) { return a.file < b.file; });
    return all;
}

}  // namespace

void enter_repair(const fs::path& journals, const std::string& serial, const Repair& repair) {
    fs::create_directories(folder_of(journals));
    const json row{{"serial", serial},
                   {"of", repair.of},
                   {"defect", repair.defect},
                   {"text", repair.text},
                   {"operator", repair.operator_id},
                   {"entered", repair.at}};
    const std::string content = row.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
    // By time, then by content: what is entered twice is there once.
    write_file(folder_of(journals) / (repair.at + "-" + sha256(content).substr(0, 16) + ".json"),
               content);
}

std::vector<Repair> waiting_repairs(const fs::path& journals, const std::string& serial) {
    std::vector<Repair> repairs;
    for (Waiting& each : all_waiting(journals))
        if (each.serial == serial) repairs.push_back(std::move(each.repair));
    return repairs;
}

void forget_repairs(const fs::path& journals, const std::string& serial,
                    const std::vector<Repair>& taken) {
    for (const Waiting& each : all_waiting(journals)) {
        const bool is_taken = std::find(taken.begin(), taken.end(), each.repair) != taken.end();
        std::error_code ignored;  // it is offered to the next journal again
        if (each.serial == serial && is_taken) fs::remove(each.file, ignored);
    }
}

}  // namespace station::web
