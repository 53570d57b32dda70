#include "station/index/export.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <initializer_list>
#include <nlohmann/json.hpp>

#include "station/index/database.h"

namespace station::index {
namespace {

bool is_number(std::string_view text) {
    if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
    const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
    const std::size_t dot = std::min(text.find('.'), text.size());
    const auto whole = text.substr(0, dot), part = text.substr(std::min(dot + 1, text.size()));
    return !whole.empty() && std::all_of(whole.begin(), whole.end(), is_digit)
           && std::all_of(part.begin(), part.end(), is_digit);
}

std::string csv_row(std::initializer_list<std::string> fields) {
    std::string row;
    for (const std::string& field : fields)
        row += csv_field(field) + ",";
    row.pop_back();
    return row + "\r\n";
}

std::string csv_runs(const AttemptRecord& record) {
    const Item* failing = first_failing(record);
    return csv_row({record.id, record.serial, record.model, record.station, record.operator_id,
                    to_iso(record.start), to_iso(record.end), record.verdict, record.mark,
                    std::to_string(record.attempt), failing ? failing->name : std::string(),
                    record.causes.empty() ? std::string() : record.causes.front().defect,
                    record.station_version, record.agent_version, record.q7_hash, record.plan,
                    std::to_string(record.plan_revision), record.plan_hash});
}

std::string csv_items(const AttemptRecord& record) {
    std::string rows;
    for (const Item& item : record.items) {
        if (item.reasons.empty()) {
            rows += csv_row({record.id, item.name, item.verdict, "", "", "", "", "", "", ""});
        }
        for (const Reason& reason : item.reasons) {
            rows += csv_row({record.id, item.name, reason.verdict, reason.fact,
                             reason.text.empty() ? reason.code : reason.text, reason.value,
                             reason.unit, reason.wanted, reason.low, reason.high});
        }
    }
    return rows;
}

std::string reason_text(const Reason& reason) {
    std::string text = reason.fact.empty() ? reason.code : reason.fact;
    if (!reason.value.empty()) text += " = " + reason.value;
    if (!reason.unit.empty()) text += " " + reason.unit;
    if (!reason.wanted.empty()) text += ", wanted " + reason.wanted;
    if (!reason.text.empty()) text += ": " + reason.text;
    if (reason.line != 0) text += " (line " + std::to_string(reason.line) + ")";
    return text;
}

struct Case {
    std::string name, verdict, message, details;
};

// The items, and the run itself where the verdict comes from none of them.
std::vector<Case> cases_of(const AttemptRecord& record) {
    std::vector<Case> cases;
    for (const Item& item : record.items) {
        Case each{item.name, item.verdict, {}, {}};
        for (const Reason& reason : item.reasons) {
            const std::string text = reason_text(reason);
            if (each.message.empty()) each.message = text;
            each.details += text + "\n";
        }
        cases.push_back(std::move(each));
    }
    if (record.verdict != "PASS" && first_failing(record) == nullptr) {
        cases.push_back({"run", record.verdict, record.verdict, {}});
    }
    return cases;
}

std::string junit_case(const AttemptRecord& record, const Case& each) {
    std::string text = "    <testcase classname=\"" + xml_text(record.model) + "\" name=\""
                       + xml_text(each.name + " [" + record.serial + "]") + "\" time=\"0\"";
    if (each.verdict == "PASS") return text + "/>\n";
    const std::string kind = each.verdict == "FAIL" ? "failure" : "error";
    return text + ">\n      <" + kind + " type=\"" + each.verdict + "\" message=\""
           + xml_text(each.message) + "\">" + xml_text(each.details) + "</" + kind
           + ">\n    </testcase>\n";
}

std::string junit_suite(const AttemptRecord& record) {
    const std::vector<Case> cases = cases_of(record);
    const auto count = [&](const auto& wanted) {
        return std::to_string(std::count_if(cases.begin(), cases.end(), wanted));
    };
    const auto seconds = std::max<std::int64_t>(0, record.end.utc_ms - record.start.utc_ms);
    char time[32];
    std::snprintf(time, sizeof time, "%lld.%03d", static_cast<long long>(seconds / 1000),
                  int(seconds % 1000));
    std::string text =
        "  <testsuite name=\"" + xml_text(record.id) + "\" tests=\"" + std::to_string(cases.size())
        + "\" failures=\"" + count([](const Case& each) { return each.verdict == "FAIL"; })
        + "\" errors=\""
        + count([](const Case& each) { return each.verdict != "FAIL" && each.verdict != "PASS"; })
        + "\" skipped=\"0\" time=\"" + time + "\" timestamp=\""
        + to_iso({record.start.utc_ms, 0}).substr(0, 19) + "\" hostname=\""
        + xml_text(record.station) + "\">\n    <properties>\n";
    const std::pair<const char*, std::string> properties[] = {
        {"serial", record.serial},
        {"model", record.model},
        {"attempt", std::to_string(record.attempt)},
        {"operator", record.operator_id},
        {"verdict", record.verdict},
        {"mark", record.mark},
        {"start", to_iso(record.start)},
        {"end", to_iso(record.end)},
        {"shift", record.proof},
        {"plan", record.plan},
        {"plan.revision", std::to_string(record.plan_revision)},
        {"plan.sha256", record.plan_hash},
        {"program", record.station_version},
        {"agent", record.agent_version},
        {"q7", record.q7_hash}};
    for (const auto& [name, value] : properties) {
        text += std::string("      <property name=\"") + name + "\" value=\"" + xml_text(value)
                + "\"/>\n";
    }
    text += "    </properties>\n";
    for (const Case& each : cases)
        text += junit_case(record, each);
    return text + "  </testsuite>\n";
}

}  // namespace

std::string csv_field(std::string_view text) {
    static constexpr std::string_view kFormula[] = {"=",  "+",  "-",  "@",  "\t", "\r",
                                                    "\n", "＝", "＋", "－", "＠"};
    std::string field(text);
    const bool formula = std::any_of(std::begin(kFormula), std::end(kFormula),
                                     [&](std::string_view sign) { return text.starts_with(sign); });
    if (formula && !is_number(text)) field.insert(0, "'");
    if (field.find_first_of(",\"\r\n\t'") == std::string::npos) return field;
    for (std::size_t at = 0; (at = field.find('"', at)) != std::string::npos; at += 2) {
        field.insert(at, "\"");
    }
    return "\"" + field + "\"";
}

std::string xml_text(std::string_view text) {
    std::string safe;
    for (std::size_t at = 0; at < text.size();) {
        const std::string_view rest = text.substr(at);
        const std::size_t length = character_length(rest);
        const auto byte = static_cast<unsigned char>(rest.front());
        if (length == 0 || byte == 0x7F || (byte < 0x20 && byte != '\n')
            || rest.starts_with("\xEF\xBF\xBE") || rest.starts_with("\xEF\xBF\xBF")) {
            char code[8];
            std::snprintf(code, sizeof code, "\\x%02x", byte);
            safe += code;
            ++at;
            continue;
        }
        switch (rest.front()) {
        case '&':
            safe += "&amp;";
            break;
        case '<':
            safe += "&lt;";
            break;
        case '>':
            safe += "&gt;";
            break;
        case '"':
            safe += "&quot;";
            break;
        case '\n':
            safe += "&#10;";
            break;
        default:
            safe += rest.substr(0, length);
        }
        at += length;
    }
    return safe;
}

Exporter::Exporter(std::ostream& out, Format format) : out_(out), format_(format) {
    switch (format_) {
    case Format::json:
        out_ << R"({"schema":"q7-station-attempts","version":)" << kSchemaVersion
             << ",\"attempts\":[";
        break;
    // The mark at the beginning tells spreadsheets that the bytes are UTF-8.
    case Format::csv_runs:
        out_
            << "\xEF\xBB\xBF"
               "id,serial,model,station,operator,start,end,verdict,mark,attempt,first failing item,"
               "first cause,program,agent,q7,plan,plan revision,plan hash\r\n";
        break;
    case Format::csv_items:
        out_ << "\xEF\xBB\xBF"
                "id,item,verdict,fact,text,value,unit,wanted,low,high\r\n";
        break;
    case Format::junit:
        out_ << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"q7-station\">\n";
        break;
    }
}

void Exporter::add(const AttemptRecord& record) {
    switch (format_) {
    case Format::json:
        out_ << (first_ ? "\n" : ",\n")
             << to_json(record).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        break;
    case Format::csv_runs:
        out_ << csv_runs(record);
        break;
    case Format::csv_items:
        out_ << csv_items(record);
        break;
    case Format::junit:
        out_ << junit_suite(record);
        break;
    }
    first_ = false;
}

void Exporter::finish() {
    if (format_ == Format::json) out_ << "\n]}\n";
    if (format_ == Format::junit) out_ << "</testsuites>\n";
}

}  // namespace station::index
