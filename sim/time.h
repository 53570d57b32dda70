// Virtual time.
#pragma once

#include <cmath>
#include <cstdint>

namespace sim {

using Microseconds = std::int64_t;  // since the start of the run
struct UnixTime {
    std::int64_t seconds;  // since 1970 UTC
};

constexpr Microseconds kNever = INT64_MAX;

inline Microseconds from_seconds(double seconds) { return std::llround(seconds * 1e6); }
constexpr Microseconds from_ms(std::int64_t milliseconds) { return milliseconds * 1000; }
constexpr double to_seconds(Microseconds time) { return static_cast<double>(time) / 1e6; }

}  // namespace sim
