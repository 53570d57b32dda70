// `q7-station serve` as a process, with a simulated board that is tested meanwhile: requests of
// every wrong kind, disks that take nothing, a database that comes and goes.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <random>
#include <regex>
#include <thread>

#include "checks/http_client.h"
#include "checks/postgres.h"
#include "checks/programs.h"
#include "gmock/gmock.h"
#include "station/text.h"

namespace checks {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Clock = std::chrono::steady_clock;

constexpr char kStation[] = Q7_BINARIES "/q7-station";
#ifdef __SANITIZE_ADDRESS__
constexpr auto kPatience = 120s;
#else
constexpr auto kPatience = 40s;
#endif

bool in_full() { return std::getenv("Q7_FULL") != nullptr; }

bool within(std::chrono::milliseconds limit, const std::function<bool()>& condition) {
    for (const auto end = Clock::now() + limit; Clock::now() < end;) {
        if (condition()) return true;
        std::this_thread::sleep_for(20ms);
    }
    return false;
}

// A server of one station, in a folder of its own, with a good board.
class Served {
  public:
    Served() : folder_(scratch("serve")) {
        fs::create_directories(folder_ + "/plans");
        fs::permissions(folder_, fs::perms::all);
        fs::copy_file(Q7_SOURCE "/plans/healthy.toml", path("plans/plan.toml"));
    }
    ~Served() {
        end();
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }
    Served(const Served&) = delete;
    Served& operator=(const Served&) = delete;

    [[nodiscard]] std::string path(const std::string& name) const { return folder_ + "/" + name; }
    [[nodiscard]] std::uint16_t port() const { return port_; }
    // What the server has said of its own.
    [[nodiscard]] std::string said() const { return content_of(path("err")); }

    // `before` are words that start the server's words.
    void start(std::vector<std::string> before = {}, const std::vector<std::string>& more = {}) {
        const auto add = [&](const std::vector<std::string>& words) {
            before.insert(before.end(), words.begin(), words.end());
        };
        add({kStation, "serve", "--listen", "127.0.0.1:0", "--station", "3L02", "--operator",
             "W1032", "--plans", path("plans"), "--journals", path("journals")});
        add(more);
        add({"--", Q7_BINARIES "/q7-agent", "run", "--fifo", path("fifo"), "--spool", path("spool"),
             "--", Q7_BINARIES "/q7-sim", "--gbk", "--pace", "40", "--fifo", path("fifo"),
             "--board", Q7_SOURCE "/boards/" + board + ".toml"});
        const std::string url = first_line_of(before);
        ASSERT_THAT(url, StartsWith("http://127.0.0.1:")) << said();
        port_ = static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
    }

    std::string board = "healthy";  // that is tested

    // Its wait status.
    int end() {
        if (process_ <= 0) return 0;
        ::kill(process_, SIGTERM);
        int status = 0;
        ::waitpid(process_, &status, 0);
        process_ = 0;
        return status;
    }

    [[nodiscard]] json state() const {
        const Client client(port_);
        client.send("GET /api/state HTTP/1.1\r\nHost: localhost\r\n\r\n");
        const std::string got = client.receive();
        const std::size_t body = got.find("\r\n\r\n");
        return json::parse(body == std::string::npos ? "" : got.substr(body), nullptr, false);
    }
    [[nodiscard]] std::string phase() const {
        const json now = state();
        return now.is_object() ? now.at("phase").get<std::string>() : "";
    }
    // The reply.
    [[nodiscard]] std::string post(const std::string& route, const json& body) const {
        const std::string text = body.dump();
        const Client client(port_);
        client.send("POST " + route
                    + " HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
                      "Content-Length: "
                    + std::to_string(text.size()) + "\r\n\r\n" + text);
        return client.receive();
    }
    // Answers the question that is due, if there is one. False when the run is over.
    [[nodiscard]] bool goes_on() const {
        const json now = state();
        if (!now.is_object()) return true;  // the server had no place for us
        if (now.at("question").is_object()) {
            const json& attempt = now.at("attempt");
            (void)post("/api/answer", {{"attempt", attempt.at("id")},
                                       {"serial", attempt.at("serial")},
                                       {"question", now.at("question").at("name")},
                                       {"answer", "yes"}});
        }
        return now.at("phase") == "running" || now.at("phase") == "storing";
    }
    // The state when the board is tested and all is answered.
    [[nodiscard]] json test(const std::string& serial) const {
        EXPECT_THAT(post("/api/scan", {{"text", serial}}), StartsWith("HTTP/1.1 200"));
        EXPECT_TRUE(within(kPatience, [&] { return !goes_on(); })) << state();
        return state();
    }

