#include <sstream>

#include "checks/harness.h"
#include "tests/usb_disk_test.h"

namespace {

using namespace checks;

constexpr char kNoRearDisks[] = "后面板上面的USB口没有插U盘\n后面板下面的USB口没有插U盘\n";

// The healthy board with nothing but disks of these names, of a million free blocks if not said
// otherwise.
std::string disks(std::string nodes, const std::string& each = "free_blocks = 1_000_000") {
    std::string changes;
    std::istringstream names(nodes);
    for (std::string name; names >> name;)
        changes += "usb.disks." + name + " = {" + each + "}\n";
    nodes = " " + nodes + " ";
    for (const std::string name : {"msa", "msa1", "msb1", "msc1", "msd1"}) {
        if (nodes.find(" " + name + " ") == std::string::npos)
            changes += "usb.disks." + name + ".present = false\n";
    }
    return changes
           + "usb.devices = {'4-1:1.0' = {present = false}, '4-2:1.0' = {present = false}}\n";
}

TEST(UsbNames, PartitionsReplaceTheirNeighbouringDisk) {
    const auto expect = [](const char* directory, const char* names) {
        DiskNames disks{};
        std::istringstream entries(directory);
        for (std::string name; !disks.is_full() && entries >> name;)
            take_disk_name(disks, name.c_str());
        std::string taken;
        for (std::size_t i = 0; i < disks.count; ++i)
            taken += (i > 0 ? " " : "") + std::string(disks.names[i]);
        EXPECT_EQ(taken, names) << directory;
    };
    expect("sda sda1 tty xmsa Msa m s msm msm1 msma", "");
    expect("msa msa1", "msa1");
    expect("msa1 msa", "msa1");
    expect("msa1 msa2", "msa2");
    expect("msa2 msa1", "msa1");
    expect("msa msa1 msa2", "msa2");
    expect("msa1 msb msa2", "msa1 msb msa2");
    expect("msb msa", "msb msa");
    expect("msa null msa1", "msa1");  // names that are skipped do not separate neighbours
    expect("ms ms", "ms ms");
    expect("msabc msa", "msabc msa");  // the same disk, and neither has a digit
    expect("msab1 msac2", "msac2");
    // Reading stops at the eighth name, even where its partition would follow.
    expect("msa msb msc msd mse msf msg msh msh1", "msa msb msc msd mse msf msg msh");
    expect("msa msa1 msb msb1 msc msc1 msd msd1 mse1 msf1 msg1 msh1 msi1",
           "msa1 msb1 msc1 msd1 mse1 msf1 msg1 msh1");
    DiskNames disks{};
    take_disk_name(disks, ("ms" + std::string(80, 'x')).c_str());
    EXPECT_EQ(std::string(disks.names[0]).size(), 49u);
    EXPECT_FALSE(has_digit(nullptr));
}

TEST(UsbTest, CountsMiceAndDisks) {
    const auto expect = [](const std::string& usb, unsigned found,
                           testing::Matcher<std::string> said) {
        const Outcome got = run("-o 7", usb);
        EXPECT_EQ(got.results.usb_ports_found, found) << usb;
        EXPECT_THAT(got.said(), said);
        EXPECT_EQ(got.count("closedir"), 1);
    };
    expect(disks(""), 0, "没有接usb\n");
    expect(disks("") + "usb.mice = 2", 2, "没有接usb\n");
    expect(disks("") + "usb.mice = 5", 3, "没有接usb\n");  // mouse0 to mouse2 are looked for
    expect(disks("msa msa1 msb1") + "usb.mice = 2", 4, HasSubstr("/dev/msb1 剩余空间 = "));
    expect(disks("msa1 msb1 msc1 msd1 mse1 msf1 msg1 msh1 msi1"), 8, HasSubstr("/dev/msh1 "));
}

TEST(UsbTest, ExaminesEachDiskInOrderAndLeavesNothingMounted) {
    const Outcome got = run("-o 7", disks("msa1 msb1"));
    EXPECT_EQ(got.said(), "/dev/msa1 剩余空间 = 3884M\n/dev/msb1 剩余空间 = 3884M\n"
                              + std::string(kNoRearDisks));
    EXPECT_EQ(got.calls("/mnt/msa1"),
              "2.100 mkdir(0)\n2.300 statfs(0)\n2.300 umount(0)\n2.300 rmdir(0)\n");
    EXPECT_TRUE(got.nothing_is_mounted());
}

TEST(UsbTest, FreeSpaceAtItsEdges) {
    const auto expect = [](const char* blocks, const char* block_size, const char* shown) {
        const std::string disk =
            "free_blocks = " + std::string(blocks) + ", block_size = " + block_size;
        EXPECT_THAT(run("-o 7", disks("msa1", disk)).said(),
                    StartsWith("/dev/msa1 剩余空间 = " + std::string(shown) + "\n"))
            << disk;
    };
    expect("4_999", "4096", "0M");
    expect("5_000", "4096", "0M");
    expect("6_023", "4096", "0M");  // not yet 1024 blocks
    expect("6_024", "4096", "4M");
    expect("6_024", "512", "0M");
    expect("7_048", "512", "1M");
    expect("1_000_000", "65536", "62144M");
    expect("805_000", "1024", "781M");
    expect("6_000_000_000", "512", "2929685M");           // a disk beyond 2 TiB
    expect("2_200_000_000_000", "1024", "-2146529801M");  // more than 31 bits can hold
}

const std::string kMountedByShell = disks("msa1", "mount = 'by shell', free_blocks = 1_000_000")
                                    + "usb.directories = ['/mnt/msa1']\n";

TEST(UsbTest, ShellIsAskedWhereTheCallsFail) {
    const Outcome got = run("-o 7", kMountedByShell);
    EXPECT_EQ(got.said(), "/dev/msa1 剩余空间 = 3884M\n" + std::string(kNoRearDisks));
    EXPECT_EQ(got.count("system", "mkdir /mnt/msa1\n"), 1);
    EXPECT_EQ(got.count("system", "mount -t vfat /dev/msa1  /mnt/msa1\n"), 1);
    EXPECT_TRUE(got.nothing_is_mounted());
}

// The interrupt ends the command of the shell, and not q7.
TEST(UsbTest, DiskThatNothingMountsIsJudgedOnTheHostsFileSystem) {
    for (const std::string& changes :
         {disks("msa1", "mount = 'no file system'"),
          kMountedByShell + std::string("operator.interrupts = [2.45]")}) {
        const Outcome got = run("-o 7", changes);
        EXPECT_THAT(got.said(), StartsWith("/dev/msa1 剩余空间 = 92M\n"));
        EXPECT_EQ(got.results.usb_ports_found, 1u);
        EXPECT_EQ(got.signal, 0);
    }
}

TEST(UsbTest, ShellSaysWhyItFailed) {
    const std::string mkdir = "mkdir: can't create directory '/mnt/msa1': File exists\n",
                      mount = "mount: mounting /dev/msa1 on /mnt/msa1 failed: ";
    const struct {
        const char *each, *left;
        std::string errors;
    } rows[] = {
        {"mount = 'no file system'", "", mount + "Invalid argument\n"},
        {"mount = 'no driver'", "", mount + "No such device or address\n"},
        {"", "usb.directories = '/mnt/msa1'", mkdir},
        {"", "usb.mounted = '/mnt/msa1'", mkdir + mount + "Device or resource busy\n"},
        {"", "usb.files = '/mnt/msa1'", mkdir + mount + "Not a directory\n"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(run("-o 7", disks("msa1", row.each) + row.left).errors, row.errors) << row.each;
}

TEST(UsbTest, FailedStatisticsAreReportedAndTheDiskIsNotCounted) {
    const Outcome got =
        run("-o 7", disks("msa1 msb1") + "faults = [{call = 'statfs', path = '/mnt/msa1'}]");
    EXPECT_EQ(got.said(),
              "Failed to statfs/dev/msb1 剩余空间 = 3884M\n" + std::string(kNoRearDisks));
    EXPECT_EQ(got.results.usb_ports_found, 1u);
    EXPECT_EQ(got.calls("/mnt/msa1"),
              "2.100 mkdir(0)\n2.300 statfs(0) EIO\n2.300 umount(0)\n");  // the directory stays
    EXPECT_TRUE(got.nothing_is_mounted());
}

TEST(UsbTest, UnreadableDeviceDirectoryCountsOne) {
    const Outcome got = run("-o 7", "faults = [{call = 'opendir'}]");
    EXPECT_EQ(got.said(), "");
    EXPECT_EQ(got.errors, "/dev: Input/output error\n");
    EXPECT_EQ(got.results.usb_ports_found, 1u);
}

TEST(UsbTest, RearPortsAreClassifiedByTheirRootHub) {
    const auto expect = [](const std::string& devices, const char* upper, const char* lower) {
        std::string changes = "usb.devices = {";
        for (const std::string name : {"4-1:1.0", "4-2:1.0"})
            if (devices.find(name) == std::string::npos)
                changes += "'" + name + "' = {present = false}, ";
        std::istringstream names(devices);
        for (std::string name; names >> name;)
            changes += "'" + name + "' = {present = true}, ";
        changes.replace(changes.size() - 2, 2, "}");
        EXPECT_THAT(run("-o 7", changes).said(),
                    EndsWith("M\n后面板上面的USB口" + std::string(upper) + "\n后面板下面的USB口"
                             + lower + "\n"));
    };
    const char *fast = "插着的U盘是3.0U盘", *slow = "插着的U盘是2.0U盘或者鼠标",
               *none = "没有插U盘";
    expect("4-1:1.0", fast, none);
    expect("3-1:1.0", slow, none);
    expect("3-2:1.0", none, slow);
    expect("3-1:1.0 4-1:1.0 3-2:1.0 4-2:1.0", fast, fast);
    expect("4-3:1.0 2-1:1.0", none, none);
}

TEST(UsbStep, SecondRunFollowsWhenAllPortsWereFoundAndCountsAnew) {
    Outcome got = run("", disks("msa msb msc"));
    EXPECT_EQ(got.count("opendir"), 1);
    EXPECT_THAT(got.console, testing::Not(HasSubstr("请在10s内将2.0U盘插入")));
    // The stick did not come back.
    got = run("", disks("msa1") + "usb.mice = 3\nchanges = [{call = 'opendir', path = '/dev', nth = 2, "
                             "usb.disks.msa1.present = false}]");
    EXPECT_EQ(got.count("opendir"), 2);
    EXPECT_THAT(got.console, HasSubstr("USB口       : 3  \n"));
    EXPECT_THAT(got.console, HasSubstr("USB口       : error occured!  \n"));
}

}  // namespace
