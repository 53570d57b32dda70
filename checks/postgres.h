// A PostgreSQL server of the checks' own: not root's, in a scratch folder, on a socket there.
#pragma once

#include <sys/types.h>

#include <string>

namespace checks {

class Postgres {
  public:
    // Makes a cluster, in half a second, and starts it. Throws std::runtime_error.
    Postgres();
    ~Postgres();
    Postgres(const Postgres&) = delete;
    Postgres& operator=(const Postgres&) = delete;

    static bool is_installed();

    // The URL of this database, for this role, who needs no password.
    std::string url(const std::string& database = "postgres",
                    const std::string& role = "owner") const;
    // Makes an empty database and returns its URL.
    std::string new_database();
    void execute(const std::string& statement);  // without quotes of the shell's kind: " $ `

    void start();
    void stop();   // in order
    void crash();  // at once; the next start recovers

  private:
    void end(int signal);

    std::string folder_;
    pid_t server_ = -1;
    int databases_ = 0;
};

}  // namespace checks
