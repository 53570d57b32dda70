// Shows a run as it goes on: steps, times and facts as they come, then the verdict.
#pragma once

#include <set>
#include <string>

#include "station/evidence.h"
#include "station/plan.h"
#include "station/show.h"

namespace station {

class Progress {
  public:
    explicit Progress(int fd) : fd_(fd), look_(look_of(fd)) {}

    // What has come since the last time, without lines that the plan explains.
    void show(const Evidence& evidence, const Plan& plan);
    void show(const Judgement& judgement);  // at the end
    void note(const std::string& text);     // a line of the station's own

  private:
    void print(const std::string& text);
    void show_status(const Evidence& evidence);

    int fd_;
    Look look_;
    std::set<std::string> shown_;  // names of steps and facts, findings
    bool has_status_ = false;      // the terminal's last line is the running step
};

}  // namespace station
