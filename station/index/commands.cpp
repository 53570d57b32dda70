#include "station/index/commands.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "station/index/database.h"
#include "station/index/export.h"
#include "station/index/folder.h"
#include "station/index/index.h"
#include "station/index/outbox.h"

namespace station::index {
namespace {

constexpr int kSomeFailed = 1;

struct Options {
    std::string url, journals = "journals";
    std::string serial, role, output, from, to, model, station, by = "day", format;
    std::string table = "runs";
    bool recount = false, json = false;

    std::string database() const { return url.empty() ? journals + "/index.sqlite" : url; }
};

// 20261123 of "2026-11-23"; 0 of nothing.
int day_number(const std::string& date) {
    return date.empty() ? 0 : local_day(parse_time(date + "T00:00:00Z"));
}

Filter filter_of(const Options& options) {
    return {day_number(options.from), day_number(options.to), options.model, options.station, {}};
}

// An existing index; a reader makes none.
Index open_existing(const Options& options) {
    const std::string url = options.database();
    if (!is_postgresql(url) && !std::filesystem::exists(url)) {
        throw std::runtime_error("no index: " + url + " (made by q7-station index)");
    }
    return Index(url);
}

// A text from outside, without what a terminal would act on.
std::string shown(const std::string& text) {
    std::string safe;
    for (std::size_t at = 0; at < text.size();) {
        const std::string_view rest = std::string_view(text).substr(at);
        const std::size_t length = character_length(rest);
        const auto first = static_cast<unsigned char>(rest[0]);
        const bool control = first < 0x20 || first == 0x7F
                             || (first == 0xC2 && static_cast<unsigned char>(rest[1]) < 0xA0);
        safe += length == 0 || control ? std::string_view("?") : rest.substr(0, length);
        at += std::max<std::size_t>(length, 1);
    }
    return safe;
}

// Rounded down, so that 100.0 % is all of them.
std::string percent(std::int64_t part, std::int64_t whole) {
    if (whole == 0) return "-";
    char text[32];
    const long long tenths = part * 1000 / whole;
    std::snprintf(text, sizeof text, "%lld.%lld %%", tenths / 10, tenths % 10);
    return text;
}

int make_index(const Options& options) {
    Index index(options.database());
    if (!options.role.empty()) {
        index.grant(options.role);
        std::cout << options.role << " may add attempts and read, and delete none\n";
        return 0;
    }
    if (options.recount) {
        std::cout << (index.recount() ? "the summaries were wrong, and are right now\n"
                                      : "the summaries are right\n");
        return 0;
    }
    const FolderResult result = index_folder(index, options.journals, [](const std::string& line) {
        std::cerr << "q7-station: " << shown(line) << '\n';
    });
    std::cout << result.stored << " new, " << result.known << " known, " << result.running
              << " running, " << result.problems << " not indexed, "
              << count_waiting(options.journals + "/unsent") << " unsent\n";
    return result.problems == 0 ? 0 : kSomeFailed;
}

void print_attempt(const AttemptRecord& record) {
    std::printf("%3lld  %s  %-29s %-10s %s", static_cast<long long>(record.attempt),
                shown(record.id).c_str(), to_iso(record.start).c_str(), record.verdict.c_str(),
                shown(record.operator_id).c_str());
    if (record.mark != "production") std::printf("  (%s)", record.mark.c_str());
    if (const Item* item = first_failing(record)) {
        std::printf("  %s", shown(item->name).c_str());
        if (!item->reasons.empty() && !item->reasons.front().fact.empty()) {
            const Reason& reason = item->reasons.front();
            std::printf(": %s = %s, wanted %s", shown(reason.fact).c_str(),
                        shown(reason.value).c_str(), shown(reason.wanted).c_str());
        }
    }
    std::printf("\n");
    if (!record.causes.empty()) {
        std::printf("     likeliest cause: %s\n", shown(record.causes.front().defect).c_str());
    }
    for (const Repair& repair : record.repairs) {
        std::printf("     repaired after %s: %s %s\n", shown(repair.of).c_str(),
                    shown(repair.defect).c_str(), shown(repair.text).c_str());
    }
}

void show_history(const Options& options) {
    const auto attempts = open_existing(options).history(options.serial, options.model);
    if (options.json) {
        Exporter exporter(std::cout, Format::json);
        for (const AttemptRecord& record : attempts)
            exporter.add(record);
        exporter.finish();
        return;
    }
    std::string model;
    for (const AttemptRecord& record : attempts) {
        if (record.model != model) std::printf("%s\n", shown(record.model).c_str());
        model = record.model;
        print_attempt(record);
    }
    if (attempts.empty()) std::printf("no attempt of %s\n", shown(options.serial).c_str());
}

void print_yield(const std::string& key, const Yield& yield) {
    std::printf(
        "%-14s %8lld %9s %9s %8lld %12lld %12lld %11lld %7lld\n", shown(key).c_str(),
        static_cast<long long>(yield.boards), percent(yield.first_pass, yield.boards).c_str(),
        percent(yield.final_pass, yield.boards).c_str(), static_cast<long long>(yield.first_fail),
        static_cast<long long>(yield.first_not_proven), static_cast<long long>(yield.incomplete),
        static_cast<long long>(yield.reference), static_cast<long long>(yield.trial));
}

void show_failing_items(Index& index, const Filter& filter) {
    const auto items = index.failing_items(filter);
    std::int64_t all = 0, so_far = 0;
    for (const FailingItem& item : items)
        all += item.fail + item.not_proven;
    std::printf("%-14s %8s %8s %12s %12s\n", "first failing", "boards", "FAIL", "NOT PROVEN",
                "cumulative");
    for (const FailingItem& item : items) {
        const long long count = item.fail + item.not_proven;
        so_far += count;
        std::printf("%-14s %8lld %8lld %12lld %12s\n", shown(item.name).c_str(), count,
                    static_cast<long long>(item.fail), static_cast<long long>(item.not_proven),
                    percent(so_far, all).c_str());
    }
}

void show_yield(const Options& options) {
    Index index = open_existing(options);
    const Filter filter = filter_of(options);
    if (options.by == "item") {
        show_failing_items(index, filter);
        return;
    }
    static const std::map<std::string, By> kinds = {
        {"day", By::day}, {"model", By::model}, {"station", By::station}};
    std::printf("%-14s %8s %9s %9s %8s %12s %12s %11s %7s\n", options.by.c_str(), "boards", "first",
                "final", "FAIL", "NOT PROVEN", "INCOMPLETE", "reference", "trial");
    for (const Yield& each : index.yield_by(kinds.at(options.by), filter)) {
        print_yield(each.key, each);
    }
    print_yield("all", index.yield(filter));
}

void export_attempts(const Options& options) {
    Format format = options.format == "json" ? Format::json : Format::junit;
    if (options.format == "csv") {
        format = options.table == "items" ? Format::csv_items : Format::csv_runs;
    }
    Index index = open_existing(options);
    std::ofstream file;
    if (!options.output.empty()) file.open(options.output, std::ios::binary | std::ios::trunc);
    std::ostream& out = options.output.empty() ? std::cout : file;
    Exporter exporter(out, format);
    if (options.serial.empty()) {
        index.for_each(filter_of(options), [&](const AttemptRecord& record) {
            exporter.add(record);
            return out.good();
        });
    } else {
        for (const AttemptRecord& record : index.history(options.serial, options.model)) {
            exporter.add(record);
        }
    }
    exporter.finish();
    out.flush();
    if (!out) throw std::runtime_error("the export cannot be written");
}

CLI::App* add_command(CLI::App& app, const std::string& name, const std::string& what,
                      const std::shared_ptr<Options>& options,
                      const std::function<void(const Options&)>& run) {
    CLI::App* command = app.add_subcommand(name, what);
    command->add_option("--index", options->url,
                        "SQLite file, or postgresql://...; default: index.sqlite of the journals");
    command->add_option("--journals", options->journals, "Folder of journals")
        ->capture_default_str();
    command->callback([options, run] { run(*options); });
    return command;
}

void add_filter(CLI::App& command, const std::shared_ptr<Options>& options) {
    const CLI::Validator date(
        [](const std::string& text) -> std::string {
            try {
                return day_number(text) == 0 ? "no date" : "";
            } catch (const std::exception&) {
                return "no date like 2026-11-23: " + text;
            }
        },
        "YYYY-MM-DD");
    command.add_option("--from", options->from, "First day")->check(date);
    command.add_option("--to", options->to, "Last day")->check(date);
    command.add_option("--model", options->model, "One model");
    command.add_option("--station", options->station, "One station");
}

}  // namespace

void add_commands(CLI::App& app, int& status) {
    const auto options = std::make_shared<Options>();
    auto* index =
        add_command(app, "index", "Add the attempts of a folder of journals to the index", options,
                    [&status](const Options& given) { status = make_index(given); });
    index->add_flag("--recount", options->recount, "Make the summaries again instead");
    index->add_option("--grant", options->role,
                      "Let this role of PostgreSQL add and read, and delete nothing");

    auto* history = add_command(app, "history", "Show all attempts of a serial number", options,
                                [&status](const Options& given) {
                                    show_history(given);
                                    status = 0;
                                });
    history->add_option("SERIAL", options->serial)->required();
    history->add_option("--model", options->model, "One model");
    history->add_flag("--json", options->json, "As export does");

    auto* yield = add_command(app, "yield", "Show first-pass and final yield", options,
                              [&status](const Options& given) {
                                  show_yield(given);
                                  status = 0;
                              });
    add_filter(*yield, options);
    yield->add_option("--by", options->by, "What to group by")
        ->check(CLI::IsMember({"day", "model", "station", "item"}))
        ->capture_default_str();

    auto* out = add_command(app, "export", "Write attempts for other programs", options,
                            [&status](const Options& given) {
                                export_attempts(given);
                                status = 0;
                            });
    add_filter(*out, options);
    out->add_option("--format", options->format, "Format")
        ->required()
        ->check(CLI::IsMember({"junit", "csv", "json"}));
    out->add_option("--table", options->table, "Of CSV: a row an attempt, or a row an item")
        ->check(CLI::IsMember({"runs", "items"}))
        ->capture_default_str();
    out->add_option("--serial", options->serial, "One serial number");
    out->add_option("--output", options->output, "File; default: standard output");
}

}  // namespace station::index
