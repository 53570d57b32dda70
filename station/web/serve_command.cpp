#include "station/web/serve_command.h"

#include <signal.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <atomic>
#include <cstdio>
#include <thread>

#include "station/commands.h"
#include "station/journal.h"
#include "station/text.h"
#include "station/web/controller.h"
#include "station/web/http.h"
#include "station/web/record.h"
#include "station/web/records.h"
#include "station/web/server.h"

namespace station {
namespace {

using nlohmann::json;
using std::string;
using namespace std::chrono_literals;

struct ServeOptions {
    string listen = "127.0.0.1:8077", station, plans, journals = "journals", people, token_file,
           operator_id, index, dictionaries, shifts = "00:00", before, after;
    bool needs_proof = false;
    std::vector<string> words;
};

web::HttpServer* serving = nullptr;  // of the signal handler

void end_serving(int) {
    if (serving != nullptr) serving->stop();
}

void watch_signals(web::HttpServer& server) {
    serving = &server;
    struct sigaction action = {};
    action.sa_handler = end_serving;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
}

struct Listen {
    string address;
    std::uint16_t port;
};

Listen parse_listen(const string& text) {
    const std::size_t colon = text.rfind(':');
    const string port = colon == string::npos ? "" : text.substr(colon + 1);
    if (port.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != string::npos
        || std::stoi(port) > 65535)
        throw std::runtime_error("--listen wants ADDRESS:PORT");
    string address = text.substr(0, colon);
    if (address.starts_with('[') && address.ends_with(']'))
        address = address.substr(1, address.size() - 2);
    return {address == "localhost" ? "127.0.0.1" : address,
            static_cast<std::uint16_t>(std::stoi(port))};
}

web::ControllerSetup make_setup(const ServeOptions& options) {
    web::ControllerSetup setup;
    if (!is_station_name(options.station))
        throw std::runtime_error("--station is 1 to 16 letters and digits");
    setup.station = options.station;
    setup.journals = options.journals;
    setup.plans = web::load_plans(options.plans);
    setup.board = BoardWords::parse(options.words);
    if (!options.people.empty()) setup.people = web::read_people(options.people);
    setup.operator_id = options.operator_id;
    setup.needs_proof = options.needs_proof;
    setup.shifts = parse_shifts(options.shifts);
    setup.before = options.before;
    setup.after = options.after;
    if (setup.people.empty() && setup.operator_id.empty())
        throw std::runtime_error("--people FILE, or --operator NAME where nobody signs in");
    return setup;
}

web::Backend make_backend(web::Controller& controller, web::Archive& archive,
                          const std::filesystem::path& journals) {
    web::Backend backend;
    backend.state = [&] { return controller.state(); };
    backend.scan = [&](const string& text) { controller.scan(text); };
    backend.answer = [&](const string& attempt, const string& serial, const string& question,
                         const string& answer) {
        controller.answer(attempt, serial, question, answer);
    };
    backend.stop = [&](const string& attempt) { controller.stop(attempt); };
    backend.mark = [&](const string& mark) { controller.mark(mark); };
    backend.repair = [&](const string& of, const string& defect, const string& text,
                         const string& badge) { controller.repair(of, defect, text, badge); };
    backend.replay = [journals](const string& id) { return web::replay_json(journals, id); };
    backend.attempt = [journals](const string& id) { return web::attempt_json(journals, id); };
    backend.journal = [journals](const string& id) {
        return read_file(web::journal_of(journals, id).string());
    };
    backend.board = [&](const string& serial) { return archive.board(serial); };
    backend.yield = [&](const web::Query& query) { return archive.yield(query); };
    backend.list = [&](const web::Query& query) { return archive.list(query); };
    return backend;
}

// Publishes the state at every change, and each second.
class Publisher {
  public:
    Publisher(web::Controller& controller, web::HttpServer& http, std::atomic<bool>& changed)
        : thread_([&](const std::stop_token& stop) {
              auto next = std::chrono::steady_clock::now();
              while (!stop.stop_requested()) {
                  const auto now = std::chrono::steady_clock::now();
                  if (changed.exchange(false) || now >= next) {
                      http.publish("state", controller.state().dump(
                                                -1, ' ', false, json::error_handler_t::replace));
                      next = now + 1s;
                  }
                  std::this_thread::sleep_for(50ms);
              }
          }) {}

  private:
    std::jthread thread_;
};

int serve(const ServeOptions& options) {
    const Listen listen = parse_listen(options.listen);
    web::Tokens tokens;
    if (!options.token_file.empty()) tokens = web::read_tokens(options.token_file);
    if (!web::is_loopback(listen.address) && !tokens.needed())
        throw std::runtime_error("other computers are served only with --token-file");
    std::atomic<bool> changed = false;
    const string index = options.index.empty() ? options.journals + "/index.sqlite" : options.index;
    std::filesystem::create_directories(options.journals);
    web::Archive archive(options.journals, index, options.dictionaries);
    web::Controller controller(make_setup(options), archive.records(), [&] { changed = true; });
    const web::Server routes(make_backend(controller, archive, options.journals), tokens);
    web::HttpServer http(listen.address, listen.port, {},
                         [&](const web::Request& request) { return routes.handle(request); });
    watch_signals(http);
    std::printf("http://%s:%u/\n", listen.address.c_str(), http.port());
    std::fflush(stdout);
    const Publisher publisher(controller, http, changed);
    http.run();
    serving = nullptr;
    return 0;
}

}  // namespace

void add_serve(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("serve", "Serve the pages of one station");
    auto options = std::make_shared<ServeOptions>();
    command->add_option("--listen", options->listen, "ADDRESS:PORT, 127.0.0.1:8077 by default");
    command->add_option("--station", options->station, "Name of the station, 3L02")->required();
    command->add_option("--plans", options->plans, "Folder of plans")->required();
    command->add_option("--journals", options->journals, "Folder of journals");
    command->add_option("--index", options->index,
                        "postgresql://..., or a file of SQLite; by default beside the journals");
    command->add_option("--dictionaries", options->dictionaries, "Folder of fault dictionaries");
    command->add_option("--people", options->people, "File of operators and supervisors");
    command->add_option("--operator", options->operator_id, "Who works there, without --people");
    command->add_option("--token-file", options->token_file, "Tokens to look and to operate");
    command->add_flag("--require-proof", options->needs_proof,
                      "Lock plans without reference boards, too, until the shift is proven");
    command->add_option("--shifts", options->shifts, "When shifts begin: 08:00,20:00")
        ->capture_default_str();
    command->add_option("--before", options->before,
                        "The factory's command that may refuse a start");
    command->add_option("--after", options->after, "The factory's command after a verdict");
    command
        ->add_option("words", options->words, "-- [CONNECTION...] q7-agent run [...] -- PROGRAM...")
        ->required();
    command->callback([options, &status] { status = serve(*options); });
}

}  // namespace station
