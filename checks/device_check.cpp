#include "checks/harness.h"
#include "device/boot_parameters.h"
#include "device/buzzer.h"
#include "device/capability.h"
#include "device/hardware_info.h"
#include "platform/platform.h"
#include "tests/boardinfo.h"

namespace {

using namespace checks;

TEST(SysInit, DerivesTheTableFromTheDescription) {
    Board board = healthy();
    const auto table = [&] { return run(board, "-h").capability; };
    EXPECT_EQ(table(), (Capability{1, 4, 4, 4, 16, 5, 1, 0, 1}));

    board.hardware = sim::preset_hardware();
    for (const auto& [field, value] : {std::pair("channels", 15u),
                                       {"alarm_inputs", 255u},
                                       {"alarm_outputs", 127u},
                                       {"esata", 3u},
                                       {"minisas", 3u}}) {
        board.hardware.at(field) = value;
    }
    EXPECT_EQ(table(), (Capability{1, 4, 15, 127, 255, 0, 3, 3, 1}));

    const int usb[] = {4, 4, 3, 4};
    for (std::uint8_t code = 0; code < 4; ++code) {
        board.hardware.at("usb_layout") = code;
        EXPECT_EQ(table().usb, static_cast<unsigned>(usb[code]));
    }
    const int sata[] = {0, 1, 2, 3, 4, 5, 8, 9, 17, 18, 25, 0, 0, 0, 0, 0};
    for (std::uint8_t code = 0; code < 16; ++code) {
        board.hardware.at("sata_layout") = code;
        EXPECT_EQ(table().sata, sata[code]);
    }
}

TEST(SysInit, KeepsTheInitialTableWhenTheDescriptionCannotBeRead) {
    const Capability initial{1, 0, 1, 0, 0, 0, 1, 0, 0};
    Board board = healthy();
    board.faults = {failing_request(0x04)};
    Board undescribed = healthy();
    undescribed.hardware.at("presence") = 0xFFFF;
    Board missing = healthy();
    missing.control.present = false;
    for (const auto& [each, printed, closes] :
         {std::tuple(board, "参数非法\n", 1), std::tuple(undescribed, "参数非法\n", 1),
          std::tuple(missing, "sysInit 1 Fatal\n参数非法\n", 0)}) {
        const Outcome got = run(each, "1 2");
        EXPECT_EQ(got.capability, initial);
        EXPECT_EQ(got.console, printed);
        EXPECT_EQ(got.count("close", "/dev/zebio"), closes);
    }
}

TEST(HardwareInfo, EachFieldComesFromItsBits) {
    Board board = healthy();
    board.hardware = {{"board_word", 0x89ABCDEF}, {"presence", 0x1234},
                      {"model", 0x9664},          {"cpld_date", 0xFEDC},
                      {"memory_15_13", 5},        {"arm_frequency", 1},
                      {"memory_frequency", 0},    {"memory_size", 6},
                      {"flash_type", 1},          {"flash_size", 2},
                      {"memory_4_3", 1},          {"memory_2_0", 3},
                      {"second_15_12", 9},        {"second_11_8", 6},
                      {"channels", 13},           {"sata_layout", 10},
                      {"fitting_11_10", 1},       {"usb_layout", 2},
                      {"panel_type", 1},          {"fitting_6_5", 2},
                      {"device_type", 1},         {"esata", 2},
                      {"fitting_0", 1},           {"alarm_inputs", 0x10},
                      {"alarm_outputs", 0x7F},    {"minisas", 2},
                      {"storage_13_12", 1},       {"storage_11_9", 5},
                      {"storage_8_6", 3}};
    const Outcome got = run_piece(board, [] {
        HardwareInfo info{};
        const int control = platform::open("/dev/zebio", 2);
        EXPECT_EQ(read_hardware_info(control, &info), 0);
        std::printf("%x %x %x %x %x / ", info.valid, info.board_word, info.presence,
                    info.model_code, info.cpld_date);
        for (const int field :
             {info.memory_15_13,  info.arm_frequency, info.memory_frequency, info.memory_size,
              info.flash_type,    info.flash_size,    info.memory_4_3,       info.memory_2_0,
              info.second_15_12,  info.second_11_8,   info.channel_count,    info.sata_layout,
              info.fitting_11_10, info.usb_layout,    info.panel_type,       info.fitting_6_5,
              info.device_type,   info.esata_count,   info.fitting_0,        info.alarm_inputs,
              info.alarm_outputs, info.minisas_count, info.storage_13_12,    info.storage_11_9,
              info.storage_8_6}) {
            std::printf("%d ", field);
        }
        std::printf("/ %d %d", read_hardware_info(-1, &info), read_hardware_info(control, nullptr));
    });
    EXPECT_EQ(got.console,
              "3f 89abcdef 1234 9664 fedc / 5 1 0 6 1 2 1 3 9 6 13 10 1 2 1 2 1 2 1 16 127 2 1 5 3 "
              "/ -1 -1");
}

TEST(Buzzer, SoundsAtExactInstantsAndEndsSilent) {
    const Outcome got = run(healthy(), "-o 2");
    EXPECT_THAT(got.changes("line", "4=0"), ElementsAre(2.1, 2.5, 2.9));
    EXPECT_THAT(got.changes("line", "4=1"), ElementsAre(2.3, 2.7, 3.1));
    EXPECT_DOUBLE_EQ(got.end_s, 3.3);
    EXPECT_THAT(got.calls("/dev/zebio"),
                EndsWith("2.100 open(2)\n2.100 ioctl 0x3(4)\n2.100 ioctl 0x1(4)\n"
                         "2.300 ioctl 0x1(260)\n2.500 ioctl 0x1(4)\n2.700 ioctl 0x1(260)\n"
                         "2.900 ioctl 0x1(4)\n3.100 ioctl 0x1(260)\n3.300 close(5)\n"));
}

TEST(Buzzer, WithoutControlDeviceCountSaysSoAndLevelIssuesItsRequests) {
    const Outcome got = run_piece({}, [] {
        buzzer(0);
        buzzer(-1);
        buzzer(2);
        buzzer_level(BuzzerLevel::sounding);
    });
    EXPECT_EQ(got.console, "open hwInfo error!\n");
    EXPECT_EQ(got.calls("*"),
              "0.000 open(2) ENOENT\n0.000 open(2) ENOENT\n"
              "0.000 ioctl 0x3(4) EBADF\n0.000 ioctl 0x1(4) EBADF\n0.000 exit(0)\n");
}

TEST(BootParameters, DecideTheAlarmAndRs485Steps) {
    const struct {
        unsigned device_type;
        bool line_25_high;
        const char* result;  // returned, RS-485 step flag, alarm I/O presence flag
    } rows[] = {
        {0x1234, true, "1 1 1"},  {0x0000, false, "1 1 1"}, {0x4486, false, "1 1 1"},
        {0x4487, false, "1 0 1"}, {0x448F, false, "1 0 1"}, {0x4497, false, "1 0 1"},
        {0x449F, false, "1 0 1"}, {0x4487, true, "0 0 0"},  {0x448F, true, "0 0 0"},
        {0x4497, true, "0 0 0"},  {0x449F, true, "0 0 0"},
    };
    const auto check = [] {
        const int result = check_boot_parameters(platform::open("/dev/zebio", 2));
        std::printf("%d %d %d", result, g_rs485_step, g_alarm_io_present);
    };
    for (const auto& row : rows) {
        Board board = bare_board();
        board.control.boot_device_type = static_cast<std::uint16_t>(row.device_type);
        if (row.line_25_high) board.control.high_lines = {25};
        const Outcome got = run_piece(board, check);
        EXPECT_EQ(got.console, row.result) << std::hex << row.device_type;
        const bool asks_line = got.console[2] == '0';
        EXPECT_EQ(got.calls("/dev/zebio"),
                  std::string("0.000 open(2)\n0.000 ioctl 0x10(0)\n")
                      + (asks_line ? "0.000 ioctl 0x3(281)\n0.000 ioctl 0x6(25)\n" : ""));
    }
    Board unreadable = bare_board();
    unreadable.faults = {failing_request(0x10)};
    EXPECT_EQ(run_piece(unreadable, check).console, "ioctl ZEBIO_GET_BOOT_PARMS error\n0 1 0");
}

TEST(BoardInfo, ShowsWhatTheCodesMean) {
    Board board = healthy();
    const std::string shown = std::string(kStartLine) + "no kill avcore\n";
    EXPECT_EQ(run(board, "-o 1").console, shown +
              "\n设备类型 : QM-45270(DVR)\n面板类型:带LCD按键面板\nARM主频  : 1.3G\n"
              "内存频率 : 667MHz\n内存大小 : 3GB\nFLASH大小: 2MB+256MB\n"
              "CPLD版本 : 2013年07月15日\n");

    board.hardware.at("device_type") = 2;
    for (const char* field :
         {"panel_type", "arm_frequency", "memory_frequency", "memory_size", "flash_size"}) {
        board.hardware.at(field) = 1;
    }
    board.hardware.at("cpld_date") = 0xFFFF;
    EXPECT_THAT(run(board, "-o 1").console,
                EndsWith("\n设备类型 : QM-45270(NVR)\n面板类型:不带LCD按键面板\nARM主频  : 1.6G\n"
                         "内存频率 : 800MHz\n内存大小 : N/A\nFLASH大小: N/A\n"
                         "CPLD版本 : 20315年15月315日\n"));

    board.hardware.at("model") = 0x9664;
    board.hardware.at("cpld_date") = 0;
    const char* suffixes[] = {"DVR", "DVS", "NVR", "DVR"};
    for (std::uint8_t type = 0; type < 4; ++type) {
        board.hardware.at("device_type") = type;
        const Outcome got = run(board, "-o 1");
        EXPECT_THAT(got.console, HasSubstr(std::string("avcore\n无法识别的CPLD信息(QM9664)\n\n"
                                                       "设备类型 : QM9664(")
                                           + suffixes[type] + ")\n"));
        EXPECT_THAT(got.console, EndsWith("CPLD版本 : 2000年00月00日\n"));
    }
    board.hardware.at("model") = 0x0A;
    EXPECT_THAT(run(board, "-o 1").console, HasSubstr("(QM000A)\n"));
}

TEST(BoardInfo, ReadsAnewEachTimeAndRefreshesTheTable) {
    Board board = healthy();
    board.faults = {failing_request(0x04)};  // at start: the table keeps its initial values
    const Outcome got = run(board, "-o 1 2");
    EXPECT_EQ(got.capability, (Capability{1, 0, 4, 4, 16, 0, 1, 0, 0}));
    EXPECT_EQ(got.count("ioctl", "/dev/zebio"), 5);
    EXPECT_THAT(got.calls("/dev/zebio"),
                EndsWith("2.100 open(2)\n2.100 ioctl 0x4(0)\n2.200 close(4)\n"));
}

TEST(BoardInfo, FailuresShowNothingAndLeaveTheTable) {
    Board vanished = healthy();
    vanished.faults = {failing("open", "/dev/zebio", 3)};
    Board unreadable = healthy();
    unreadable.faults = {failing_request(0x04, 2)};
    for (const auto& [board, shown] :
         {std::pair(vanished, "avcore\nsysInit 1 Fatal\n"), std::pair(unreadable, "avcore\n")}) {
        const Outcome got = run(board, "-o 1");
        EXPECT_THAT(got.console, EndsWith(shown));
        EXPECT_EQ(got.capability, (Capability{1, 4, 4, 4, 16, 5, 1, 0, 1}));
    }
}

TEST(BoardInfo, ShowsAlarmIoOnlyWhereTheBootParametersSaySo) {
    const Outcome got = run_piece(healthy(), [] {
        g_alarm_io_present = 1;
        board_info_test();
    });
    EXPECT_THAT(got.console, EndsWith("报警 I/O : 16/4\n"));
}

}  // namespace
