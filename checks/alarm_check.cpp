#include "checks/harness.h"

namespace {

using namespace checks;

std::string hex(unsigned number) {
    char text[9];
    std::snprintf(text, sizeof text, "%x", number);
    return text;
}

std::string counts(std::size_t inputs, std::size_t outputs) {
    return "报警输入有" + std::to_string(inputs) + "个,报警输出有" + std::to_string(outputs)
           + "个\n";
}

std::string idle(unsigned stuck = 0) {
    if (stuck == 0) return "\n 断开报警输出时, 报警输入正常\n";
    return "\n 断开报警输出时, 报警输入为 " + hex(stuck) + " ，报警输入应为 0\n";
}

std::string mismatch(unsigned output, unsigned inputs, unsigned expected) {
    return "\n 报警输出为 " + hex(output) + ", 报警输入为 " + hex(inputs) + " ，报警输入应为 "
           + hex(expected) + "\n";
}

std::string score(std::size_t successes, std::size_t failures) {
    return "成功 " + std::to_string(successes) + ", 失败 " + std::to_string(failures) + "\n";
}

unsigned mask_of(const std::set<std::uint8_t>& lines) {
    unsigned mask = 0;
    for (const std::uint8_t line : lines)
        mask |= 1u << (line - 1);
    return mask;
}

using Wiring = std::vector<std::set<std::uint8_t>>;  // the inputs of each output

const Wiring kWirings[] = {
    {{1, 3}, {2, 4}},
    {{1, 5, 9, 13}, {2, 6, 10, 14}, {3, 7, 11, 15}, {4, 8, 12, 16}},
    {{1, 5}, {2, 6}, {3, 7}, {4, 8}},
    {{1, 9}, {2, 10}, {3, 11}, {4, 12}, {5, 13}, {6, 14}, {7, 15}, {8, 16}},
};

// Report, failure count and beeps follow from the wiring of the fixture.
void expect_verdict(unsigned verdict, const sim::Alarm& fixture, const Wiring& good) {
    const std::size_t outputs = good.size(), inputs = outputs * good[0].size();
    const unsigned stuck = mask_of(fixture.stuck);
    std::string expected = counts(inputs, outputs) + idle(stuck);
    std::size_t mismatches = 0;
    for (std::size_t k = 0; k < outputs; ++k) {
        const unsigned active = (mask_of(fixture.wiring[k]) | stuck) & ~mask_of(fixture.dead);
        if (active == mask_of(good[k])) continue;
        expected += mismatch(1u << k, active, mask_of(good[k]));
        ++mismatches;
    }
    const std::size_t failures = mismatches + (stuck != 0 ? 1 : 0);

    Board board = healthy("hardware = {alarm_outputs = " + std::to_string(outputs)
                          + ", alarm_inputs = " + std::to_string(inputs) + "}");
    board.alarm = fixture;
    const Outcome got = run(board, "-o 5");
    EXPECT_EQ(got.said(), expected + score(1 + outputs - failures, failures));
    EXPECT_EQ(got.changes("line", "4=0").size(), 2 * mismatches);
    EXPECT_EQ(got.results.alarm, verdict);
    EXPECT_NEAR(got.end_s, 2.1 + static_cast<double>(20 * (1 + outputs) + 8 * mismatches) / 10,
                1e-6);
}

TEST(AlarmTest, EachDefectAtEachOutputGivesTheFailuresThatItsWiringImplies) {
    for (const Wiring& wiring : kWirings) {
        sim::Alarm good;
        good.wiring = wiring;
        expect_verdict(0, good, wiring);
        for (std::size_t k = 0; k < wiring.size(); ++k) {
            sim::Alarm stuck = good, dead = good, missing = good, swapped = good;
            stuck.stuck = dead.dead = {*wiring[k].rbegin()};
            missing.wiring[k].clear();
            std::swap(swapped.wiring[k], swapped.wiring[(k + 1) % wiring.size()]);
            for (const sim::Alarm& fixture : {stuck, dead, missing, swapped})
                expect_verdict(1, fixture, wiring);
        }
    }
}

TEST(AlarmTest, DrivesTheOutputsInThisOrder) {
    const Outcome got = run("-o 5");
    EXPECT_THAT(got.calls("/dev/zebio"),
                EndsWith("2.100 open(2)\n2.100 ioctl 0x40026B91(0)\n"
                         "2.100 write(4)\n4.100 ioctl 0x80026B90(0)\n4.100 write(4)\n"
                         "6.100 ioctl 0x80026B90(0)\n6.100 write(4)\n8.100 ioctl 0x80026B90(0)\n"
                         "8.100 write(4)\n10.100 ioctl 0x80026B90(0)\n10.100 write(4)\n"
                         "12.100 ioctl 0x80026B90(0)\n12.100 close(5)\n"));
    EXPECT_EQ(got.world->alarm_outputs, 8u);  // the last one stays on
}

std::string said(const std::string& changes) { return run("-o 5", changes).said(); }

TEST(AlarmTest, OtherInputsThanThoseComparedDoNotMatter) {
    const std::string hardware = "hardware = {alarm_outputs = 2, alarm_inputs = 4}\n",
                      fixture = "alarm = {wiring = [[1, 3, 9], [2, 4]], stuck = [12]";
    EXPECT_EQ(said(hardware + fixture + "}"), counts(4, 2) + idle() + score(3, 0));
    // The whole word is shown.
    EXPECT_EQ(said(hardware + fixture + ", dead = [1]}"),
              counts(4, 2) + idle() + mismatch(1, 0x904, 5) + score(2, 1));
}

TEST(AlarmTest, UnsupportedOutputCountIsReportedAndTakenAsFour) {
    for (const char* outputs : {"0", "1", "3", "6", "127"}) {
        const Outcome got = run("-o 5 2", std::string("hardware.alarm_outputs = ") + outputs);
        const std::string good = counts(16, 4) + idle() + score(5, 0);
        EXPECT_EQ(got.said(), std::string("\n第1次测试\n报警输出个数为") + outputs
                                  + ",暂时不支持该个数,请检查CPLD信息是否正确\n" + good
                                  + "\n第2次测试\n" + good);
        EXPECT_EQ(got.capability.alarm_out, 4u);
    }
}

TEST(AlarmTest, InputCountDecidesWhatTheIdleCheckLooksAt) {
    // Four outputs, not 16 inputs: the sweep compares and shows the low byte.
    const std::string mismatches =
        mismatch(2, 0x23, 0x22) + mismatch(4, 0x45, 0x44) + mismatch(8, 0x89, 0x88);
    EXPECT_EQ(said("alarm.stuck = [1, 9]\nhardware.alarm_inputs = 0"),
              counts(0, 4) + mismatches + score(1, 3));
    EXPECT_EQ(said("alarm.stuck = [1, 9]\nhardware.alarm_inputs = 8"),
              counts(8, 4) + idle(0x101) + mismatches + score(1, 4));
    EXPECT_EQ(said("alarm.stuck = [9]\nhardware.alarm_inputs = 8"),
              counts(8, 4) + idle() + score(5, 0));
    for (const unsigned inputs : {9, 32, 33, 255}) {
        EXPECT_EQ(said("alarm.stuck = [9]\nhardware.alarm_inputs = " + std::to_string(inputs)),
                  counts(inputs, 4) + idle(0x100) + score(4, 1));
    }
}

TEST(AlarmTest, FailedReadIsReportedAndJudgedOnAClearedWord) {
    EXPECT_EQ(said("faults = [{request = 0x80026B90}]"),
              counts(16, 4) + "IOCTL ERROR\n" + idle() + score(5, 0));
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(said("faults = [{request = 0x80026B90, nth = " + std::to_string(2 + k) + "}]"),
                  counts(16, 4) + idle() + "IOCTL ERROR\n" + mismatch(1u << k, 0, 0x1111u << k)
                      + score(4, 1));
    }
}

TEST(AlarmTest, WithoutControlDeviceItSaysSoAndLeavesTheVerdict) {
    const Outcome got = run("-o 5", "faults = [{call = 'open', path = '/dev/zebio', nth = 3}]");
    EXPECT_EQ(got.said(), counts(16, 4) + "open /dev/iop failed\n");
    EXPECT_EQ(got.results.alarm, 0u);
    EXPECT_TRUE(got.changes("line", "4=0").empty());
}

TEST(AlarmTest, InterruptPrintsTheCountsOnceAndEndsTheProcess) {
    const Outcome got = run("-o 5",
                            "alarm.wiring = [[], [2, 6, 10, 14], [3, 7, 11, 15], [4, 8, 12, 16]]\n"
                            "operator.interrupts = [9]");
    EXPECT_THAT(got.said(), EndsWith("1111\nsuccess is 2, and error is 1\n"));
    EXPECT_EQ(got.signal, SIGINT);
}

}  // namespace
