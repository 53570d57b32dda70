// q7-sim as a black box: one command of q7 on a simulated board, and everything that came of it.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "station/dictionary/defects.h"

namespace station {

struct SimulatorError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A change on a device of the board, as the event log has it: "line" "4=0", "panel" "record ...".
struct DeviceChange {
    double at_s;
    std::string device, state;
};

struct SimulatedCommand {
    std::vector<std::string> records;  // texts of the report records, bytes as q7 sends them
    std::string out, err;              // bytes; without what q7-sim itself says
    int status = 0, signal = 0;        // of q7
    bool stopped = false;              // q7 would not have ended before the end of the scenario
    std::vector<double> heard_at_s;    // when something was recorded or printed, and the last call
    std::vector<DeviceChange> changes;
    CallCounts calls;
};

class Simulator {
  public:
    // What is kept of the event log; with any of it, when something was heard of q7.
    enum class Log : std::uint8_t { none, devices, all };

    // `scenario` is the base of every board that is run.
    Simulator(const std::filesystem::path& program, const std::filesystem::path& scenario);

    // `change` is what follows the base in the scenario, `state` what follows that in a scenario of
    // its own; `words` are q7's own. Throws SimulatorError when q7-sim cannot be started, refuses
    // the scenario, or takes longer than 60 s. May be called from several threads.
    SimulatedCommand run(const std::string& change, const std::string& state,
                         const std::vector<std::string>& words, Log log) const;

  private:
    std::string program_, scenario_;
};

// An unnamed file in memory, which other processes open by its path.
class MemoryFile {
  public:
    MemoryFile();  // throws std::system_error
    MemoryFile(MemoryFile&& other) noexcept;
    MemoryFile& operator=(MemoryFile&&) = delete;
    ~MemoryFile();

    int descriptor() const { return file_; }
    std::string path() const;
    void write(std::string_view text);  // throws std::system_error
    std::string content() const;        // throws std::system_error

  private:
    int file_;
};

}  // namespace station
