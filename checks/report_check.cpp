#include "checks/harness.h"
#include "device/capability.h"
#include "driver/report.h"
#include "driver/results.h"
#include "driver/summary.h"
#include "platform/error_text.h"

namespace {

using namespace checks;
using namespace std::string_literals;

constexpr char kRule[] = "----------------------------------------------------------------\n";

TEST(Report, ErrorTextsAreThoseOfThisMachinesLibrary) {
    for (int error = -2; error < 4100; ++error)
        EXPECT_STREQ(error_text(error), strerror(error));
}

TEST(Report, InNetModeIsARecordOfTwoLittleEndianWordsAndGbkText) {
    EXPECT_THAT(run("netQ7test").record_bytes,
                EndsWith("\0\0\0\0\x09\0\0\0\xB2\xE2\xCA\xD4\xBD\xE1\xCA\xF8\n"
                         "\0\0\0\0\x09\0\0\0Q7TESTEND"s));
    const Outcome got = run_piece(healthy(), [] {
        open_report_fifo();
        report("q7", "%s", "");
        report("q7", "%2000d", 7);
    });
    EXPECT_EQ(got.record_bytes, "\0\0\0\0\0\0\0\0\0\0\0\0\xFF\x03\0\0"s + std::string(1023, ' '));
    EXPECT_EQ(got.console, "");
}

TEST(Report, WithoutFifoOrReaderTheRunEndsBeforeAnyTest) {
    for (const char* change : {"fifo.present = false", "fifo.reader = false"}) {
        const Outcome got = run("netQ7test", change);
        EXPECT_EQ(got.console, kStartLine + "打开命名管道出错\n"s);
        EXPECT_EQ(got.status, 0);
    }
}

// The line of the error line is that of the reporting statement.
TEST(Report, RecordsThatAFullPipeRefusesAreSaidWithModuleAndLine) {
    const Outcome got = run_piece(healthy("fifo = {reading = false, unread = 65524}"), [] {
        open_report_fifo();
        for (const char* text : {"sent", "lost"})  // the pipe has room for one of them
            report("rtc_test", "%s", text);
        report("q7", "%s", "");
    });
    const int line = __LINE__ - 2;
    EXPECT_THAT(got.records, ElementsAre("sent"));
    EXPECT_EQ(got.console, "write error file = rtc_test ,line = " + std::to_string(line - 1)
                               + " \nwrite error file = q7 ,line = " + std::to_string(line)
                               + " \n");
}

Outcome summarise(const std::function<void()>& set_slots) {
    return run_piece(healthy(), [&] {
        g_iUsbNum = 4;
        results.usb_ports_found = 4;
        results.sata_disks_found = -2;
        set_slots();
        std::uint8_t all_passed = 7;
        result_summary(&all_passed);
        std::printf("%d %u", all_passed, results.sata_fault_mask);
    });
}

constexpr char kJudgedByPerson[] = "Rtc时钟       : 由检测人员判断  \n";

// One slot alone: its text on the console, and its record in net mode, the n-th of six.
void expect_summary(const std::function<void()>& set_slot, const std::string& fault,
                    std::size_t nth, const std::string& record, const char* usb_ports = "4") {
    SCOPED_TRACE(fault);
    const std::string title = kRule + "Q7测试结果如下:\n"s,
                      counts = "USB口       : "s + usb_ports + "  \nSATA口      : -2  \n";
    Outcome got = summarise(set_slot);
    const bool passes = fault.empty();
    EXPECT_EQ(got.console, title + counts + (passes ? "测试结果:  OK!\n" : fault) + kRule
                               + (passes ? "1 0" : "0 0"));
    using Instants = std::vector<double>;
    const Instants pattern{0, .4, .8, 1.2, 1.4, 1.6, 3.8, 4.2, 4.6, 5, 5.2, 5.4},
        pauses{.3, .7, 1.1, 1.3, 1.5, 1.7, 4.1, 4.5, 4.9, 5.1, 5.3, 5.5};
    EXPECT_EQ(got.changes("line", "4=0"), passes ? pattern : Instants{0});
    EXPECT_EQ(got.changes("line", "4=1"), passes ? pauses : Instants{3});
    EXPECT_DOUBLE_EQ(got.end_s, passes ? 7.6 : 3.0);

    got = summarise([&] {
        open_report_fifo();
        set_slot();
    });
    std::vector<std::string> records{title, counts};
    for (const char* item :
         {"网络状态      ", "485口       ", "报警口      ", "USB口       ", "SATA口       "})
        records.push_back(item + ": 成功  \n"s);
    records.insert(records.end(), {kJudgedByPerson, kRule});
    records.at(1 + nth) = record;
    EXPECT_EQ(got.records, records);
    const bool bad_minisas = fault == "miniSAS口异常\n";
    EXPECT_EQ(got.console, (bad_minisas ? fault : "miniSAS口正常\n")
                               + std::string(nth == 6 && !bad_minisas ? "1 0" : "0 0"));
    EXPECT_DOUBLE_EQ(got.end_s, 0);
}

TEST(Summary, NamesTheSlotThatIsSetAndPassesWithNone) {
    expect_summary([] {}, "", 6, kJudgedByPerson);
    expect_summary([] { results.network = 1; }, "网络状态    : error occured!  \n", 1,
                   "网络状态      : 失败  \n");
    expect_summary([] { results.rs485 = 1; }, "485口       : error occured!  \n", 2,
                   "485口       : 失败  \n");
    expect_summary([] { results.alarm = 1; }, "报警口      : error occured!  \n", 3,
                   "报警口      : 失败  \n");
    expect_summary([] { results.usb_ports_found = 3; }, "USB口       : error occured!  \n", 4,
                   "USB口       : 失败  \n", "3");
    expect_summary([] { results.usb_ports_found = 5; }, "USB口       : error occured!  \n", 4,
                   "USB口       : 失败  \n", "5");
    expect_summary([] { results.sata_fault_mask = 5; }, "SATA口      : 端口1,3无连接\n", 5,
                   "SATA口       : 端口1,3无连接\n");
    expect_summary([] { results.rtc = 1; }, "Rtc时钟     : error occured!  \n", 6, kJudgedByPerson);
    expect_summary([] { results.minisas = 1; }, "miniSAS口异常\n", 6, kJudgedByPerson);
}

TEST(Summary, ListsEveryFaultInOrderAndTakesNoPointer) {
    const Outcome got = run_piece(healthy(), [] {
        results = {1, 1, 1, 1, 2, 0, 0xFFFFFFFF, 1};
        result_summary(nullptr);
    });
    std::string ports = "1";
    for (int port = 2; port <= 32; ++port)
        ports += "," + std::to_string(port);
    EXPECT_THAT(got.console,
                HasSubstr("  \n网络状态    : error occured!  \n485口       : error occured!  \n"
                          "报警口      : error occured!  \nRtc时钟     : error occured!  \n"
                          "USB口       : error occured!  \nSATA口      : 端口"
                          + ports + "无连接\nminiSAS口异常\n---"));
}

}  // namespace
