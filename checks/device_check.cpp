#include <bit>
#include <iterator>
#include <sstream>

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

// The fields that are narrower than their word, in its order.
std::vector<unsigned> fields_of_bits(const HardwareInfo& info) {
    return {info.memory_15_13,  info.arm_frequency, info.memory_frequency, info.memory_size,
            info.flash_type,    info.flash_size,    info.memory_4_3,       info.memory_2_0,
            info.second_15_12,  info.second_11_8,   info.channel_count,    info.sata_layout,
            info.fitting_11_10, info.usb_layout,    info.panel_type,       info.fitting_6_5,
            info.device_type,   info.esata_count,   info.fitting_0,        info.alarm_inputs,
            info.alarm_outputs, info.minisas_count, info.storage_13_12,    info.storage_11_9,
            info.storage_8_6};
}

void print(const std::vector<unsigned>& values) {
    for (const unsigned value : values)
        std::printf("%x ", value);
}

TEST(HardwareInfo, EachFieldComesFromItsBits) {
    const Board board = healthy(
        "hardware = {board_word = 0x89ABCDEF, presence = 0x1234, model = 0x9664, "
        "cpld_date = 0xFEDC, memory = 0xA08B, arm_frequency = 1, memory_frequency = 0, "
        "memory_size = 6, flash_size = 2, second = 0x9600, channels = 13, fitting = 0x0441, "
        "sata_layout = 10, usb_layout = 2, panel_type = 1, device_type = 1, esata = 2, "
        "alarm_inputs = 0x10, alarm_outputs = 0x7F, storage = 0x1AC0, minisas = 2}");
    const Outcome got = run_piece(board, [] {
        HardwareInfo info{};
        const int control = platform::open("/dev/zebio", 2);
        std::printf("%d: ", read_hardware_info(control, &info));
        print({info.valid, info.board_word, info.presence, info.model_code, info.cpld_date});
        print(fields_of_bits(info));
        std::printf("%d %d", read_hardware_info(-1, &info), read_hardware_info(control, nullptr));
    });
    EXPECT_EQ(got.console,
              "0: 3f 89abcdef 1234 9664 fedc 5 1 0 6 1 2 1 3 9 6 d a 1 2 1 2 1 2 1 10 7f "
              "2 1 5 3 -1 -1");
}

std::vector<unsigned> decoded_fields(const Board& board) {
    const Outcome got = run_piece(board, [] {
        HardwareInfo info{};
        read_hardware_info(platform::open("/dev/zebio", 2), &info);
        print(fields_of_bits(info));
    });
    std::istringstream text(got.console);
    text >> std::hex;
    return {std::istream_iterator<unsigned>(text), {}};
}

// A field that is a bit too wide shows its neighbour's bit, one too narrow loses its own.
TEST(HardwareInfo, EachBitShowsInOneFieldAlone) {
    Board board = healthy();
    for (auto& [key, value] : board.hardware)
        if (key != "presence" && key != "model") value = 0;
    const std::vector<unsigned> none = decoded_fields(board);
    EXPECT_EQ(none, std::vector<unsigned>(25, 0));
    int shown = 0;
    for (const sim::HardwareField& field : sim::kHardwareFields) {
        if (field.offset < 16 || std::string(field.key) == "cpld_date") continue;
        for (int bit = 0; bit <= field.high - field.low; ++bit) {
            board.hardware.at(field.key) = 1u << bit;
            std::vector<unsigned> fields = decoded_fields(board);
            board.hardware.at(field.key) = 0;
            fields.erase(std::remove(fields.begin(), fields.end(), 0u), fields.end());
            ASSERT_LE(fields.size(), 1u) << field.key << " " << bit;
            shown += static_cast<int>(fields.size());
            for (const unsigned value : fields)
                EXPECT_TRUE(std::has_single_bit(value)) << field.key;
        }
    }
    EXPECT_EQ(shown, 16 + 8 + 4 + 16 + 15 + 10);  // of the words at 16, 18, 24, 26, 28 and 32
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
