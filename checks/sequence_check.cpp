#include <chrono>
#include <numeric>

#include "checks/harness.h"

namespace {

using namespace checks;

constexpr char kRestart[] = "测试结束,系统将要重新启动,并恢复出厂设置\n";
constexpr char kRule[] = "----------------------------------------------------------------\n";

// The texts of both modes on the healthy board.

const std::string kPorts =
    "网卡1:网络连接接通 \n全双工  1000M\n网卡2:网络连接接通 \n全双工  1000M\n"
    "网卡3:网络连接接通 \n全双工  1000M\n网卡4:网络连接接通 \n全双工  1000M\n";

const std::string kAlarm =
    "报警量测试，请确认已经连接好报警测试装置\n报警输入有16个,报警输出有4个\n"
    "\n 断开报警输出时, 报警输入正常\n成功 5, 失败 0\n\n";

const std::string kUsbDisks =
    "/dev/msa1 剩余空间 = 3884M\n/dev/msb1 剩余空间 = 7792M\n"
    "/dev/msc1 剩余空间 = 15604M\n/dev/msd1 剩余空间 = 1932M\n";

std::string internal_disk(const std::string& letter, const std::string& number) {
    return "/dev/sd" + letter + "\n序列号    :SIM-000" + number
           + "            \n型号      :Simulated disk 1 TB                     "
             "\n固件版本  :01.01A01\n硬盘容量  :931GB\n";
}

const std::string kSata =
    "\nSATA硬盘测试\n设备有4个sata口\n" + internal_disk("a", "1") + internal_disk("b", "2")
    + internal_disk("c", "3") + internal_disk("d", "4")
    + "/dev/esda\n序列号    :SIM-0005            \n型号      :Simulated disk 2 TB                     "
      "\n固件版本  :02.00A02\n硬盘容量  :1863GB\n\n";

const std::string kRs485 =
    "485测试\n请确认已经正确连接好485测试装置\n正确:    1024字节  \n错误:    0字节 \n\n";

const std::string kBoard =
    "CPLD信息\n\n设备类型 : QM-45270(DVR)\n面板类型:带LCD按键面板\nARM主频  : 1.3G\n"
    "内存频率 : 667MHz\n内存大小 : 3GB\nFLASH大小: 2MB+256MB\n"
    "CPLD版本 : 2013年07月15日\n报警 I/O : 16/4\n\n";

std::string counts(int usb_ports, int sata_disks) {
    return kRule
           + ("Q7测试结果如下:\nUSB口       : " + std::to_string(usb_ports)
              + "  \nSATA口      : " + std::to_string(sata_disks) + "  \n");
}

bool restarts_in_5_s(const Outcome& got) {
    return got.world->control.watchdog_expires == got.world->now + sim::from_seconds(5);
}

TEST(Sequence, OnAHealthyBoardEveryStepPassesAndTheBoardRestarts) {
    const Outcome got = run("");
    EXPECT_EQ(got.console,
              kStartLine
                  + ("no kill avcore\n第1步:按键测试\n"
                     "面板输入ENTER点亮1.3.5.7 奇数通道灯再点亮2.4.6.8偶数通道灯\n"
                     "面板输入UP点亮所有录象灯+所有功能灯\n面板输入DOWN关闭所有录象灯+所有功能灯\n"
                     "面板输入LEFT点亮所有网络连接显示灯\n面板输入RIGHT关闭所有网络连接显示灯\n"
                     "面板输入ESC退出测试\n\n第2步:网络状态\n现在测试电口网络\n"
                     + kPorts + "现在测试光口网络\n" + kPorts + "\n第3步:" + kAlarm
                     + "第4步:开始测试RTC\n"
                       "时钟时间 2026-11-23 08:00:39\n系统时间 2026-11-23 08:00:39\n"
                       "时钟时间 2026-11-23 08:00:40\n系统时间 2026-11-23 08:00:40\n"
                       "时钟时间 2026-11-23 08:00:41\n系统时间 2026-11-23 08:00:41\n"
                       "\n第5步:\nUSB口测试\n"
                     + kUsbDisks
                     + "后面板上面的USB口插着的U盘是3.0U盘\n后面板下面的USB口插着的U盘是3.0U盘\n"
                       "3.0usb插3.0U盘测试成功,请在10s内将2.0U盘插入3.0usb进行测试\n"
                     + kUsbDisks
                     + "后面板上面的USB口插着的U盘是2.0U盘或者鼠标\n"
                       "后面板下面的USB口插着的U盘是3.0U盘\n\n第6步:"
                     + kSata + "第7步:" + kRs485 + "第8步:" + kBoard + counts(4, 5)
                     + "测试结果:  OK!\n" + kRule + kRestart));
    EXPECT_EQ(got.errors, "");
    EXPECT_EQ(got.count("remove", "/dav2/devCfg.bin"), 1);
    EXPECT_EQ(got.count("remove", "/dav2/devCfg_backup.bin"), 1);
    EXPECT_TRUE(restarts_in_5_s(got));
    EXPECT_NEAR(got.end_s, 59.41, 1e-3);
    EXPECT_EQ(got.status, 0);
}

TEST(Sequence, InNetModeSendsTheseRecordsAndKeepsTheConfiguration) {
    const Outcome got = run("netQ7test");
    EXPECT_EQ(std::accumulate(got.records.begin(), got.records.end(), std::string()),
              "第1步:蜂鸣器测试\n第2步:按键测试\n\n第3步:网络状态\n" + kPorts + kPorts
                  + "\n第4步:" + kAlarm
                  + "第5步:开始测试RTC\n2026-11-23 08:00:38\n2026-11-23 08:00:38\n"
                    "2026-11-23 08:00:39\n2026-11-23 08:00:39\n"
                    "2026-11-23 08:00:40\n2026-11-23 08:00:40\n\n第6步:\nUSB口测试\n"
                  + kUsbDisks + kUsbDisks + "\n第7步:" + kSata + "第8步:" + kRs485 + "第9步:"
                  + kBoard + counts(4, 5)
                  + "网络状态      : 成功  \n485口       : 成功  \n报警口      : 成功  \n"
                    "USB口       : 成功  \nSATA口       : 成功  \nRtc时钟       : 由检测人员判断  \n"
                  + kRule + "测试结束\nQ7TESTEND");
    EXPECT_EQ(got.records.size(), 120u);
    EXPECT_EQ(got.said(),
              "现在测试电口网络\n现在测试光口网络\n"
              "后面板上面的USB口插着的U盘是3.0U盘\n后面板下面的USB口插着的U盘是3.0U盘\n"
              "3.0usb插3.0U盘测试成功,请在10s内将2.0U盘插入3.0usb进行测试\n"
              "后面板上面的USB口插着的U盘是2.0U盘或者鼠标\n"
              "后面板下面的USB口插着的U盘是3.0U盘\nminiSAS口正常\n");
    EXPECT_THAT(got.calls("/var/q7.fifo"), EndsWith("close(4)\n"));
    EXPECT_EQ(got.count("remove"), 0);
    EXPECT_EQ(got.world->control.watchdog_expires, sim::kNever);
    EXPECT_EQ(got.changes("line", "4=0").size(), 9u);  // three beeps, three times
    EXPECT_NEAR(got.end_s, 53.21, 1e-3);
}

TEST(Sequence, FailedRemovalIsSaidAndTheBoardRestartsAllTheSame) {
    for (const std::string path : {"/dav2/devCfg.bin", "/dav2/devCfg_backup.bin"}) {
        const Outcome got = run("", "files.'" + path + "'.present = false");
        EXPECT_THAT(got.console, EndsWith(kRestart + ("remove " + path) + " ERROR\n"));
        EXPECT_EQ(got.count("remove"), 2);
        EXPECT_TRUE(restarts_in_5_s(got));
    }
}

// One board a fault: the summary names that item alone, in both modes.
TEST(Sequence, FaultyItemIsNamedAloneAndTheConfigurationStays) {
    const auto expect = [](const char* defect, const std::string& shown, const char* record,
                           int usb_ports = 4, int sata_disks = 5) {
        SCOPED_TRACE(defect);
        Outcome got = run("", defect);
        EXPECT_THAT(got.console,
                    EndsWith(counts(usb_ports, sata_disks) + shown + kRule + "测试结束\n"));
        EXPECT_EQ(got.count("remove"), 0);
        EXPECT_EQ(got.world->control.watchdog_expires, sim::kNever);
        EXPECT_EQ(got.status, 0);

        got = run("netQ7test", defect);
        std::string faults;
        for (const std::string& text : got.records) {
            if (text.ends_with("失败  \n") || text.ends_with("无连接\n")) faults += text;
        }
        EXPECT_EQ(faults, record);
        const bool minisas = shown == "miniSAS口异常\n";
        EXPECT_THAT(got.console, EndsWith(minisas ? shown : "miniSAS口正常\n"));
        EXPECT_EQ(got.records.back(), "Q7TESTEND");
    };
    expect("ports.eth3.fibre.speed = 100", "网络状态    : error occured!  \n",
           "网络状态      : 失败  \n");
    expect("rs485.corrupt = [0]", "485口       : error occured!  \n", "485口       : 失败  \n");
    expect("alarm.dead = [16]", "报警口      : error occured!  \n", "报警口      : 失败  \n");
    expect("rtc.offset = 60", "Rtc时钟     : error occured!  \n", "");
    expect("usb.disks.msd1.present = false", "USB口       : error occured!  \n",
           "USB口       : 失败  \n", 3);
    expect("disks.sdc.present = false", "SATA口      : 端口3无连接\n",
           "SATA口       : 端口3无连接\n", 4, 4);
    expect("hardware.minisas = 1", "miniSAS口异常\n", "");
}

// A step that does not run gets no number.
TEST(Sequence, ConditionalStepsAreNumberedAsTheyRun) {
    const auto expect = [](const char* changes, const char* steps) {
        const Outcome got = run("", changes);
        EXPECT_THAT(got.console, testing::ContainsRegex(steps));
        EXPECT_THAT(got.console, EndsWith(kRestart));
    };
    // This type has no RS-485 step and, where line 25 is high, no alarm step either.
    expect("control.boot_device_type = 0x4497", "第3步:报警.*\n第5步:\nUSB.*第7步:CPLD");
    expect("control = {boot_device_type = 0x4497, high_lines = [25]}",
           "\n\n第3步:开始.*\n第4步:\nUSB.*第6步:CPLD");
    expect("faults = [{request = 0x10}]",
           "\n\nioctl ZEBIO_GET_BOOT_PARMS error\n第3步:开始.*\n第6步:485测试\n");
}

// A line typed ahead is discarded; otherwise the console is watched for a second.
TEST(Sequence, FlushesTheConsoleBeforeAStep) {
    const Outcome got = run("", "operator.lines = [{at = 20, text = \"typed ahead\\n\"}]");
    EXPECT_NEAR(run("").end_s - got.end_s, 1.0, 1e-6);
}

TEST(Sequence, CostsLittleRealTime) {
    auto best = std::chrono::steady_clock::duration::max();
    for (int i = 0; i < 20; ++i) {
        const auto start = std::chrono::steady_clock::now();
        run("");
        best = std::min(best, std::chrono::steady_clock::now() - start);
    }
    EXPECT_LT(best, std::chrono::milliseconds(20));
}

}  // namespace
