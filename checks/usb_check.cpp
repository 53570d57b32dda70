#include <sstream>

#include "checks/harness.h"
#include "tests/usb_disk_test.h"

namespace {

using namespace checks;

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

// The commands that the shell gets, byte by byte.
TEST(UsbTest, ShellIsAskedWhereTheCallsFail) {
    const Outcome got = run("-o 7",
                            "usb.disks.msa1.mount = 'by shell'\n"
                            "usb.directories = ['/mnt/msa1']\n");
    EXPECT_EQ(got.count("system", "mkdir /mnt/msa1\n"), 1);
    EXPECT_EQ(got.count("system", "mount -t vfat /dev/msa1  /mnt/msa1\n"), 1);
}

}  // namespace
