// The event log: every platform call and every change of a device, in the order in which they began.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "sim/time.h"

namespace sim {

// A platform call, or a change of a device (function "panel", "watchdog" ...; its text in sent).
// What its texts show lies in the log.
struct Event {
    Microseconds at, ended;  // ended = -1: the call did not return
    const char* function;    // a literal, valid in every process of the run
    std::int64_t argument, result;
    std::uint32_t request;
    std::int32_t error;          // errno of a failed call
    std::int32_t fd;             // -1 = none
    std::uint32_t printed;       // bytes on standard output before the call
    std::string_view actor;      // its name; empty = the board
    std::string_view path;       // empty = none
    std::string_view sent, got;  // bytes in and out

    bool is_of_board() const { return actor.empty(); }
    // A call of this function by the product.
    bool is_call(std::string_view name) const { return !is_of_board() && function == name; }
    // A change of this device.
    bool is_change(std::string_view device) const { return is_of_board() && function == device; }
    // A report record written to the FIFO: header and text.
    bool is_report() const {
        return is_call("write") && ended >= 0 && result > 0 && path == "/var/q7.fifo";
    }
};

// Of fixed capacity, in the world.
struct EventLog {
    std::uint32_t events_used, text_used;
    Event events[400'000];
    char text[32'000'000];

    std::span<const Event> all() const { return {events, events_used}; }
};

// One event as a line of JSON, without the line end. Times are seconds; bytes are hexadecimal.
std::string to_json(const Event& event);

// The descriptor of the product's standard output in the calling process.
extern int console_stream;

// A new event of the running actor, at the present instant.
Event& new_event(const char* function);

// Records a change of a device.
[[gnu::format(printf, 2, 3)]] void note(const char* device, const char* format, ...);

// Adds bytes to the text of the log, with a zero behind them. What it returns stays valid, in every
// process of the run.
std::string_view keep(std::string_view bytes);

}  // namespace sim
