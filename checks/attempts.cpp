#include "checks/attempts.h"

#include <cstring>
#include <sstream>

#include "checks/programs.h"
#include "station/text.h"

namespace checks {
namespace {

using station::with_crc;

// Each byte as the character of its number, in ASCII.
std::string json_text(const std::string& bytes) {
    std::string text;
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        char escape[8];
        if (byte == '"' || byte == '\\') {
            text += std::string("\\") + character;
        } else if (byte >= 0x20 && byte < 0x7F) {
            text += character;
        } else {
            std::snprintf(escape, sizeof escape, "\\u%04x", byte);
            text += escape;
        }
    }
    return text;
}

std::string json_list(const std::string& words) {
    std::istringstream stream(words);
    std::string list, word;
    while (stream >> word)
        list += (list.empty() ? "\"" : ",\"") + word + "\"";
    return "[" + list + "]";
}

constexpr char kAt[] = "2026-11-23T08:00:00.000+08:00";

class Chain {
  public:
    void add(const std::string& rest) {
        const std::string line =
            with_crc("{\"prev\":\"" + previous_ + "\",\"at\":\"" + kAt + "\"," + rest);
        previous_ = station::sha256(line);
        text_ += line + "\n";
    }
    const std::string& text() const { return text_; }

  private:
    std::string previous_ = std::string(64, '0');
    std::string text_;
};

std::string attempt_line(const JournalText& attempt) {
    std::string model;
    const std::size_t at = attempt.plan.find("\nmodel = \"") + 10;
    model = attempt.plan.substr(at, attempt.plan.find('"', at) - at);
    const nlohmann::json plan = {{"sha256", station::sha256(attempt.plan)}, {"text", attempt.plan}};
    return "\"kind\":\"attempt\",\"version\":1,\"id\":\"3L02-20261123-0088\",\"station\":\"3L02\","
           "\"serial\":\"" + attempt.serial + "\",\"model\":\"" + model
           + "\",\"operator\":\"W1032\",\"mark\":\"production\",\"attempt\":null,\"shift\":null,"
             "\"plan\":" + plan.dump() + ",\"program\":\"1.02\",\"connection\":[]";
}

}  // namespace

Played play(const Board& board, const std::string& words) {
    return played_of(run(board, words), words);
}

Played played_of(const Outcome& got, const std::string& words) {
    Played played;
    played.words = words;
    played.status = got.status;
    played.signal = got.signal;
    std::size_t printed = 0;
    const auto print_up_to = [&](std::size_t limit, double at_s) {
        limit = std::min(limit, got.console_bytes.size());
        if (limit <= printed) return;
        played.lines.push_back({"out", got.console_bytes.substr(printed, limit - printed), at_s});
        printed = limit;
    };
    bool key_step = words.find("-o") == std::string::npos;
    bool buzzer_step = words == "netQ7test";
    const sim::EventLog& log = got.world->log;
    for (const sim::Event& event : log.all()) {
        const double at_s = static_cast<double>(event.at) / 1e6;
        const std::string_view device = event.function, text = event.sent;
        if (device == "panel" && text.starts_with("record")) {
            played.leds.emplace(text);
            buzzer_step = false;
            if (key_step) played.leds_of_keys.emplace_back(text);
        }
        if (device == "line" && text.starts_with("4=") && buzzer_step) played.beeps.push_back(at_s);
        if (device == "ioctl" && event.request == 0x81) key_step = buzzer_step = false;
        if (!event.is_report()) {
            continue;
        }
        print_up_to(event.printed, at_s);
        played.lines.push_back({"record", std::string(text.substr(8)), at_s});
    }
    print_up_to(got.console_bytes.size(), got.end_s);
    if (!got.error_bytes.empty()) played.lines.push_back({"err", got.error_bytes, got.end_s});
    return played;
}

