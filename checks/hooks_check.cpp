// The factory's commands before a start and after a verdict.
#include "station/hooks.h"

#include <gmock/gmock.h>

#include <chrono>

#include "checks/programs.h"

namespace checks {
namespace {

using namespace std::chrono_literals;
using station::HookResult;
using station::run_hook;

TEST(Hook, GetsItsInputAndRefusesByItsStatus) {
    const HookResult good = run_hook("cat /dev/stdin; echo; echo no >&2", R"({"id":"a"})");
    EXPECT_TRUE(good.agrees());
    EXPECT_EQ(good.said, "{\"id\":\"a\"}\nno\n");
    const HookResult refused =
        run_hook("grep -q 'id.:.b' || { echo wrong board; exit 3; }", R"({"id":"a"})");
    EXPECT_FALSE(refused.agrees());
    EXPECT_EQ(refused.status, 3);
    EXPECT_EQ(refused.said, "wrong board\n");
    const HookResult missing = run_hook("/nowhere/command", "");
    EXPECT_FALSE(missing.agrees());
    EXPECT_EQ(missing.status, 127);
    const HookResult signalled = run_hook("kill -TERM $$", "");
    EXPECT_EQ(signalled.end, HookResult::End::signalled);
    EXPECT_FALSE(signalled.agrees());
}

TEST(Hook, NeedNotReadMuchAndMayTalkForEver) {
    const HookResult deaf = run_hook("exec <&-; exit 0", std::string(4'000'000, 'a'));
    EXPECT_TRUE(deaf.agrees());
    const HookResult counted = run_hook("wc -c", std::string(4'000'000, 'a'));
    EXPECT_EQ(counted.said, "4000000\n");
    const HookResult talker = run_hook("yes", "", 300ms);
    EXPECT_EQ(talker.end, HookResult::End::late);
    EXPECT_EQ(talker.said.size(), 4096u);
    const HookResult long_text = run_hook("head -c 300000 /dev/zero", "");
    EXPECT_TRUE(long_text.agrees());
}

TEST(Hook, IsEndedInTimeWithAllThatItStarted) {
    const std::string file = scratch("alive");
    const auto before = std::chrono::steady_clock::now();
    const HookResult late =
        run_hook("trap '' TERM INT; (sleep 2; echo alive >" + file + ") & sleep 30", "", 200ms);
    EXPECT_EQ(late.end, HookResult::End::late);
    EXPECT_LT(std::chrono::steady_clock::now() - before, 1500ms);
    EXPECT_EQ(shell("sleep 2.5").status, 0);
    EXPECT_EQ(content_of(file), "");
    // A child that stays behind does not make the command late.
    const HookResult leaver = run_hook("sleep 1 & exit 0", "", 800ms);
    EXPECT_TRUE(leaver.agrees());
}

}  // namespace
}  // namespace checks
