#include "sim/event_log.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <nlohmann/json.hpp>

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

std::string to_json(const Event& event) {
    nlohmann::ordered_json line;
    line["at"] = to_seconds(event.at);
    if (event.is_of_board()) {
        line["device"] = event.function;
        line["state"] = event.sent;
        return line.dump();
    }
    line["actor"] = event.actor;
    line["call"] = event.function;
    if (event.fd >= 0) line["fd"] = event.fd;
    if (!event.path.empty()) line["path"] = event.path;
    if (std::strcmp(event.function, "ioctl") == 0) {
        char request[16];
        std::snprintf(request, sizeof request, "0x%X", event.request);
        line["request"] = request;
    }
    line["argument"] = event.argument;
    if (!event.sent.empty()) line["sent"] = hexadecimal(event.sent);
    if (!event.got.empty()) line["got"] = hexadecimal(event.got);
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
    if (self != nullptr) event.actor = self->name;
    return event;
}

std::string_view keep(std::string_view bytes) {
    if (bytes.empty()) return {};
    EventLog& log = world->log;
    if (bytes.size() + 1 > sizeof log.text - log.text_used) {
        stop_here("more than %zu bytes in the event log", sizeof log.text);
    }
    char* const place = log.text + log.text_used;
    log.text_used += static_cast<std::uint32_t>(bytes.copy(place, bytes.size())) + 1;
    return {place, bytes.size()};
}

void note(const char* device, const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    Event& event = new_event(device);
    event.actor = {};
    event.ended = world->now;
    event.sent = keep(text);
}

}  // namespace sim