  private:
    // Starts the words and reads the first line that they print.
    std::string first_line_of(std::vector<std::string>& words) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) return "no pipe";
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        const std::string err = path("err");
        process_ = ::fork();
        if (process_ < 0) return "no process";
        if (process_ == 0) {
            const int log = ::open(err.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
            ::dup2(ends[1], 1);
            ::dup2(log, 2);
            ::execvp(arguments[0], arguments.data());
            ::_exit(127);
        }
        ::close(ends[1]);
        std::string line;
        char c = 0;
        while (::read(ends[0], &c, 1) == 1 && c != '\n')
            line += c;
        ::close(ends[0]);
        return line;
    }

    std::string folder_;
    pid_t process_ = 0;
    std::uint16_t port_ = 0;
};

// --- Requests ----------------------------------------------------------------------------------

// What a client may send that the station has not asked for.
class RandomRequests {
  public:
    explicit RandomRequests(unsigned seed) : random_(seed) {
        const std::string page = content_of(Q7_SOURCE "/docs/api.md");
        static const std::regex kRoute("`(GET|POST) (/api/[a-z]+)");
        for (std::sregex_iterator at(page.begin(), page.end(), kRoute), end; at != end; ++at)
            routes_.emplace_back((*at)[1], (*at)[2]);
    }

    struct Made {
        std::string bytes;
        bool is_whole = true;  // as a client would write it
        int refused = 0;       // status that it must have; 0 = another one
    };

