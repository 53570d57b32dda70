// q7-station run, with the real agent and the simulated board: verdicts, connections that drop and
// lie, stations that are killed, disks that refuse.
#include <fcntl.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "checks/attempts.h"
#include "checks/programs.h"
#include "station/attempt.h"
#include "station/journal.h"
#include "station/text.h"

namespace {

using namespace checks;
namespace fs = std::filesystem;
using station::Journal;

constexpr char kAnswers[] = " --answer buzzer=yes --answer panel-leds=yes --answer panel-keys=yes";

double seconds_now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// A folder of its own for journals, spool and FIFO, and the words that run one attempt in it.
class StationRun : public testing::Test {
  protected:
    void SetUp() override { fs::create_directories(folder_); }
    void TearDown() override { fs::remove_all(folder_); }

    std::string path(const std::string& name) const { return folder_ + "/" + name; }

    // A program for the connection's words: the board's command is "$@" in it.
    std::string connection(const std::string& name, const std::string& script) const {
        std::ofstream(path(name)) << "#!/bin/sh\n" << script << "\n";
        ::chmod(path(name).c_str(), 0700);
        return path(name);
    }

    std::string board_words(const std::string& through, const std::string& board) const {
        const std::string small = path("q7-sim");
        const std::string simulator = fs::exists(small) ? small : Q7_BINARIES "/q7-sim";
        return " -- " + through + " " Q7_BINARIES "/q7-agent run --spool " + path("spool")
               + " --fifo " + path("fifo") + " -- " + simulator + " --gbk --board " + board
               + " --fifo " + path("fifo");
    }

    std::string command(const std::string& options, const std::string& through = "",
                        const std::string& board = "healthy") const {
        return Q7_BINARIES "/q7-station run --operator W1032 --journals " + path("journals")
               + options + board_words(through, board);
    }

    static std::string healthy_plan() {
        return " --plan " Q7_SOURCE "/plans/healthy.toml --serial 45270-2648-0413";
    }

    std::vector<fs::path> journals() const { return station::journals_in(path("journals")); }

    // Exactly the events that the board had, each once.
    void expect_whole(const fs::path& journal_path) const {
        const Journal journal = station::read_journal(journal_path);
        EXPECT_TRUE(journal.damage.empty());
        std::uint64_t number = 0;
        for (const station::BoardEvent& event : journal.events)
            EXPECT_EQ(event.number, ++number);
        EXPECT_GT(number, 120u);
    }

