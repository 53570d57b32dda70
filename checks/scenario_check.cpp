#include "checks/harness.h"
#include "sim/scenario/scenario.h"

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

// A scenario takes effect as written, or is refused.
TEST(Scenario, MistakesAreNamedWithFileLineAndWhatIsAccepted) {
    const auto expect = [](const char* text, const std::string& error) {
        EXPECT_THAT(error_of(text), StartsWith("x.toml:" + error)) << text;
    };
    expect("stroy = \"x\"", "1: unknown key \"stroy\"; accepted here: alarm, base, bridges, ");
    expect("[hardware]\n\nmodle = 1", "3: unknown key \"modle\"; accepted here: alarm_i");
    expect("[hardware]\nmodel = \"x\"", "2: model takes 0 to 65535");
    expect("[hardware]\nsata_layout = 16", "2: sata_layout takes 0 to 15");
    expect("[hardware]\nchannels = -1", "2: channels takes 0 to 15");
    expect("root = 1", "1: root takes true or false");
    expect("end = -1", "1: end takes 0 to 1e9");
    expect("start = 5", "1: start takes date and time");
    expect("hardware = 1", "1: hardware takes a table");
    expect("files = 1", "1: files takes tables by PATH");
    expect("faults = {}", "1: faults takes a list of tables");
    expect("[[faults]]\nerrno = \"EWHAT\"", "2: errno takes \"EPERM\", \"ENOENT\", ");
    expect("[[faults]]\neffect = \"fail\"", "2: effect takes \"error\", \"short\",");
    expect("[[faults]]\ncall = \"opne\"", "2: call takes \"_exit\", \"access\", \"close");
    expect("[[faults]]\nnth = 0", "2: nth takes 1 to 4294967295");
    expect("files.'/dav0/zeb321.bin'.bytes = \"FF 0\"", "1: bytes takes bytes in hexadecimal");
    expect("files.'/dav2/devCfg.bin'.from = \"nowhere\"",
           "1: from takes path of a file that can be read");
    expect("[control]\nhigh_lines = [256]", "2: high_lines takes list of 0 to 255");
    expect("[hardware", "1: ");
    expect("disks.'SATA port 2' = {}", "1: disks takes sd[a-z] esd[a-z] sas* and not");
    expect("[ports.eth7]", "1: ports takes eth[0-3] and not \"eth7\"");
    expect("bridges.9 = {}", "1: bridges takes [1-4] and not \"9\"");
    expect("disks.sda.bridge = '1'", "1: bridge takes \"\" and not \"1\"");
    expect("[files.'/dav2/devcfg.bin']", "1: files takes /dav0/zeb321.bin /dav2/devCfg.bin ");
    expect("usb.disks.stick = {}", "1: disks takes ms[a-z] ms[a-z][0-9] and not \"stick\"");
    expect("usb.devices.'4-1' = {}", "1: devices takes [0-9]-[0-9]:[0-9].[0-9] and not \"4-1\"");
    expect("usb.directories = ['/tmp/x']", "1: directories takes at most 8 paths /mnt/NAME");
    expect("usb.mice = 11", "1: mice takes 0 to 10 and not 11");
    expect("time_zone = 'Asia/Shangai'", "1: time_zone takes TZ that this machine knows");
    expect("[[panel.frames]]\nkey = 'UP'\nbytes = 'FF'", "3: bytes contradicts key");
    expect("[files.'/dav0/zeb321.bin']\ntext = 'a'\nimage = 9", "3: image contradicts text");
    expect("[bridges.1]\nflash = ''\nimage = 9", "3: image contradicts flash");
    expect("[[panel.frames]]\nkey = 'HELP'", R"(2: key takes "AN0", "AN1", )");
    expect("disks.sda.serial = '1234567890123456789012345'",
           "1: serial takes text of at most 20 bytes and not \"1234567890123456789012345\"");
    expect("panel.frames = [\n{at = 2},\n{at = 1}]", "3: frames take ascending times: at 1.0");
    expect("operator.lines = [{at = 2},\n{at = 1}]", "2: lines take ascending times");
    expect("operator.interrupts = [2, 1]", "1: interrupts takes ascending times");
    expect("faults = [{effect = 'short', errno = 'EIO'}]",
           "1: errno has no meaning without effect");
    expect("faults = [{count = 1}]", "1: count has no meaning without effect = \"short\"");
    expect("faults = [{call = 'open', effect = 'short', count = 1}]", "1: count has no meaning");
    expect("faults = [{call = 'open', request = 4}]", "1: request has no meaning without call");
    expect("[[changes]]\nat = 1\nkey = 'p'", "3: key contradicts at");
    expect("[[changes]]\nevery = 1", "2: every has no meaning without at");
    expect("[[changes]]\nat = 1\npanel.conected = false", "3: unknown key \"conected\"");
    expect("[[changes]]\nat = 1\nports.eth0.copper.up = false", "3: ports takes what the start");
    expect("[[changes]]\nat = 1\nstory = 'x'", "3: unknown key \"story\"");
    expect("[[changes]]\nat = 1\npanel.frames = []", "3: frames cannot change");
    expect("[[changes]]\nat = 1\noperator.lines = []", "3: lines cannot change");
    EXPECT_THAT(error_of("base = \"nowhere.toml\""), StartsWith("nowhere.toml: no such file"));
}

std::string repeated(const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

// Each capacity at its limit, and one beyond.
TEST(Scenario, MoreThanABoardCanHaveIsRefused) {
    const struct {
        std::string start, item;
        int most;
        std::string error;
    } rows[] = {
        {"faults = [", "\n{},", 64, "x.toml:66: more than 64 faults"},
        {"panel.frames = [", "\n{},", 1024, "x.toml:1026: more than 1024 frames"},
        {"operator.lines = [", "\n{},", 1024, "x.toml:1026: more than 1024 lines"},
        {"changes = [", "\n{},", 64, "x.toml:66: more than 64 changes"},
        {"alarm.wiring = [", "\n[],", 32, "x.toml:34: more than 32 outputs"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(error_of(row.start + repeated(row.item, row.most) + "]"), "accepted");
        EXPECT_EQ(error_of(row.start + repeated(row.item, row.most + 1) + "]"), row.error);
    }
    std::string paths = "usb.directories = [";
    for (char name = 'a'; name < 'i'; ++name)
        paths += std::string("'/mnt/") + name + "', ";
    EXPECT_EQ(error_of(paths + "]"), "accepted");
    EXPECT_THAT(error_of(paths + "'/mnt/i']"), StartsWith("x.toml:1: directories takes at most 8"));
    const std::string flash = "bridges.1.flash = '";
    EXPECT_EQ(error_of(flash + repeated("00", 131'072) + "'"), "accepted");
    EXPECT_THAT(error_of(flash + repeated("00", 131'073) + "'"),
                StartsWith("x.toml:1: flash takes"));
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

// A base shared by two bases is read once, and so does not override the first of them.
TEST(Scenario, DefectsOfSeveralBasesCombine) {
    const sim::Board board =
        sim::parse_board("base = ['network-no-link', 'rtc-stopped', 'healthy']", "x.toml");
    EXPECT_FALSE(board.ports.at("eth1").copper.up && board.ports.at("eth0").copper.up
                 && board.ports.at("eth2").copper.up && board.ports.at("eth3").copper.up);
    EXPECT_EQ(board.rtc.rate, 0);
}

}  // namespace
