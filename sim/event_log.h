// The event log: every platform call and every change of a device, in the order in which they began.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "sim/time.h"

namespace sim {

// A platform call, or a change of a device (function "panel", "watchdog" ...; its text in sent).
struct Event {
    Microseconds at, ended;  // ended = -1: the call did not return
    const char* function;    // a literal, valid in every process of the run
    std::int64_t argument, result;
    std::uint32_t request;
    std::int32_t error;                            // errno of a failed call
    std::int32_t fd;                               // -1 = none
    std::uint32_t path;                            // in the text arena; 0 = none
    std::uint32_t sent, sent_size, got, got_size;  // bytes in and out, in the text arena
    std::uint32_t printed;                         // bytes on standard output before the call
    std::uint32_t actor;                           // its name, in the text arena; 0 = the board
};

// Of fixed capacity, in the world.
struct EventLog {
    std::uint32_t events_used, text_used;
    Event events[400'000];
    char text[32'000'000];

    std::span<const Event> all() const { return {events, events_used}; }
    const char* text_at(std::uint32_t place) const { return text + place; }
    std::string_view actor_of(const Event& event) const { return text + event.actor; }
    std::string_view path_of(const Event& event) const { return text + event.path; }
    std::string_view sent(const Event& event) const { return {text + event.sent, event.sent_size}; }
    std::string_view got(const Event& event) const { return {text + event.got, event.got_size}; }

    // A call of this function by the product.
    static bool is_call(const Event& event, std::string_view function);
    // A change of this device.
    static bool is_change(const Event& event, std::string_view device);
    // A report record written to the FIFO: header and text.
    bool is_report(const Event& event) const;
};

// One event as a line of JSON, without the line end. Times are seconds; bytes are hexadecimal.
std::string to_json(const EventLog& log, const Event& event);

// The descriptor of the product's standard output in the calling process.
extern int console_stream;

// A new event of the running actor, at the present instant.
Event& new_event(const char* function);

// Records a change of a device.
[[gnu::format(printf, 2, 3)]] void note(const char* device, const char* format, ...);

// Adds bytes to the text of the log; returns their place.
std::uint32_t keep(std::string_view bytes);

}  // namespace sim
