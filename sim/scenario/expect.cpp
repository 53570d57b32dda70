#include "sim/scenario/expect.h"

#include "sim/scenario/keys.h"

namespace sim {
namespace {

const std::set<std::string> kSlots = {"alarm", "minisas", "network", "rs485", "rtc", "sata"};

void describe_verdicts(Keys& keys, Expect& expect) {
    std::set<std::string> verdicts;
    keys.key("verdicts", verdicts,
             "result slots that show a fault, of alarm, minisas, network, rs485, rtc and sata; "
             "[] = none");
    for (const std::string& verdict : verdicts) {
        if (kSlots.count(verdict) == 0)
            throw ScenarioError(
                keys.place_of("verdicts")
                + ": verdicts takes alarm, minisas, network, rs485, rtc, sata and not \"" + verdict
                + "\"");
    }
    if (keys.says("verdicts")) expect.verdicts = verdicts;
}

}  // namespace

void describe(Keys& keys, Expect& expect) {
    int status = 0;
    keys.key("arguments", expect.arguments, "words for q7; [] = the console sequence");
    keys.key("status", status, "status with which q7 ends", {0, 255});
    if (keys.says("status")) expect.status = status;
    describe_verdicts(keys, expect);
    keys.key("texts", expect.texts, "texts that must come, on the console or in a record");
    keys.key("no_texts", expect.no_texts, "texts that must not come");
}

}  // namespace sim
