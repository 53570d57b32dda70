#include "checks/programs.h"

#include <gmock/gmock.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace checks {

std::string content_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string scratch(const std::string& name) {
    return testing::TempDir() + std::to_string(::getpid()) + name;
}

Finished shell(const std::string& command) {
    const std::string out = scratch("out"), err = scratch("err");
    const int status = std::system(("exec " + command + " >" + out + " 2>" + err).c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1,
            WIFSIGNALED(status) ? WTERMSIG(status) : 0, content_of(out), content_of(err)};
}

Finished q7_sim(const std::string& arguments) { return shell(Q7_BINARIES "/q7-sim " + arguments); }

}  // namespace checks
