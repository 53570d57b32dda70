// One platform call on its way through the simulated board: counted, matched with the faults of
// the scenario, and recorded in the event log.
#pragma once

#include <cerrno>
#include <cstdint>
#include <string_view>

#include "sim/event_log.h"
#include "sim/occurrence.h"
#include "sim/process.h"

namespace sim {

// Hides the simulator's own synchronisation from ThreadSanitizer, which would otherwise take the
// order of the turns for one that the product has made, and find no race.
class HiddenFromThreadSanitizer {
  public:
    HiddenFromThreadSanitizer();
    ~HiddenFromThreadSanitizer();
    HiddenFromThreadSanitizer(const HiddenFromThreadSanitizer&) = delete;
    HiddenFromThreadSanitizer& operator=(const HiddenFromThreadSanitizer&) = delete;
};

struct Fd {
    int number;
};
constexpr std::string_view kNoPath;

class Call {
  public:
    Call(const char* function, std::string_view path, std::int64_t argument);
    Call(const char* function, Fd fd, std::int64_t argument = 0, std::uint32_t request = 0);

    // Bytes in and out, for the event log.
    void sent(std::string_view bytes) { event_->sent = keep(bytes); }
    void got(std::string_view bytes) { event_->got = keep(bytes); }

    // The size of a read or write, as far as a fault allows it.
    std::size_t shortened(std::size_t size) const;

    // The open file of the call's descriptor; null when it is closed.
    OpenFile* file() const { return file_; }

    // Runs the body, which returns as a kernel does, unless a fault takes its place. Converts its
    // result to that of a system call: -1 and errno on failure, errno unchanged on success.
    template <class Body>
    long run(Body body) {
        const int fault = begin();
        return finish(fault != 0 ? -fault : body());
    }

    void abandon() { event_ = nullptr; }  // in a forked process: the call is the parent's

  private:
    int begin();  // errno of a fault; 0 = none
    long finish(long result);
    bool has(Fault::Effect effect) const { return fault_ != nullptr && fault_->effect == effect; }

    HiddenFromThreadSanitizer hidden_;
    Event* event_ = nullptr;
    OpenFile* file_ = nullptr;
    const Fault* fault_ = nullptr;
    int saved_errno_ = errno;
};

}  // namespace sim
