#include "checks/index_attempts.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace checks {
namespace {

using namespace station::index;

std::string hash(char letter, long number) {
    std::string text = std::to_string(number);
    return std::string(64 - text.size(), letter) + text;
}

// What is wrong with one attempt in a hundred.
void spoil(AttemptRecord& record, std::mt19937& random) {
    const auto kind = random() % 100;
    if (kind < 6) {
        Item& item = record.items[random() % 9];
        item.verdict = record.verdict = kind < 5 ? "FAIL" : "NOT PROVEN";
        for (int i = 0; i < 3; ++i) {
            item.reasons.push_back({"wrong", record.verdict, "alarm.output.2.inputs", "", "0x2202",
                                    "0x2222", "bits", "", "", 213});
            record.causes.push_back(
                {"alarm.dead = [" + std::to_string(random() % 16) + "]", i == 0, "{}"});
        }
    } else if (kind == 6) {
        record.verdict = "INCOMPLETE";
        record.items.back().verdict = "INCOMPLETE";
    } else if (kind == 7) {
        record.mark = random() % 2 == 0 ? "reference" : "trial";
    }
}

}  // namespace

AttemptRecord generated_attempt(std::mt19937& random, long n) {
    AttemptRecord record;
    const long board = n % 5 == 4 && n > 100 ? n - 1 - long(random() % 40) : n;
    char text[64];
    std::snprintf(text, sizeof text, "45270-%04ld-%04ld", board / 10000, board % 10000);
    record.serial = text;
    record.model = "QM-" + std::to_string(45270 + board % 4);
    record.station = "3L" + std::to_string(10 + random() % 10);
    std::snprintf(text, sizeof text, "%s-%ld-%07ld", record.station.c_str(), 20260101 + n / 4000,
                  n);
    record.id = text;
    record.operator_id = "W10" + std::to_string(10 + random() % 20);
    record.start = {1767225600000 + n * 21600, 480};  // 4,000 a day
    record.end = {record.start.utc_ms + 48020, 480};
    record.verdict = "PASS";
    record.proof = "P-0219";
    record.plan = record.model + " (DVR)";
    record.plan_revision = n / 500000 + 1;
    record.plan_hash = hash('a', board % 4 + 10 * record.plan_revision);
    record.journal_hash = hash('b', n);
    record.station_version = record.agent_version = "1.02";
    record.q7_hash = hash('c', 0);
    for (const char* item : {"buzzer", "panel", "network", "alarm", "rtc", "usb", "sata", "rs485",
                             "info", "start", "summary", "run"}) {
        record.items.push_back({item, "PASS", {}});
    }
    spoil(record, random);
    record.measurements = {{"rtc.difference", "s", random() % 20 == 0 ? 1 : 0}};
    record.addresses = {"00:11:22:" + std::to_string(board)};
    return record;
}

std::string judgement_of(const AttemptRecord& record) {
    nlohmann::ordered_json judgement = to_json(record);
    judgement["version"] = 1;
    judgement["attempt"] = nullptr;
    judgement["unexplained"] = nlohmann::json::array();
    judgement["facts"] = {{"good", 61}, {"wrong", 0}, {"missing", 0}};
    return judgement.dump(-1, ' ', true);
}

AttemptRecord full_attempt() {
    AttemptRecord record;
    record.id = "3L02-20261123-0088";
    record.serial = "45270-2648-0413";
    record.model = "QM-45270";
    record.station = "3L02";
    record.operator_id = "=HYPERLINK(\"http://x\",\"y\")";
    record.start = parse_time("2026-11-23T08:52:10.120+08:00");
    record.end = parse_time("2026-11-23T08:52:58.140+08:00");
    record.verdict = "FAIL";
    record.proof = "P-0231";
    record.plan = "录像机 <DVR> & \"co\"";
    record.plan_hash = std::string(64, 'a');
    record.plan_revision = 12;
    record.journal_hash = std::string(64, 'b');
    record.station_version = "1.02";
    record.agent_version = "1.02";
    record.q7_hash = std::string(64, 'c');
    record.unexplained = 1;
    record.items = {
        {"buzzer", "PASS", {}},
        {"alarm",
         "FAIL",
         {{"wrong", "FAIL", "alarm.output.2.inputs", "", "0x2202", "0x2222", "bits", "", "", 213},
          {"wrong", "FAIL", "rtc.1.difference", "", "-3", "-2 to 2", "s", "-2", "2", 214}}},
        {"sata",
         "NOT PROVEN",
         {{"wrong", "NOT PROVEN", "sata.sda.model", "two\nlines\t\"quoted\"",
           "<script>alert(1)</script>", "=1+1", "", "", "", 0}}},
        {"run", "INCOMPLETE", {{"cut-off", "INCOMPLETE", "", "@now", "", "", "", "", "", 281}}}};
    record.causes = {{"alarm.dead = [6]", true, R"({"en":"input 6","zh":"输入 6"})"},
                     {"alarm.stuck = [6]", false, ""}};
    record.measurements = {{"pmp.resets", "", -3}, {"rtc.difference", "s", 9000000000000}};
    record.repairs = {{"3L02-20261122-0001", "alarm.dead = [6]", "soldered", "W1032",
                       parse_time("2026-11-23T08:30:00.000Z")}};
    record.addresses = {"00:11:22:33:44:55", "00:11:22:33:44:56"};
    return record;
}

}  // namespace checks
