#include "checks/programs.h"

#include <gmock/gmock.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

namespace checks {
namespace {

class ScratchFolder {  // of this process; removed at its end
  public:
    ScratchFolder() {
        if (::mkdtemp(path_.data()) == nullptr)
            throw std::system_error(errno, std::generic_category(), path_);
    }
    ~ScratchFolder() {
        std::error_code ignored;
        if (::getpid() == owner_) std::filesystem::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const std::string& path() const { return path_; }

  private:
    std::string path_ = testing::TempDir() + "q7-checks-XXXXXX";
    pid_t owner_ = ::getpid();
};

}  // namespace

std::string content_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string scratch(const std::string& name) {
    static const ScratchFolder folder;
    return folder.path() + "/" + name;
}

std::string octal(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        char digits[8];
        std::snprintf(digits, sizeof digits, "\\%03o", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

std::string folder_of_document(const std::string& name) {
    const std::string folder = scratch(name);
    std::filesystem::create_directory(folder);
    std::filesystem::create_directory_symlink(Q7_BINARIES, folder + "/build");
    for (const std::string each : {"/boards", "/checks", "/plans"})
        std::filesystem::create_directory_symlink(Q7_SOURCE + each, folder + each);
    return folder;
}

std::string play(const std::string& session, const std::string& folder) {
    std::istringstream lines(session);
    std::string played;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("$ ")) continue;
        std::ofstream(folder + "/command") << line.substr(2) << "\n";
        played += line + "\n" + shell("sh -c 'cd " + folder + "; sh ./command 2>&1'").out;
        if (played.back() != '\n') played += '\n';
    }
    return played;
}

Finished shell(const std::string& command) {
    const std::string out = scratch("out"), err = scratch("err");
    const int status = std::system(("exec " + command + " >" + out + " 2>" + err).c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1,
            WIFSIGNALED(status) ? WTERMSIG(status) : 0, content_of(out), content_of(err)};
}

Finished q7_sim(const std::string& arguments) { return shell(Q7_BINARIES "/q7-sim " + arguments); }

}  // namespace checks
