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

std::string octal(const std::string& bytes);  // for printf in a shell

// A folder in which the commands of a document find what they name.
std::string folder_of_document(const std::string& name);
// What a document's session shows when its commands, the lines after "$ ", run in this folder.
std::string play(const std::string& session, const std::string& folder);

std::string content_of(const std::string& path);
// Path of a temporary file of this process, which is gone with it.
std::string scratch(const std::string& name);

}  // namespace checks
