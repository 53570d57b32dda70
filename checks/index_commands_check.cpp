// The record of a line as a user has it: runs of simulated boards, then index, history, yield and
// export on the command line.
#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "checks/programs.h"

namespace checks {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class Line : public testing::Test {
  protected:
    void SetUp() override {
        folder_ = scratch("line");
        fs::create_directories(folder_);
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }

    Finished station(const std::string& words) { return shell(Q7_BINARIES "/q7-station " + words); }
    // Tests a simulated board, with everything answered well.
    Finished test(const std::string& board, const std::string& serial, const std::string& options) {
        const std::string fifo = folder_ + "/fifo";
        return station("run --plan " Q7_SOURCE
                       "/plans/healthy.toml --operator W1017 --station 3L02"
                       " --answer panel-leds=yes --answer panel-keys=yes --answer buzzer=yes"
                       " --json --journals "
                       + folder_ + "/journals --serial " + serial + " " + options
                       + " -- " Q7_BINARIES "/q7-agent run --fifo " + fifo + " --spool " + folder_
                       + "/spool -- " Q7_BINARIES "/q7-sim --gbk --board " + board + " --fifo "
                       + fifo);
    }
    std::string in_folder(const std::string& name) const { return folder_ + "/" + name; }

    std::string folder_;
};

TEST_F(Line, KeepsWhatItTestedAndAnswersForIt) {
    const std::string index = " --index " + in_folder("i.sqlite") + " ";
    const Finished bad = test("alarm-input-dead", "45270-2648-0413", index);
    EXPECT_EQ(bad.status, 1) << bad.err;
    EXPECT_THAT(bad.err, HasSubstr("in the index, unsent 0"));
    const Finished good = test("healthy", "45270-2648-0413",
                               index + "--before 'cat >" + in_folder("before") + "' --after 'cat >"
                                   + in_folder("after") + "'");
    EXPECT_EQ(good.status, 0) << good.err;
    EXPECT_EQ(nlohmann::json::parse(content_of(in_folder("before"))).at("serial"),
              "45270-2648-0413");
    EXPECT_EQ(nlohmann::json::parse(content_of(in_folder("after"))).at("attempt"), 2);

    EXPECT_THAT(
        station("history 45270-2648-0413" + index).out,
        AllOf(StartsWith("QM-45270\n"),
              ContainsRegex("  1  3L02-[0-9]{8}-0001  [^ ]+ FAIL       W1017  alarm: alarm"),
              ContainsRegex("  2  3L02-[0-9]{8}-0002  [^ ]+ PASS       W1017\n")));
    EXPECT_THAT(station("yield --by station" + index).out,
                HasSubstr("3L02                  1     0.0 %   100.0 %        1            0"));
    EXPECT_THAT(station("yield --by item" + index).out, ContainsRegex("alarm +1 +1 +0 +100.0 %"));
    EXPECT_THAT(station("yield --by day --from 2020-01-01 --to 2020-01-31" + index).out,
                EndsWith("all                   0         -         -        0            0"
                         "            0           0       0\n"));
    const Finished json = station("export --format json --serial 45270-2648-0413" + index);
    const auto attempts = nlohmann::json::parse(json.out).at("attempts");
    ASSERT_EQ(attempts.size(), 2u);
    EXPECT_EQ(attempts[1].at("drift").dump(),
              R"([{"fact":"rtc.difference","unit":"s","value":0}])");
    EXPECT_EQ(attempts[1].at("agent").get<std::string>().substr(0, 2), "1.");
    EXPECT_EQ(attempts[1].at("q7").get<std::string>().size(), 64u);

    // Another index, made from the journals, answers the same.
    const std::string again = " --journals " + in_folder("journals") + " ";
    EXPECT_EQ(station("index" + again).out, "2 new, 0 known, 0 running, 0 not indexed, 0 unsent\n");
    EXPECT_EQ(station("index" + again).out, "0 new, 2 known, 0 running, 0 not indexed, 0 unsent\n");
    EXPECT_EQ(station("index --recount" + again).out, "the summaries are right\n");
    for (const char* words :
         {"export --format csv", "export --format csv --table items", "export --format junit",
          "export --format json", "yield", "history 45270-2648-0413"}) {
        const Finished one = station(words + index);
        EXPECT_EQ(one.status, 0) << one.err;
        EXPECT_THAT(one.out, Not(IsEmpty())) << words;
        EXPECT_EQ(one.out, station(words + again).out) << words;
    }
}

TEST_F(Line, GoesOnWithoutItsDatabase) {
    const std::string nowhere =
        " --index 'postgresql://line@localhost/q7?host=" + in_folder("none") + "' ";
    const Finished run = test("healthy", "45270-2648-0413", nowhere);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.err, HasSubstr("not in the index yet, unsent 1"));
    const std::string journals = " --journals " + in_folder("journals");
    const Finished away = station("index" + nowhere + journals);
    EXPECT_EQ(away.status, 2);
    EXPECT_THAT(away.err, HasSubstr("q7-station: index postgresql://"));
    // The judgement and the waiting copy are the same attempt.
    EXPECT_EQ(station("index" + journals).out,
              "1 new, 1 known, 0 running, 0 not indexed, 0 unsent\n");
}

TEST_F(Line, TheFactoryMayRefuseAStart) {
    const Finished refused = test("healthy", "45270-2648-0413", "--before 'echo scrapped; exit 1'");
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, HasSubstr("the factory refuses the start: scrapped"));
    EXPECT_FALSE(fs::exists(in_folder("journals")));
}

TEST_F(Line, SaysWhatItCannotDo) {
    const std::string nothing = " --index " + in_folder("none.sqlite");
    for (const char* words : {"history S", "yield", "export --format csv"}) {
        const Finished run = station(words + nothing);
        EXPECT_EQ(run.status, 2) << words;
        EXPECT_THAT(run.err, HasSubstr("no index: ")) << words;
    }
    EXPECT_FALSE(fs::exists(in_folder("none.sqlite")));
    EXPECT_EQ(station("yield --from yesterday" + nothing).status, 2);
    EXPECT_EQ(station("yield --from 2026-02-30" + nothing).status, 2);
    EXPECT_EQ(station("export --format xml" + nothing).status, 2);
    EXPECT_EQ(station("index --journals " + in_folder("none")).status, 2);
    const std::string made = " --index " + in_folder("made.sqlite");
    fs::create_directories(in_folder("journals"));
    ASSERT_EQ(station("index --journals " + in_folder("journals") + made).status, 0);
    EXPECT_EQ(station("history S" + made).out, "no attempt of S\n");
    EXPECT_EQ(station("export --format csv --output /dev/full" + made).status, 2);
    EXPECT_THAT(station("index --grant line" + made).err, HasSubstr("SQLite has no accounts"));
}

}  // namespace
}  // namespace checks
