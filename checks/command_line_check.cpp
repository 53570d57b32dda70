#include <ranges>

#include "checks/harness.h"
#include "driver/test_table.h"
#include "platform/platform.h"

namespace {

using namespace checks;

const std::size_t kTests = numbered_tests().size();
const std::string kHint = "请选择测试序号(1~" + std::to_string(kTests) + ")\n",
                  kWrongNumber = "请输入正确的测试序号.(1~" + std::to_string(kTests) + ")",
                  kPrepared = "no kill avcore\n";

// The words before, between and after the blanks, empty ones included.
Outcome run_line(std::string_view line) {
    std::vector<std::string> arguments;
    for (const auto word : std::views::split(line, ' '))
        arguments.emplace_back(word.begin(), word.end());
    return run_with(healthy(), arguments);
}

// Otherwise printed text would go to the FIFO, or to the control device as a mask of alarm outputs.
TEST(CommandLine, MissingStandardDescriptorsAreTakenByNoFileOfTheRun) {
    for (unsigned missing = 0; missing < 8; ++missing) {
        for (const char* words : {"-h", "netQ7test"}) {
            SCOPED_TRACE(missing);
            const Outcome got = run_with(healthy(), {words}, [&] {
                for (int fd = 0; fd < 3; ++fd) {
                    if ((missing >> fd & 1) != 0) platform::close(fd);
                }
            });
            const auto& files = got.world->processes[0].files;
            for (unsigned fd = 0; fd < 3; ++fd) {
                ASSERT_NE(files[fd], nullptr);
                EXPECT_EQ(files[fd]->path, (missing >> fd & 1) != 0 ? "/dev/null" : "console");
            }
            EXPECT_EQ(got.count("close", "/dev/null"), 1);
            EXPECT_EQ(got.status, 0);
        }
    }
}

TEST(CommandLine, EmptyWordsAndNumbersBehindTheTable) {
    const std::string beyond = "-o " + std::to_string(kTests + 1);
    const std::pair<std::string, std::string> rows[] = {
        {"-o 2 ", kPrepared},
        {"-o ", kWrongNumber},
        {beyond, kWrongNumber},
        {beyond + "9", kHint + kWrongNumber},
    };
    for (const auto& [line, printed] : rows) {
        const Outcome got = run_line(line);
        EXPECT_EQ(got.console, kStartLine + printed) << line;
        EXPECT_TRUE(got.changes("line", "4=0").empty());
    }
}

TEST(CommandLine, OtherFormsRunTheFullSequence) {
    for (const char* line : {"", "foo", "-o", "-help", "-o 2 1 0", "-h    "}) {
        const Outcome got = run_line(line);
        EXPECT_THAT(got.console, HasSubstr("Q7测试结果如下:\n")) << line;
        EXPECT_TRUE(got.records.empty());
    }
    EXPECT_EQ(run_line("netQ7test -o 2 1").records.back(), "Q7TESTEND");
}

TEST(CommandLine, CountIsThatOfA32BitLongOnEveryBuild) {
    // Each count is too large to finish; the run is stopped after four repetitions of 1.2 s.
    for (const char* words : {"-o 2 -1", "-o 2 4294967296", "-o 2 99999999999999999999"}) {
        const Outcome got = run(words, "end = 7");
        EXPECT_THAT(got.console, HasSubstr("\n第4次测试\n")) << words;
        EXPECT_THAT(got.stopped, HasSubstr("passed its end"));
    }
}

TEST(Preparation, AsksTheControlDeviceInThisOrderAndThenWaits) {
    EXPECT_EQ(run("-o 9").calls("/dev/zebio"),
              "0.000 open(2)\n0.000 ioctl 0x4(0)\n"  // stays open
              "0.100 open(2)\n0.100 ioctl 0x20(7)\n0.100 ioctl 0x22(0)\n0.100 close(4)\n"
              "2.100 open(2)\n2.100 ioctl 0x20(5)\n2.100 close(5)\n");
}

}  // namespace
