// The commands that read journals: judge, learn, rejudge, replay.
#include <CLI/CLI.hpp>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>

#include "station/commands.h"
#include "station/dictionary/diagnosis.h"
#include "station/journal.h"
#include "station/judge.h"
#include "station/learn.h"
#include "station/progress.h"
#include "station/show.h"
#include "station/text.h"

namespace station {
namespace {

using std::string;

Judgement judge_file(const string& path, const std::optional<Plan>& plan,
                     const std::optional<Dictionary>& dictionary = std::nullopt) {
    const Journal journal = read_journal(path);
    if (journal.lines == 0) {
        throw std::runtime_error(path + ": " + journal.damage.front().text);
    }
    const Evidence evidence = take_evidence(journal);
    Judgement judgement = plan ? judge(journal, evidence, *plan) : judge(journal);
    if (dictionary) diagnose(*dictionary, judgement, evidence);
    return judgement;
}

struct JudgeOptions {
    string plan, dictionary;
    bool json = false;
    std::vector<string> journals;
};

int judge_journals(const JudgeOptions& options) {
    std::optional<Plan> plan;
    if (!options.plan.empty()) plan = Plan::parse(read_file(options.plan), options.plan);
    std::optional<Dictionary> dictionary;
    if (!options.dictionary.empty()) {
        dictionary = parse_dictionary(read_file(options.dictionary), options.dictionary);
    }
    Verdict worst = Verdict::pass;
    bool refused = false;
    const Look look = look_of(STDOUT_FILENO);
    for (const string& path : options.journals) {
        try {
            const Judgement judgement = judge_file(path, plan, dictionary);
            worst = std::max(worst, judgement.verdict);
            if (options.json) {
                std::cout << to_json(judgement).dump() << "\n";
            } else {
                std::cout << reason_lines(judgement, look) << cause_lines(judgement)
                          << verdict_text(judgement, look);
            }
        } catch (const std::exception& error) {
            std::fprintf(stderr, "q7-station: %s\n", error.what());
            refused = true;
        }
    }
    return refused ? kBadUse : exit_status(worst);
}

int print_learned(const string& model, const std::vector<string>& paths) {
    std::vector<Journal> journals;
    journals.reserve(paths.size());
    for (const string& path : paths)
        journals.push_back(read_journal(path));
    std::cout << learn_plan(journals, model);
    return 0;
}

// The verdict that stands in a judgement beside a journal; empty = there is none.
string stored_verdict(const std::filesystem::path& journal) {
    try {
        const auto object = nlohmann::json::parse(read_file(judgement_path(journal).string()));
        return object.at("verdict");
    } catch (const std::exception&) {
        return {};
    }
}

int rejudge_folder(const string& folder) {
    std::size_t journals = 0, changed = 0;
    for (const auto& path : journals_in(folder)) {
        ++journals;
        const Judgement judgement = judge_file(path.string(), std::nullopt);
        const string before = stored_verdict(path);
        if (before == name_of(judgement.verdict)) continue;
        ++changed;
        std::cout << judgement.identity.id << " " << judgement.identity.serial << " "
                  << (before.empty() ? "(no judgement)" : before) << " -> "
                  << name_of(judgement.verdict) << "\n";
    }
    std::fprintf(stderr, "%zu journals, %zu verdicts changed\n", journals, changed);
    return 0;
}

// The progress of a run that is over, at its own pace or a faster one.
int replay_journal(const string& path, double pace) {
    const Journal whole = read_journal(path);
    if (whole.lines == 0) throw std::runtime_error(path + ": " + whole.damage.front().text);
    Plan plan;
    try {
        plan = Plan::parse(whole.identity.plan_text, path);
    } catch (const PlanError&) {  // the verdict says so
        plan = {};
    }
    Progress progress(STDOUT_FILENO);
    Journal part = whole;
    part.events.clear();
    std::int64_t latest_us = -1;
    for (const BoardEvent& event : whole.events) {
        const std::int64_t passed_us = latest_us < 0 ? 0 : event.time_us - latest_us;
        if (pace > 0 && passed_us > 0) {
            ::poll(nullptr, 0, static_cast<int>(static_cast<double>(passed_us) / 1000 / pace));
        }
        latest_us = event.time_us;
        part.events.push_back(event);
        const bool follows_at_once =
            &event != &whole.events.back() && (&event + 1)->time_us == event.time_us;
        if (!follows_at_once) progress.show(take_evidence(part), plan);
    }
    const Judgement judgement = judge(whole);
    progress.show(judgement);
    return exit_status(judgement.verdict);
}

}  // namespace

void add_judge(CLI::App& app, int& status) {
    auto options = std::make_shared<JudgeOptions>();
    CLI::App* command = app.add_subcommand("judge", "Judge journals by their own plan or another");
    command->add_option("--plan", options->plan, "Judge by this plan")->check(CLI::ExistingFile);
    command->add_option("--dictionary", options->dictionary, "Fault dictionary, for the causes")
        ->check(CLI::ExistingFile);
    command->add_flag("--json", options->json, "Print one object a journal, on one line");
    command->add_option("JOURNAL", options->journals, "Journals")->required();
    command->callback([options, &status] { status = judge_journals(*options); });
}

void add_learn(CLI::App& app, int& status) {
    auto model = std::make_shared<string>();
    auto paths = std::make_shared<std::vector<string>>();
    CLI::App* command =
        app.add_subcommand("learn", "Write a plan from journals of boards known to be good");
    command->add_option("--model", *model, "Model of the plan; without it, the journals'");
    command->add_option("JOURNAL", *paths, "Journals")->required();
    command->callback([model, paths, &status] { status = print_learned(*model, *paths); });
}

void add_rejudge(CLI::App& app, int& status) {
    auto folder = std::make_shared<string>();
    CLI::App* command =
        app.add_subcommand("rejudge", "Judge a folder of journals again, print what changes");
    command->add_option("DIR", *folder, "Folder of journals")
        ->required()
        ->check(CLI::ExistingDirectory);
    command->callback([folder, &status] { status = rejudge_folder(*folder); });
}

void add_replay(CLI::App& app, int& status) {
    auto path = std::make_shared<string>();
    auto pace = std::make_shared<double>(1);
    CLI::App* command = app.add_subcommand("replay", "Show a run again as it was");
    command->add_option("--pace", *pace, "Times real time; 0 = at once")
        ->check(CLI::NonNegativeNumber);
    command->add_option("JOURNAL", *path, "Journal")->required();
    command->callback([path, pace, &status] { status = replay_journal(*path, *pace); });
}

}  // namespace station
