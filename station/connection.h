// The way to the board: words that start q7-agent there, through whatever connects.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace station {

// "[CONNECTION...] q7-agent run [OPTIONS] [--] PROGRAM..." taken apart.
struct BoardWords {
    std::vector<std::string> connection;  // before q7-agent
    std::string agent;                    // as it was written
    std::vector<std::string> options;     // of its run, without --run
    std::vector<std::string> spool;       // "--spool DIR", where given
    std::vector<std::string> program;     // q7, or q7-sim with its options

    // Throws std::runtime_error with what is wrong.
    static BoardWords parse(const std::vector<std::string>& words);

    std::vector<std::string> run(const std::string& name, int time_limit_s,
                                 const std::vector<std::string>& q7_words) const;
    std::vector<std::string> follow(const std::string& name, std::uint64_t from) const;
    std::vector<std::string> about(const char* command, const std::string& name) const;
};

// A process of ours, its standard output and error in pipes. It is killed when the owner goes.
class Child {
  public:
    // Throws std::system_error when it cannot be started.
    explicit Child(const std::vector<std::string>& words);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    int output() const { return output_; }  // -1 after its end
    int errors() const { return errors_; }

    // Adds what is there to read; false at the end of the stream.
    bool read_output(std::string& bytes) { return read_some(output_, bytes); }
    bool read_errors(std::string& bytes) { return read_some(errors_, bytes); }

    // Waits at most this long for its end. The status is 128 + N after signal N.
    std::optional<int> wait(int timeout_ms);
    void kill();

  private:
    static bool read_some(int& fd, std::string& bytes);

    pid_t pid_ = -1;  // -1 = collected
    int output_ = -1, errors_ = -1;
    int status_ = 0;
};

// Runs a command to its end, at most so long; its status, or -1.
int run_to_end(const std::vector<std::string>& words, int timeout_ms, std::string& output);

}  // namespace station