    std::string folder_ = scratch("station_run");
};

TEST_F(StationRun, GivesTheVerdictAsStatusAndAsJson) {
    const struct {
        std::string options, board, verdict;
        int status;
    } rows[] = {
        {kAnswers, "healthy", "PASS", 0},
        {kAnswers, "alarm-input-dead", "FAIL", 1},
        {" --answer buzzer=no --answer panel-leds=yes --answer panel-keys=yes", "healthy", "FAIL",
         1},
        {" --answer buzzer=yes --answer panel-leds=unsure --answer panel-keys=yes", "healthy",
         "NOT PROVEN", 3},
        {" --answer buzzer=yes", "healthy", "NOT PROVEN", 3},
    };
    for (const auto& row : rows) {
        const Finished got =
            shell(command(healthy_plan() + " --json" + row.options, "", row.board) + " </dev/null");
        EXPECT_EQ(got.status, row.status) << got.err;
        const auto object = nlohmann::json::parse(got.out);
        EXPECT_EQ(object.at("verdict"), row.verdict);
        const fs::path journal = journals().back();
        EXPECT_EQ(content_of(station::judgement_path(journal)), got.out);
        EXPECT_EQ(shell(Q7_BINARIES "/q7-station judge --json " + journal.string()).out, got.out);
        expect_whole(journal);
    }
    EXPECT_EQ(shell(Q7_BINARIES "/q7-station rejudge " + path("journals")).out, "");
    const Finished replayed =
        shell(Q7_BINARIES "/q7-station replay --pace 0 " + journals().front().string());
    EXPECT_THAT(replayed.out, HasSubstr("    network.fibre.4.speed = 1000 Mbit/s\n"));
    EXPECT_THAT(replayed.out, HasSubstr("\nPASS 45270-2648-0413 "));
}

// docs/board_test.py: each item is a test of its own, and only a PASS lets the framework say OK.
TEST_F(StationRun, GoesInATestFrameworkAsTheExampleShows) {
    const struct {
        std::string answers, board, said, counts;
    } rows[] = {
        {"buzzer=yes panel-leds=yes panel-keys=yes", "healthy", "test_may_ship", "OK"},
        {"buzzer=yes panel-leds=yes panel-keys=yes", "alarm-input-dead",
         "alarm.output.2.inputs 0x2202, wanted 0x2222 (line ", "FAILED (failures="},
        {"buzzer=yes panel-leds=yes", "healthy", "NotTested: NOT PROVEN: panel-keys (line ",
         "FAILED (errors=2)"},
    };
    for (const auto& row : rows) {
        const std::string variables =
            "env Q7_STATION=" Q7_BINARIES "/q7-station Q7_PLAN=" Q7_SOURCE
            "/plans/healthy.toml Q7_SERIAL=45270-2648-0413 Q7_OPERATOR=W1032 Q7_JOURNALS="
            + path("journals") + " Q7_ANSWERS=\"" + row.answers + "\" Q7_BOARD=\""
            + board_words("", row.board).substr(std::string(" -- ").size()) + "\" ";
        const Finished got = shell(variables + "python3 " Q7_SOURCE "/docs/board_test.py");
        EXPECT_EQ(got.status, row.counts == "OK" ? 0 : 1) << got.err;
        EXPECT_THAT(got.err, HasSubstr(row.said));
        EXPECT_THAT(got.err, HasSubstr("\n" + row.counts));
    }
}

TEST_F(StationRun, RefusesBadUseAndSaysWhatDoesNotRun) {
    const std::string plan = " --plan " Q7_SOURCE "/plans/healthy.toml --serial ";
    const struct {
        std::string words, error;
        int status;
    } rows[] = {
        {plan + "4527-1 -- q7-agent run", "serial number 4527-1 is not like 45270-", 2},
        {plan + "45270-2648-0413 -- q7", "behind -- must stand: [CONNECTION...] q7-agent run", 2},
        {plan + "45270-2648-0413 --answer bell=yes -- q7-agent run", "the plan does not ask bell",
         2},
        {plan + "45270-2648-0413 --answer buzzer=maybe -- q7-agent run", "yes, no or unsure", 2},
        {plan + "45270-2648-0413 -- /nowhere/q7-agent run", "", 4},
        {plan + "45270-2648-0413" + " -- " Q7_BINARIES "/q7-agent run --spool " + path("spool")
             + " --fifo " + path("fifo") + " -- /nowhere/q7",
         "", 4},
    };
    for (const auto& row : rows) {
        const Finished got = shell(Q7_BINARIES "/q7-station run --operator W1 --journals "
                                   + path("journals") + row.words + " </dev/null");
        EXPECT_EQ(got.status, row.status) << row.words << got.out << got.err;
        EXPECT_THAT(got.err, HasSubstr(row.error));
        EXPECT_EQ(got.out.find("PASS"), std::string::npos);
        if (row.status != 4) continue;
        // The reason comes first; what is missing for it stands in a line each of its kind.
        const std::size_t first = got.out.find("INCOMPLETE run: ");
        EXPECT_LT(first, got.out.find("NOT PROVEN ")) << got.out;
        EXPECT_THAT(got.out, HasSubstr(" facts were not seen: start.alarm_inputs, "));
        EXPECT_LT(std::count(got.out.begin(), got.out.end(), '\n'), 15) << got.out;
    }
}

TEST_F(StationRun, LosesNothingWhenTheConnectionDropsBreaksOrLies) {
    const std::string every = full_form() ? "1" : "9";
    const struct {
        std::string name, script;
        int least_lost;
    } rows[] = {
        // the connection ends after every few events
        {"drops", "\"$@\" | head -n " + every, 12},
        // it is away for a while in the network step
        {"away",
         "echo x >>" + path("calls") + "; calls=$(wc -l <" + path("calls")
             + ")\n"
               "[ $calls -eq 1 ] && { \"$@\" | head -n 12; exit 255; }\n"
               "[ $calls -lt 6 ] && exit 255\nexec \"$@\"",
         1},
        // a serial login: line ends of a terminal, and what the kernel has to say
        {"noise",
         "\"$@\" | awk '{ if (NR % 30 == 29) print substr($0, 1, 20) "
         "\"[ 12.3] usb 1-1: new device\\n\" substr($0, 21); else printf \"%s\\r\\n\", $0 }'",
         3},
    };
    for (const auto& row : rows) {
        const double start_s = seconds_now();
        const Finished got = shell(
            command(healthy_plan() + kAnswers, connection(row.name, row.script)) + " </dev/null");
        EXPECT_EQ(got.status, 0) << row.name << got.out << got.err;
        expect_whole(journals().back());
        int lost = 0;
        for (const station::Remark& remark : station::read_journal(journals().back()).remarks)
            lost += remark.text == "lost" ? 1 : 0;
        EXPECT_GE(lost, row.least_lost) << row.name;
        EXPECT_LT(seconds_now() - start_s, full_form() ? 240 : 60) << row.name;
    }
}

pid_t spawn(const std::string& command) {
    const std::string words = "exec " + command + " >/dev/null 2>&1 </dev/null";
    const char* const arguments[] = {"sh", "-c", words.c_str(), nullptr};
    pid_t pid = -1;
    EXPECT_EQ(
        ::posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(arguments), environ),
        0);
    return pid;
}

