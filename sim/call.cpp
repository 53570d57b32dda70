#include "sim/call.h"

#include <algorithm>

#include "sim/clock.h"
#include "sim/world.h"

#ifdef __SANITIZE_THREAD__
extern "C" {
void AnnotateIgnoreReadsBegin(const char* file, int line);
void AnnotateIgnoreReadsEnd(const char* file, int line);
void AnnotateIgnoreWritesBegin(const char* file, int line);
void AnnotateIgnoreWritesEnd(const char* file, int line);
void AnnotateIgnoreSyncBegin(const char* file, int line);
void AnnotateIgnoreSyncEnd(const char* file, int line);
}
#endif

namespace sim {
namespace {

constexpr std::uint32_t kSpinning = 100'000;

void stop_if_spinning(const char* function) {
    Actor& actor = *self;
    if (actor.instant != world->now) actor.calls_at_instant = 0;
    actor.instant = world->now;
    if (++actor.calls_at_instant < kSpinning) return;
    stop_here("%s was spinning: %u calls at %.6f s, the latest one %s", actor.name.data(),
              kSpinning, to_seconds(world->now), function);
}

}  // namespace

HiddenFromThreadSanitizer::HiddenFromThreadSanitizer() {
#ifdef __SANITIZE_THREAD__
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
    AnnotateIgnoreSyncBegin(__FILE__, __LINE__);
#endif
}

HiddenFromThreadSanitizer::~HiddenFromThreadSanitizer() {
#ifdef __SANITIZE_THREAD__
    AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
    AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
#endif
}

Call::Call(const char* function, std::string_view path, std::int64_t argument) {
    stop_if_spinning(function);
    event_ = &new_event(function);
    event_->argument = argument;
    event_->path = keep(path);
}

Call::Call(const char* function, Fd fd, std::int64_t argument, std::uint32_t request)
    : Call(function, kNoPath, argument) {
    event_->request = request;
    event_->fd = fd.number;
    file_ = open_file(fd.number);
    if (file_ != nullptr) event_->path = file_->path;
}

int Call::begin() {
    make_changes_of_call(*event_);
    fault_ = matching_fault(*event_);
    if (has(Fault::Effect::interrupt)) interrupt_all();
    if (has(Fault::Effect::power_cut)) {
        world->power_cut = true;
        stop_here("the power failed");
    }
    return has(Fault::Effect::error) ? fault_->error : 0;
}

std::size_t Call::shortened(std::size_t size) const {
    return has(Fault::Effect::shorten) ? std::min<std::size_t>(size, fault_->count) : size;
}

long Call::finish(long result) {
    if (event_ == nullptr) return result;
    if (has(Fault::Effect::interrupt)) deliver_interrupt();
    if (has(Fault::Effect::value)) result = fault_->value;
    event_->ended = world->now;
    event_->error = result < 0 ? static_cast<std::int32_t>(-result) : 0;
    event_->result = result < 0 ? -1 : result;
    errno = result < 0 ? event_->error : saved_errno_;
    return static_cast<long>(event_->result);
}

}  // namespace sim
