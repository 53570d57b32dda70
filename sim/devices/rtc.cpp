// The real-time clock, /dev/rtc. It starts ahead of the system clock by its offset and counts at its
// own rate; a new rate applies from the change on. It answers in UTC.
#include "sim/devices/rtc.h"

#include <ctime>

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {

static void describe(Keys& keys, Rtc& rtc) {
    keys.key("present", rtc.present, "/dev/rtc exists");
    keys.key("offset", rtc.offset_s, "seconds ahead of the system clock; negative = behind");
    keys.key("rate", rtc.rate, "seconds that it counts in a second; 0 = it stands still");
    keys.key("isdst", rtc.isdst, "daylight-saving flag that its driver leaves");
}

namespace {

constexpr std::uint32_t kReadTime = 0x80247009;

double counted_s() {
    return world->rtc.counted_s + to_seconds(world->now - world->rtc.since) * scenario->rtc.rate;
}

struct RtcNode final : Device {
    void describe(Keys& keys, Board& board) const override { keys.table("rtc", board.rtc); }

    void before_change() const override { world->rtc = {counted_s(), world->now}; }

    Paths paths() const override { return {scenario->rtc.present ? "/dev/rtc" : ""}; }

    long ioctl(OpenFile&, std::uint32_t request, Argument& argument) const override {
        if (request != kReadTime) return -ENOTTY;
        const Rtc& rtc = scenario->rtc;
        const auto now = static_cast<std::time_t>(scenario->start.seconds + rtc.offset_s
                                                  + static_cast<std::int64_t>(counted_s()));
        std::tm time{};
        gmtime_r(&now, &time);
        const int fields[9] = {time.tm_sec,  time.tm_min,  time.tm_hour, time.tm_mday, time.tm_mon,
                               time.tm_year, time.tm_wday, time.tm_yday, rtc.isdst};
        return argument.write(fields, sizeof fields);
    }
};

}  // namespace

const Device& rtc_device = RtcNode{};

}  // namespace sim