TEST_F(StationRun, GoesOnAfterAStationThatWasKilledAtAnyEvent) {
    std::vector<std::size_t> places{1, 2, 60, 118};
    if (full_form()) {
        places.clear();
        for (std::size_t place = 1; place <= 118; ++place)
            places.push_back(place);
    }
    for (const std::size_t place : places) {
        fs::remove_all(path("journals"));
        const std::string holds =
            connection("holds", "\"$@\" | head -n " + std::to_string(place) + "\nsleep 2");
        const pid_t pid = spawn(command(healthy_plan() + kAnswers, holds));
        ASSERT_GT(pid, 0);
        const double until_s = seconds_now() + 20;
        std::size_t events = 0;
        while (events < place && seconds_now() < until_s) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            if (!journals().empty())
                events = station::read_journal(journals().front()).events.size();
        }
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        EXPECT_EQ(events, place);
        const Finished got =
            shell(command(" --resume " + journals().front().string() + kAnswers) + " </dev/null");
        EXPECT_EQ(got.status, 0) << place << got.out << got.err;
        expect_whole(journals().front());
    }
}

TEST_F(StationRun, WhatCannotBeKeptIsNoPass) {
    const std::string unlimited = connection("unlimited", "ulimit -S -f unlimited; exec \"$@\"");
    const std::string rows[] = {
        // a folder that takes nothing
        Q7_BINARIES "/q7-station run --operator W1032 --journals /proc/q7" + healthy_plan()
            + kAnswers + board_words("", "healthy"),
        // a disk that becomes full in the middle
        "sh -c 'trap \"\" XFSZ; ulimit -S -f 40; exec "
            + command(healthy_plan() + kAnswers, unlimited) + "'",
    };
    for (const std::string& row : rows) {
        const Finished got = shell(row + " </dev/null");
        EXPECT_EQ(got.status, 4) << got.out;
        EXPECT_THAT(got.err, HasSubstr("there is no verdict: "));
        EXPECT_EQ(got.out.find("PASS"), std::string::npos);
    }
    ASSERT_EQ(journals().size(), 1u);
    EXPECT_NE(shell(Q7_BINARIES "/q7-station judge " + journals().front().string()).status, 0);
    EXPECT_FALSE(fs::exists(station::judgement_path(journals().front())));
}

// On a file system of its own that becomes full, or is read-only from the start.
TEST_F(StationRun, AFullOrReadOnlyDiskIsNoPass) {
    fs::create_directories(path("journals"));
    const std::string mount =
        "unshare -m sh -c 'mount -t tmpfs -o size=32k none " + path("journals");
    if (shell(mount + "'").status != 0) GTEST_SKIP() << "no file system can be mounted here";
    for (const std::string& more : {std::string(), " && mount -o remount,ro " + path("journals")}) {
        const Finished got =
            shell(mount + more + " && " + command(healthy_plan() + kAnswers) + "' </dev/null");
        EXPECT_EQ(got.status, 4) << got.out << got.err;
        EXPECT_THAT(got.err, HasSubstr("there is no verdict: "));
        EXPECT_THAT(got.err, HasSubstr(more.empty() ? "No space left" : "Read-only file system"));
        EXPECT_EQ(got.out.find("PASS"), std::string::npos);
    }
}