    Made next() {
        Made made;
        auto [method, route] = one_of(routes_);
        if (one_in(20)) method = one_of(std::vector<std::string>{"PUT", "HEAD", "OPTIONS", "get"});
        if (one_in(20)) route = "/" + text() + "/" + text();
        std::erase(route, ' ');
        std::string body = method == "POST" ? json_text() : "";
        std::string head = method + " " + route + query() + " HTTP/1.1\r\n";
        if (one_in(12)) {
            made.refused = 421;
            head += "Host: evil.example\r\n";
        } else {
            head += "Host: localhost\r\n";
            if (one_in(12)) {
                made.refused = 403;
                head += one_in(2) ? "Origin: http://evil.example\r\n"
                                  : "Sec-Fetch-Site: cross-site\r\n";
            }
        }
        if (!one_in(20)) head += "Content-Type: application/json\r\n";
        if (one_in(30)) body.append(random_() % 40'000, ' ');
        if (one_in(10)) {
            char size[20];
            std::snprintf(size, sizeof size, "%zx\r\n", body.size());
            head += "Transfer-Encoding: chunked\r\n";
            body = body.empty() ? "0\r\n\r\n" : size + body + "\r\n0\r\n\r\n";
        } else {
            head += "Content-Length: " + std::to_string(body.size()) + "\r\n";
        }
        made.bytes = head + "\r\n" + body;
        if (one_in(3)) damage(made);
        return made;
    }

    bool one_in(std::size_t count) { return random_() % count == 0; }

  private:
    template <class List>
    const typename List::value_type& one_of(const List& list) {
        return list[random_() % list.size()];
    }

    // Bytes are changed, the end is missing, or a header is very long.
    void damage(Made& made) {
        made.is_whole = false;
        const auto way = random_() % 4;
        if (way == 0) made.bytes.resize(random_() % made.bytes.size());
        if (way == 1)
            made.bytes.insert(made.bytes.find("\r\n") + 2,
                              "X: " + std::string(random_() % 60'000, 'x') + "\r\n");
        for (auto i = random_() % 8; way >= 2 && i > 0; --i)
            made.bytes[random_() % made.bytes.size()] = static_cast<char>(random_());
    }

    // No serial number that a plan takes: a scan of one would be a good request.
    std::string text() {
        static const std::vector<std::string> kTexts{"",
                                                     "1",
                                                     "-1",
                                                     "99999999999999999999",
                                                     "1e400",
                                                     "null",
                                                     "2026-11-23",
                                                     "all",
                                                     "day",
                                                     "3L02-20261123-0001",
                                                     "3L02-20261123-0001/../..",
                                                     "..%2f..%2fetc%2fpasswd",
                                                     "../..",
                                                     "%00",
                                                     "%",
                                                     "%zz",
                                                     "%ff%fe",
                                                     "\xff\xfe\xc0\x80",
                                                     "\xb2\xe2\xca\xd4",
                                                     "'; DELETE FROM attempts; --",
                                                     "%27%20OR%201=1",
                                                     "<script>alert(1)</script>",
                                                     "=HYPERLINK(1)",
                                                     "45270-0000-00001",
                                                     "production",
                                                     "W1032"};
        if (one_in(15)) return std::string(random_() % 2000, 'A');
        return one_of(kTexts);
    }

    std::string query() {
        static const std::vector<std::string> kNames{"id",      "serial", "date", "model", "plan",
                                                     "station", "item",   "by",   "list",  "token",
                                                     "from",    "to",     "days", "%00"};
        std::string query;
        for (auto i = random_() % 4; i > 0; --i) {
            query += (query.empty() ? "?" : "&") + one_of(kNames);
            if (!one_in(10)) query += "=" + text();
        }
        std::erase(query, ' ');
        return query;
    }

    std::string json_value() {
        switch (random_() % 16) {
        case 0:
            return "null";
        case 1:
            return "18446744073709551616";
        case 2:
            return "-0.1e-999";
        case 3:
            return "[" + json_value() + "]";
        case 4:
            return "{\"" + text() + "\":true}";
        case 5:
            return std::string(random_() % 8000, '[');
        case 6:
            return "\"\\ud800\\u0000\"";
        default:
            return '"' + text() + '"';
        }
    }

    std::string json_text() {
        static const std::vector<std::string> kNames{
            "text",   "attempt",    "serial", "question", "answer", "mark",  "badge",  "repair",
            "defect", "supervisor", "note",   "id",       "cause",  "place", "\\u0000"};
        std::string body;
        const bool has_all = one_in(2);
        for (const std::string& name : kNames)
            if (has_all || one_in(4))
                body += (body.empty() ? "" : ",") + ('"' + name + "\":" + json_value());
        return one_in(10) ? json_value() : "{" + body + "}";
    }

    std::mt19937 random_;
    std::vector<std::pair<std::string, std::string>> routes_;
};

int status_of(const std::string& reply) {
    return reply.starts_with("HTTP/1.") && reply.size() > 12 ? std::atoi(reply.c_str() + 9) : 0;
}

class Serve : public testing::Test {
  protected:
    [[nodiscard]] std::string serial() {
        char text[32];
        std::snprintf(text, sizeof text, "45270-2648-%04d", ++boards_);
        return text;
    }
    // What an undisturbed run of a good board ends with.
    void expect_pass(const json& state, const std::string& database = "committed") const {
        ASSERT_EQ(state.at("phase"), "verdict") << state.at("locked") << station_.said();
        const json& verdict = state.at("verdict");
        EXPECT_EQ(verdict.at("verdict"), "pass") << verdict.at("items");
        EXPECT_EQ(verdict.at("stored").at("database"), database);
        EXPECT_TRUE(verdict.at("stored").at("journal"));
        EXPECT_TRUE(verdict.at("stored").at("judgement"));
    }
    void expect_clean_end() {
        const int status = station_.end();
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status << station_.said();
        EXPECT_THAT(station_.said(), Not(HasSubstr("Sanitizer")));
    }

    Served station_;
    int boards_ = 0;
};

TEST_F(Serve, TestsBoardsWhateverIsAskedMeanwhile) {
    ASSERT_NO_FATAL_FAILURE(station_.start());
    RandomRequests requests(7);
    const int wanted = in_full() ? 100'000 : 400;
    std::map<int, int> statuses;
    ASSERT_THAT(station_.post("/api/scan", {{"text", serial()}}), StartsWith("HTTP/1.1 200"));
    for (int i = 0; i < wanted; ++i) {
        if (i % 50 == 49 && !station_.goes_on()) {
            expect_pass(station_.state());
            ASSERT_THAT(station_.post("/api/scan", {{"text", serial()}}),
                        StartsWith("HTTP/1.1 200"));
        }
        const auto made = requests.next();
        const Client client(station_.port());
        ASSERT_TRUE(client.connected()) << i;
        const bool sent = client.send(made.bytes);
        if (!made.is_whole && requests.one_in(2)) continue;  // and gone
        const std::string reply = client.receive(made.is_whole ? 5000ms : 20ms, "\r\n\r\n");
        const int status = status_of(reply);
        ++statuses[status];
        EXPECT_NE(status, 500) << made.bytes << station_.said();
        if (!made.is_whole || !sent) continue;
        EXPECT_NE(status, 0) << made.bytes;
        if (made.refused != 0 && status != 413) {
            EXPECT_EQ(status, made.refused) << made.bytes;
        }
    }
    EXPECT_TRUE(within(kPatience, [&] { return !station_.goes_on(); }));
    expect_pass(station_.state());
    for (const int status : {200, 400, 403, 404, 409, 421})
        EXPECT_GT(statuses[status], 0) << status;
    int journals = 0;
    for (const auto& entry : fs::recursive_directory_iterator(station_.path("journals")))
        journals += entry.path().extension() == ".journal" ? 1 : 0;
    EXPECT_EQ(journals, boards_);
    expect_clean_end();
}

TEST_F(Serve, TestsABoardBehindAThousandSilentConnections) {
    rlimit files{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &files), 0);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 4096);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &files), 0);
    ASSERT_NO_FATAL_FAILURE(station_.start());
    ASSERT_THAT(station_.post("/api/scan", {{"text", serial()}}), StartsWith("HTTP/1.1 200"));
    std::vector<Client> silent;
    for (int i = 0; i < 1000; ++i)
        silent.emplace_back(station_.port());
    EXPECT_TRUE(within(kPatience, [&] { return !station_.goes_on(); }));
    expect_pass(station_.state());
    expect_clean_end();
}

