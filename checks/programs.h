// The programs as a user runs them: by the shell, each in a process of its own.
#pragma once

#include <string>

namespace checks {

struct Finished {
    int status, signal;
    std::string out, err;
};

Finished shell(const std::string& command);
Finished q7_sim(const std::string& arguments);

std::string content_of(const std::string& path);
// Path of a temporary file of this process, which is gone with it.
std::string scratch(const std::string& name);

}  // namespace checks
