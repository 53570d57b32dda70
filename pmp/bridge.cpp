#include "pmp/bridge.h"

#include <array>
#include <cerrno>

#include "device/control_device.h"
#include "device/little_endian.h"
#include "platform/print.h"

BridgeAccess g_bridge{-1, 0, 0, 0, 0, 0, -1, 0};
std::uint8_t g_pm_port = 0x0F;

namespace {

constexpr std::uint32_t kBridgeRequest = 0x197B;
constexpr std::uint16_t kReadRegister = 0x0084;

// The 16 bytes of a request: taskfile registers, then the exp registers of 48-bit addressing.
enum RegisterByte : std::size_t {
    kFeatures = 1,     // command word, low byte
    kSectorCount = 2,  // data word, bytes 2 to 5
    kDevice = 6,
    kCommand = 7,
    kFeaturesExp = 9,     // command word, high byte
    kSectorCountExp = 10  // address word, bytes 10 to 13
};
using RegisterBlock = std::array<std::uint8_t, 16>;

constexpr std::uint8_t kReadPortMultiplier = 0xE4;
constexpr std::uint8_t kSpiTransfer = 0xF7;

// SPI opcode in the low byte, the bridge's transfer code for it in the high byte.
enum SpiCommand : std::uint16_t {
    kWriteEnable = 0x0006,
    kReadStatus = 0x0805,
    kWriteStatus = 0x0401,
    kReadData = 0xE903,
    kChipErase = 0x00C7,
    kPageProgram = 0xE502
};

// Keeps the errno of the request, which the caller prints again.
void print_failure(const char* routine, const char* what) {
    const int saved_errno = errno;
    print("ERR : %s, %s fail (%d)\n", routine, what, saved_errno);
    errno = saved_errno;
}

int spi(SpiCommand command, const char* routine) {
    g_bridge.command = command;
    const int result = pmprw(kSpiCommand);
    if (result < 0) print_failure(routine, "spi JMB39X");
    return result;
}

}  // namespace

int pmprw(BridgeMode mode) {
    const bool reads_register = mode == kRegisterRead;
    RegisterBlock block{};
    block[kFeatures] = static_cast<std::uint8_t>(g_bridge.command);
    block[kFeaturesExp] = static_cast<std::uint8_t>(g_bridge.command >> 8);
    put_word(&block[kSectorCount], g_bridge.data);
    put_word(&block[kSectorCountExp], g_bridge.address);
    const std::uint8_t unit = reads_register ? g_pm_port : g_bridge.flash;
    block[kDevice] = static_cast<std::uint8_t>(0x80 | (unit & 0x7F));
    block[kCommand] = reads_register ? kReadPortMultiplier : kSpiTransfer;
    const int result = platform::ioctl(g_bridge.disk, kBridgeRequest, block.data());
    g_bridge.data = word_at(&block[kSectorCount]);
    g_bridge.address = word_at(&block[kSectorCountExp]);
    if (result < 0) print_failure("pmprw", "ioctl");
    return result;
}

int read_bridge_register(std::uint32_t address) {
    g_pm_port = 0x0F;
    g_bridge.command = kReadRegister;
    g_bridge.address = address;
    return pmprw(kRegisterRead);
}

int spiWREN() { return spi(kWriteEnable, "spiWREN"); }

int spiRDSR() { return spi(kReadStatus, "spiRDSR"); }

int spiWRSR(std::uint32_t value) {
    g_bridge.data = value;
    return spi(kWriteStatus, "spiWRSR");
}

int spiREAD(std::uint32_t address) {
    g_bridge.address = address;
    return spi(kReadData, "spiREAD");
}

int spiCE() { return spi(kChipErase, "spiCE"); }

int spiPP(std::uint32_t address, std::uint32_t word) {
    g_bridge.address = address;
    g_bridge.data = word;
    return spi(kPageProgram, "spiPP");
}

int pmpreset(std::uint32_t selector) {
    print_line("update the firmware success, now reset the jmb321!\r");
    const platform::Descriptor control = open_control_device();
    platform::ioctl_value(control.get(), ZEBIO_RESET_PMP, selector);
    return 0;
}
