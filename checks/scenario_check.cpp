#include "checks/harness.h"
#include "sim/scenario.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::string error_of(const std::string& text) {
    try {
        sim::parse_board(text, "x.toml");
        return "accepted";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

TEST(Scenario, MistakesAreNamedWithFileLineAndWhatIsAccepted) {
    const auto expect = [](const char* text, const std::string& error) {
        EXPECT_THAT(error_of(text), StartsWith(error)) << text;
    };
    expect("stroy = \"x\"",
           "x.toml:1: unknown key \"stroy\"; accepted here: alarm, base, bridges, ");
    expect("[hardware]\n\nmodle = 1", "x.toml:3: unknown key \"modle\"; accepted here: alarm_i");
    expect("[hardware]\nmodel = \"x\"", "x.toml:2: model takes 0 to 65535");
    expect("[hardware]\nsata_layout = 16", "x.toml:2: sata_layout takes 0 to 15");
    expect("[hardware]\nchannels = -1", "x.toml:2: channels takes 0 to 15");
    expect("root = 1", "x.toml:1: root takes true or false");
    expect("end = -1", "x.toml:1: end takes 0 to 1e9");
    expect("start = 5", "x.toml:1: start takes date and time");
    expect("hardware = 1", "x.toml:1: hardware takes a table");
    expect("files = 1", "x.toml:1: files takes tables by PATH");
    expect("faults = {}", "x.toml:1: faults takes a list of tables");
    expect("[[faults]]\nerrno = \"EWHAT\"", "x.toml:2: errno takes name of an error");
    expect("[[faults]]\neffect = \"fail\"", "x.toml:2: effect takes \"error\", \"short\",");
    expect("[[faults]]\ncall = \"opne\"", "x.toml:2: call takes one of _exit, access, close");
    expect("[[faults]]\nnth = 0", "x.toml:2: nth takes 1 to 4294967295");
    expect("files.x.bytes = \"FF 0\"", "x.toml:1: bytes takes bytes in hexadecimal");
    expect("files.x.from = \"nowhere\"", "x.toml:1: from takes path of a file that can be read");
    expect("[control]\nhigh_lines = [256]", "x.toml:2: high_lines takes list of 0 to 255");
    expect("base = \"nowhere.toml\"", "nowhere.toml: no such file");
    expect("[hardware", "x.toml:1: ");
}

TEST(Scenario, DerivedBoardSaysOnlyWhatDiffers) {
    const sim::Board base = checks::healthy();
    const sim::Board derived = sim::parse_board(R"(base = "healthy.toml"
start = 2026-11-23T08:00:00+08:00
hardware.channels = 2
files."/dav2/devCfg.bin".present = false
faults = [{call = "ioctl", request = 0x20, nth = 3, errno = "EBUSY"}]
operator = {interrupts = [1.5], lines = [{at = 2, text = "x\n"}]})",
                                                "x.toml");
    EXPECT_EQ(derived.hardware.at("channels"), 2);
    EXPECT_EQ(derived.hardware.at("cpld_date"), base.hardware.at("cpld_date"));
    EXPECT_EQ(derived.start.seconds, base.start.seconds - 8 * 3600);
    EXPECT_FALSE(derived.files.at("/dav2/devCfg.bin").present);
    EXPECT_TRUE(derived.files.at("/dav2/devCfg_backup.bin").present);
    ASSERT_EQ(derived.faults.size(), 1u);
    EXPECT_EQ(derived.faults[0].request, 0x20u);
    EXPECT_EQ(derived.faults[0].error, EBUSY);
    EXPECT_EQ(derived.person.lines[0].text, "x\n");
}

}  // namespace
