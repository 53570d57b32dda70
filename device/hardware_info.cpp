#include "device/hardware_info.h"

#include <array>

#include "device/control_device.h"
#include "device/little_endian.h"

namespace {

using RawBlock = std::array<std::uint8_t, 256>;

constexpr std::uint16_t kNoDescription = 0xFFFF;  // in the presence word
constexpr std::uint16_t kAllValid = 0x3F;

std::uint8_t field(unsigned word, unsigned high, unsigned low) {
    return static_cast<std::uint8_t>(bits(word, high, low));
}

void decode(const RawBlock& raw, HardwareInfo& info) {
    info.board_word = word_at(&raw[0]);
    info.presence = half_word_at(&raw[4]);
    info.model_code = half_word_at(&raw[14]);
    info.cpld_date = half_word_at(&raw[20]);

    const unsigned memory = half_word_at(&raw[16]);
    info.memory_15_13 = field(memory, 15, 13);
    info.arm_frequency = field(memory, 12, 12);
    info.memory_frequency = field(memory, 11, 11);
    info.memory_size = field(memory, 10, 8);
    info.flash_type = field(memory, 7, 7);
    info.flash_size = field(memory, 6, 5);
    info.memory_4_3 = field(memory, 4, 3);
    info.memory_2_0 = field(memory, 2, 0);

    const unsigned second = half_word_at(&raw[18]);
    info.second_15_12 = field(second, 15, 12);
    info.second_11_8 = field(second, 11, 8);

    info.channel_count = field(raw[24], 3, 0);

    const unsigned fitting = half_word_at(&raw[26]);
    info.sata_layout = field(fitting, 15, 12);
    info.fitting_11_10 = field(fitting, 11, 10);
    info.usb_layout = field(fitting, 9, 8);
    info.panel_type = field(fitting, 7, 7);
    info.fitting_6_5 = field(fitting, 6, 5);
    info.device_type = field(fitting, 4, 3);
    info.esata_count = field(fitting, 2, 1);
    info.fitting_0 = field(fitting, 0, 0);

    const unsigned alarm = half_word_at(&raw[28]);
    info.alarm_inputs = field(alarm, 15, 8);
    info.alarm_outputs = field(alarm, 6, 0);

    const unsigned storage = half_word_at(&raw[32]);
    info.minisas_count = field(storage, 15, 14);
    info.storage_13_12 = field(storage, 13, 12);
    info.storage_11_9 = field(storage, 11, 9);
    info.storage_8_6 = field(storage, 8, 6);
}

}  // namespace

int read_hardware_info(int control, HardwareInfo* info) {
    if (control == -1 || info == nullptr) return -1;
    RawBlock raw{};
    *info = {};
    if (platform::ioctl(control, ZEBIO_GET_HW_INFO, raw.data()) != 0) return -1;
    if (half_word_at(&raw[4]) == kNoDescription) return -1;
    decode(raw, *info);
    info->valid |= kAllValid;
    return 0;
}