// The board's side of it: the agent says so, and the attempt is incomplete.
TEST_F(StationRun, WhatTheBoardCannotKeepIsIncomplete) {
    const struct {
        std::string spool, reason;
    } rows[] = {
        {"--spool /proc", "INCOMPLETE run: the station could not go on: q7-agent: /proc: "},
        {"--spool " + path("spool") + " --size-limit 20000", "something was lost: spool-full"},
    };
    for (const auto& row : rows) {
        const Finished got =
            shell(Q7_BINARIES "/q7-station run --operator W1032 --journals " + path("journals")
                  + healthy_plan() + kAnswers + " -- " Q7_BINARIES "/q7-agent run " + row.spool
                  + " --fifo " + path("fifo") + " -- " Q7_BINARIES "/q7-sim --gbk --fifo "
                  + path("fifo") + " </dev/null");
        EXPECT_EQ(got.status, 4) << got.out << got.err;
        EXPECT_THAT(got.out, HasSubstr(row.reason));
    }
}

// A board that plays a run again, event by event, and goes on as often as it is told to.
class PlayedBoard : public StationRun {
  protected:
    void SetUp() override {
        StationRun::SetUp();
        const Played played = play(healthy(), "netQ7test");
        std::ofstream script(path("board"));
        script << "exec 9<" << path("steps") << "\n";
        for (const BoardLine& line : played.lines) {
            const bool is_record = line.kind == "record";
            std::string bytes = line.bytes;
            if (is_record) {
                const std::size_t size = bytes.size();
                const char header[] = {
                    0, 0, 0, 0, static_cast<char>(size), static_cast<char>(size >> 8), 0, 0};
                bytes.insert(0, header, sizeof header);
            }
            script << "printf '" << octal(bytes) << (is_record ? "' >" + path("fifo") : "'")
                   << "\nread go <&9\n";
            ++steps_;
        }
        ASSERT_EQ(::mkfifo(path("steps").c_str(), 0600), 0);
        go_ = ::open(path("steps").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        ASSERT_GE(go_, 0);
    }
    void TearDown() override {
        ::close(go_);
        StationRun::TearDown();
    }

    // Puts aside what was not taken, then lets the board go on so often.
    void allow(std::size_t count) const {
        char left[256];
        while (::read(go_, left, sizeof left) > 0) {
        }
        const std::string steps(count, '\n');
        ASSERT_EQ(::write(go_, steps.data(), count), static_cast<ssize_t>(count));
    }

    std::string played_words(const std::string& through) const {
        return Q7_BINARIES "/q7-station run --operator W1032 --journals " + path("journals")
               + healthy_plan() + kAnswers + " -- " + through + " " Q7_BINARIES
               + "/q7-agent run --spool " + path("spool") + " --fifo " + path("fifo")
               + " -- /bin/sh " + path("board") + " </dev/null";
    }

    std::size_t steps_ = 0;
    int go_ = -1;
};

// The connection's script starts the recorder itself, so that it may kill it, and lets the board go
// on with each event up to number $KILL_AT.
constexpr char kKillsTheRecorder[] = R"(
agent=$1; command=$2; name=$4; spool=$8
[ "$command" = run ] || exec "$@"
shift 2
"$agent" record "$@" >/dev/null 2>&1 & recorder=$!
until ls $spool 2>/dev/null | grep -q -- "-$name.spool"; do sleep 0.01; done
"$agent" follow $name --spool $spool | {
    events=0
    while IFS= read -r line; do
        printf '%s\n' "$line"
        case $line in *'"event":"alive"'*) ;; *) events=$((events + 1)) ;; esac
        [ $events -eq $KILL_AT ] && break
        [ $events -eq 1 ] || echo >$steps
    done
    kill -KILL $recorder
}
wait $recorder
exit 255)";

TEST_F(PlayedBoard, IsIncompleteWhenItsRecorderIsKilledAtAnyEventAndTakesTheNextRun) {
    const std::string kills = connection("kills", "steps=" + path("steps") + kKillsTheRecorder);
    const std::size_t stride = full_form() ? 1 : 50;
    std::size_t kills_made = 0;
    for (std::size_t events = 1; events <= steps_ + 1; events += stride, ++kills_made) {
        allow(0);
        const Finished got =
            shell("env KILL_AT=" + std::to_string(events) + " " + played_words(kills));
        EXPECT_EQ(got.status, 4) << events << got.out << got.err;
        EXPECT_THAT(got.out, HasSubstr("INCOMPLETE run: the recorder on the board died"));
        const Journal journal = station::read_journal(journals().back());
        EXPECT_TRUE(journal.damage.empty());
        EXPECT_GE(journal.events.size(), events);
        EXPECT_LE(journal.events.size(), events + 3);
        if (kills_made % 10 != 0) continue;
        allow(steps_);
        const Finished next = shell(played_words(""));
        EXPECT_EQ(next.status, 0) << next.out << next.err;
    }
    std::printf("%zu runs of a recorder killed\n", kills_made);
}

