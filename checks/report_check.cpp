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

TEST(Summary, BeepsAPatternForAPassAndThreeSecondsForAFault) {
    using Instants = std::vector<double>;
    const std::string title = kRule + "Q7测试结果如下:\nUSB口       : 4  \nSATA口      : -2  \n"s;
    const Outcome good = summarise([] {});
    EXPECT_EQ(good.console, title + "测试结果:  OK!\n" + kRule + "1 0");
    EXPECT_EQ(good.changes("line", "4=0"),
              (Instants{0, .4, .8, 1.2, 1.4, 1.6, 3.8, 4.2, 4.6, 5, 5.2, 5.4}));
    EXPECT_EQ(good.changes("line", "4=1"),
              (Instants{.3, .7, 1.1, 1.3, 1.5, 1.7, 4.1, 4.5, 4.9, 5.1, 5.3, 5.5}));
    EXPECT_DOUBLE_EQ(good.end_s, 7.6);
    const Outcome bad = summarise([] { results.sata_fault_mask = 5; });
    EXPECT_EQ(bad.console, title + "SATA口      : 端口1,3无连接\n" + kRule + "0 0");
    EXPECT_EQ(bad.changes("line", "4=0"), Instants{0});
    EXPECT_EQ(bad.changes("line", "4=1"), Instants{3});
    EXPECT_DOUBLE_EQ(bad.end_s, 3);
}

TEST(Summary, ListsEveryFaultInOrderAndTakesNoPointer) {
    const Outcome got = run_piece(healthy(), [] {
        results.network = results.rs485 = results.alarm = results.rtc = results.minisas = 1;
        results.usb_ports_found = 2;
        results.sata_fault_mask = 0xFFFFFFFF;
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
