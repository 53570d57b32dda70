// Sweeps over whole commands: a run for each way in which each platform call can fail, for an interrupt
// in each wait, and for a reader that fails at each record. Each prints its number of runs.
#include <cstring>
#include <map>
#include <set>

#include "checks/harness.h"
#ifdef Q7_HAS_STATION
#include "checks/attempts.h"
#endif

namespace {

using namespace checks;
using sim::Fault;

// The time that a fault may add to a run: 5 seconds of a silent panel, two beeps for each of five alarm
// steps, three clock comparisons and the RS-485 line, and a console flush of a second.
constexpr double kSlack_s = 5 + (5 + 3 + 1) * 0.8 + 1;

// An errno that each call can return; a call that is not listed cannot fail.
const std::map<std::string, int> kErrors = {
    {"access", ENOENT},         {"close", EIO},      {"closedir", EBADF},
    {"fork", EAGAIN},           {"ioctl", EIO},      {"lseek", EINVAL},
    {"mkdir", EROFS},           {"mount", EBUSY},    {"open", ENOENT},
    {"opendir", EMFILE},        {"pipe", EMFILE},    {"pread", EIO},
    {"pthread_create", EAGAIN}, {"read", EIO},       {"readdir", EIO},
    {"remove", EROFS},          {"rmdir", EBUSY},    {"setuid", EPERM},
    {"signal", EINVAL},         {"socket", EMFILE},  {"statfs", EIO},
    {"system", EAGAIN},         {"tcgetattr", EIO},  {"tcsetattr", EIO},
    {"umount", EBUSY},          {"uname", EFAULT},   {"wait_readable", ENOMEM},
    {"wait_writable", ENOMEM},  {"waitpid", ECHILD}, {"write", EIO}};

bool has(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }
bool is(const sim::Event& event, const char* call) { return !std::strcmp(event.function, call); }
bool passed(const Outcome& got) { return has(got.console, "测试结果:  OK!\n"); }

// The loops that the behaviour prescribes and that only an interrupt ends.
bool endless_by_design(const Fault& fault) {
    // "read failed" for as long as the keyboard line is readable and cannot be read
    return fault.call == "read" && fault.path == "/dev/ttyS2" && fault.onwards;
}

// The ways in which this call can fail. `ordinal` counts all calls of the run, `matching` those
// of the same function on the same path, both from 1.
std::vector<Fault> faults_of(const std::string& path, const sim::Event& event,
                             std::uint32_t ordinal, std::uint32_t matching) {
    std::vector<Fault> faults;
    Fault once;
    once.nth = ordinal;
    if (const auto error = kErrors.find(event.function); error != kErrors.end()) {
        once.error = error->second;
        Fault from_then_on = failing(event.function, path, matching);
        from_then_on.onwards = true;
        from_then_on.error = error->second;
        faults = {once, from_then_on};
    }
    const bool transfers = is(event, "read") || is(event, "write") || is(event, "pread");
    if (transfers && event.result > 1 && path != "/var/q7.fifo") {  // a FIFO takes all or nothing
        once.effect = Fault::Effect::shorten;
        once.count = static_cast<std::uint32_t>(event.result / 2);
        faults.push_back(once);
    }
    if (is(event, "sleep") || is(event, "wait_readable") || is(event, "wait_writable")) {
        once.effect = Fault::Effect::interrupt;
        faults.push_back(once);
    }
    return faults;
}

std::map<std::string, int> open_paths(const sim::World& world) {
    std::map<std::string, int> paths;
    for (const sim::OpenFile* file : world.processes[0].files) {
        if (file != nullptr) ++paths[std::string(file->path)];
    }
    return paths;
}

bool every_verdict_is_good(const Outcome& got) {
    const Results& slots = got.results;
    return slots.network == 0 && slots.alarm == 0 && slots.rtc == 0 && slots.minisas == 0
           && slots.rs485 == 0 && slots.usb_ports_found == got.capability.usb
           && !has(got.console, "error occured!") && !has(got.console, "无连接");
}

void judge(const Outcome& got, const Outcome& healthy, const sim::Event& event,
           const Fault& fault) {
    // A watchdog that cannot be stopped restarts the board: nothing looks at the request's result.
    if (event.request == 0x22 && got.world->restarted) return;
    EXPECT_EQ(got.stopped, "");

    const bool refused_watchdog =
        has(got.console, "初始化看门狗失败!\n") && got.status >= 3 && got.status <= 6;
    const bool interrupted = fault.effect == Fault::Effect::interrupt && got.signal == SIGINT;
    EXPECT_TRUE(interrupted
                || (got.signal == 0 && (got.status == 0 || got.status == 255 || refused_watchdog)))
        << "status " << got.status << ", signal " << got.signal;
    EXPECT_TRUE(!passed(got) || every_verdict_is_good(got));
    EXPECT_TRUE(passed(got) || got.count("remove") == 0);
    EXPECT_TRUE(got.changes("bridge", "1 reset").empty()
                || has(got.console, "INFO: Upload complete\n"));
    if (got.signal != 0) return;

    const bool on_control = event.path == "/dev/zebio";
    const bool buzzer_unreachable =
        on_control && (event.request == 0x01 || fault.onwards || is(event, "open"));
    EXPECT_TRUE(got.world->control.level[4] == 1 || buzzer_unreachable) << "the buzzer sounds";
    EXPECT_TRUE(got.nothing_is_mounted() || is(event, "umount"));
    if (got.status != 0) return;
    const auto meant = open_paths(*healthy.world);
    for (const auto& [path, count] : open_paths(*got.world)) {
        EXPECT_LE(count, meant.count(path) != 0 ? meant.at(path) : 0) << path;
    }
}

// Disks, mice and mount points differ by their name alone: "/dev/sdb" is "/dev/sd*".
std::string kind_of(const std::string& path) {
    for (const char* start :
         {"/dev/ms", "/dev/sd", "/mnt/", "/dev/input/mouse", "/sys/bus/usb/devices/"}) {
        if (path.rfind(start, 0) == 0) return start + std::string("*");
    }
    return path;
}

// The calls, with their request, whose single failure the summary does not show.
std::set<std::string> unnoticed;

void sweep_faults(const Board& healthy_board, const std::string& words) {
    const Outcome healthy = run(healthy_board, words);
    Board board = healthy_board;
    board.end = healthy.end_s + kSlack_s;
    std::map<std::string, std::uint32_t> calls_so_far;
    std::uint32_t ordinal = 0;
    int runs = 0, met = 0;
    for (const sim::Event& event : healthy.world->log.all()) {
        if (event.is_of_board()) continue;
        const std::string path(event.path);
        const std::uint32_t matching = ++calls_so_far[event.function + path];
        for (const Fault& fault : faults_of(path, event, ++ordinal, matching)) {
            if (endless_by_design(fault) || ++met % sample() != 0) continue;
            board.faults = {fault};
            const Outcome got = run(board, words);
            SCOPED_TRACE(testing::Message()
                         << event.function << " " << path << " 0x" << std::hex << event.request
                         << std::dec << " at " << static_cast<double>(event.at) / 1e6 << " s, call "
                         << fault.nth << ", effect " << static_cast<int>(fault.effect)
                         << (fault.onwards ? ", from then on" : ""));
            judge(got, healthy, event, fault);
#ifdef Q7_HAS_STATION
            if (words.empty() || words == "netQ7test") judge_swept_run(got, healthy, words);
#endif
            ++runs;
            const std::string name = event.function + (" " + kind_of(path));
            char request[16] = "";
            if (event.request != 0) std::snprintf(request, sizeof request, " 0x%X", event.request);
            const bool fails = !fault.onwards && fault.effect == Fault::Effect::error;
            if (fails && passed(got)) unnoticed.insert(name + request);
        }
    }
    EXPECT_GT(runs, 20 / sample());
    std::printf("%d runs with a failing call\n", runs);
}

class FaultSweep : public testing::TestWithParam<std::string> {};

TEST_P(FaultSweep, EveryRunEndsWell) {
    std::string changes;
    if (GetParam() == "-o 8") changes = "hardware.minisas = 1\ndisks.sas1 = {}";
    if (GetParam() == "-o 10") changes = "bridges.1.erase_time = 1e-3\n";
    Board board = healthy(changes);
    if (GetParam() == "-o 10") {
        board.files.at("/dav0/zeb321.bin").bytes = sim::firmware_image(256);
        board.bridges.at("1").flash = "";
        sweep_faults(board, GetParam());
        board.bridges.at("1").flash = sim::firmware_image(256);
        board.bridges.at("1").flash[16] ^= 1;
    }
    sweep_faults(board, GetParam());
}

INSTANTIATE_TEST_SUITE_P(SingleTests, FaultSweep, testing::ValuesIn(single_tests()));
INSTANTIATE_TEST_SUITE_P(NetMode, FaultSweep, testing::Values("netQ7test"));

// Also: the calls whose failure passes are those that the documentation names.
TEST(FaultSweepOfTheSequence, EveryRunEndsWellAndUnnoticedCallsAreDocumented) {
    sweep_faults(healthy(), "");
    EXPECT_THAT(unnoticed, testing::IsSubsetOf(documented("Calls")));
    if (sample() == 1) {
        EXPECT_EQ(unnoticed, documented("Calls"));
    }
}

TEST(InterruptSweep, EveryWaitEndsByTheInterruptAndPrintsItsCountsOnce) {
    int runs = 0, met = 0;
    std::vector<std::string> commands = single_tests();
    commands.insert(commands.end(), {"", "netQ7test"});
    for (const std::string& words : commands) {
        const Outcome healthy_run = run(words);
        for (const sim::Event& event : healthy_run.world->log.all()) {
            if (event.is_of_board() || event.ended <= event.at || ++met % sample() != 0) continue;
            Board board = healthy();
            board.person.interrupts = {static_cast<double>(event.at + event.ended) / 2e6};
            const Outcome got = run(board, words);
            SCOPED_TRACE(testing::Message()
                         << "q7 " << words << " at " << board.person.interrupts[0]);
            EXPECT_EQ(got.stopped, "");
            // The interrupt ends a shell in place of its caller. Only the receiver may outlive the tool.
            const bool outlived = board.person.interrupts[0] > healthy_run.end_s - 1e-6;
            EXPECT_TRUE(got.signal == SIGINT || is(event, "system") || outlived);
            int handlers = 0;
            for (const char* text : {" replies\n", "success is ", "read rtc successfully "}) {
                handlers += has(got.console, text) ? 1 : 0;
            }
            EXPECT_LE(handlers, 1);
            EXPECT_TRUE(got.count("remove") == 0 || passed(got));
            ++runs;
        }
    }
    EXPECT_GT(runs, 300 / sample());
    std::printf("%d runs with an interrupt\n", runs);
}

TEST(ReaderSweep, LostRecordsHaveTheirErrorLineAndNoneIsTorn) {
    const std::vector<std::string> all = run("netQ7test").records;
    int runs = 0;
    for (std::size_t record = 1; record <= all.size(); ++record) {
        for (const bool leaves : {true, false}) {
            Board board = healthy();
            sim::Change change;
            change.call = "write";
            change.path = "/var/q7.fifo";
            change.nth = static_cast<std::uint32_t>(record);
            change.apply = [&](Board& later) {
                (leaves ? later.fifo.reader : later.fifo.reading) = false;
            };
            board.changes = {change};
            board.fifo.unread = 65'400;  // room for a few short ones
            const Outcome got = run(board, "netQ7test");
            SCOPED_TRACE(testing::Message() << (leaves ? "leaves" : "stalls") << " at " << record);
            EXPECT_EQ(got.status, 0);
            std::size_t kept = 0, lost = 0;
            for (std::size_t at = 0; (at = got.console.find("write error file = ", at)) + 1 != 0;
                 ++at) {
                ++lost;
            }
            // The received records are some of all, whole and in order.
            for (const std::string& text : all) {
                kept += kept < got.records.size() && got.records[kept] == text ? 1 : 0;
            }
            EXPECT_EQ(kept, got.records.size());
            EXPECT_EQ(kept + lost, all.size());
            EXPECT_GE(kept, record - 1);
            ++runs;
        }
    }
    std::printf("%d runs with a failing reader\n", runs);
}

}  // namespace
