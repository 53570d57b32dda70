#include <algorithm>

#include "checks/harness.h"

namespace {

using namespace checks;

constexpr char kAllBack[] = "正确:    1024字节  \n错误:    0字节 \n";

// Test 4 begins 12.1 s after the start, and sends 0.1 s later.
Outcome run_test(const Board& board) { return run(board, "-o 4"); }

std::string said(const Outcome& got) {
    return got.console.substr(got.console.find("avcore\n") + 7);
}

std::size_t beeps(const Outcome& got) { return got.changes("line", "4=0").size(); }

std::string actor_of_last_write(const Outcome& got, std::string_view path) {
    std::string actor;
    for (const sim::Event& event : got.world->log()) {
        if (event.actor >= 0 && got.world->path_of(event) == path) {
            actor = got.world->actors[event.actor].name;
        }
    }
    return actor;
}

TEST(Rs485, EchoIsReportedAndTheToolGoesOnSixSecondsAfterSending) {
    const Outcome got = run_test(healthy());
    EXPECT_EQ(said(got), kAllBack);
    EXPECT_EQ(beeps(got), 0u);
    EXPECT_EQ(got.rs485_verdict, 0u);
    EXPECT_EQ(got.status, 0);
    EXPECT_NEAR(got.end_s, 12.2 + 6, 1e-6);
    EXPECT_THAT(got.calls("/dev/zebio"),
                EndsWith("12.100 open(2)\n12.100 ioctl 0x7(1)\n12.100 ioctl 0x8(1)\n"));
    EXPECT_THAT(got.calls("/dev/ttyS0"), testing::StartsWith("12.100 open(2306)\n"));
    EXPECT_EQ(got.count("write", "/dev/ttyS0"), 1);
    // The echo comes back in 128 reads over 1.07 s.
    EXPECT_EQ(got.count("read", "/dev/ttyS0"), 128);
    // The receiver runs none of its parent's exit handlers.
    EXPECT_EQ(got.count("_exit"), 1);
    EXPECT_EQ(got.count("exit"), 1);
}

TEST(Rs485, EachRunStartsItsCountsAtZero) {
    const Outcome got = run(healthy(), "-o 4 3");
    EXPECT_EQ(said(got), std::string("\n第1次测试\n") + kAllBack + "\n第2次测试\n" + kAllBack
                             + "\n第3次测试\n" + kAllBack);
    EXPECT_NEAR(got.end_s, 12.1 + 3 * 6.1, 1e-6);
    EXPECT_EQ(got.count("open", "/dev/ttyS0"), 3);  // none of them is closed
    EXPECT_EQ(got.count("close", "/dev/ttyS0"), 0);
    EXPECT_EQ(got.count("mmap"), 1);
}

TEST(Rs485, FixtureFaultsAreCountedAndWrongBytesAreTheVerdict) {
    const auto with = [](const std::function<void(sim::Rs485&)>& change) {
        Board board = healthy();
        change(board.rs485);
        return board;
    };
    std::set<std::uint32_t> last_24;
    for (std::uint32_t i = 1000; i < 1024; ++i)
        last_24.insert(i);
    const struct {
        const char* name;
        Board board;
        int good, bad;
        unsigned verdict;
    } rows[] = {
        // A read is judged as one piece, here of eight bytes.
        {"one corrupt byte", with([](auto& line) { line.corrupt = {500}; }), 1016, 8, 1},
        {"two in one read", with([](auto& line) {
             line.corrupt = {0, 7};
         }),
         1016, 8, 1},
        {"two in two reads", with([](auto& line) {
             line.corrupt = {7, 8};
         }),
         1008, 16, 1},
        {"first byte lost", with([](auto& line) { line.drop = {0}; }), 0, 1023, 1},
        {"last bytes lost", with([&](auto& line) { line.drop = last_24; }), 1000, 0, 0},
        {"silence", with([](auto& line) { line.fixture = false; }), 0, 0, 0},
        {"too late", with([](auto& line) { line.delay = 6; }), 0, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const Outcome got = run_test(row.board);
        char report[120];
        std::snprintf(report, sizeof report, "发送  %d字节成功\n    %d字节失败 \n", row.good,
                      row.bad);
        EXPECT_EQ(said(got), report);
        EXPECT_EQ(got.rs485_verdict, row.verdict);
        EXPECT_THAT(got.changes("line", "4=0"),
                    ElementsAre(DoubleNear(17.2, 0.001), DoubleNear(17.6, 0.001)));
        EXPECT_NEAR(got.end_s, 18.2, 0.001);
    }
}

TEST(Rs485, EchoInAnyPiecesIsGood) {
    for (const std::vector<std::uint32_t>& pieces :
         {std::vector<std::uint32_t>{1}, {1024}, {1, 2, 3}, {500, 1, 523}, {1000, 100}}) {
        Board board = healthy();
        board.rs485.pieces = pieces;
        EXPECT_EQ(said(run_test(board)), kAllBack) << pieces.size();
    }
    Board slow = healthy();
    slow.rs485.delay = 3.9;  // all 5 seconds together, not for each wait
    EXPECT_EQ(said(run_test(slow)), kAllBack);
    slow.rs485.delay = 3.99;
    EXPECT_THAT(said(run_test(slow)), EndsWith("字节失败 \n"));
}

TEST(Rs485, LineMustBeSwitchedAndSetUp) {
    for (const std::uint32_t request : {0x07u, 0x08u}) {
        Board board = healthy();
        board.faults = {failing_request(request)};
        EXPECT_EQ(said(run_test(board)), "发送  0字节成功\n    0字节失败 \n");
    }
    Board board = healthy();
    board.faults = {failing("open", "/dev/zebio", 3)};  // unnoticed: the requests fail
    EXPECT_EQ(said(run_test(board)), "发送  0字节成功\n    0字节失败 \n");
}

TEST(Rs485, FailuresBeforeTheForkEndTheTool) {
    Board missing = healthy(), refusing = healthy(), handlerless = healthy();
    missing.rs485.port.present = false;
    refusing.faults = {failing("tcsetattr", "/dev/ttyS0")};
    handlerless.faults = {failing("signal", {}, 2)};
    handlerless.faults[0].actor = "main";
    for (const auto& [board, text] :
         {std::pair(missing, "open /dev/ttyS0 failed\n"), std::pair(refusing, "tcsetattr failed\n"),
          std::pair(handlerless, "signal failed\n")}) {
        const Outcome got = run_test(board);
        EXPECT_THAT(said(got), testing::StartsWith(text));
        EXPECT_EQ(got.status, 255);
    }
    Board receiver = healthy();
    receiver.faults = {failing("signal")};
    receiver.faults[0].actor = "child1";
    const Outcome got = run_test(receiver);  // ends that process alone
    EXPECT_EQ(said(got), "signal failed\n");
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.count("_exit"), 1);
}

TEST(Rs485, RefusedForkLeavesTheSenderAlone) {
    Board board = healthy();
    board.faults = {failing("fork")};
    const Outcome got = run_test(board);
    EXPECT_EQ(said(got), "");
    EXPECT_EQ(got.rs485_verdict, 0u);
    EXPECT_EQ(got.count("write", "/dev/ttyS0"), 1);
    EXPECT_NEAR(got.end_s, 18.2, 1e-6);
}

TEST(Rs485, RefusedPageDoesNotLoseAFault) {
    Board board = healthy();
    board.faults = {failing("mmap")};
    const Outcome got = run(board, "-o 4 2");  // the page of the second run keeps it
    EXPECT_EQ(got.rs485_verdict, 1u);
    EXPECT_EQ(got.count("mmap"), 2);
}

// A line that is ready but useless ends within the 5 seconds of its side instead of spinning.
TEST(Rs485, DeadLineEndsWithinItsBudget) {
    Board hung_up = healthy();
    hung_up.rs485.port.hangs_up = 12;
    Outcome got = run_test(hung_up);
    EXPECT_EQ(said(got),
              "no more data can write in 5 seconds,exit \n发送  0字节成功\n    0字节失败 \n");
    EXPECT_NEAR(got.end_s, 17.2 + 0.8, 0.05);
    EXPECT_LT(got.count("write", "/dev/ttyS0"), 510);

    Board deaf = healthy();
    deaf.rs485.port.hangs_up = 12.5;  // in the middle of the echo
    got = run_test(deaf);
    EXPECT_THAT(said(got), HasSubstr("字节成功\n    0字节失败 \n"));
    EXPECT_EQ(beeps(got), 2u);

    for (const char* wait : {"wait_writable", "wait_readable"}) {
        Board failing_wait = healthy();
        failing_wait.faults = {failing(wait, "/dev/ttyS0")};
        failing_wait.faults[0].onwards = true;
        got = run_test(failing_wait);
        const bool sender = std::string(wait) == "wait_writable";
        EXPECT_THAT(got.errors, EndsWith(sender ? "\nselect(): Input/output error\n"
                                                : "\nread select(): Input/output error\n"));
        EXPECT_THAT(said(got), HasSubstr(sender ? "no more data can write in 5 seconds,exit \n"
                                                : "发送  0字节成功\n    0字节失败 \n"));
        EXPECT_LT(got.end_s, 18.21);
    }
}

TEST(Rs485, BlockedSenderReturnsAtOnceWhenItsTimeIsUsedUp) {
    Board board = healthy();
    board.rs485.port.blocked = true;
    const Outcome got = run_test(board);
    EXPECT_THAT(said(got), HasSubstr("no more data can write in 5 seconds,exit \n"));
    EXPECT_THAT(said(got), HasSubstr("发送  0字节成功\n    0字节失败 \n"));
    EXPECT_EQ(got.rs485_verdict, 0u);
}

TEST(Rs485, PatternGoesOutInAsManyWritesAsTheLineTakes) {
    Board board = healthy();
    sim::Fault shorten = failing("write", "/dev/ttyS0");
    shorten.onwards = true;
    shorten.effect = sim::Fault::Effect::shorten;
    shorten.count = 100;
    board.faults = {shorten};
    const Outcome got = run_test(board);
    EXPECT_EQ(said(got), kAllBack);
    EXPECT_EQ(got.count("write", "/dev/ttyS0"), 11);
}

TEST(Rs485, InterruptEndsTheToolAndOnlyCutsTheReceiversWaitShort) {
    Board board = healthy();
    board.person.interrupts = {12.7};
    const Outcome got = run_test(board);
    EXPECT_EQ(got.signal, SIGINT);
    EXPECT_EQ(said(got), kAllBack);
    EXPECT_EQ(got.errors, "read select(): Interrupted system call\n");
    EXPECT_NEAR(got.end_s, 12.2 + 1.07, 0.01);
}

TEST(Rs485, AfterTheTestInterruptHasItsDefaultActionAgain) {
    Board board = healthy();
    board.person.interrupts = {run(board, "").end_s - 5};  // in the summary
    const Outcome got = run(board, "");
    EXPECT_THAT(got.console, EndsWith("测试结果:  OK!\n"));  // and nothing of an earlier handler
    EXPECT_EQ(got.signal, SIGINT);
}

// The sender is out of time when the receiver has not judged yet.
TEST(Rs485, VerdictReachesTheSummaryEvenWhenTheReceiverJudgesLate) {
    Board board = healthy();
    board.rs485.corrupt = {500};
    EXPECT_THAT(run(board, "").console, HasSubstr("485口       : error occured!  \n"));

    sim::Fault blocked = failing("write", "/dev/ttyS0", 2);
    blocked.onwards = true;
    sim::Fault shorten = failing("write", "/dev/ttyS0");
    shorten.effect = sim::Fault::Effect::shorten;
    shorten.count = 600;
    board.faults = {blocked, shorten};
    const Outcome got = run(board, "");
    EXPECT_THAT(got.console, HasSubstr("no more data can write in 5 seconds,exit \n"));
    EXPECT_LT(got.console.find("no more data"), got.console.find("字节失败"));
    EXPECT_THAT(got.console, HasSubstr("485口       : error occured!  \n"));
}

TEST(Rs485, ReceiverReportsIntoTheFifoOfANetRun) {
    const Outcome got = run(healthy(), "netQ7test");
    EXPECT_THAT(got.records, testing::Contains(kAllBack));
    EXPECT_EQ(actor_of_last_write(got, "/dev/ttyS0"), "child1");
}

}  // namespace
