// The proof of a shift: when it counts, and what it keeps locked.
#include <ctime>
#include <filesystem>
#include <fstream>

#include "checks/harness.h"
#include "checks/programs.h"
#include "station/proof.h"

namespace {

using namespace checks;
namespace fs = std::filesystem;
using station::Plan;
using station::Proof;
using station::ProofState;
using testing::HasSubstr;

std::int64_t local_time(int day, int hour, int minute) {
    std::tm time = {};
    time.tm_year = 126;
    time.tm_mon = 10;
    time.tm_mday = day;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_isdst = -1;
    return std::mktime(&time);
}

TEST(Proof, AShiftBeginsAtTheLatestOfItsTimes) {
    const station::Shifts shifts = station::parse_shifts("06:00,14:30,22:00");
    EXPECT_EQ(station::shift_begin(shifts, local_time(23, 14, 29)), local_time(23, 6, 0));
    EXPECT_EQ(station::shift_begin(shifts, local_time(23, 14, 30)), local_time(23, 14, 30));
    EXPECT_EQ(station::shift_begin(shifts, local_time(23, 5, 59)), local_time(22, 22, 0));
    EXPECT_EQ(station::shift_begin(shifts, local_time(1, 0, 0)), local_time(0, 22, 0));
    EXPECT_EQ(station::shift_begin({0}, local_time(23, 23, 59)), local_time(23, 0, 0));
    for (const char* text : {"", "6:00", "24:00", "06:60", "06:00,", "14:00,06:00", "06:00 "})
        EXPECT_THROW(station::parse_shifts(text), std::runtime_error) << text;
}

std::string plan_with_references() {
    return content_of(Q7_SOURCE "/plans/healthy.toml")
           + "[[reference]]\nserial = \"45270-0000-0001\"\nverdict = \"PASS\"\n"
             "[[reference]]\nserial = \"45270-0000-0002\"\nverdict = \"FAIL\"\n";
}

Proof begun(const Plan& plan, std::int64_t time_s, const std::string& verdict = "PASS") {
    Proof proof;
    proof.station = "3L02";
    proof.plan_sha256 = plan.sha256;
    proof.time_s = time_s;
    proof.simulated = {{"no defect", "45270-0000-0001", "3L02-20261123-0001", "PASS", verdict}};
    return proof;
}

TEST(Proof, IsGoodWhenEveryVerdictOfThisShiftIsAsPlanned) {
    const std::string folder = scratch("proof");
    const Plan plan = Plan::parse(plan_with_references(), "plan");
    const auto state = [&](std::int64_t since_s, const std::string& name = "3L02") {
        return state_of(station::latest_proof(folder, name, plan.sha256, since_s), plan);
    };
    EXPECT_EQ(state(0), ProofState::none);
    Proof proof = begun(plan, 1000);
    station::keep_proof(folder, proof);
    EXPECT_EQ(proof.number, "P-0001");
    EXPECT_EQ(state(1000), ProofState::boards_due);
    EXPECT_EQ(state(1001), ProofState::none);  // of the shift before
    EXPECT_EQ(state(0, "3L0"), ProofState::none);
    EXPECT_FALSE(note_reference(folder, proof, plan, "45270-2648-0413", "a", "PASS"));
    EXPECT_FALSE(note_reference(folder, proof, plan, "45270-0000-0001", "a", "INCOMPLETE"));
    EXPECT_TRUE(note_reference(folder, proof, plan, "45270-0000-0001", "b", "PASS"));
    EXPECT_EQ(state(0), ProofState::boards_due);
    EXPECT_TRUE(note_reference(folder, proof, plan, "45270-0000-0002", "c", "FAIL"));
    EXPECT_EQ(state(0), ProofState::good);
    // The first verdict of a board counts: nobody tests it until it fits.
    EXPECT_FALSE(note_reference(folder, proof, plan, "45270-0000-0002", "d", "PASS"));

    Proof second = begun(plan, 1000);
    station::keep_proof(folder, second);
    EXPECT_EQ(second.number, "P-0002");
    EXPECT_TRUE(note_reference(folder, second, plan, "45270-0000-0002", "e", "PASS"));
    EXPECT_EQ(state(0), ProofState::failed);
    Proof third = begun(plan, 1000, "FAIL alarm");
    station::keep_proof(folder, third);
    EXPECT_EQ(state(0), ProofState::failed);
    std::ofstream(folder + "/proofs/3L02-P-0003.json") << "{";
    EXPECT_EQ(state(0), ProofState::failed);  // the second's, not none's
}

TEST(Proof, ProductionIsLockedUntilItIsGood) {
    const std::string folder = scratch("proof_run"), plan = folder + "/plan.toml";
    fs::create_directories(folder);
    std::ofstream(plan) << plan_with_references();
    const auto run =
        [&](const std::string& serial, const std::string& mark, const std::string& board) {
            return shell(Q7_BINARIES "/q7-station run --operator W1032 --station 3L02 --json --journals "
                     + folder + " --plan " + plan + " --serial " + serial + " --mark " + mark
                     + " --answer buzzer=yes --answer panel-leds=yes --answer panel-keys=yes -- "
                       Q7_BINARIES "/q7-agent run --spool "
                     + folder + "/spool --fifo " + folder + "/fifo -- " Q7_BINARIES
                       "/q7-sim --gbk --board " + board + " --fifo " + folder + "/fifo </dev/null");
        };
    const auto refusal = [&] {
        const Finished got = run("45270-2648-0413", "production", "healthy");
        EXPECT_EQ(got.status, 2);
        return got.err;
    };
    EXPECT_THAT(refusal(), HasSubstr("no proof of this shift"));
    const Finished proven = shell(
        Q7_BINARIES "/q7-station prove --station 3L02 --journals " + folder + " --plan " + plan
        + " --board " Q7_SOURCE "/boards/healthy.toml --simulator " Q7_BINARIES "/q7-sim");
    EXPECT_EQ(proven.status, 0) << proven.out << proven.err;
    EXPECT_THAT(refusal(), HasSubstr("lacks the reference board 45270-0000-0001"));
    EXPECT_EQ(run("45270-0000-0001", "reference", "healthy").status, 0);
    EXPECT_EQ(run("45270-0000-0002", "reference", "rs485-silent").status, 1);
    const Finished produced = run("45270-2648-0413", "production", "healthy");
    EXPECT_EQ(produced.status, 0);
    EXPECT_THAT(produced.out, HasSubstr("\"shift\":\"P-0001\""));
}

// A simulator that shows a healthy board whatever it is told.
TEST(Proof, AStationThatSeesNoFaultFailsIt) {
    const std::string folder = scratch("proof_blind"), blind = folder + "/blind";
    fs::create_directories(folder);
    std::ofstream(blind)
        << "#!/bin/sh\nfor word; do case $word in */dev/fd/*|/proc/*) exec " Q7_BINARIES
           "/q7-sim \"$@\";; esac; done\n"
           "exec " Q7_BINARIES "/q7-sim --gbk --fifo fifo netQ7test\n";
    fs::permissions(blind, fs::perms::owner_all);
    const Finished got = shell(
        Q7_BINARIES "/q7-station prove --station 3L02 --serial 45270-0000-0001 --journals " + folder
        + " --plan " Q7_SOURCE "/plans/healthy.toml --board " Q7_SOURCE
          "/boards/healthy.toml --simulator "
        + blind);
    EXPECT_EQ(got.status, 1) << got.out << got.err;
    EXPECT_THAT(got.out, HasSubstr("BAD  alarm.input.open 1"));
    EXPECT_THAT(got.out, HasSubstr("P-0001 failed"));
}

}  // namespace
