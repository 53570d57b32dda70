#include "sim/trace.h"

#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

namespace sim {
namespace {

double seconds(Microseconds at) { return static_cast<double>(at) / 1e6; }

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

std::string to_json(const World& state, const Event& event) {
    nlohmann::ordered_json line;
    line["at"] = seconds(event.at);
    if (event.actor == 0) {
        line["device"] = event.function;
        line["state"] = state.sent(event);
        return line.dump();
    }
    line["actor"] = state.text + event.actor;
    line["call"] = event.function;
    if (event.fd >= 0) line["fd"] = event.fd;
    if (event.path != 0) line["path"] = state.path_of(event);
    if (std::strcmp(event.function, "ioctl") == 0) {
        char request[16];
        std::snprintf(request, sizeof request, "0x%X", event.request);
        line["request"] = request;
    }
    line["argument"] = event.argument;
    if (event.sent_size > 0) line["sent"] = hexadecimal(state.sent(event));
    if (event.got_size > 0) line["got"] = hexadecimal(state.got(event));
    line["printed"] = event.printed;
    if (event.ended >= 0) {
        if (event.ended != event.at) line["ended"] = seconds(event.ended);
        line["result"] = event.result;
        if (event.error != 0) line["errno"] = strerrorname_np(event.error);
    }
    return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace sim
