#include "driver/pmp_test.h"

#include <fcntl.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "device/capability.h"
#include "platform/print.h"
#include "pmp/bridge.h"
#include "pmp/pmpupdate.h"

namespace {

enum class Reset { at_once, after_all_disks };
enum class Search { first_that_opens, every_disk };

// How the disks of a board lie behind its bridges.
struct DiskLayout {
    int ports;
    std::size_t chips;
    const char* chip_of_disk;  // a digit for each disk from /dev/sda on
    Search search;
    Reset reset;
};

constexpr DiskLayout kLayouts[] = {
    {5, 1, "11111", Search::first_that_opens, Reset::at_once},
    {9, 2, "1111222212", Search::every_disk, Reset::at_once},
    {16, 4, "1111222233334444", Search::every_disk, Reset::after_all_disks},
};

// Selectors of the bridge reset.
constexpr std::uint32_t kFirstReset = 256;
constexpr std::uint32_t kSecondReset = 128;

struct Chip {
    enum State { passed = 0, error = 1, not_tested = 2 } state = not_tested;
    bool needs_reset = false;
};
using Chips = std::array<Chip, 4>;

const DiskLayout* layout_of_board() {
    for (const DiskLayout& layout : kLayouts) {
        if (layout.ports == g_sata_port_num) return &layout;
    }
    return nullptr;
}

platform::Descriptor open_disk(char letter) {
    char path[16];
    std::snprintf(path, sizeof path, "/dev/sd%c", letter);
    const int disk = platform::open(path, O_RDONLY);
    return platform::Descriptor(disk > 0 ? disk : -1);
}

void update_chip(Chip& chip, platform::Descriptor& disk) {
    chip.state = pmpupdate(disk) == 0 ? Chip::passed : Chip::error;
    chip.needs_reset = chip.state == Chip::passed && g_pmp_updated == 1;
}

void reset_if_needed(Chip& chip, std::uint32_t selector) {
    if (chip.needs_reset) pmpreset(selector);
    chip.needs_reset = false;
}

// Tries each disk until one opens: all lie behind the same bridge.
void update_by_first_disk(const DiskLayout& layout, Chip& chip) {
    for (std::size_t i = 0; i < std::strlen(layout.chip_of_disk); ++i) {
        const char letter = static_cast<char>('a' + i);
        platform::Descriptor disk = open_disk(letter);
        if (!disk.is_open()) {
            print("open /dev/sd%c fail!\n", letter);
            continue;
        }
        print("open /dev/sd%c success!\n", letter);
        update_chip(chip, disk);
        reset_if_needed(chip, kFirstReset);
        return;
    }
}

void update_by_every_disk(const DiskLayout& layout, Chips& chips) {
    for (std::size_t i = 0; i < std::strlen(layout.chip_of_disk); ++i) {
        const char letter = static_cast<char>('a' + i);
        const auto number = static_cast<std::size_t>(layout.chip_of_disk[i] - '0');
        Chip& chip = chips[number - 1];
        platform::Descriptor disk = open_disk(letter);
        if (!disk.is_open() || chip.state != Chip::not_tested) continue;
        print("test..%zu\r\n", number);
        print("open /dev/sd%c success!\n", letter);
        update_chip(chip, disk);
        if (layout.reset == Reset::at_once) {
            reset_if_needed(chip, number == 1 ? kFirstReset : kSecondReset);
        }
    }
}

// One reset for the first two bridges and one for the others.
void reset_pairs(Chips& chips) {
    if (chips[0].needs_reset || chips[1].needs_reset) pmpreset(kFirstReset);
    if (chips[2].needs_reset || chips[3].needs_reset) pmpreset(kSecondReset);
}

void print_table(const DiskLayout& layout, const Chips& chips) {
    constexpr const char* kWords[] = {"正常", "发生错误", "未进行测试"};
    print_line("测试结果如下");
    for (std::size_t i = 0; i < layout.chips; ++i) {
        print("Chip%zu %s\n", i + 1, kWords[chips[i].state]);
    }
}

}  // namespace

void pmp_test() {
    print("sata_port_num = %d \n", g_sata_port_num);
    const DiskLayout* layout = layout_of_board();
    if (layout == nullptr) {
        print("硬盘个数为%d,请检查CPLD是否正确烧写\n", g_sata_port_num);
        return;
    }
    Chips chips;
    if (layout->search == Search::first_that_opens) {
        update_by_first_disk(*layout, chips[0]);
    } else {
        update_by_every_disk(*layout, chips);
    }
    reset_pairs(chips);
    print_table(*layout, chips);
}
