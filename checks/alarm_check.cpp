#include "checks/harness.h"

namespace {

using namespace checks;

constexpr char kIdle[] = "\n 断开报警输出时, 报警输入正常\n";

Outcome run_test(const Board& board) { return run(board, "-o 5"); }

std::string said(const Outcome& got) {
    return got.console.substr(got.console.find("avcore\n") + 7);
}

std::string counts(int inputs, int outputs) {
    return "报警输入有" + std::to_string(inputs) + "个,报警输出有" + std::to_string(outputs)
           + "个\n";
}

std::string score(int successes, int failures) {
    return "成功 " + std::to_string(successes) + ", 失败 " + std::to_string(failures) + "\n";
}

std::string mismatch(unsigned output, unsigned input, unsigned expected) {
    char text[120];
    std::snprintf(text, sizeof text, "\n 报警输出为 %x, 报警输入为 %x ，报警输入应为 %x\n", output,
                  input, expected);
    return text;
}

struct Kind {
    std::uint8_t outputs, inputs;
    std::uint8_t stride;  // output k drives the inputs k, k + stride, k + 2 * stride ...
    unsigned compared, shown;
};

const Kind kKinds[] = {
    {2, 4, 2, 0x000F, 0xFFFF},
    {4, 16, 4, 0xFFFF, 0xFFFF},
    {4, 8, 4, 0x00FF, 0x00FF},
    {8, 16, 8, 0xFFFF, 0xFFFF},
};

Board board_of(const Kind& kind) {
    Board board = healthy();
    board.hardware.at("alarm_outputs") = kind.outputs;
    board.hardware.at("alarm_inputs") = kind.inputs;
    board.alarm.wiring.assign(kind.outputs, {});
    for (std::uint8_t input = 0; input < kind.inputs; ++input) {
        board.alarm.wiring[input % kind.stride].insert(static_cast<std::uint8_t>(input + 1));
    }
    return board;
}

unsigned mask_of(const std::set<std::uint8_t>& inputs) {
    unsigned mask = 0;
    for (const std::uint8_t input : inputs)
        mask |= 1u << (input - 1);
    return mask;
}

// What the test must say, from the wiring as it is, with and without the defect.
std::string expected_text(const Kind& kind, const Board& board, const Board& healthy, int& beeps) {
    const unsigned stuck = mask_of(board.alarm.stuck), dead = mask_of(board.alarm.dead);
    std::string text = counts(kind.inputs, kind.outputs);
    int successes = 0, failures = 0;
    beeps = 0;
    if (stuck != 0) {
        char idle[100];
        std::snprintf(idle, sizeof idle, "\n 断开报警输出时, 报警输入为 %x ，报警输入应为 0\n",
                      stuck);
        text += idle;
        ++failures;
    } else {
        text += kIdle;
        ++successes;
    }
    for (std::size_t k = 0; k < kind.outputs; ++k) {
        const bool follows = board.alarm.slow.count(static_cast<std::uint8_t>(k + 1)) == 0;
        const unsigned driven = follows ? mask_of(board.alarm.wiring[k]) : 0;
        const unsigned inputs = (driven | stuck) & ~dead;
        const unsigned wanted = mask_of(healthy.alarm.wiring[k]);
        if ((inputs & kind.compared) == wanted) {
            ++successes;
            continue;
        }
        text += mismatch(1u << k, inputs & kind.shown, wanted);
        ++failures;
        beeps += 2;
    }
    return text + score(successes, failures);
}

TEST(AlarmTest, EachDefectAtEachOutputGivesTheFailuresThatItsWiringImplies) {
    for (const Kind& kind : kKinds) {
        const Board healthy = board_of(kind);
        std::vector<Board> boards{healthy};
        for (std::uint8_t k = 0; k < kind.outputs; ++k) {
            const std::uint8_t input = *healthy.alarm.wiring[k].rbegin();
            Board stuck = healthy, dead = healthy, missing = healthy, swapped = healthy,
                  slow = healthy;
            stuck.alarm.stuck = {input};
            dead.alarm.dead = {input};
            missing.alarm.wiring[k].clear();
            std::swap(swapped.alarm.wiring[k], swapped.alarm.wiring[(k + 1u) % kind.outputs]);
            slow.alarm.slow = {static_cast<std::uint8_t>(k + 1)};
            for (const Board& board : {stuck, dead, missing, swapped, slow})
                boards.push_back(board);
        }
        for (const Board& board : boards) {
            int beeps = 0;
            const std::string expected = expected_text(kind, board, healthy, beeps);
            const Outcome got = run_test(board);
            EXPECT_EQ(said(got), expected);
            EXPECT_EQ(got.changes("line", "4=0").size(), static_cast<std::size_t>(beeps));
            EXPECT_EQ(got.results.alarm, &board == &boards[0] ? 0u : 1u);
            EXPECT_NEAR(got.end_s, 2.1 + 2 * (1 + kind.outputs) + 0.4 * beeps, 1e-6);
        }
    }
}

TEST(AlarmTest, DrivesTheOutputsInThisOrder) {
    const Outcome got = run_test(healthy());
    EXPECT_THAT(got.calls("/dev/zebio"),
                EndsWith("2.100 open(2)\n2.100 ioctl 0x40026B91(0)\n"
                         "2.100 write(4)\n4.100 ioctl 0x80026B90(0)\n"
                         "4.100 write(4)\n6.100 ioctl 0x80026B90(0)\n"
                         "6.100 write(4)\n8.100 ioctl 0x80026B90(0)\n"
                         "8.100 write(4)\n10.100 ioctl 0x80026B90(0)\n"
                         "10.100 write(4)\n12.100 ioctl 0x80026B90(0)\n12.100 close(5)\n"));
    EXPECT_EQ(got.changes("alarm", "outputs 8").size(), 1u);
    EXPECT_EQ(got.world->alarm.outputs, 8u);  // the last one stays on
}

TEST(AlarmTest, OtherInputsThanThoseComparedDoNotMatter) {
    Board board = board_of(kKinds[0]);
    board.alarm.wiring[0].insert(9);  // bits 0 to 3 are compared
    board.alarm.stuck = {12};
    EXPECT_EQ(said(run_test(board)), counts(4, 2) + kIdle + score(3, 0));
    board.alarm.dead = {1};
    // The whole word is shown.
    EXPECT_THAT(said(run_test(board)), HasSubstr(mismatch(1, 0x904, 5)));
}

TEST(AlarmTest, UnsupportedOutputCountIsReportedAndTakenAsFour) {
    for (const int outputs : {0, 1, 3, 6, 127}) {
        Board board = healthy();
        board.hardware.at("alarm_outputs") = static_cast<unsigned>(outputs);
        const Outcome got = run(board, "-o 5 2");
        EXPECT_EQ(said(got), "\n第1次测试\n报警输出个数为" + std::to_string(outputs)
                                 + ",暂时不支持该个数,请检查CPLD信息是否正确\n" + counts(16, 4)
                                 + kIdle + score(5, 0) + "\n第2次测试\n" + counts(16, 4) + kIdle
                                 + score(5, 0));
        EXPECT_EQ(got.capability.alarm_out, 4u);
    }
}

TEST(AlarmTest, InputCountDecidesWhatTheIdleCheckLooksAt) {
    Board board = healthy();
    board.hardware.at("alarm_inputs") = 0;
    board.alarm.stuck = {1};
    Outcome got = run_test(board);  // four outputs, not 16 inputs: the low byte
    EXPECT_EQ(said(got).find("断开"), std::string::npos);
    EXPECT_THAT(said(got), EndsWith(score(1, 3)));

    board.hardware.at("alarm_inputs") = 8;
    board.alarm.stuck = {9};
    EXPECT_EQ(said(run_test(board)), counts(8, 4) + kIdle + score(5, 0));
    board.hardware.at("alarm_inputs") = 9;
    EXPECT_THAT(said(run_test(board)), HasSubstr("报警输入为 100 ，报警输入应为 0\n"));
    for (const int inputs : {32, 33, 255}) {
        board.hardware.at("alarm_inputs") = static_cast<unsigned>(inputs);
        EXPECT_THAT(said(run_test(board)), HasSubstr("报警输入为 100 ，报警输入应为 0\n"));
    }
}

TEST(AlarmTest, FailedReadIsReportedAndJudgedOnAClearedWord) {
    for (std::uint32_t nth = 1; nth <= 5; ++nth) {
        Board board = healthy();
        board.faults = {failing_request(0x80026B90, nth)};
        const Outcome got = run_test(board);
        if (nth == 1) {
            EXPECT_EQ(said(got), counts(16, 4) + "IOCTL ERROR\n" + kIdle + score(5, 0));
            continue;
        }
        const unsigned output = 1u << (nth - 2);
        EXPECT_EQ(said(got), counts(16, 4) + kIdle + "IOCTL ERROR\n"
                                 + mismatch(output, 0, output * 0x1111) + score(4, 1));
        EXPECT_EQ(got.results.alarm, 1u);
    }
}

TEST(AlarmTest, WithoutControlDeviceItSaysSoAndLeavesTheVerdict) {
    Board board = healthy();
    board.faults = {failing("open", "/dev/zebio", 3)};
    const Outcome got = run_test(board);
    EXPECT_EQ(said(got), counts(16, 4) + "open /dev/iop failed\n");
    EXPECT_EQ(got.results.alarm, 0u);
    EXPECT_TRUE(got.changes("line", "4=0").empty());
}

TEST(AlarmTest, InterruptPrintsTheCountsOnceAndEndsTheProcess) {
    Board board = healthy();
    board.alarm.wiring[0].clear();
    board.person.interrupts = {9};
    const Outcome got = run_test(board);
    EXPECT_THAT(got.console, EndsWith("1111\nsuccess is 2, and error is 1\n"));
    EXPECT_EQ(got.signal, SIGINT);
}

TEST(AlarmStep, FollowsTheBootParameters) {
    Board board = healthy();
    board.control.boot_device_type = 0x4497;
    EXPECT_THAT(run(board, "").console,
                HasSubstr("第3步:报警量测试，请确认已经连接好报警测试装置\n" + counts(16, 4)));
    board.control.high_lines = {25};
    EXPECT_EQ(run(board, "").console.find("报警"), std::string::npos);
}

}  // namespace
