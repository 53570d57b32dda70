#include <algorithm>
#include <chrono>

#include "checks/harness.h"

namespace {

using namespace checks;

constexpr char kDevCfg[] = "/dav2/devCfg.bin";
constexpr char kBackup[] = "/dav2/devCfg_backup.bin";
constexpr char kRestart[] = "测试结束,系统将要重新启动,并恢复出厂设置\n";
constexpr char kRule[] = "----------------------------------------------------------------\n";

const char* const kTranscript =
    "no kill avcore\n"
    "第1步:按键测试\n"
    "面板输入ENTER点亮1.3.5.7 奇数通道灯再点亮2.4.6.8偶数通道灯\n"
    "面板输入UP点亮所有录象灯+所有功能灯\n"
    "面板输入DOWN关闭所有录象灯+所有功能灯\n"
    "面板输入LEFT点亮所有网络连接显示灯\n"
    "面板输入RIGHT关闭所有网络连接显示灯\n"
    "面板输入ESC退出测试\n"
    "\n"
    "第2步:网络状态\n"
    "现在测试电口网络\n"
    "网卡1:网络连接接通 \n全双工  1000M\n网卡2:网络连接接通 \n全双工  1000M\n"
    "网卡3:网络连接接通 \n全双工  1000M\n网卡4:网络连接接通 \n全双工  1000M\n"
    "现在测试光口网络\n"
    "网卡1:网络连接接通 \n全双工  1000M\n网卡2:网络连接接通 \n全双工  1000M\n"
    "网卡3:网络连接接通 \n全双工  1000M\n网卡4:网络连接接通 \n全双工  1000M\n"
    "\n"
    "第3步:报警量测试，请确认已经连接好报警测试装置\n"
    "报警输入有16个,报警输出有4个\n"
    "\n 断开报警输出时, 报警输入正常\n"
    "成功 5, 失败 0\n"
    "\n"
    "第4步:开始测试RTC\n"
    "时钟时间 2026-11-23 08:00:39\n系统时间 2026-11-23 08:00:39\n"
    "时钟时间 2026-11-23 08:00:40\n系统时间 2026-11-23 08:00:40\n"
    "时钟时间 2026-11-23 08:00:41\n系统时间 2026-11-23 08:00:41\n"
    "\n"
    "第5步:\nUSB口测试\n"
    "/dev/msa1 剩余空间 = 3884M\n/dev/msb1 剩余空间 = 7792M\n"
    "/dev/msc1 剩余空间 = 15604M\n/dev/msd1 剩余空间 = 1932M\n"
    "后面板上面的USB口插着的U盘是3.0U盘\n后面板下面的USB口插着的U盘是3.0U盘\n"
    "3.0usb插3.0U盘测试成功,请在10s内将2.0U盘插入3.0usb进行测试\n"
    "/dev/msa1 剩余空间 = 3884M\n/dev/msb1 剩余空间 = 7792M\n"
    "/dev/msc1 剩余空间 = 15604M\n/dev/msd1 剩余空间 = 1932M\n"
    "后面板上面的USB口插着的U盘是2.0U盘或者鼠标\n后面板下面的USB口插着的U盘是3.0U盘\n"
    "\n"
    "第6步:\nSATA硬盘测试\n设备有4个sata口\n"
    "/dev/sda\n序列号    :SIM-0001            \n型号      :Simulated disk 1 TB                     "
    "\n固件版本  :01.01A01\n硬盘容量  :931GB\n"
    "/dev/sdb\n序列号    :SIM-0002            \n型号      :Simulated disk 1 TB                     "
    "\n固件版本  :01.01A01\n硬盘容量  :931GB\n"
    "/dev/sdc\n序列号    :SIM-0003            \n型号      :Simulated disk 1 TB                     "
    "\n固件版本  :01.01A01\n硬盘容量  :931GB\n"
    "/dev/sdd\n序列号    :SIM-0004            \n型号      :Simulated disk 1 TB                     "
    "\n固件版本  :01.01A01\n硬盘容量  :931GB\n"
    "/dev/esda\n序列号    :SIM-0005            \n型号      :Simulated disk 2 TB                    "
    " \n固件版本  :02.00A02\n硬盘容量  :1863GB\n"
    "\n"
    "第7步:485测试\n请确认已经正确连接好485测试装置\n"
    "正确:    1024字节  \n错误:    0字节 \n"
    "\n"
    "第8步:CPLD信息\n"
    "\n设备类型 : QM-45270(DVR)\n面板类型:带LCD按键面板\nARM主频  : 1.3G\n"
    "内存频率 : 667MHz\n内存大小 : 3GB\nFLASH大小: 2MB+256MB\n"
    "CPLD版本 : 2013年07月15日\n报警 I/O : 16/4\n"
    "\n"
    "----------------------------------------------------------------\n"
    "Q7测试结果如下:\nUSB口       : 4  \nSATA口      : 5  \n"
    "测试结果:  OK!\n"
    "----------------------------------------------------------------\n";

bool restarts_in_5_s(const Outcome& got) {
    return got.world->control.watchdog_expires == got.world->now + sim::from_seconds(5);
}

TEST(Sequence, OnAHealthyBoardEveryStepPassesAndTheBoardRestarts) {
    const Outcome got = run(healthy(), "");
    EXPECT_EQ(got.console, kStartLine + std::string(kTranscript) + kRestart);
    EXPECT_EQ(got.errors, "");
    EXPECT_EQ(got.count("remove", kDevCfg), 1);
    EXPECT_EQ(got.count("remove", kBackup), 1);
    EXPECT_TRUE(restarts_in_5_s(got));
    EXPECT_EQ(got.status, 0);
}

TEST(Sequence, FailedRemovalIsSaidAndTheBoardRestartsAllTheSame) {
    for (const char* path : {kDevCfg, kBackup}) {
        Board board = healthy();
        board.files.erase(path);
        const Outcome got = run(board, "");
        EXPECT_THAT(got.console, EndsWith(kRestart + ("remove " + std::string(path)) + " ERROR\n"));
        EXPECT_EQ(got.count("remove"), 2);
        EXPECT_TRUE(restarts_in_5_s(got));
    }
}

// One board a fault: the summary names that item alone, in both modes.
TEST(Sequence, FaultyItemIsNamedAloneAndTheConfigurationStays) {
    const struct {
        std::function<void(Board&)> change;
        const char *fault, *record;
        int sata_disks = 5;
    } rows[] = {
        {[](Board& board) { board.ports["eth3"].fibre.speed = 100; },
         "网络状态    : error occured!  \n", "网络状态      : 失败  \n"},
        {[](Board& board) { board.rs485.corrupt = {0}; }, "485口       : error occured!  \n",
         "485口       : 失败  \n"},
        {[](Board& board) { board.alarm.dead = {16}; }, "报警口      : error occured!  \n",
         "报警口      : 失败  \n"},
        {[](Board& board) { board.rtc.offset_s = 60; }, "Rtc时钟     : error occured!  \n",
         "Rtc时钟       : 由检测人员判断  \n"},
        {[](Board& board) { board.usb.disks.pop_back(); }, "USB口       : error occured!  \n",
         "USB口       : 失败  \n"},
        {[](Board& board) { board.disks.at("sdc").present = false; }, "SATA口      : 端口3无连接\n",
         "SATA口       : 端口3无连接\n", 4},
        {[](Board& board) { board.hardware.at("minisas") = 1; }, "miniSAS口异常\n", ""},
    };
    for (const auto& row : rows) {
        Board board = healthy();
        row.change(board);
        const std::string counts =
            board.usb.disks.size() == 5 ? "USB口       : 4  \n" : "USB口       : 3  \n";
        Outcome got = run(board, "");
        EXPECT_THAT(got.console, EndsWith("Q7测试结果如下:\n" + counts
                                          + "SATA口      : " + std::to_string(row.sata_disks)
                                          + "  \n" + row.fault + kRule + "测试结束\n"));
        EXPECT_EQ(got.count("remove"), 0);
        EXPECT_EQ(got.world->control.watchdog_expires, sim::kNever);
        EXPECT_EQ(got.status, 0);

        got = run(board, "netQ7test");
        for (const std::string& record : got.records) {
            const bool failed = record.find("失败  \n") != std::string::npos;
            EXPECT_TRUE(!failed || record == row.record) << record;
        }
        const bool printed_only = row.record[0] == '\0';
        EXPECT_TRUE(printed_only
                    || std::count(got.records.begin(), got.records.end(), row.record) == 1);
        EXPECT_EQ(got.console.find("miniSAS口异常\n") != std::string::npos, printed_only);
        EXPECT_EQ(got.records.back(), "Q7TESTEND");
    }
}

TEST(Sequence, InNetModeSendsEachHeadingAsARecordAndKeepsTheConfiguration) {
    const Outcome got = run(healthy(), "netQ7test");
    const std::vector<std::string> headings{
        "第1步:蜂鸣器测试",    "第2步:按键测试\n",    "第3步:网络状态\n",       "第4步:",
        "第5步:开始测试RTC\n", "第6步:\nUSB口测试\n", "第7步:\nSATA硬盘测试\n", "第8步:",
        "第9步:CPLD信息\n",
    };
    std::vector<std::string> found;
    std::copy_if(got.records.begin(), got.records.end(), std::back_inserter(found),
                 [](const std::string& record) { return record.find("步:") != std::string::npos; });
    EXPECT_EQ(found, headings);
    EXPECT_EQ(got.records[1], "\n");
    EXPECT_EQ(got.records[got.records.size() - 2], "测试结束\n");
    EXPECT_EQ(got.records.back(), "Q7TESTEND");
    EXPECT_THAT(got.calls("/var/q7.fifo"), EndsWith("close(4)\n"));
    EXPECT_EQ(got.count("remove"), 0);
    EXPECT_EQ(got.world->control.watchdog_expires, sim::kNever);
    EXPECT_EQ(got.console,
              std::string(kStartLine)
                  + "no kill avcore\n现在测试电口网络\n现在测试光口网络\n"
                    "后面板上面的USB口插着的U盘是3.0U盘\n后面板下面的USB口插着的U盘是3.0U盘\n"
                    "3.0usb插3.0U盘测试成功,请在10s内将2.0U盘插入3.0usb进行测试\n"
                    "后面板上面的USB口插着的U盘是2.0U盘或者鼠标\n"
                    "后面板下面的USB口插着的U盘是3.0U盘\nminiSAS口正常\n");
    EXPECT_EQ(got.changes("line", "4=0").size(), 9u);  // three beeps, three times
}

// A step that does not run takes no number.
TEST(Sequence, ConditionalStepsAreNumberedAsTheyRun) {
    Board board = healthy();
    board.control.boot_device_type = 0x4497;
    Outcome got = run(board, "");  // no RS-485 step
    EXPECT_THAT(got.console, HasSubstr("第5步:\nUSB口测试\n"));
    EXPECT_THAT(got.console, HasSubstr("第7步:CPLD信息\n"));
    board.control.high_lines = {25};
    got = run(board, "");  // nor an alarm step
    EXPECT_THAT(got.console, HasSubstr("第4步:\nUSB口测试\n"));
    EXPECT_THAT(got.console, HasSubstr("第6步:CPLD信息\n"));
    EXPECT_EQ(got.console.find("485测试"), std::string::npos);
    EXPECT_THAT(got.console, EndsWith(kRestart));
}

TEST(Sequence, UnreadableBootParametersAreSaidAndSkipTheAlarmStep) {
    Board board = healthy();
    board.faults = {failing_request(0x10)};
    const Outcome got = run(board, "");
    EXPECT_THAT(got.console,
                HasSubstr("\n\nioctl ZEBIO_GET_BOOT_PARMS error\n第3步:开始测试RTC\n"));
    EXPECT_THAT(got.console, HasSubstr("第6步:485测试\n"));
    EXPECT_THAT(got.console, EndsWith(kRestart));
}

// A line typed ahead is swallowed; otherwise the console is watched for a second.
TEST(Sequence, FlushesTheConsoleBeforeAStep) {
    Board board = healthy();
    board.person.lines = {{20.0, "typed ahead\n"}};
    EXPECT_NEAR(run(healthy(), "").end_s - run(board, "").end_s, 1.0, 1e-6);
}

TEST(Sequence, CostsLittleRealTime) {
    auto best = std::chrono::steady_clock::duration::max();
    for (int i = 0; i < 5; ++i) {
        const auto start = std::chrono::steady_clock::now();
        run(healthy(), "");
        best = std::min(best, std::chrono::steady_clock::now() - start);
    }
    EXPECT_LT(best, std::chrono::milliseconds(20));
}

}  // namespace
