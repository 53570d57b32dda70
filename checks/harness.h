// Runs the product, or a piece of it, in its own process on its own board, and collects the outcome.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "driver/results.h"
#include "sim/board.h"
#include "sim/supervisor.h"

namespace checks {

using sim::Board;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

struct Capability {
    std::uint32_t front_panel, usb, channels, alarm_out, alarm_in;
    int sata, esata, minisas, new_rule;
    bool operator==(const Capability&) const = default;
};

struct Outcome {
    int status = -1, signal = 0;
    std::string console, errors;       // UTF-8
    std::vector<std::string> records;  // texts of the report records, UTF-8
    std::string record_bytes;
    std::string console_bytes, error_bytes;  // as they were written
    Results results{};                       // of the main process at its exit
    Capability capability{};
    std::string stopped;  // why the run was stopped; empty = it was not
    double end_s = 0;
    std::shared_ptr<sim::World> world;

    // The console after the texts of the preparation.
    std::string said() const;
    // The calls on a path, a line each: "0.100 ioctl 0x20(7) = 0"; "" = on none, "*" = on any.
    std::string calls(std::string_view path) const;
    // How often a function was called; on one path, if one is named.
    int count(std::string_view function, std::string_view path = {}) const;
    // The instants, in seconds, of a device's changes to this state: "line", "4=0".
    std::vector<double> changes(std::string_view device, std::string_view state) const;
    bool nothing_is_mounted() const;
};

// The healthy board with differences, written as in a scenario: healthy("rtc.rate = 0").
Board healthy(const std::string& changes = "");
Board bare_board();  // a control device without a description, nothing else

// q7 with these words for arguments, on that board.
Outcome run(const std::string& words, const std::string& changes = "");
Outcome run(const Board& board, const std::string& words);

// The same with any arguments. `preset` runs in the new process, before q7: it may fill the result
// slots, and the capability table of a board without a description.
Outcome run_with(const Board& board, const std::vector<std::string>& arguments,
                 const std::function<void()>& preset = {});

// "-o 1" and so on, for each test that the product's table has.
std::vector<std::string> single_tests();

// A piece of the product. Its stdio output is in the console, in order.
Outcome run_piece(const Board& board, const std::function<void()>& piece);

sim::Fault failing(std::string call, std::string path = {}, std::uint32_t nth = 1);
sim::Fault failing_request(std::uint32_t request, std::uint32_t nth = 1);

// The items "- `...`" in the sections of docs/defects.md whose heading contains this.
std::set<std::string> documented(const std::string& heading);

// True where the checks were asked for their long form (Q7_FULL in the environment).
bool full_form();
// Of the runs of a sweep, one in so many (Q7_SAMPLE in the environment; 1 = all): for builds in which
// each takes long, beside one that makes all of them.
int sample();

constexpr char kStartLine[] =
    "g_bSupFrontPanel[1],g_iUsbNum[4],g_iCordNo[4],g_iAlarmOutNum[4],g_iAlarmInNum[16],"
    "g_sata_port_num[5],g_cESataNum[1],g_cMiniSASNum[0],g_cSataNewRule[1]\n";

}  // namespace checks
