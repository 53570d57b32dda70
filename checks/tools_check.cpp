// The set-up that the tools share, with a package manager of the check's own.
#include <filesystem>
#include <fstream>

#include "checks/harness.h"
#include "checks/programs.h"

namespace {

using namespace checks;

// `need a b` where neither is installed, with this in place of apt-get.
Finished need(const std::string& apt_get) {
    const std::string place = scratch("setup");
    std::filesystem::create_directory(place);
    const auto program = [&](const std::string& name, const std::string& body) {
        std::ofstream(place + "/" + name) << "#!/bin/sh\n" << body << "\n";
        std::filesystem::permissions(place + "/" + name, std::filesystem::perms::owner_all);
    };
    program("id", "echo 0");
    program("apt-get", apt_get);
    std::ofstream(place + "/script")
        << "set -euo pipefail\nPATH=" << place << ":$PATH\n. " << Q7_SOURCE "/tools/setup.sh\n"
        << "is_installed() { return 1; }\nneed a b\necho ready\n";
    const Finished got = shell("bash " + place + "/script");
    std::filesystem::remove_all(place);
    return got;
}

TEST(SetUp, ListThatCannotBeFetchedEndsNothingWhereThePackagesAreThere) {
    const Finished got = need("[ $1 = install ] || { echo 'E: no such list' >&2; exit 100; }");
    EXPECT_EQ(got.out, "ready\n") << got.err;
}

TEST(SetUp, PackageThatCannotBeInstalledIsNamedWithTheReasonInTheLastLine) {
    const std::string place = scratch("installed");
    const Finished got = need(
        "[ $1 = install ] || exit 0\ncase \"$*\" in\n*b*) echo 'E: Unable to locate package b' "
        ">&2; "
        "exit 100 ;;\n*) echo \"$*\" >"
        + place + " ;;\nesac");
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(got.out, "");
    EXPECT_THAT(got.err, EndsWith("\nsetup: cannot install b: E: Unable to locate package b\n"));
    EXPECT_THAT(content_of(place), EndsWith(" a\n"));  // what can be installed is
}

TEST(SetUp, ToolsRefuseWordsThatTheyDoNotKnow) {
    for (const std::string tool :
         {"arm", "arm-kernel", "bench", "card", "check", "coverage", "demo", "station"}) {
        const Finished got = shell(Q7_SOURCE "/tools/" + tool + " --help");
        EXPECT_EQ(got.status, 2) << tool;
        EXPECT_THAT(got.err, StartsWith("usage: tools/" + tool)) << tool;
    }
}

}  // namespace