// Who is first is written, whoever it is; every other one is told that it was not.
class ManyAnswer : public station::AttemptWatcher {
  public:
    station::Attempt* attempt = nullptr;
    std::vector<std::string> winners;  // operators, one a question
    int refused = 0;

    void changed(const station::AttemptState& state) override {
        for (const auto& due : state.due) {
            if (!asked_.insert(due.question).second) continue;
            for (int i = 0; i < 8; ++i)
                threads_.emplace_back([this, i, question = due.question] { answer(question, i); });
        }
    }

    void join() {
        for (std::thread& thread : threads_)
            thread.join();
    }

  private:
    void answer(const std::string& question, int number) {
        const std::string name = question + " " + std::to_string(number);
        const bool taken = attempt->answer(question, number % 2 == 0 ? "yes" : "no", name, "page");
        const std::lock_guard lock(mutex_);
        if (taken) winners.push_back(name);
        if (!taken) ++refused;
    }

    std::set<std::string> asked_;
    std::vector<std::thread> threads_;
    std::mutex mutex_;
};

TEST_F(StationRun, OfManyAnswersAtOnceTheFirstCounts) {
    station::AttemptSetup setup;
    setup.plan_text = content_of(Q7_SOURCE "/plans/healthy.toml");
    setup.plan = station::Plan::parse(setup.plan_text, "plan");
    setup.identity.serial = "45270-2648-0413";
    setup.identity.operator_id = "W1032";
    setup.identity.station = "1";
    setup.journals = path("journals");
    setup.somebody_answers = true;
    setup.board = station::BoardWords::parse(
        {Q7_BINARIES "/q7-agent", "run", "--spool", path("spool"), "--fifo", path("fifo"), "--",
         Q7_BINARIES "/q7-sim", "--gbk", "--fifo", path("fifo")});
    station::Attempt attempt(std::move(setup));
    ManyAnswer watcher;
    watcher.attempt = &attempt;
    attempt.run(watcher);
    watcher.join();
    EXPECT_FALSE(attempt.answer("buzzer", "yes", "late", "page"));
    EXPECT_EQ(watcher.winners.size(), 3u);
    EXPECT_EQ(watcher.refused, 3 * 7);
    std::vector<std::string> written;
    for (const station::Answer& answer : station::read_journal(journals().front()).answers) {
        written.push_back(answer.operator_id);
        const bool even = (answer.operator_id.back() - '0') % 2 == 0;
        EXPECT_EQ(answer.answer, even ? "yes" : "no");
    }
    EXPECT_THAT(written, testing::UnorderedElementsAreArray(watcher.winners));
}

// What the agent of a board with this network address would send; no computer is asked for its own.
TEST_F(StationRun, LooksUpAddressesInTheJournalsOfTheFolder) {
    std::string plan = content_of(Q7_SOURCE "/plans/healthy.toml");
    plan.replace(plan.find("\"ignored\""), 9, "\"unique\"");
    std::ofstream(path("unique.toml")) << plan;
    const Played played = play(healthy(), "netQ7test");
    const std::string board = connection("board", "[ $2 != run ] || cat " + path("") + "$4.events");
    const struct {
        const char *serial, *out;
        int status;
    } rows[] = {
        {"45270-2648-0413", "PASS", 0},
        {"45270-2648-0413", "PASS", 0},
        {"45270-2648-0414",
         "NOT PROVEN identity: this network address belongs to another serial number: "
         "00:11:22:33:44:55: 45270-2648-0413, wanted 45270-2648-0414",
         3},
    };
    int number = 0;
    for (const auto& row : rows) {
        const std::string run =
            "1-" + station::today_utc() + "-000" + std::to_string(++number) + "-1";
        std::vector<std::string> events = events_of(played);
        std::string start = events.front().substr(0, events.front().rfind(",\"crc\":"));
        events.front() =
            station::with_crc(start.replace(start.find("\"R\""), 3, "\"" + run + "\""));
        std::ofstream file(path(run + ".events"));
        for (const std::string& event : events)
            file << event << "\n";
        file.close();
        const Finished got =
            shell(Q7_BINARIES "/q7-station run --operator W1032 --journals " + path("journals")
                  + " --plan " + path("unique.toml") + " --serial " + row.serial + kAnswers + " -- "
                  + board + " q7-agent run -- q7 </dev/null");
        EXPECT_EQ(got.status, row.status) << got.out << got.err;
        EXPECT_THAT(got.out, HasSubstr(row.out));
    }
}

