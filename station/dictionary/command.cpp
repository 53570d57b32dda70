#include "station/dictionary/command.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>

#include <unistd.h>

#include "station/dictionary/dictionary.h"
#include "station/dictionary/pages.h"
#include "station/journal.h"
#include "station/text.h"

namespace station {
namespace {

struct DictionaryOptions {
    ModelFiles model;
    std::string output;
};

// A line that is written over on a terminal; each tenth elsewhere.
class ProgressLine {
  public:
    void show(std::size_t done, std::size_t of) {
        const std::size_t tenth = done * 10 / of;
        if (tenth == tenth_ && !(terminal_ && done % 10 == 0)) return;
        tenth_ = tenth;
        std::fprintf(stderr, "%s%zu of %zu defects%s", terminal_ ? "\r" : "", done, of,
                     terminal_ && done < of ? "" : "\n");
    }

  private:
    const bool terminal_ = ::isatty(STDERR_FILENO) == 1;
    std::size_t tenth_ = 0;
};

int make(const DictionaryOptions& options) {
    const auto& [plan, board, program] = options.model;
    const std::string plan_text = read_file(plan);
    const AttemptSimulator simulator(program, board, Plan::parse(plan_text, plan), plan_text);
    const auto start = std::chrono::steady_clock::now();
    ProgressLine progress;
    const Dictionary dictionary =
        make_dictionary(simulator, std::filesystem::path(board).filename().string(),
                        [&](std::size_t done, std::size_t of) { progress.show(done, of); });
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    const std::string text = to_text(dictionary);
    if (options.output.empty()) {
        std::cout << text;
    } else {
        write_file(options.output, text);
    }
    const bool has_hidden =
        !dictionary.signatures.empty() && dictionary.signatures.front().symptoms.empty();
    std::fprintf(stderr, "%zu defects, %zu signatures, %zu defects without one; %.1f s\n",
                 dictionary.defects(), dictionary.signatures.size() - (has_hidden ? 1 : 0),
                 has_hidden ? dictionary.signatures.front().defects.size() : 0, took.count());
    return std::cout.flush() ? 0 : 2;
}

int print_pages(const std::string& language, bool blind, const std::vector<std::string>& files) {
    std::vector<Dictionary> dictionaries;
    dictionaries.reserve(files.size());
    for (const std::string& file : files)
        dictionaries.push_back(parse_dictionary(read_file(file), file));
    const Language chosen = language == "zh" ? Language::zh : Language::en;
    std::cout << (blind ? blind_spots(dictionaries) : fault_catalogue(dictionaries, chosen));
    return std::cout.flush() ? 0 : 2;
}

}  // namespace

void add_model_files(CLI::App& command, ModelFiles& files) {
    const auto add_file = [&](const char* name, std::string& file, const char* help) {
        command.add_option(name, file, help)->required()->check(CLI::ExistingFile);
    };
    add_file("--plan", files.plan, "Plan that the board passes");
    add_file("--board", files.board, "Scenario of the healthy board");
    add_file("--simulator", files.simulator, "q7-sim");
}

void add_dictionary(CLI::App& app, int& status) {
    auto options = std::make_shared<DictionaryOptions>();
    CLI::App* command = app.add_subcommand(
        "dictionary", "Simulate every single defect of a board, for the causes of a failure");
    add_model_files(*command, options->model);
    command->add_option("--output", options->output, "File; without it, standard output");
    command->callback([options, &status] { status = make(*options); });
}

void add_faults(CLI::App& app, int& status) {
    auto language = std::make_shared<std::string>("en");
    auto blind = std::make_shared<bool>(false);
    auto files = std::make_shared<std::vector<std::string>>();
    CLI::App* command = app.add_subcommand("faults", "Print the catalogue of fault dictionaries");
    command->add_option("--language", *language, "zh or en")
        ->check(CLI::IsMember({"zh", "en"}))
        ->capture_default_str();
    command->add_flag("--blind", *blind,
                      "Instead, what no fact shows, and what cannot be told apart");
    command->add_option("DICTIONARY", *files, "Fault dictionaries")->required();
    command->callback([=, &status] { status = print_pages(*language, *blind, *files); });
}

}  // namespace station
