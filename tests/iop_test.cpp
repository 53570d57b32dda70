#include "tests/iop_test.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <iterator>

#include "device/buzzer.h"
#include "device/capability.h"
#include "device/control_device.h"
#include "driver/report.h"
#include "driver/results.h"
#include "platform/print.h"
#include "tests/interrupt.h"

namespace {

constexpr char kModule[] = "iop_test";

// Of the fixture. Output value v, one set bit, drives the inputs v * factor. The first row that
// fits the board counts.
struct Wiring {
    std::uint32_t outputs;
    std::uint32_t inputs;  // kAnyInputs = whatever the board has
    std::uint32_t compared, factor;
    std::uint32_t shown;  // input bits in the report of a mismatch
};
constexpr std::uint32_t kAnyInputs = 0xFFFFFFFF;

constexpr Wiring kWirings[] = {
    // outputs  inputs  compared  factor  shown
    {2, kAnyInputs, 0x000F, 0x0005, 0xFFFFFFFF},
    {4, 16, 0xFFFF, 0x1111, 0xFFFFFFFF},
    {4, kAnyInputs, 0x00FF, 0x0011, 0x000000FF},
    {8, kAnyInputs, 0xFFFF, 0x0101, 0x0000FFFF},
};

// Of the current run; the interrupt handler prints them.
std::atomic<std::uint32_t> g_successes, g_failures;

void print_counts_and_die(int signal) {
    InterruptLine()
        .add("success is ")
        .add(g_successes)
        .add(", and error is ")
        .add(g_failures)
        .add("\n")
        .print();
    platform::signal(signal, SIG_DFL);
    platform::raise(signal);
}

const Wiring& wiring_of_board() {
    return *std::find_if(std::begin(kWirings), std::end(kWirings), [](const Wiring& wiring) {
        return wiring.outputs == g_iAlarmOutNum
               && (wiring.inputs == kAnyInputs || wiring.inputs == g_iAlarmInNum);
    });
}

void correct_output_count() {
    if (g_iAlarmOutNum == 2 || g_iAlarmOutNum == 4 || g_iAlarmOutNum == 8) return;
    report(kModule, "报警输出个数为%d,暂时不支持该个数,请检查CPLD信息是否正确\n", g_iAlarmOutNum);
    g_iAlarmOutNum = 4;
}

// Drives the outputs, gives the relays 2 seconds, and reads the inputs.
std::uint32_t inputs_under(int control, std::uint32_t outputs) {
    platform::write(control, &outputs, sizeof outputs);
    platform::sleep_ms(2000);
    std::uint32_t inputs = 0;  // the driver fills 16 bits of it
    if (platform::ioctl(control, ZEBIO_GET_ALARM_IN, &inputs) < 0) {
        report(kModule, "IOCTL ERROR\n");
    }
    return inputs;
}

void count_failure() {
    ++g_failures;
    results.alarm = 1;
}

void check_idle(int control) {
    const std::uint32_t inputs = inputs_under(control, 0);
    if (g_iAlarmInNum == 0) return;
    const std::uint32_t fitted = g_iAlarmInNum >= 32 ? 0xFFFFFFFF : (1u << g_iAlarmInNum) - 1;
    if ((inputs & fitted) != 0) {
        report(kModule, "\n 断开报警输出时, 报警输入为 %x ，报警输入应为 0\n", inputs);
        count_failure();
        return;
    }
    ++g_successes;
    report(kModule, "\n 断开报警输出时, 报警输入正常\n");
}

void sweep_outputs(int control) {
    const Wiring& wiring = wiring_of_board();
    for (std::uint32_t k = 0; k < wiring.outputs; ++k) {
        const std::uint32_t output = 1u << k;
        const std::uint32_t expected = output * wiring.factor;
        const std::uint32_t inputs = inputs_under(control, output);
        if ((inputs & wiring.compared) == expected) {
            ++g_successes;
            continue;
        }
        report(kModule, "\n 报警输出为 %x, 报警输入为 %x ，报警输入应为 %x\n", output,
               inputs & wiring.shown, expected);
        count_failure();
        buzzer(2);
    }
}

}  // namespace

int alarm_io_test() {
    g_successes = 0;
    g_failures = 0;
    correct_output_count();
    report(kModule, "报警输入有%d个,报警输出有%d个\n", g_iAlarmInNum, g_iAlarmOutNum);
    platform::signal(SIGINT, print_counts_and_die);
    const platform::Descriptor control = open_control_device();
    if (!control.is_open()) {
        print_line("open /dev/iop failed");
        return -1;
    }
    platform::ioctl_value(control.get(), ZEBIO_START_ALARM, 0);
    check_idle(control.get());
    sweep_outputs(control.get());
    report(kModule, "成功 %u, 失败 %u\n", g_successes.load(), g_failures.load());
    return static_cast<int>(g_failures);
}
