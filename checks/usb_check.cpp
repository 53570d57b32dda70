#include <sstream>

#include "checks/harness.h"
#include "tests/usb_disk_test.h"

namespace {

using namespace checks;
using Mount = sim::UsbDisk::Mount;

constexpr char kNoRearDisks[] = "后面板上面的USB口没有插U盘\n后面板下面的USB口没有插U盘\n";

Outcome run_test(const Board& board) { return run(board, "-o 7"); }

std::string said(const Outcome& got) {
    return got.console.substr(got.console.find("avcore\n") + 7);
}

sim::UsbDisk disk(const std::string& node, Mount mount = Mount::works) {
    sim::UsbDisk made;
    made.node = node;
    made.mount = mount;
    made.free_blocks = 1'000'000;
    return made;
}

Board board_with(const std::vector<sim::UsbDisk>& disks) {
    Board board = healthy();
    board.usb = {};
    board.usb.disks = disks;
    return board;
}

TEST(UsbNames, PartitionsReplaceTheirNeighbouringDisk) {
    const struct {
        const char* directory;
        const char* taken;
    } rows[] = {
        {"", ""},
        {"sda sda1 tty null", ""},
        {"msa", "msa"},
        {"msa1", "msa1"},
        {"msa msa1", "msa1"},
        {"msa1 msa", "msa1"},
        {"msa1 msa2", "msa2"},
        {"msa2 msa1", "msa1"},
        {"msa msa1 msa2", "msa2"},
        {"msa1 msb msa2", "msa1 msb msa2"},
        {"msa msb", "msa msb"},
        {"msb msa", "msb msa"},
        {"msa null msa1", "msa1"},  // what is not taken does not part neighbours
        {"msm msm1 msma", ""},
        {"ms", "ms"},
        {"ms ms", "ms ms"},
        {"msabc msa", "msabc msa"},  // the same disk, and neither has a digit
        {"msab1 msac2", "msac2"},
        {"xmsa Msa m s", ""},
        {"msa msb msc msd mse msf msg msh msi", "msa msb msc msd mse msf msg msh"},
        // Reading stops at the eighth name, even where its partition would follow.
        {"msa msb msc msd mse msf msg msh msh1", "msa msb msc msd mse msf msg msh"},
        {"msa msa1 msb msb1 msc msc1 msd msd1 mse1 msf1 msg1 msh1 msi1",
         "msa1 msb1 msc1 msd1 mse1 msf1 msg1 msh1"},
    };
    for (const auto& row : rows) {
        DiskNames disks{};
        std::istringstream directory(row.directory);
        for (std::string name; !disks.is_full() && directory >> name;) {
            take_disk_name(disks, name.c_str());
        }
        std::string taken;
        for (std::size_t i = 0; i < disks.count; ++i) {
            taken += (i > 0 ? " " : "") + std::string(disks.names[i]);
        }
        EXPECT_EQ(taken, row.taken) << row.directory;
    }
    DiskNames disks{};
    take_disk_name(disks, ("ms" + std::string(80, 'x')).c_str());
    EXPECT_EQ(std::string(disks.names[0]).size(), 49u);
    EXPECT_FALSE(has_digit(nullptr));
}

TEST(UsbTest, CountsMiceAndDisks) {
    const struct {
        std::uint32_t mice;
        std::vector<sim::UsbDisk> disks;
        unsigned found;
    } rows[] = {
        {0, {}, 0},
        {2, {}, 2},
        {5, {}, 3},  // mouse0 to mouse2 are looked for
        {2, {disk("msa"), disk("msa1"), disk("msb1")}, 4},
        {0,
         {disk("msa1"), disk("msb1"), disk("msc1"), disk("msd1"), disk("mse1"), disk("msf1"),
          disk("msg1"), disk("msh1"), disk("msi1")},
         8},
    };
    for (const auto& row : rows) {
        Board board = board_with(row.disks);
        board.usb.mice = row.mice;
        const Outcome got = run_test(board);
        EXPECT_EQ(got.results.usb_ports_found, row.found);
        EXPECT_EQ(said(got) == "没有接usb\n", row.disks.empty());
        EXPECT_EQ(got.count("closedir"), 1);
    }
}

TEST(UsbTest, ExaminesEachDiskInOrderAndLeavesNothingMounted) {
    const Outcome got = run_test(board_with({disk("msa1"), disk("msb1")}));
    EXPECT_EQ(said(got), "/dev/msa1 剩余空间 = 3884M\n/dev/msb1 剩余空间 = 3884M\n"
                             + std::string(kNoRearDisks));
    EXPECT_EQ(got.calls("/mnt/msa1"),
              "2.100 mkdir(0)\n2.300 statfs(0)\n2.300 umount(0)\n2.300 rmdir(0)\n");
    EXPECT_TRUE(got.nothing_is_mounted());
}

TEST(UsbTest, FreeSpaceAtItsEdges) {
    const struct {
        std::uint64_t blocks;
        std::uint32_t block_size;
        const char* shown;
    } rows[] = {
        {0, 4096, "0M"},
        {4'999, 4096, "0M"},
        {5'000, 4096, "0M"},
        {6'023, 4096, "0M"},  // not yet 1024 blocks
        {6'024, 4096, "4M"},
        {6'024, 512, "0M"},
        {7'048, 512, "1M"},
        {1'000'000, 4096, "3884M"},
        {1'000'000, 65536, "62144M"},
        {805'000, 1024, "781M"},
        {6'000'000'000, 512, "2929685M"},          // a disk beyond 2 TiB
        {2'200'000'000'000, 1024, "2148437495M"},  // as a signed 32-bit number, below
    };
    for (const auto& row : rows) {
        sim::UsbDisk each = disk("msa1");
        each.free_blocks = row.blocks;
        each.block_size = row.block_size;
        std::string shown = row.shown;
        if (shown == "2148437495M") shown = std::to_string(static_cast<int>(2'148'437'495u)) + "M";
        EXPECT_EQ(said(run_test(board_with({each}))),
                  "/dev/msa1 剩余空间 = " + shown + "\n" + kNoRearDisks)
            << row.blocks << " blocks of " << row.block_size;
    }
}

TEST(UsbTest, ShellIsAskedWhereTheCallsFail) {
    Board board = board_with({disk("msa1", Mount::by_shell)});
    board.usb.directories = {"/mnt/msa1"};
    const Outcome got = run_test(board);
    EXPECT_EQ(said(got), "/dev/msa1 剩余空间 = 3884M\n" + std::string(kNoRearDisks));
    EXPECT_EQ(got.count("system", "mkdir /mnt/msa1\n"), 1);
    EXPECT_EQ(got.count("system", "mount -t vfat /dev/msa1  /mnt/msa1\n"), 1);
    EXPECT_TRUE(got.nothing_is_mounted());
}

TEST(UsbTest, DiskThatNothingMountsIsJudgedOnTheHostsFileSystem) {
    const Outcome got = run_test(board_with({disk("msa1", Mount::never)}));
    EXPECT_EQ(said(got), "/dev/msa1 剩余空间 = 92M\n" + std::string(kNoRearDisks));
    EXPECT_EQ(got.results.usb_ports_found, 1u);
}

TEST(UsbTest, FailedStatisticsAreReportedAndTheDiskIsNotCounted) {
    Board board = board_with({disk("msa1"), disk("msb1")});
    board.faults = {failing("statfs", "/mnt/msa1")};
    const Outcome got = run_test(board);
    EXPECT_EQ(said(got),
              "Failed to statfs/dev/msb1 剩余空间 = 3884M\n" + std::string(kNoRearDisks));
    EXPECT_EQ(got.results.usb_ports_found, 1u);
    EXPECT_EQ(got.calls("/mnt/msa1"),
              "2.100 mkdir(0)\n2.300 statfs(0) EIO\n2.300 umount(0)\n");  // the directory stays
    EXPECT_TRUE(got.nothing_is_mounted());
}

TEST(UsbTest, UnreadableDeviceDirectoryCountsOne) {
    Board board = board_with({disk("msa1")});
    board.faults = {failing("opendir")};
    const Outcome got = run_test(board);
    EXPECT_EQ(said(got), "");
    EXPECT_EQ(got.errors, "/dev: Input/output error\n");
    EXPECT_EQ(got.results.usb_ports_found, 1u);
}

TEST(UsbTest, RearPortsAreClassifiedByTheirRootHub) {
    const struct {
        std::vector<std::string> devices;
        const char *upper, *lower;
    } rows[] = {
        {{}, "口没有插U盘", "口没有插U盘"},
        {{"4-1:1.0"}, "口插着的U盘是3.0U盘", "口没有插U盘"},
        {{"3-1:1.0", "3-2:1.0"}, "口插着的U盘是2.0U盘或者鼠标", "口插着的U盘是2.0U盘或者鼠标"},
        {{"3-1:1.0", "4-1:1.0", "4-2:1.0"}, "口插着的U盘是3.0U盘", "口插着的U盘是3.0U盘"},
        {{"4-3:1.0", "2-1:1.0"}, "口没有插U盘", "口没有插U盘"},
    };
    for (const auto& row : rows) {
        Board board = board_with({disk("msa1")});
        for (const std::string& name : row.devices)
            board.usb.devices.push_back({name, {}});
        EXPECT_THAT(said(run_test(board)), EndsWith(std::string("M\n后面板上面的USB") + row.upper
                                                    + "\n后面板下面的USB" + row.lower + "\n"));
    }
}

TEST(UsbTest, ShellIgnoresTheInterruptThatEndsItsCommand) {
    Board board = board_with({disk("msa1", Mount::by_shell)});
    board.person.interrupts = {2.35};  // while the shell mounts
    const Outcome got = run_test(board);
    EXPECT_EQ(got.signal, 0);
    EXPECT_EQ(said(got), "/dev/msa1 剩余空间 = 92M\n" + std::string(kNoRearDisks));
}

TEST(UsbStep, SecondRunFollowsItsPromptAtOnceWhenAllPortsWereFound) {
    const std::string prompt = "3.0usb插3.0U盘测试成功,请在10s内将2.0U盘插入3.0usb进行测试\n";
    Outcome got = run(healthy(), "");
    EXPECT_THAT(got.console, HasSubstr("口插着的U盘是3.0U盘\n" + prompt + "/dev/msa1 "));
    EXPECT_EQ(got.count("opendir"), 2);

    Board board = healthy();
    board.usb.disks.pop_back();
    got = run(board, "");
    EXPECT_EQ(got.console.find(prompt), std::string::npos);
    EXPECT_EQ(got.count("opendir"), 1);
    EXPECT_THAT(got.console, HasSubstr("USB口       : 3  \n"));

    // The second run counts anew: a stick that did not come back is a fault.
    board = healthy();
    board.usb.disks.back().presence.until_scan = 2;
    got = run(board, "");
    EXPECT_THAT(got.console, HasSubstr("USB口       : 3  \n"));
    EXPECT_THAT(got.console, HasSubstr("USB口       : error occured!  \n"));
}

}  // namespace