// Real time is measured in the plain build alone.
TEST_F(StationRun, AddsLittleToTheTimeOfQ7) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "time is measured in the plain build alone";
#endif
    // The agent hashes the program, and q7 is small.
    ASSERT_EQ(shell("strip -o " + path("q7-sim") + " " Q7_BINARIES "/q7-sim").status, 0);
    double alone_s = 1e9, station_s = 1e9;
    for (int i = 0; i < 10; ++i) {
        double start_s = seconds_now();
        shell(path("q7-sim") + " --gbk --fifo " + path("records") + " netQ7test");
        alone_s = std::min(alone_s, seconds_now() - start_s);
        start_s = seconds_now();
        EXPECT_EQ(shell(command(healthy_plan() + kAnswers) + " </dev/null").status, 0);
        station_s = std::min(station_s, seconds_now() - start_s);
    }
    std::printf("run adds %.0f ms\n", (station_s - alone_s) * 1e3);
    EXPECT_LT(station_s - alone_s, 0.150);
}

bool has_program(const char* name) {
    return shell(std::string("sh -c 'command -v ") + name + "'").status == 0;
}

// A login on a terminal that is hung up in the middle, is away for a while, and then mixes in what
// the kernel says.
TEST_F(StationRun, WorksOverATerminalThatIsDropped) {
    if (!has_program("script") || ::access("/dev/pts/ptmx", F_OK) != 0) {
        GTEST_SKIP() << "no terminal can be made here";
    }
    const std::string away_s = full_form() ? "10" : "1", first = path("first");
    const std::string terminal = connection(
        "terminal", "if [ ! -e " + first + " ]; then touch " + first
                        + "; script -qec \"$*\" /dev/null | head -n 40; exit 255; fi\n"
                          "[ $(($(date +%s) - $(stat -c %Y " + first + "))) -lt " + away_s
                        + " ] && exit 255\n"
                          "exec script -qec \"(echo '[ 12.3] usb 1-1: new device' ) & $*\" /dev/null");
    const double start_s = seconds_now();
    const Finished got = shell(command(healthy_plan() + kAnswers, terminal) + " </dev/null");
    EXPECT_EQ(got.status, 0) << got.out << got.err;
    EXPECT_GT(seconds_now() - start_s, full_form() ? 9 : 0.1);
    expect_whole(journals().back());
}

int free_port() {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), size);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    ::close(fd);
    return ntohs(address.sin_port);
}

TEST_F(StationRun, WorksOverSsh) {
    if (!has_program("/usr/sbin/sshd") || !has_program("ssh-keygen") || ::geteuid() != 0) {
        GTEST_SKIP() << "no ssh server, or not root";
    }
    fs::create_directories("/run/sshd");
    const std::string port = std::to_string(free_port());
    for (const char* key : {"host", "user"})
        shell("ssh-keygen -q -t ed25519 -N '' -f " + path(key));
    std::ofstream(path("sshd_config"))
        << "ListenAddress 127.0.0.1\nPort " << port << "\nHostKey " << path("host")
        << "\nAuthorizedKeysFile " << path("user.pub")
        << "\nPidFile none\nUsePAM no\nStrictModes no\nPermitRootLogin yes\n"
           "PasswordAuthentication no\n";
    const pid_t server = spawn("/usr/sbin/sshd -D -f " + path("sshd_config"));
    ASSERT_GT(server, 0);
    const std::string ssh = "ssh -q -p " + port + " -i " + path("user")
                            + " -o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null"
                              " -o BatchMode=yes -o IdentitiesOnly=yes root@127.0.0.1";
    const double until_s = seconds_now() + 10;
    while (shell(ssh + " true </dev/null").status != 0 && seconds_now() < until_s)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const Finished got = shell(command(healthy_plan() + kAnswers, ssh) + " </dev/null");
    EXPECT_EQ(got.status, 0) << got.out << got.err;
    expect_whole(journals().back());
    ::kill(server, SIGTERM);
    ::waitpid(server, nullptr, 0);
}

}  // namespace
