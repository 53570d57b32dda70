// q7-agent, the program, around q7-sim and around small scripts: every event exactly once, whatever
// is killed, stalls or is full.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <thread>

#include "checks/harness.h"
#include "checks/programs.h"

namespace {

using namespace checks;
using namespace std::chrono_literals;
using namespace std::string_literals;
using nlohmann::json;
using Words = std::vector<std::string>;
using Lines = std::vector<std::string>;

// The program, or what Q7_AGENT names in its place: another build, with its emulator.
const char* const kOther = std::getenv("Q7_AGENT");
const std::string kAgent = kOther != nullptr ? kOther : Q7_BINARIES "/q7-agent";
const std::string kSimulator = Q7_BINARIES "/q7-sim";

Words split(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

// A process of this check, which reads its standard output.
class Child {
  public:
    explicit Child(Words words, int pipe_size = 65536) {
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        ::fcntl(ends[1], F_SETPIPE_SZ, pipe_size);
        pid_ = ::fork();
        if (pid_ < 0) throw std::runtime_error("fork");
        if (pid_ == 0) {
            ::dup2(ends[1], STDOUT_FILENO);
            ::execv(arguments[0], arguments.data());
            ::_exit(127);
        }
        ::close(ends[1]);
        output_ = ends[0];
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        kill();
        ::close(output_);
    }

    // The next line with its end; empty = the output has ended, or brought nothing for 20 s.
    std::string line() {
        std::size_t end = 0;
        while ((end = pending_.find('\n')) == std::string::npos) {
            char bytes[4096];
            pollfd file{output_, POLLIN, 0};
            if (::poll(&file, 1, 20'000) <= 0) return "";
            const ssize_t count = ::read(output_, bytes, sizeof bytes);
            if (count <= 0) return "";
            pending_.append(bytes, static_cast<std::size_t>(count));
        }
        const std::string line = pending_.substr(0, end + 1);
        pending_.erase(0, end + 1);
        return line;
    }

    void stop_reading() { ::close(std::exchange(output_, -1)); }

    void kill() {
        if (pid_ > 0) ::kill(pid_, SIGKILL);
        wait();
    }

    // Its status; 128 and the signal, if it was a signal that ended it.
    int wait() {
        int status = 0;
        if (pid_ > 0 && ::waitpid(std::exchange(pid_, 0), &status, 0) > 0) {
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return status_;
    }

  private:
    pid_t pid_ = 0;
    int output_ = -1, status_ = -1;
    std::string pending_;
};

// CRC-32 as Ethernet has it, a bit at a time from the top with mirrored bytes.
std::uint32_t crc32(std::string_view bytes) {
    const auto mirrored = [](std::uint32_t word, int bits) {
        std::uint32_t result = 0;
        for (int i = 0; i < bits; ++i)
            result |= (word >> i & 1) << (bits - 1 - i);
        return result;
    };
    std::uint32_t crc = ~0u;
    for (const char byte : bytes) {
        crc ^= mirrored(static_cast<unsigned char>(byte), 8) << 24;
        for (int i = 0; i < 8; ++i)
            crc = crc << 1 ^ (crc >> 31 != 0 ? 0x04C11DB7u : 0);
    }
    return ~mirrored(crc, 32);
}

bool is_sound(const std::string& line) {
    const std::size_t at = line.rfind(",\"crc\":\"");
    if (at == std::string::npos) return false;
    char seal[32];
    std::snprintf(seal, sizeof seal, ",\"crc\":\"%08x\"}\n", crc32(line.substr(0, at)));
    return line.substr(at) == seal;
}

// The bytes for which the characters U+0000 to U+00FF of a text stand.
std::string bytes_of(const std::string& utf8) {
    std::string bytes;
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        if (lead >= 0x80) {
            const auto next = static_cast<unsigned char>(utf8[++i]);
            bytes += static_cast<char>((lead & 3) << 6 | (next & 0x3F));
        } else {
            bytes += utf8[i];
        }
    }
    return bytes;
}

std::string record_of(const std::string& text) {
    const auto byte = [&](int shift) { return static_cast<char>(text.size() >> shift & 0xFF); };
    return "\0\0\0\0"s + byte(0) + byte(8) + byte(16) + byte(24) + text;
}

// What q7 has said, by channel, and its end.
struct Transcript {
    std::string out, err, records, torn;
    json end;
};

Transcript transcript_of(const Lines& events) {
    Transcript got;
    std::string record;
    for (const std::string& line : events) {
        const json event = json::parse(line);
        const std::string kind = event["event"];
        const std::string text = event.contains("text") ? bytes_of(event["text"]) : "";
        if (kind == "out") got.out += text;
        if (kind == "err") got.err += text;
        if (kind == "torn") got.torn += text;
        if (kind == "end") got.end = event;
        if (kind != "record") continue;
        record += text;
        if (event.contains("more")) continue;
        got.records += record_of(std::exchange(record, ""));
    }
    return got;
}

Lines lines_of(const std::string& text) {
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line + "\n");
    return lines;
}

bool is_alive(const std::string& line) { return line.find("\"event\":\"alive\"") != line.npos; }

class Agent : public testing::Test {
  protected:
    Agent() {
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directory(folder_);
    }
    ~Agent() override {
        std::error_code none;  // a recorder may be leaving
        std::filesystem::remove_all(folder_, none);
    }

    std::string path(const std::string& name) const { return folder_ + "/" + name; }

    Words words(const std::string& command, const Words& more) const {
        Words all = split(kAgent);
        all.insert(all.end(), {command, "--spool", path("spool")});
        if (command == "run" || command == "start" || command == "record") {
            all.insert(all.end(), {"--fifo", path("fifo")});
        }
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    Finished agent(const std::string& command, const Words& more = {}) const {
        std::string line;
        for (const std::string& word : words(command, more))
            line += "'" + word + "' ";
        return shell(line);
    }

    // Runs a script under the agent, to its end.
    Finished run_script(const std::string& name, const std::string& script) const {
        return agent("run", {"--run", name, "--", "/bin/sh", script_file(name, script)});
    }

    std::string script_file(const std::string& name, const std::string& script) const {
        std::ofstream(path(name + ".sh")) << "F=" << path("fifo") << "\n" << script << "\n";
        return path(name + ".sh");
    }

    // The events that are stored of a run, without a torn last line.
    Lines stored(const std::string& name) const {
        std::error_code none;
        for (const auto& file : std::filesystem::directory_iterator(path("spool"), none)) {
            if (!file.path().filename().string().ends_with("-" + name + ".spool")) continue;
            const std::string text = content_of(file.path());
            return lines_of(text.substr(0, text.rfind('\n') + 1));
        }
        return {};
    }

    bool await_stored(const std::string& name, std::size_t count) const {
        for (int i = 0; i < 10'000 && stored(name).size() < count; ++i)
            std::this_thread::sleep_for(1ms);
        return stored(name).size() == count;
    }

    const std::string folder_ = scratch("agent");
};

void expect_numbered(const Lines& events) {
    std::int64_t time = 0;
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_TRUE(is_sound(events[i])) << events[i];
        EXPECT_LE(events[i].size(), 4096u);
        const json event = json::parse(events[i]);
        EXPECT_EQ(event["n"], i + 1);
        EXPECT_GE(event["t"].get<std::int64_t>(), time);
        time = event["t"];
    }
}

TEST_F(Agent, KeepsARunAsItIsWithoutIt) {
    ASSERT_EQ(crc32("123456789"), 0xCBF43926);
    const struct {
        std::string words;
        const char* end;
        int status;
    } rows[] = {
        {"netQ7test", "status", 0},
        {"", "status", 0},
        {"-o 8 2", "status", 0},
        {"--board control-missing netQ7test", "status", 255},
        {"--board rs485-corrupt netQ7test", "status", 0},
    };
    int number = 0;
    for (const auto& row : rows) {
        const std::string name = "R" + std::to_string(++number);
        const Finished alone =
            q7_sim("--gbk --fifo " + path("alone") + " " + row.words + " </dev/null");
        Words command{"--run", name, "--", kSimulator, "--gbk", "--fifo", path("fifo")};
        for (const std::string& word : split(row.words))
            command.push_back(word);
        const Finished got = agent("run", command);
        EXPECT_EQ(got.status, 0) << got.err;
        const Lines events = lines_of(got.out);
        expect_numbered(events);
        const Transcript kept = transcript_of(events);
        EXPECT_EQ(kept.out, alone.out);
        EXPECT_EQ(kept.err, alone.err);
        EXPECT_EQ(kept.records, content_of(path("alone")));
        EXPECT_EQ(kept.torn, "");
        EXPECT_EQ(alone.status, row.status) << row.words;
        EXPECT_EQ(kept.end[row.end], row.status) << kept.end;
    }
}

TEST_F(Agent, BeginsWithTheIdentityOfBoardAndProgram) {
    const Finished got = agent("run", {"--run", "a.B_c-1", "--", "sh", "-c", "exit 3"});
    const Lines events = lines_of(got.out);
    ASSERT_EQ(events.size(), 2u);
    const json start = json::parse(events.front());
    EXPECT_EQ(start["event"], "start");
    EXPECT_EQ(start["run"], "a.B_c-1");
    EXPECT_EQ(start["command"], json({"sh", "-c", "exit 3"}));
    EXPECT_EQ(start["fifo"], path("fifo"));
    utsname system{};
    ::uname(&system);
    EXPECT_EQ(start["kernel"], system.release);
    EXPECT_EQ(start["boot"].get<std::string>() + "\n",
              content_of("/proc/sys/kernel/random/boot_id"));
    const std::string program = start["program"]["path"];
    EXPECT_THAT(program, EndsWith("/sh"));
    EXPECT_EQ(start["program"]["size"], std::filesystem::file_size(program));
    EXPECT_THAT(shell("sha256sum " + program).out,
                StartsWith(start["program"]["sha256"].get<std::string>() + " "));
    for (const auto& [name, address] : start["addresses"].items()) {
        EXPECT_EQ(address.get<std::string>() + "\n",
                  content_of("/sys/class/net/" + name + "/address"));
    }
    EXPECT_EQ(json::parse(events.back())["status"], 3);
}

TEST_F(Agent, KeepsBytesOfAnyKindAndRecordsInPieces) {
    const std::string longest(1023, '\xFF'), text = "\xB5\xDA\"\\\n\r\t\x7F";
    std::string every;
    for (int byte = 0; byte < 256; ++byte)
        every += static_cast<char>(byte);
    const struct {
        std::string bytes, records, torn;
    } rows[] = {
        {record_of("") + record_of(longest) + record_of(text),
         record_of("") + record_of(longest) + record_of(text), ""},
        {"\1\0\0\0\1\0\0\0x"s, "", "\1\0\0\0\1\0\0\0x"s},
        {"\0\0\0\0\0\4\0\0"s + std::string(1024, 'x'), "",
         "\0\0\0\0\0\4\0\0"s + std::string(1024, 'x')},
        {record_of("a") + "\0\0\0\0\5\0\0\0abc"s, record_of("a"), "\0\0\0\0\5\0\0\0abc"s},
        {record_of("x\0y"s) + record_of("z"), record_of("z"), record_of("x\0y"s)},
    };
    std::ofstream(path("every")) << every << every << every;
    int number = 0;
    for (const auto& row : rows) {
        for (const std::string size : {"4096", "1"}) {
            if (size == "1" && row.bytes.size() > 100) continue;
            const std::string name = "B" + std::to_string(++number);
            std::ofstream(path("bytes")) << row.bytes;
            const Transcript got = transcript_of(
                lines_of(run_script(name, "cat " + path("every") + "; cat " + path("every")
                                              + " >&2; dd status=none bs=" + size
                                              + " if=" + path("bytes") + " of=$F")
                             .out));
            EXPECT_EQ(got.out, every + every + every);
            EXPECT_EQ(got.err, every + every + every);
            EXPECT_EQ(got.records, row.records);
            EXPECT_EQ(got.torn, row.torn);
        }
    }
}

// q7 leaves a process behind that still has the FIFO and the output, and does not wait for it.
TEST_F(Agent, WaitsForWhatTheProgramLeftBehind) {
    const Finished got = run_script(
        "late",
        "(sleep 0.3; printf '\\000\\000\\000\\000\\001\\000\\000\\000z' >$F; echo late) &\n"
        "exit 5");
    const Transcript kept = transcript_of(lines_of(got.out));
    EXPECT_EQ(kept.out, "late\n");
    EXPECT_EQ(kept.records, record_of("z"));
    EXPECT_EQ(kept.end["status"], 5);
}

TEST_F(Agent, RefusesWithAStatusOfItsOwn) {
    std::ofstream(path("plain")) << "kept";
    const std::string a = kAgent + " ", spool = " --spool " + path("spool"),
                      fifo = " --fifo " + path("fifo");
    EXPECT_EQ(::mkfifo(path("held").c_str(), 0600), 0);
    const int held = ::open(path("held").c_str(), O_RDWR | O_CLOEXEC);
    const struct {
        std::string command;
        int status;
        std::string error;
    } rows[] = {
        {"run" + spool + " --fifo " + path("plain") + " true", 67, "plain: is no FIFO\n"},
        {"run" + spool + " --fifo /nowhere/fifo true", 67, "/nowhere/fifo: cannot be made: No"},
        {"run" + spool + " --fifo " + path("held") + " true", 65, "held: another process reads it"},
        {"run --spool " + path("plain") + fifo + " true", 68, "plain: Not a directory"},
        {"run --spool /proc" + fifo + " true", 68, "/proc: "},
        {"run --run N" + spool + fifo + " no-such-program", 70, "no-such-program: No such file"},
        {"start --run N" + spool + fifo + " true", 0, ""},
        {"follow N" + spool, 70, "run N: no program"},
        {"follow M" + spool, 66, "M: no such run"},
        {"stop M" + spool, 66, "M: no such run"},
        {"release M" + spool, 66, "M: no such run"},
        {"release N" + spool, 0, ""},
        {"release N" + spool, 66, "N: no such run"},
        {"follow N --spool /nowhere", 66, "N: no such run"},
        {"follow ../N" + spool, 64, "no name of a run: ../N"},
        {"run --run a/b" + spool + " true", 64, "no name of a run: a/b"},
        {"run --run " + std::string(65, 'a') + spool + " true", 64, "no name of a run: aaa"},
        {"run --from 3 true", 64, "unknown option --from"},
        {"follow N --fifo x", 64, "unknown option --fifo"},
        {"follow N --from 0", 64, "a number from 1 on is wanted behind --from"},
        {"follow N --from", 64, "a value is wanted behind --from"},
        {"follow", 64, "which run?"},
        {"list N", 64, "one word too many: N"},
        {"fetch", 64, "unknown command fetch"},
        {"", 64, "a command is wanted"},
        {"run" + spool + fifo + " echo " + std::string(4000, 'x'), 64, "the command is too long"},
    };
    for (const auto& row : rows) {
        const Finished got = shell(a + row.command);
        EXPECT_EQ(got.status, row.status) << row.command << "\n" << got.err;
        EXPECT_THAT(got.err, HasSubstr(row.error)) << row.command;
        EXPECT_THAT(got.err, StartsWith(row.error.empty() ? "" : "q7-agent: "));
        EXPECT_EQ(got.err.empty(), row.error.empty());
    }
    ::close(held);
    for (const std::string stream : {"/dev/full", "&-"}) {
        const std::string run = a + "run --run O" + spool + fifo + " true >" + stream;
        EXPECT_EQ(shell("sh -c '" + run + " <&- 2>&-'").status, 71) << stream;
        EXPECT_TRUE(await_stored("O", 2));
    }
    EXPECT_EQ(agent("release", {"O"}).status, 0);
    EXPECT_EQ(content_of(path("plain")), "kept");
    EXPECT_EQ(agent("list").out, "");
}

TEST_F(Agent, HasOneRunAtATimeAndStopsIt) {
    EXPECT_EQ(agent("start", {"--run", "one", "--", "sleep", "20"}).out, "one\n");
    const Finished other = agent("run", {"--run", "other", "--", "true"});
    EXPECT_EQ(other.status, 65);
    EXPECT_EQ(other.err, "q7-agent: run one is in progress\n");
    EXPECT_EQ(agent("release", {"one"}).status, 65);
    EXPECT_THAT(agent("list").out,
                StartsWith(R"({"run":"one","state":"running","events":1,"bytes":)"));
    EXPECT_EQ(agent("stop", {"one"}).status, 0);
    const Lines events = lines_of(agent("follow", {"one"}).out);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(json::parse(events[1])["by"], "command");
    EXPECT_EQ(json::parse(events[2])["signal"], SIGINT);
    EXPECT_EQ(agent("stop", {"one"}).status, 0);

    const Lines limited = lines_of(agent("run", {"--time-limit", "1", "--", "sleep", "20"}).out);
    ASSERT_GE(limited.size(), 3u);
    EXPECT_THAT(limited[limited.size() - 2], HasSubstr(R"("event":"stop","by":"time")"));
    EXPECT_THAT(agent("list").out, HasSubstr(R"("state":"ended","events":3,)"));
}

TEST_F(Agent, StopsAProgramThatDoesNotWantToAndOneThatLeavesItsOutputOpen) {
    if (!full_form()) GTEST_SKIP() << "25 s of waiting: with Q7_FULL";
    const std::string stubborn = "trap '' INT TERM\nwhile :; do sleep 0.1; done";
    agent("start", {"--run", "deaf", "--", "/bin/sh", script_file("deaf", stubborn)});
    EXPECT_EQ(agent("stop", {"deaf"}).status, 0);
    EXPECT_EQ(transcript_of(stored("deaf")).end["signal"], SIGKILL);

    const Finished open = run_script("open", "sleep 12 &\nexit 1");
    EXPECT_THAT(open.out, HasSubstr(R"("event":"problem","what":"output-open")"));
    EXPECT_EQ(transcript_of(lines_of(open.out)).end["status"], 1);
    const Finished early = agent("run", {"--", "true"});
    EXPECT_EQ(early.status, 65);
    EXPECT_EQ(early.err, "q7-agent: a process of run open still lives\n");
}

// A connection that broke before its first line is made again with the same words.
TEST_F(Agent, TheSameNameStartsTheProgramOnce) {
    const std::string script = script_file("once", "echo x >>" + path("starts") + "; sleep 0.3");
    const Words again = words("run", {"--run", "once", "--", "/bin/sh", script});
    std::vector<std::unique_ptr<Child>> children;
    for (int i = 0; i < 5; ++i)
        children.push_back(std::make_unique<Child>(again));
    for (const auto& child : children) {
        Lines events;
        for (std::string line; !(line = child->line()).empty();)
            if (!is_alive(line)) events.push_back(line);
        EXPECT_EQ(child->wait(), 0);
        EXPECT_EQ(events, stored("once"));
    }
    EXPECT_EQ(agent("start", {"--run", "once", "--", "/bin/sh", script}).status, 0);
    EXPECT_EQ(content_of(path("starts")), "x\n");
}

TEST_F(Agent, HoldsNothingOfTheProcessOrTerminalThatStartsIt) {
    int inherited[2];
    ASSERT_EQ(::pipe(inherited), 0);
    Child start(words("start", {"--run", "apart", "--", "sleep", "20"}));
    ::close(inherited[1]);
    EXPECT_EQ(start.line(), "apart\n");
    EXPECT_EQ(start.line(), "");  // the end of what the recorder might have kept open
    char byte;
    EXPECT_EQ(::read(inherited[0], &byte, 1), 0);
    ::close(inherited[0]);
    EXPECT_EQ(stored("apart").size(), 1u);  // it still runs
    EXPECT_EQ(agent("stop", {"apart"}).status, 0);

    int terminal = -1;
    Words run =
        words("run", {"--run", "tty", "--", "/bin/sh", "-c", "echo up; sleep 0.3; echo on"});
    std::vector<char*> arguments;
    for (std::string& word : run)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_FALSE(child < 0);
    if (child == 0) {
        ::execv(arguments[0], arguments.data());
        ::_exit(127);
    }
    EXPECT_TRUE(await_stored("tty", 2));
    ::close(terminal);  // hangs up
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 71);
    EXPECT_EQ(agent("follow", {"tty"}).status, 0);
    EXPECT_EQ(transcript_of(stored("tty")).out, "up\non\n");
}

TEST_F(Agent, TellsEverySecondThatItLives) {
    Child run(words("run", {"--run", "still", "--", "sleep", "1.5"}));
    const std::string start = run.line(), alive = run.line();
    EXPECT_THAT(alive, StartsWith(R"({"event":"alive","last":1,"t":)"));
    EXPECT_TRUE(is_sound(alive));
    std::string end = run.line();
    while (end.starts_with(R"({"event":"alive")"))
        end = run.line();
    EXPECT_EQ(stored("still"), Lines({start, end}));
}

// A run of q7-sim, played again event by event: the program writes one, and goes on when told to.
class AgentSteps : public Agent {
  protected:
    AgentSteps() {
        const Finished run = agent("run", {"--run", "model", "--", kSimulator, "--gbk", "--fifo",
                                           path("fifo"), "netQ7test"});
        model_ = transcript_of(lines_of(run.out));
        std::string script = "exec 9<" + path("steps") + "\n";
        for (const std::string& line : lines_of(run.out)) {
            const json event = json::parse(line);
            if (!event.contains("text")) continue;
            std::string bytes = bytes_of(event["text"]);
            if (event["event"] == "record") bytes = record_of(bytes);
            script += "printf '" + octal(bytes) + "'";
            if (event["event"] == "record") script += " >$F";
            if (event["event"] == "err") script += " >&2";
            script += "; read go <&9\n";
            ++steps_;
        }
        EXPECT_GT(steps_, 100u);
        program_ = script_file("steps", script);
        EXPECT_EQ(::mkfifo(path("steps").c_str(), 0600), 0);
        go_ = ::open(path("steps").c_str(), O_RDWR | O_CLOEXEC);
    }
    ~AgentSteps() override { ::close(go_); }

    Words stepping(const std::string& command, const std::string& name) const {
        return words(command, {"--run", name, "--", "/bin/sh", program_});
    }

    void go() const { EXPECT_EQ(::write(go_, "\n", 1), 1); }

    Transcript model_;
    std::size_t steps_ = 0;  // events between "start" and "end"
    std::string program_;
    int go_ = -1;
};

TEST_F(AgentSteps, FollowersKilledAtEveryEventLoseAndRepeatNothing) {
    const std::size_t stride = full_form() ? 1 : 5;
    auto follower = std::make_unique<Child>(stepping("run", "R"));
    ASSERT_TRUE(await_stored("R", 2));
    Child stalled(words("follow", {"R"}), 4096), closed(words("follow", {"R"}));
    closed.stop_reading();
    Lines got;
    std::size_t kills = 0;
    for (std::size_t n = 1; n <= steps_ + 2; ++n) {
        std::string line;
        while (is_alive(line = follower->line())) {
        }
        got.push_back(line);
        if (n % stride == 0 && n < steps_ + 2) {
            follower.reset();  // killed with the next event on its way or not, by turns
            ++kills;
            if (n % 2 == 0 && n > 1 && n < steps_ + 2) go();
            follower =
                std::make_unique<Child>(words("follow", {"R", "--from", std::to_string(n + 1)}));
            if (n % 2 == 0) continue;
        }
        if (n > 1 && n < steps_ + 2) go();
    }
    EXPECT_EQ(follower->wait(), 0);
    EXPECT_EQ(closed.wait(), 71);
    EXPECT_EQ(got, stored("R"));
    expect_numbered(got);
    const Transcript kept = transcript_of(got);
    EXPECT_EQ(kept.out, model_.out);
    EXPECT_EQ(kept.err, model_.err);
    EXPECT_EQ(kept.records, model_.records);
    EXPECT_EQ(kept.end["status"], 0);
    for (const std::string& line : got)
        EXPECT_EQ(stalled.line(), line);
    std::printf("%zu runs of a follower killed\n", kills);
}

TEST_F(AgentSteps, ARecorderKilledAtAnyEventLeavesAnIncompleteRunAndNothingThatLives) {
    const std::size_t stride = full_form() ? 1 : 17;
    std::size_t kills = 0;
    for (std::size_t n = 1; n <= steps_; n += stride, ++kills) {
        const std::string name = "K" + std::to_string(n);
        Child recorder(stepping("record", name));
        for (std::size_t at = 2; at <= n + 1; ++at) {
            ASSERT_TRUE(await_stored(name, at));
            if (at <= n) go();
        }
        recorder.kill();
        Finished next;
        for (int i = 0; i < 50 && (next = agent("run", {"--", "true"})).status == 65; ++i)
            std::this_thread::sleep_for(20ms);
        EXPECT_EQ(next.status, 0) << next.err;

        const Finished got = agent("follow", {name});
        EXPECT_EQ(got.status, 69);
        Lines events = lines_of(got.out);
        EXPECT_THAT(events.back(), StartsWith(R"({"event":"dead","t":)"));
        events.pop_back();
        EXPECT_EQ(events, stored(name));
        EXPECT_EQ(events.size(), n + 1);
        EXPECT_EQ(agent("stop", {name}).status, 69);
        EXPECT_THAT(agent("list").out, HasSubstr(name + R"(","state":"dead")"));
        EXPECT_EQ(agent("release", {name}).status, 0);
    }
    for (const auto& file : std::filesystem::directory_iterator(path("spool"))) {
        const std::string left = file.path().filename();
        EXPECT_TRUE(left.ends_with(".spool") || left == "lock") << left;
    }
    std::printf("%zu runs of a recorder killed\n", kills);
}

TEST_F(Agent, TheNextRunWaitsForTheLastProcessOfAKilledOne) {
    const std::string script = "sleep 0.7 &\necho on\nwait";
    Child recorder(words("record", {"--run", "L", "--", "/bin/sh", script_file("L", script)}));
    ASSERT_TRUE(await_stored("L", 2));
    recorder.kill();
    const Finished refused = agent("run", {"--run", "M", "--", "true"});
    EXPECT_EQ(refused.status, 65);
    EXPECT_EQ(refused.err, "q7-agent: a process of run L still lives\n");
    std::this_thread::sleep_for(700ms);
    EXPECT_EQ(agent("run", {"--run", "M", "--", "true"}).status, 0);
}

TEST_F(Agent, AFollowerEndsWhenTheNextRunCanStart) {
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(agent("run", {"--", "true"}).status, 0);
        const int lock = ::open(path("spool/lock").c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_EQ(::flock(lock, LOCK_EX | LOCK_NB), 0);
        ::close(lock);
    }
}

TEST_F(Agent, ARecorderKilledWhileItStartsIsNotInTheWay) {
    std::mt19937 random(13);
    for (int i = 0; i < (full_form() ? 300 : 20); ++i) {
        {
            Child recorder(words("record", {"--run", "S", "--", "sleep", "5"}));
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 8000));
        }
        Finished next;
        for (int attempt = 0; attempt < 50; ++attempt) {
            next = agent("run", {"--run", "S", "--", "true"});
            if (next.status != 65) break;
        }
        EXPECT_THAT(next.status, testing::AnyOf(0, 69)) << next.err;
        EXPECT_EQ(agent("release", {"S"}).status, 0);
    }
}

TEST_F(AgentSteps, LineNoiseIsSeenAndAskedForAgain) {
    const Lines events = stored("model");
    std::mt19937 random(13);
    int restarts = 0;
    for (int round = 0; round < (full_form() ? 50 : 3); ++round) {
        Lines got;
        while (got.size() < events.size()) {
            Child follower(words("follow", {"model", "--from", std::to_string(got.size() + 1)}));
            for (std::string line; !(line = follower.line()).empty();) {
                const std::size_t at = random() % line.size();
                const auto kind = random() % 40;
                if (kind == 0) line[at] = static_cast<char>(line[at] ^ 1 << random() % 8);
                if (kind == 1) line.erase(at, 1 + random() % 20);
                if (kind == 2) line.insert(at, "[   12.345] eth0: link is down\n");
                if (kind == 3) line.clear();
                if (!is_sound(line) || json::parse(line)["n"] != got.size() + 1) break;
                got.push_back(line);
            }
            ++restarts;
        }
        EXPECT_EQ(got, events);
    }
    EXPECT_GT(restarts, 10);
}

// A power cut leaves a file that ends anywhere; flash may bring other bytes back.
TEST_F(AgentSteps, ACutOrAlteredSpoolIsNeverAWholeRun) {
    const std::string file = path("spool/00000001-model.spool"), whole = content_of(file);
    const std::size_t stride = full_form() ? 7 : 331;
    for (std::size_t at = 0; at < whole.size(); at += stride) {
        const std::string sound = whole.substr(0, at == 0 ? 0 : whole.rfind('\n', at - 1) + 1);
        std::string altered = whole;
        altered[at] = static_cast<char>(altered[at] ^ 4);
        for (const std::string& bytes : {whole.substr(0, at), altered}) {
            std::ofstream(file, std::ios::binary) << bytes;
            const Finished got = agent("follow", {"model"});
            EXPECT_EQ(got.status, 69) << at;
            EXPECT_THAT(got.out, StartsWith(sound + R"({"event":"dead")")) << at;
        }
    }
}

TEST_F(Agent, AFullSpoolIsSaidAndStallsNothing) {
    const Finished got = agent("run", {"--run", "full", "--size-limit", "20000", "--", "/bin/sh",
                                       script_file("full", "seq 100000; exit 4")});
    EXPECT_EQ(got.status, 68);
    const Lines events = lines_of(got.out);
    ASSERT_GT(events.size(), 10u);
    EXPECT_THAT(events[events.size() - 2], HasSubstr(R"("event":"problem","what":"spool-full")"));
    EXPECT_EQ(json::parse(events.back())["status"], 4);
    EXPECT_LE(std::filesystem::file_size(path("spool/00000001-full.spool")), 20'000u);
    EXPECT_EQ(agent("follow", {"full", "--from", "100000"}).status, 68);
}

// On a file system of 128 KiB, in a mount space of its own.
TEST_F(Agent, AFullDiskTakesTheOldestRunsAndAReadOnlyOneIsSaid) {
    const std::string spool = path("spool");
    std::filesystem::create_directory(spool);
    const std::string mount = "unshare -m sh -c 'mount -t tmpfs -o size=128k none " + spool;
    if (shell(mount + "'").status != 0) GTEST_SKIP() << "no file system can be mounted here";
    std::ofstream(path("fill.sh"))
        << "run() { name=$1; shift; " << kAgent << " run --spool " << spool << " --fifo "
        << path("fifo") << " --run $name -- \"$@\" >" << folder_
        << "/$name.events; echo $name $?; }\n"
        << "run a seq 6000; run b seq 6000; run c seq 6000; run d seq 6000\n"
        << kAgent << " list --spool " << spool << "\n"
        << "run e sh -c 'seq 60000; exit 4'; run f true\n"
        << "mount -o remount,ro " << spool << "\nrun g true\n";
    const Finished got = shell(mount + "; sh " + path("fill.sh") + "'");
    EXPECT_THAT(got.out, StartsWith("a 0\nb 0\nc 0\nd 0\n{\"run\":\"b\",")) << got.err;
    EXPECT_THAT(got.out, EndsWith("e 68\nf 0\ng 68\n")) << got.err;
    EXPECT_THAT(got.err, EndsWith("spool: Read-only file system\n"));
    const Lines d = lines_of(content_of(path("d.events")));
    expect_numbered(d);
    EXPECT_THAT(content_of(path("d.events")),
                HasSubstr(R"("event":"problem","what":"spool-removed","text":"a")"));
    EXPECT_EQ(transcript_of(d).out, shell("seq 6000").out);
    const Lines e = lines_of(content_of(path("e.events")));
    ASSERT_GT(e.size(), 2u);
    EXPECT_THAT(e[e.size() - 2], HasSubstr(R"("what":"spool-full","text":"No space left on)"));
    EXPECT_EQ(json::parse(e.back())["status"], 4);
}

}  // namespace