std::string judgement_in(const fs::path& journals) {
    for (const auto& entry : fs::recursive_directory_iterator(journals))
        if (entry.path().string().ends_with(".judgement.json")) return entry.path();
    return "";
}

TEST_F(Serve, SendsAVerdictWhenTheBoardIsScannedOut) {
    std::string plan = content_of(station_.path("plans/plan.toml"));
    plan.replace(plan.find("scan_out = false"), 16, "scan_out = true");
    std::ofstream(station_.path("plans/plan.toml")) << plan;
    ASSERT_NO_FATAL_FAILURE(station_.start());
    const std::string released = serial(), swapped = serial(), other = serial();
    expect_pass(station_.test(released), "at-release");
    // The board waits for its release over a restart of the server, too.
    EXPECT_EQ(station_.end(), 0);
    ASSERT_NO_FATAL_FAILURE(station_.start());
    EXPECT_EQ(station_.state().at("verdict").at("scan_out"), "due");
    const std::string judgement = judgement_in(station_.path("journals"));
    const std::string due = content_of(judgement);
    EXPECT_THAT(due, HasSubstr(R"("release":"due")"));
    EXPECT_THAT(station_.post("/api/scan", {{"text", released}}), StartsWith("HTTP/1.1 200"));
    EXPECT_EQ(station_.state().at("last").at("released"), true);
    // A server that was killed after the scan leaves the judgement from before it.
    EXPECT_EQ(station_.end(), 0);
    std::ofstream(judgement) << due;
    ASSERT_NO_FATAL_FAILURE(station_.start());
    EXPECT_EQ(station_.state().at("last").at("released"), true);
    EXPECT_THAT(content_of(judgement), Not(HasSubstr("release\"")));
    expect_pass(station_.test(swapped), "at-release");
    // An index that is made meanwhile leaves the board out: its verdict can still change.
    EXPECT_EQ(shell(std::string(kStation) + " index --journals " + station_.path("journals")).out,
              "0 new, 1 known, 1 running, 0 not indexed, 0 unsent\n");
    EXPECT_THAT(station_.post("/api/scan", {{"text", other}}), HasSubstr("\"swapped\""));
    const json verdict = station_.state().at("verdict");
    EXPECT_EQ(verdict.at("verdict"), "not-proven");
    EXPECT_EQ(verdict.at("stored").at("database"), "committed");
    expect_clean_end();
    for (const auto& [board, expected] :
         {std::pair(released, "PASS"), std::pair(swapped, "NOT PROVEN")}) {
        const auto history = shell(std::string(kStation) + " history --json --journals "
                                   + station_.path("journals") + " " + board);
        const json kept = json::parse(history.out, nullptr, false);
        ASSERT_TRUE(kept.is_object()) << history.out << history.err;
        ASSERT_EQ(kept.at("attempts").size(), 1u) << history.out;
        EXPECT_EQ(kept.at("attempts")[0].at("verdict"), expected);
    }
}