std::map<std::string, std::string> Person::answers(const Played& played) const {
    std::vector<double> intervals, healthy_intervals;
    const auto same_beeps = [](const std::vector<double>& a, const std::vector<double>& b) {
        if (a.size() != b.size()) return false;
        for (std::size_t i = 1; i < a.size(); ++i) {
            const double difference = (a[i] - a[i - 1]) - (b[i] - b[i - 1]);
            if (difference > 0.05 || difference < -0.05) return false;
        }
        return true;
    };
    const auto word = [](bool good) { return std::string(good ? "yes" : "no"); };
    const bool all_lit = std::includes(played.leds.begin(), played.leds.end(),
                                       healthy->leds.begin(), healthy->leds.end());
    return {{"panel-leds", word(all_lit)},
            {"panel-keys", word(played.leds_of_keys == healthy->leds_of_keys)},
            {"buzzer", word(same_beeps(played.beeps, healthy->beeps))}};
}

std::vector<std::string> events_of(const Played& played) {
    std::vector<std::string> events;
    const auto add = [&](const std::string& kind, double at_s, const std::string& rest) {
        events.push_back(with_crc("{\"n\":" + std::to_string(events.size() + 1)
                                  + ",\"t\":" + std::to_string(static_cast<long long>(at_s * 1e6))
                                  + ",\"event\":\"" + kind + "\"" + rest));
    };
    const std::string words = json_list("q7 " + played.words);
    add("start", 0,
        ",\"run\":\"R\",\"command\":" + words + ",\"addresses\":{\"eth0\":\"00:11:22:33:44:55\"}");
    double last_s = 0;
    for (const BoardLine& line : played.lines) {
        last_s = line.at_s;
        std::string type = line.kind == "record" ? ",\"type\":0" : "";
        if (line.more) type += ",\"more\":true";
        for (std::size_t at = 0; at < line.bytes.size(); at += 500) {
            add(line.kind, line.at_s,
                type + ",\"text\":\"" + json_text(line.bytes.substr(at, 500)) + "\"");
        }
    }
    add("end", last_s,
        played.signal != 0 ? ",\"signal\":" + std::to_string(played.signal)
                           : ",\"status\":" + std::to_string(played.status));
    return events;
}

std::string journal_of(const JournalText& attempt) {
    Chain chain;
    chain.add(attempt_line(attempt));
    int number = 0;
    for (const auto& [name, played] : attempt.commands) {
        const std::string command = "\"command\":" + std::to_string(++number);
        chain.add("\"kind\":\"command\"," + command + ",\"name\":\"" + name
                  + "\",\"run\":\"R\",\"words\":" + json_list(played.words));
        for (const std::string& event : events_of(played))
            chain.add("\"kind\":\"board\"," + command + ",\"event\":" + event);
    }
    for (const auto& [question, answer] : attempt.answers) {
        chain.add("\"kind\":\"answer\",\"question\":\"" + question + "\",\"answer\":\"" + answer
                  + "\",\"operator\":\"W1032\",\"via\":\"option\"");
    }
    chain.add("\"kind\":\"end\",\"commands\":" + std::to_string(number));
    return chain.text();
}

station::Journal parsed_journal_of(const JournalText& attempt) {
    JournalText shell = attempt;
    shell.commands.clear();
    station::Journal journal = station::parse_journal(journal_of(shell));
    int number = 0, line = 1;
    for (const auto& [name, played] : attempt.commands) {
        std::istringstream stream(played.words);
        const std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
        journal.commands.push_back({++number, name, "R", words, ++line});
        std::uint64_t event_number = 0;
        using Kind = station::BoardEvent::Kind;
        const auto add = [&](Kind kind, double at_s, std::string bytes, nlohmann::json fields) {
            journal.events.push_back({kind, ++line, number, ++event_number,
                                      static_cast<std::int64_t>(at_s * 1e6), std::move(bytes),
                                      std::move(fields)});
        };
        nlohmann::json command = words;
        command.insert(command.begin(), "q7");
        add(Kind::start, 0, "", {{"command", command}});
        for (const BoardLine& each : played.lines) {
            add(each.kind == "record" ? Kind::record
                : each.kind == "out"  ? Kind::out
                                      : Kind::err,
                each.at_s, each.bytes, {});
        }
        nlohmann::json end;
        if (played.signal != 0) {
            end["signal"] = played.signal;
        } else {
            end["status"] = played.status;
        }
        add(Kind::end, 0, "", end);
    }
    return journal;
}

std::string plan_text(const std::string& name) {
    return content_of(Q7_SOURCE "/plans/" + name + ".toml");
}

}  // namespace checks
