#include <algorithm>
#include <iterator>

#include "checks/harness.h"
#include "device/boot_parameters.h"
#include "device/buzzer.h"
#include "device/capability.h"
#include "device/hardware_info.h"
#include "platform/platform.h"

namespace {

using namespace checks;

TEST(SysInit, DerivesTheTableFromTheDescription) {
    const auto table = [](const std::string& hardware) {
        return run("-h", "hardware = {" + hardware + "}").capability;
    };
    EXPECT_EQ(table("channels = 15, alarm_inputs = 255, alarm_outputs = 127, esata = 3, "
                    "minisas = 3, sata_layout = 1"),
              (Capability{1, 4, 15, 127, 255, 1, 3, 3, 1}));
    const unsigned usb[] = {4, 4, 3, 4};
    for (std::size_t code = 0; code < std::size(usb); ++code)
        EXPECT_EQ(table("usb_layout = " + std::to_string(code)).usb, usb[code]);
    const int sata[] = {0, 1, 2, 3, 4, 5, 8, 9, 17, 18, 25, 0, 0, 0, 0, 0};
    for (std::size_t code = 0; code < std::size(sata); ++code)
        EXPECT_EQ(table("sata_layout = " + std::to_string(code)).sata, sata[code]);
}

TEST(SysInit, KeepsTheInitialTableWhenTheDescriptionCannotBeRead) {
    const auto expect = [](const char* change, const char* printed, int closes) {
        const Outcome got = run("1 2", change);
        EXPECT_EQ(got.capability, (Capability{1, 0, 1, 0, 0, 0, 1, 0, 0})) << change;
        EXPECT_EQ(got.console, printed);
        EXPECT_EQ(got.count("close", "/dev/zebio"), closes);
    };
    expect("faults = [{request = 0x04}]", "参数非法\n", 1);
    expect("hardware.presence = 0xFFFF", "参数非法\n", 1);
    expect("control.present = false", "sysInit 1 Fatal\n参数非法\n", 0);
    const auto show_result = [] { std::printf("%d", sysInit()); };
    EXPECT_THAT(run_piece(healthy(), show_result).console, EndsWith("\n0"));
    EXPECT_THAT(run_piece(healthy("hardware.presence = 0xFFFF"), show_result).console,
                StartsWith("-"));
}

// Prints the fields that are not 0, by letter in their order: "h1 ".
void print_fields(const HardwareInfo& info) {
    char letter = 'a';
    for (const unsigned field :
         {info.memory_15_13,  info.arm_frequency, info.memory_frequency, info.memory_size,
          info.flash_type,    info.flash_size,    info.memory_4_3,       info.memory_2_0,
          info.second_15_12,  info.second_11_8,   info.channel_count,    info.sata_layout,
          info.fitting_11_10, info.usb_layout,    info.panel_type,       info.fitting_6_5,
          info.device_type,   info.esata_count,   info.fitting_0,        info.alarm_inputs,
          info.alarm_outputs, info.minisas_count, info.storage_13_12,    info.storage_11_9,
          info.storage_8_6}) {
        if (field != 0) std::printf("%c%x ", letter, field);
        ++letter;
    }
}

// Each bit of the words in turn, from the lowest: a field that is too wide or in the wrong place
// shows another's bit, one that is too narrow loses its own.
TEST(HardwareInfo, EachBitShowsInItsFieldAlone) {
    const std::pair<const char*, const char*> rows[] = {
        {"memory", "h1 h2 h4 g1 g2 - - e1 - - - - - a1 a2 a4 "},
        {"arm_frequency", "b1 "},
        {"memory_frequency", "c1 "},
        {"memory_size", "d1 d2 d4 "},
        {"flash_size", "f1 f2 "},
        {"second", "- - - - - - - - j1 j2 j4 j8 i1 i2 i4 i8 "},
        {"channels", "k1 k2 k4 k8 "},
        {"fitting", "s1 - - - - p1 p2 - - - m1 m2 - - - - "},
        {"sata_layout", "l1 l2 l4 l8 "},
        {"usb_layout", "n1 n2 "},
        {"panel_type", "o1 "},
        {"device_type", "q1 q2 "},
        {"esata", "r1 r2 "},
        {"alarm_inputs", "t1 t2 t4 t8 t10 t20 t40 t80 "},
        {"alarm_outputs", "u1 u2 u4 u8 u10 u20 u40 "},
        {"storage", "- - - - - - y1 y2 y4 x1 x2 x4 w1 w2 - - "},
        {"minisas", "v1 v2 "},
    };
    Board board = healthy();
    for (auto& [key, value] : board.hardware)
        if (key != "presence") value = 0;
    for (const auto& [key, expected] : rows) {
        std::string shown;
        for (std::ptrdiff_t bit = 0; bit < std::ranges::count(std::string(expected), ' '); ++bit) {
            board.hardware.at(key) = 1u << bit;
            const Outcome got = run_piece(board, [] {
                HardwareInfo info{};
                read_hardware_info(platform::open("/dev/zebio", 2), &info);
                print_fields(info);
            });
            shown += got.console.empty() ? "- " : got.console;
        }
        board.hardware.at(key) = 0;
        EXPECT_EQ(shown, expected) << key;
    }
}

TEST(HardwareInfo, WholeWordsAndFailures) {
    const Board board = healthy(
        "hardware = {board_word = 0x89ABCDEF, presence = 0x1234, "
        "model = 0x9664, cpld_date = 0xFEDC}");
    const Outcome got = run_piece(board, [] {
        HardwareInfo info{};
        const int control = platform::open("/dev/zebio", 2);
        std::printf("%d: ", read_hardware_info(control, &info));
        std::printf("%x %x %x %x %x ", info.valid, info.board_word, info.presence, info.model_code,
                    info.cpld_date);
        std::printf("%d %d", read_hardware_info(-1, &info), read_hardware_info(control, nullptr));
    });
    EXPECT_EQ(got.console, "0: 3f 89abcdef 1234 9664 fedc -1 -1");
}

TEST(Buzzer, SoundsAtExactInstantsAndEndsSilent) {
    EXPECT_THAT(run("-o 2").calls("/dev/zebio"),
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
    // Result, RS-485 step flag, alarm I/O presence flag; calls.
    const auto check = [](const std::string& changes) {
        const Outcome got = run_piece(healthy(changes), [] {
            const int result = check_boot_parameters(platform::open("/dev/zebio", 2));
            std::printf("%d %d %d\n", result, g_rs485_step, g_alarm_io_present);
        });
        return got.console + got.calls("/dev/zebio");
    };
    const std::string high = "control = {high_lines = [25], boot_device_type = ",
                      low = "control = {boot_device_type = ",
                      reads = "0.000 open(2)\n0.000 ioctl 0x10(0)\n",
                      asks_line = reads + "0.000 ioctl 0x3(281)\n0.000 ioctl 0x6(25)\n";
    for (const char* type : {"0x1234}", "0x0000}", "0x4486}"})
        EXPECT_EQ(check(high + type), "1 1 1\n" + reads) << type;
    for (const char* type : {"0x4487}", "0x448F}", "0x4497}", "0x449F}"}) {
        EXPECT_EQ(check(low + type), "1 0 1\n" + asks_line) << type;
        EXPECT_EQ(check(high + type), "0 0 0\n" + asks_line) << type;
    }
    EXPECT_THAT(check("faults = [{request = 0x10}]"),
                StartsWith("ioctl ZEBIO_GET_BOOT_PARMS error\n0 1 0\n"));
}

TEST(BoardInfo, RefreshesTheTableWhereTheStartCouldNotRead) {
    const Outcome got = run("-o 1", "faults = [{request = 0x04}]");
    EXPECT_EQ(got.capability, (Capability{1, 0, 4, 4, 16, 0, 1, 0, 0}));
}

}  // namespace