TEST_F(Serve, ShowsTheCausesOfAFailure) {
    const std::string plan = station::sha256(content_of(station_.path("plans/plan.toml")));
    fs::create_directories(station_.path("dictionaries"));
    std::ofstream(station_.path("dictionaries/healthy"))
        << R"({"fault_dictionary":1,"plan":"QM-45270 DVR","revision":1,"sha256":")" << plan
        << R"(","board":"healthy.toml","defects":1,"symptoms":)"
        << R"([["rs485.good","0","0"],["rs485.received","none"],["rs485.result","timeout","0"]]})"
        << '\n'
        << R"({"s":[0,1,2],"d":[["rs485.no-echo",[],"rs485.fixture = false\n"]]})" << '\n';
    station_.board = "rs485-silent";
    for (const char* once_more : {"the run", "a server that was started again"}) {
        ASSERT_NO_FATAL_FAILURE(
            station_.start({}, {"--dictionaries", station_.path("dictionaries")}));
        const json verdict =
            (boards_ == 0 ? station_.test(serial()) : station_.state()).at("verdict");
        EXPECT_EQ(verdict.at("verdict"), "fail") << once_more;
        ASSERT_FALSE(verdict.at("causes").empty()) << once_more << station_.said();
        EXPECT_EQ(verdict.at("causes").at(0).at("title").at("zh"), "RS-485 没有回环");
        EXPECT_EQ(station_.end(), 0);
    }
}

// --- What cannot be stored ---------------------------------------------------------------------

// Permissions bind root, too.
std::vector<std::string> bound_by_permissions() {
    if (::geteuid() != 0) return {};
    return {"setpriv", "--bounding-set=-dac_override,-dac_read_search"};
}

void set_permissions(const fs::path& folder, fs::perms permissions) {
    fs::permissions(folder, permissions);
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_directory()) fs::permissions(entry, permissions);
}

