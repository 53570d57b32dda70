// The real-time clock, /dev/rtc: ahead of the system clock by its offset at the start, and then
// counting at its own rate. It answers in UTC.
#include "sim/devices/rtc.h"

#include <cstring>
#include <ctime>

#include "sim/scenario/keys.h"
#include "sim/world.h"

namespace sim {
namespace {

constexpr std::uint32_t kReadTime = 0x80247009;

class RtcNode final : public Device {
  public:
    int find(std::string_view path) const override {
        return scenario->rtc.present && path == "/dev/rtc" ? 0 : -1;
    }

    void list(std::vector<std::string>& names) const override {
        if (scenario->rtc.present) names.push_back("rtc");
    }

    long ioctl(OpenFile&, std::uint32_t request, Argument argument) const override {
        if (request != kReadTime) return -ENOTTY;
        const Rtc& rtc = scenario->rtc;
        const double counted_s = static_cast<double>(world->now) / 1e6 * rtc.rate;
        const auto now = static_cast<std::time_t>(scenario->start.seconds + rtc.offset_s
                                                  + static_cast<std::int64_t>(counted_s));
        std::tm time{};
        gmtime_r(&now, &time);
        const int fields[9] = {time.tm_sec,  time.tm_min,  time.tm_hour, time.tm_mday, time.tm_mon,
                               time.tm_year, time.tm_wday, time.tm_yday, rtc.isdst};
        std::memcpy(argument.block, fields, sizeof fields);
        return 0;
    }

    std::size_t answer_size(std::uint32_t request) const override {
        return request == kReadTime ? 9 * sizeof(int) : 0;
    }
};

const RtcNode rtc_node;

}  // namespace

const Device& rtc_device = rtc_node;

void describe(Keys& keys, Rtc& rtc) {
    keys.key("present", rtc.present, "/dev/rtc exists");
    keys.key("offset", rtc.offset_s, "seconds ahead of the system clock; negative = behind");
    keys.key("rate", rtc.rate, "seconds that it counts in a second; 0 = it stands still");
    keys.key("isdst", rtc.isdst, "daylight-saving flag that its driver leaves");
}

}  // namespace sim
