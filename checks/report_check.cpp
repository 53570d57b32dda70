#include "checks/harness.h"
#include "device/capability.h"
#include "driver/report.h"
#include "driver/results.h"
#include "driver/summary.h"
#include "platform/platform.h"

namespace {

using namespace checks;

Board board_with_reader() {
    Board board;
    board.fifo = {true, true};
    return board;
}

Board board_for_net_run() {
    Board board = bare_board();
    board.fifo = {true, true};
    return board;
}

TEST(Report, OnTheConsoleIsPrintedAsItIs) {
    const Outcome got = run_piece({}, [] {
        report("nic", "port %d:", 1);
        report("nic", "\n");
    });
    EXPECT_EQ(got.console, "port 1:\n");
    EXPECT_EQ(got.calls("*"), "0.000 exit(0)\n");
}

TEST(Report, InNetModeIsOneRecordOfLittleEndianWordsAndGbkText) {
    const Outcome got = run_piece(board_with_reader(), [] {
        open_report_fifo();
        report("q7", "Q7TESTEND");
        report("q7", "%s", "");
        report("q7", "%2000d", 7);
    });
    using namespace std::string_literals;
    const std::string end = "\0\0\0\0\x09\0\0\0Q7TESTEND"s;
    const std::string empty = "\0\0\0\0\0\0\0\0"s;
    const std::string longest = "\0\0\0\0\xFF\x03\0\0"s + std::string(1023, ' ');
    EXPECT_THAT(got.record_bytes, EndsWith(end + empty + longest));
    EXPECT_EQ(got.console, "");
}

TEST(Report, EndOfANetRunIsTheseBytes) {
    const Outcome got = run(healthy(), "netQ7test");
    using namespace std::string_literals;
    EXPECT_THAT(got.record_bytes, EndsWith("\0\0\0\0\x09\0\0\0\xB2\xE2\xCA\xD4\xBD\xE1\xCA\xF8\n"
                                           "\0\0\0\0\x09\0\0\0Q7TESTEND"s));
}

TEST(Report, WithoutFifoOrReaderTheRunEndsBeforeAnyTest) {
    Board no_fifo = healthy(), no_reader = healthy();
    no_fifo.fifo = {false, false};
    no_reader.fifo = {true, false};
    for (const Board& board : {no_fifo, no_reader}) {
        const Outcome got = run(board, "netQ7test");
        EXPECT_EQ(got.console, kStartLine + std::string("打开命名管道出错\n"));
        EXPECT_EQ(got.status, 0);
        EXPECT_EQ(got.count("open", "/dev/zebio"), 1);
    }
}

// The line of the error line is that of the reporting statement.
TEST(Report, LostRecordsAreSaidWithModuleAndLine) {
    Board stalled = board_with_reader();
    stalled.fifo.stalls_at = 2;
    Outcome got = run_piece(stalled, [] {
        open_report_fifo();
        for (int i = 0; i < 64 + 1; ++i)
            report("rtc_test", "%1015d", i);
        report("rtc_test", "%1017d", 0);
        report("q7", "%1015d", 0);
    });
    const std::string line = std::to_string(__LINE__ - 3);
    EXPECT_EQ(got.records.size(), 65u);
    EXPECT_EQ(got.console, "write error file = rtc_test ,line = " + line + " \n"
                               + "write error file = q7 ,line = " + std::to_string(__LINE__ - 5)
                               + " \n");

    Board left = board_with_reader();
    left.fifo.leaves_at = 2;
    got = run_piece(left, [] {
        open_report_fifo();
        platform::signal(13, reinterpret_cast<platform::SignalHandler>(1));
        for (int i = 0; i < 3; ++i)
            report("nic", "%d", i);
    });
    EXPECT_THAT(got.records, ElementsAre("0"));
    EXPECT_THAT(got.console, StartsWith("write error file = nic ,line = "));
}

TEST(Report, ReaderThatLeavesOrStallsDoesNotEndTheRun) {
    const std::size_t all = run(healthy(), "netQ7test").records.size();
    Board left = healthy();
    left.fifo.leaves_at = 4;
    const Outcome got = run(left, "netQ7test");
    EXPECT_EQ(got.records.size(), 3u);
    EXPECT_EQ(got.status, 0);
    std::size_t lost = 0;
    for (std::size_t at = 0;
         (at = got.console.find("write error file = ", at)) != std::string::npos; ++at) {
        ++lost;
    }
    EXPECT_EQ(lost, all - 3);
}

// The summary's decision, for each slot alone, in both modes.

struct SlotRow {
    const char* name;
    std::function<void()> set;
    bool passes_on_console, passes_in_net_mode;
    const char* fault_line;
    const char* record;
};

constexpr char kRule[] = "----------------------------------------------------------------\n";

const SlotRow kSlots[] = {
    {"none", [] {}, true, true, "", ""},
    {"network", [] { results.network = 1; }, false, false, "网络状态    : error occured!  \n",
     "网络状态      : 失败  \n"},
    {"rs485", [] { *g_rs485_verdict = 1; }, false, false, "485口       : error occured!  \n",
     "485口       : 失败  \n"},
    {"alarm", [] { results.alarm = 1; }, false, false, "报警口      : error occured!  \n",
     "报警口      : 失败  \n"},
    {"rtc", [] { results.rtc = 1; }, false, true, "Rtc时钟     : error occured!  \n",
     "Rtc时钟       : 由检测人员判断  \n"},
    {"usb too few", [] { results.usb_ports_found = 3; }, false, false,
     "USB口       : error occured!  \n", "USB口       : 失败  \n"},
    {"usb too many", [] { results.usb_ports_found = 5; }, false, false,
     "USB口       : error occured!  \n", "USB口       : 失败  \n"},
    {"sata 1 and 3", [] { results.sata_fault_mask = 5; }, false, false,
     "SATA口      : 端口1,3无连接\n", "SATA口       : 端口1,3无连接\n"},
    {"sata 32", [] { results.sata_fault_mask = 0x80000000; }, false, false,
     "SATA口      : 端口32无连接\n", "SATA口       : 端口32无连接\n"},
    {"minisas", [] { results.minisas = 1; }, false, false, "miniSAS口异常\n", ""},
};

Outcome summarise(const SlotRow& row, bool net) {
    return run_piece(board_for_net_run(), [&] {
        if (net) open_report_fifo();
        g_iUsbNum = 4;
        results = {};
        results.usb_ports_found = 4;
        results.sata_disks_found = -2;
        row.set();
        std::uint8_t all_passed = 7;
        result_summary(&all_passed);
        std::printf("%d %u", all_passed, results.sata_fault_mask);
    });
}

TEST(Summary, OnTheConsoleShowsOkOrTheFaultsAlone) {
    for (const SlotRow& row : kSlots) {
        const Outcome got = summarise(row, false);
        SCOPED_TRACE(row.name);
        const std::string usb = std::to_string(got.results.usb_ports_found);
        EXPECT_EQ(got.console, kRule + std::string("Q7测试结果如下:\nUSB口       : ") + usb
                                   + "  \nSATA口      : -2  \n"
                                   + (row.passes_on_console ? "测试结果:  OK!\n" : row.fault_line)
                                   + kRule + (row.passes_on_console ? "1 0" : "0 0"));
        if (row.passes_on_console) {
            EXPECT_THAT(got.changes("line", "4=0"),
                        ElementsAre(0.0, 0.4, 0.8, 1.2, 1.4, 1.6, 3.8, 4.2, 4.6, 5.0, 5.2, 5.4));
            EXPECT_THAT(got.changes("line", "4=1"),
                        ElementsAre(0.3, 0.7, 1.1, 1.3, 1.5, 1.7, 4.1, 4.5, 4.9, 5.1, 5.3, 5.5));
            EXPECT_DOUBLE_EQ(got.end_s, 7.6);
        } else {
            EXPECT_THAT(got.changes("line", "4=0"), ElementsAre(0.0));
            EXPECT_THAT(got.changes("line", "4=1"), ElementsAre(3.0));
            EXPECT_DOUBLE_EQ(got.end_s, 3.0);
        }
    }
}

TEST(Summary, InNetModeSendsALineAnItem) {
    const std::vector<std::string> good{
        "网络状态      : 成功  \n", "485口       : 成功  \n",
        "报警口      : 成功  \n",   "USB口       : 成功  \n",
        "SATA口       : 成功  \n",  "Rtc时钟       : 由检测人员判断  \n"};
    for (const SlotRow& row : kSlots) {
        const Outcome got = summarise(row, true);
        SCOPED_TRACE(row.name);
        std::vector<std::string> expected{
            kRule + std::string("Q7测试结果如下:\n"),
            "USB口       : " + std::to_string(got.results.usb_ports_found)
                + "  \nSATA口      : -2  \n"};
        const std::string record = row.record;
        for (const std::string& item : good) {
            const bool same_item =
                item.substr(0, item.find(':')) == record.substr(0, record.find(':'));
            expected.push_back(same_item ? record : item);
        }
        expected.push_back(kRule);
        EXPECT_EQ(got.records, expected);
        const bool minisas = std::string(row.name) == "minisas";
        EXPECT_EQ(got.console, std::string(minisas ? "miniSAS口异常\n" : "miniSAS口正常\n")
                                   + (row.passes_in_net_mode ? "1 0" : "0 0"));
        EXPECT_DOUBLE_EQ(got.end_s, 0);
    }
}

TEST(Summary, ListsEveryFaultInOrderAndTakesNoPointer) {
    const Outcome got = run_piece(bare_board(), [] {
        results = {1, 1, 1, 2, 0, 0xFFFFFFFF, 1};
        *g_rs485_verdict = 1;
        result_summary(nullptr);
    });
    std::string ports;
    for (int port = 1; port <= 32; ++port)
        ports += (port > 1 ? "," : "") + std::to_string(port);
    EXPECT_THAT(got.console,
                HasSubstr("  \n网络状态    : error occured!  \n485口       : error occured!  \n"
                          "报警口      : error occured!  \nRtc时钟     : error occured!  \n"
                          "USB口       : error occured!  \nSATA口      : 端口"
                          + ports + "无连接\nminiSAS口异常\n---"));
}

}  // namespace