TEST_F(Serve, ShowsNoPassWhereTheFolderIsReadOnly) {
    const fs::path journals = station_.path("journals");
    fs::create_directories(journals);
    const auto take_nothing = fs::perms::owner_read | fs::perms::owner_exec;
    ASSERT_NO_FATAL_FAILURE(station_.start(bound_by_permissions()));
    ASSERT_THAT(station_.post("/api/scan", {{"text", serial()}}), StartsWith("HTTP/1.1 200"));
    ASSERT_TRUE(within(kPatience, [&] { return station_.state().at("question").is_object(); }));
    set_permissions(journals, take_nothing);
    EXPECT_TRUE(within(kPatience, [&] { return !station_.goes_on(); }));
    const json locked = station_.state();
    EXPECT_EQ(locked.at("phase"), "locked");
    EXPECT_THAT(locked.at("locked"), Contains("read-only"));
    EXPECT_TRUE(locked.at("verdict").is_null());
    EXPECT_THAT(station_.post("/api/scan", {{"text", serial()}}), HasSubstr("\"locked\""));
    // The run is whole in its journal: the server that can store again judges it.
    set_permissions(journals, fs::perms::owner_all);
    station_.end();
    ASSERT_NO_FATAL_FAILURE(station_.start(bound_by_permissions()));
    EXPECT_TRUE(within(kPatience, [&] { return !station_.goes_on(); }));
    expect_pass(station_.state());
}

TEST_F(Serve, ShowsNoPassWhereTheDiskIsFull) {
    const std::string journals = station_.path("journals");
    fs::create_directories(journals);
    std::vector<std::string> own_disk{
        "unshare",
        "--user",
        "--map-root-user",
        "--mount",
        "sh",
        "-c",
        "mount -t tmpfs -o size=48k tmpfs " + journals + " || exit 9; exec \"$@\"",
        "sh"};
    if (::geteuid() == 0) own_disk.erase(own_disk.begin() + 1, own_disk.begin() + 3);
    if (shell("unshare " + std::string(::geteuid() == 0 ? "" : "--user --map-root-user ")
              + "--mount mount -t tmpfs tmpfs " + journals)
            .status
        != 0)
        GTEST_SKIP() << "no file system can be mounted here";
    ASSERT_NO_FATAL_FAILURE(station_.start(own_disk));
    const std::string reply = station_.post("/api/scan", {{"text", serial()}});
    if (status_of(reply) == 200) {
        EXPECT_TRUE(within(kPatience, [&] { return !station_.goes_on(); }));
    }
    const json locked = station_.state();
    EXPECT_EQ(locked.at("phase"), "locked");
    EXPECT_THAT(locked.at("locked"), Contains("disk-full"));
    EXPECT_TRUE(locked.at("verdict").is_null());
}

TEST_F(Serve, GoesOnWithoutItsDatabaseAndSendsLater) {
    if (!Postgres::is_installed()) GTEST_SKIP() << "PostgreSQL is not installed";
    Postgres postgres;
    const std::string url = postgres.new_database();
    ASSERT_NO_FATAL_FAILURE(station_.start({}, {"--index", url}));
    expect_pass(station_.test(serial()));
    postgres.crash();
    const json away = station_.test(serial());
    expect_pass(away, "spooled");
    EXPECT_EQ(away.at("verdict").at("stored").at("unsent"), 1);
    EXPECT_TRUE(within(10s, [&] { return !station_.state().at("database"); }));
    postgres.start();
    EXPECT_TRUE(within(30s, [&] { return station_.state().at("unsent") == 0; }));
    expect_clean_end();
    const auto kept = shell(std::string(kStation) + " export --format csv --index '" + url + "'");
    for (const char* board : {",45270-2648-0001,", ",45270-2648-0002,"}) {
        const std::size_t first = kept.out.find(board);
        ASSERT_NE(first, std::string::npos) << kept.out << kept.err;
        EXPECT_EQ(kept.out.find(board, first + 1), std::string::npos) << kept.out;
    }
}

}  // namespace
}  // namespace checks
