// What other programs get of the index: checked against files of version 1 of the schema, and by
// other readers of their formats.
#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "checks/index_attempts.h"
#include "checks/programs.h"
#include "station/index/export.h"

namespace checks {
namespace {

using namespace station::index;

std::vector<AttemptRecord> attempts() {
    AttemptRecord good;
    good.id = "3L05-20261123-0140";
    good.serial = "45270-2648-0413";
    good.model = "QM-45270";
    good.station = "3L05";
    good.operator_id = "W1017";
    good.start = parse_time("2026-11-23T13:41:00.000+08:00");
    good.end = parse_time("2026-11-23T13:41:48.007+08:00");
    good.verdict = "PASS";
    good.items = {{"buzzer", "PASS", {}}, {"alarm", "PASS", {}}};
    good.attempt = 2;
    AttemptRecord cut = good;
    cut.id = "3L05-20261123-0141";
    cut.verdict = "INCOMPLETE";
    cut.items.clear();
    cut.attempt = 3;
    AttemptRecord full = full_attempt();
    full.attempt = 1;
    return {full, good, cut};
}

std::string exported(Format format) {
    std::ostringstream out;
    Exporter exporter(out, format);
    for (const AttemptRecord& record : attempts())
        exporter.add(record);
    exporter.finish();
    return out.str();
}

TEST(Export, IsAsTheFilesOfItsSchemaVersion) {
    const std::pair<Format, const char*> files[] = {{Format::json, "attempts.json"},
                                                    {Format::csv_runs, "runs.csv"},
                                                    {Format::csv_items, "items.csv"},
                                                    {Format::junit, "junit.xml"}};
    for (const auto& [format, name] : files) {
        const std::string path = std::string(Q7_SOURCE "/checks/export-v1/") + name;
        EXPECT_EQ(exported(format), content_of(path)) << name;
    }
    EXPECT_EQ(kSchemaVersion, 1) << "a new version needs files of its own";
}

TEST(Export, JsonIsReadBackAsItWas) {
    const auto document = nlohmann::json::parse(exported(Format::json));
    EXPECT_EQ(document.at("version"), 1);
    std::vector<AttemptRecord> read;
    for (const auto& each : document.at("attempts"))
        read.push_back(from_json(each));
    EXPECT_EQ(read, attempts());
}

// Other people's readers: every cell is a text or a number to a spreadsheet, never a formula; and
// the counts of JUnit are those of its cases.
TEST(Export, IsReadByOtherReaders) {
    const std::string xml = scratch("junit.xml"), runs = scratch("runs.csv"),
                      items = scratch("items.csv"), script = scratch("read.py");
    std::ofstream(xml) << exported(Format::junit);
    std::ofstream(runs) << exported(Format::csv_runs);
    std::ofstream(items) << exported(Format::csv_items);
    std::ofstream(script) << R"(
import csv, sys, xml.etree.ElementTree as tree
suites = tree.parse(sys.argv[1]).getroot()
for suite in suites:
    cases = suite.findall('testcase')
    count = lambda kind: sum(case.find(kind) is not None for case in cases)
    assert [suite.get(k) for k in ('tests', 'failures', 'errors', 'skipped')] == \
        [str(len(cases)), str(count('failure')), str(count('error')), '0']
    print(suite.get('timestamp'), len(cases), count('failure'), count('error'),
          suite.get('time'), cases[-1].get('name'))
for name in sys.argv[2:]:
    rows = list(csv.reader(open(name, encoding='utf-8-sig', newline='')))
    assert len({len(row) for row in rows}) == 1
    for cell in (cell for row in rows for cell in row):
        try: float(cell)
        except ValueError: assert not cell.startswith(tuple('=+-@\t\r\n')), cell
    print(len(rows), len(rows[0]))
)";
    const Finished read = shell("python3 " + script + " " + xml + " " + runs + " " + items);
    EXPECT_EQ(read.err, "");
    EXPECT_EQ(read.out,
              "2026-11-23T00:52:10 4 1 2 48.020 run [45270-2648-0413]\n"
              "2026-11-23T05:41:00 2 0 0 48.007 alarm [45270-2648-0413]\n"
              "2026-11-23T05:41:00 1 0 1 48.007 run [45270-2648-0413]\n"
              "4 18\n8 10\n");
}

TEST(Export, NoTextIsAFormulaAndNoNumberIsAText) {
    const std::pair<const char*, const char*> fields[] = {{"", ""},
                                                          {"-3", "-3"},
                                                          {"+3.25", "+3.25"},
                                                          {"=1", "\"'=1\""},
                                                          {"-", "\"'-\""},
                                                          {"-1+1", "\"'-1+1\""},
                                                          {"-2 to 2", "\"'-2 to 2\""},
                                                          {"@a", "\"'@a\""},
                                                          {"＝1", "\"'＝1\""},
                                                          {"\t=1", "\"'\t=1\""},
                                                          {"\r=1", "\"'\r=1\""},
                                                          {"a,b", "\"a,b\""},
                                                          {"say \"a\"", "\"say \"\"a\"\"\""},
                                                          {"0x2202", "0x2202"}};
    for (const auto& [text, field] : fields)
        EXPECT_EQ(csv_field(text), field) << text;
}

TEST(Export, XmlHoldsNoByteThatXmlForbids) {
    EXPECT_EQ(xml_text("<a b=\"c\">&\n"), "&lt;a b=&quot;c&quot;&gt;&amp;&#10;");
    EXPECT_EQ(xml_text(std::string("\0\x1B[31m\xB5\xDA", 8)), "\\x00\\x1b[31m\\xb5\\xda");
    EXPECT_EQ(xml_text("第1步\xEF\xBF\xBE"), "第1步\\xef\\xbf\\xbe");
}

}  // namespace
}  // namespace checks
