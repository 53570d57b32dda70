#include "checks/postgres.h"

#include <fcntl.h>
#include <glob.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "checks/programs.h"

namespace checks {
namespace {

constexpr const char* kUser = "nobody";

std::string programs() {
    glob_t found{};
    std::string folder;
    if (glob("/usr/lib/postgresql/*/bin/postgres", 0, nullptr, &found) == 0) {
        folder = std::filesystem::path(found.gl_pathv[found.gl_pathc - 1]).parent_path();
    }
    globfree(&found);
    return folder;
}

// The words that make a program run as somebody other than root, and end with us.
std::vector<std::string> as_user() {
    std::vector<std::string> words = {"setpriv", "--pdeathsig", "INT"};
    if (geteuid() == 0) {
        words.insert(words.end(),
                     {std::string("--reuid=") + kUser, "--regid=nogroup", "--clear-groups"});
    }
    return words;
}

pid_t start_program(std::vector<std::string> words, const std::string& log) {
    const pid_t pid = ::fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid > 0) return pid;
    const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(out, 1);
    dup2(out, 2);
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

}  // namespace

bool Postgres::is_installed() { return !programs().empty(); }

Postgres::Postgres() {
    char name[] = "/tmp/q7-postgres-XXXXXX";  // short: a socket's path has at most 107 bytes
    if (mkdtemp(name) == nullptr) throw std::runtime_error("no scratch folder");
    folder_ = name;
    if (geteuid() == 0) {
        const passwd* user = getpwnam(kUser);
        if (user == nullptr || chown(name, user->pw_uid, user->pw_gid) != 0) {
            throw std::runtime_error("no user for the database");
        }
    }
    std::vector<std::string> words = as_user();
    words.insert(words.end(), {programs() + "/initdb", "-D", folder_ + "/data", "-A", "trust", "-U",
                               "owner", "-E", "UTF8", "--locale=C", "--no-sync"});
    int status = 0;
    const pid_t pid = start_program(words, folder_ + "/initdb.log");
    if (waitpid(pid, &status, 0) != pid || status != 0) throw std::runtime_error("initdb failed");
    start();
}

Postgres::~Postgres() {
    if (server_ > 1) end(SIGQUIT);
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void Postgres::start() {
    std::vector<std::string> words = as_user();
    words.insert(words.end(), {programs() + "/postgres", "-D", folder_ + "/data", "-k", folder_,
                               "-c", "listen_addresses=", "-c", "fsync=off"});
    server_ = start_program(words, folder_ + "/server.log");
    for (int i = 0; i < 200; ++i) {
        try {
            execute("SELECT 1");
            return;
        } catch (const std::exception&) {
            usleep(50'000);
        }
    }
    throw std::runtime_error("the database does not start");
}

void Postgres::end(int signal) {
    if (server_ <= 1) throw std::logic_error("no server runs");
    kill(server_, signal);
    waitpid(server_, nullptr, 0);
    server_ = -1;
}

void Postgres::stop() { end(SIGINT); }
void Postgres::crash() { end(SIGQUIT); }

std::string Postgres::url(const std::string& database, const std::string& role) const {
    return "postgresql:///" + database + "?host=" + folder_ + "&user=" + role;
}

void Postgres::execute(const std::string& statement) {
    const Finished psql =
        shell("psql -X -q -v ON_ERROR_STOP=1 '" + url() + "' -c \"" + statement + "\"");
    if (psql.status != 0) throw std::runtime_error(psql.err);
}

std::string Postgres::new_database() {
    const std::string name = "q7_" + std::to_string(++databases_);
    execute("CREATE DATABASE " + name);
    return url(name);
}

}  // namespace checks
