#include "sim/event_log.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <nlohmann/json.hpp>

#include "sim/process.h"
#include "sim/world.h"

namespace sim {
namespace {

std::string hexadecimal(std::string_view bytes) {
    std::string digits;
    for (const char byte : bytes) {
        char pair[4];
        std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned char>(byte));
        digits += pair;
    }
    return digits;
}

}  // namespace

int console_stream = STDOUT_FILENO;

bool EventLog::is_call(const Event& event, std::string_view function) {
    return event.actor != 0 && event.function == function;
}

bool EventLog::is_change(const Event& event, std::string_view device) {
    return event.actor == 0 && event.function == device;
}

bool EventLog::is_report(const Event& event) const {
    return is_call(event, "write") && event.ended >= 0 && event.result > 0
           && path_of(event) == "/var/q7.fifo";
}

std::string to_json(const EventLog& log, const Event& event) {
    nlohmann::ordered_json line;
    line["at"] = to_seconds(event.at);
    if (event.actor == 0) {
        line["device"] = event.function;
        line["state"] = log.sent(event);
        return line.dump();
    }
    line["actor"] = log.actor_of(event);
    line["call"] = event.function;
    if (event.fd >= 0) line["fd"] = event.fd;
    if (event.path != 0) line["path"] = log.path_of(event);
    if (std::strcmp(event.function, "ioctl") == 0) {
        char request[16];
        std::snprintf(request, sizeof request, "0x%X", event.request);
        line["request"] = request;
    }
    line["argument"] = event.argument;
    if (event.sent_size > 0) line["sent"] = hexadecimal(log.sent(event));
    if (event.got_size > 0) line["got"] = hexadecimal(log.got(event));
    line["printed"] = event.printed;
    if (event.ended >= 0) {
        if (event.ended != event.at) line["ended"] = to_seconds(event.ended);
        line["result"] = event.result;
        if (event.error != 0) line["errno"] = strerrorname_np(event.error);
    }
    return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

Event& new_event(const char* function) {
    EventLog& log = world->log;
    if (log.events_used == std::size(log.events)) {
        stop_here("more than %zu events", std::size(log.events));
    }
    Event& event = log.events[log.events_used++];
    event.at = world->now;
    event.ended = -1;
    event.function = function;
    event.fd = -1;
    event.printed = static_cast<std::uint32_t>(::lseek(console_stream, 0, SEEK_CUR));
    event.actor = self == nullptr ? 0 : self->name;
    return event;
}

std::uint32_t keep(std::string_view bytes) {
    EventLog& log = world->log;
    if (bytes.size() + 1 > sizeof log.text - log.text_used) {
        stop_here("more than %zu bytes in the event log", sizeof log.text);
    }
    if (log.text_used == 0) log.text_used = 1;  // place 0 is the empty text
    const std::uint32_t place = log.text_used;
    std::memcpy(log.text + place, bytes.data(), bytes.size());
    log.text_used += static_cast<std::uint32_t>(bytes.size()) + 1;
    return place;
}

void note(const char* device, const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    Event& event = new_event(device);
    event.actor = 0;
    event.ended = world->now;
    event.sent = keep(text);
    event.sent_size = static_cast<std::uint32_t>(std::strlen(text));
}

}  // namespace sim
