// q7-station: the commands.
#include <CLI/CLI.hpp>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>

#include "station/commands.h"
#include "station/dictionary/command.h"
#include "station/index/commands.h"
#include "station/version.h"
#ifdef Q7_STATION_PAGES
#include "station/web/serve_command.h"
#endif

namespace {

int run_command(int argc, char** argv) {
    CLI::App app("Tests recorder boards with q7 and keeps what it finds", "q7-station");
    app.set_version_flag("--version", std::string("q7-station ") + station::kVersion);
    app.require_subcommand(1);
    int status = station::kBadUse;
    station::add_judge(app, status);
    station::add_learn(app, status);
    station::add_rejudge(app, status);
    station::add_replay(app, status);
    station::add_run(app, status);
    station::add_prove(app, status);
    station::add_dictionary(app, status);
    station::add_faults(app, status);
    station::index::add_commands(app, status);
#ifdef Q7_STATION_PAGES
    station::add_serve(app, status);
#endif
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : station::kBadUse;
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run_command(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "q7-station: %s\n", error.what());
    } catch (...) {
        std::fprintf(stderr, "q7-station: failed\n");
    }
    return station::kBadUse;
}
