// The station's server by raw sockets: who may ask, and what bounds a client.

#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <random>
#include <thread>

#include "checks/http_client.h"
#include "checks/index_attempts.h"
#include "checks/programs.h"
#include "gmock/gmock.h"
#include "station/web/server.h"
#include "station/web/yield.h"

namespace {

using namespace std::chrono_literals;
using checks::Client;
using nlohmann::json;
using station::web::Backend;
using station::web::HttpServer;
using station::web::Limits;
using station::web::Refusal;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Clock = std::chrono::steady_clock;

constexpr char kLook[] = "look-look-look-look";
constexpr char kOperate[] = "operate-operate-operate";

class Web : public testing::Test {
  protected:
    void start(station::web::Tokens tokens = {}, Limits limits = {}) {
        Backend backend;
        backend.state = [] { return json{{"phase", "waiting"}}; };
        backend.scan = [this](const std::string& text) {
            ++scans;
            if (text == "busy") throw Refusal(409, "running");
        };
        backend.answer = [this](auto&&...) { ++answers; };
        backend.attempt = [](const std::string& id) { return json{{"id", id}}; };
        backend.board = [](const std::string&) -> json { throw std::runtime_error("database"); };
        routes = std::make_unique<station::web::Server>(std::move(backend), std::move(tokens));
        http = std::make_unique<HttpServer>("127.0.0.1", 0, limits, [this](const auto& request) {
            return routes->handle(request);
        });
        thread = std::thread([this] { http->run(); });
    }
    void TearDown() override {
        if (http) http->stop();
        if (thread.joinable()) thread.join();
    }
    [[nodiscard]] std::string ask(const std::string& text) const {
        const Client client(http->port());
        client.send(text);
        return client.receive();
    }
    [[nodiscard]] std::string get(const std::string& path, const std::string& more = "") const {
        return ask("GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + more + "\r\n");
    }
    [[nodiscard]] std::string post(const std::string& path, const std::string& body,
                                   const std::string& more = "") const {
        return ask("POST " + path
                   + " HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n" + more
                   + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    }

    std::atomic<int> scans = 0;
    std::atomic<int> answers = 0;
    std::unique_ptr<station::web::Server> routes;
    std::unique_ptr<HttpServer> http;
    std::thread thread;
};

TEST_F(Web, RequestsOfOtherSitesAreRefused) {
    start();
    EXPECT_THAT(get("/api/state"), StartsWith("HTTP/1.1 200"));
    EXPECT_THAT(ask("GET /api/state HTTP/1.1\r\nHost: evil.example\r\n\r\n"),
                StartsWith("HTTP/1.1 421"));
    EXPECT_THAT(ask("GET /api/state HTTP/1.1\r\nHost: 127.0.0.1.evil.example\r\n\r\n"),
                StartsWith("HTTP/1.1 421"));
    EXPECT_THAT(get("/api/state", "Origin: http://evil.example\r\n"), StartsWith("HTTP/1.1 403"));
    EXPECT_THAT(get("/api/state", "Sec-Fetch-Site: cross-site\r\n"), StartsWith("HTTP/1.1 403"));
    EXPECT_THAT(post("/api/scan", R"({"text":"1"})", "Origin: http://evil.example\r\n"),
                StartsWith("HTTP/1.1 403"));
    EXPECT_THAT(ask("POST /api/scan HTTP/1.1\r\nHost: localhost\r\nContent-Type: text/plain\r\n"
                    "Content-Length: 12\r\n\r\n{\"text\":\"1\"}"),
                StartsWith("HTTP/1.1 415"));
    EXPECT_EQ(scans, 0);
    EXPECT_THAT(post("/api/scan", R"({"text":"1"})", "Origin: http://localhost\r\n"),
                StartsWith("HTTP/1.1 200"));
    EXPECT_EQ(scans, 1);
}

TEST_F(Web, ATokenToLookDoesNotOperate) {
    start({kLook, kOperate});
    EXPECT_THAT(get("/"), StartsWith("HTTP/1.1 401"));
    EXPECT_THAT(get("/api/events"), StartsWith("HTTP/1.1 401"));
    const std::string look = std::string("Authorization: Bearer ") + kLook + "\r\n";
    const std::string operate = std::string("Cookie: other=1; q7=") + kOperate + "\r\n";
    EXPECT_THAT(get("/api/state", look), StartsWith("HTTP/1.1 200"));
    EXPECT_THAT(post("/api/scan", R"({"text":"1"})", look), StartsWith("HTTP/1.1 403"));
    EXPECT_EQ(scans, 0);
    EXPECT_THAT(post("/api/scan", R"({"text":"1"})", operate), StartsWith("HTTP/1.1 200"));
    EXPECT_EQ(scans, 1);
    const std::string signed_in = get(std::string("/?token=") + kLook);
    EXPECT_THAT(signed_in, StartsWith("HTTP/1.1 303"));
    EXPECT_THAT(signed_in, HasSubstr(std::string("Set-Cookie: q7=") + kLook));
    EXPECT_THAT(get("/?token=guess-guess-guess-guess"), StartsWith("HTTP/1.1 401"));
}

TEST_F(Web, TokensAreReadOnlyWhenBothAreThereAndLong) {
    const std::string file = checks::scratch("tokens");
    const auto read = [&](const std::string& text) {
        std::ofstream(file) << text;
        return station::web::read_tokens(file);
    };
    EXPECT_EQ(read("look 0123456789abcdef\noperate fedcba9876543210\n").operate,
              "fedcba9876543210");
    EXPECT_THROW(read("look 0123456789abcdef\n"), std::runtime_error);
    EXPECT_THROW(read("look short\noperate fedcba9876543210\n"), std::runtime_error);
    EXPECT_THROW(read("admin 0123456789abcdef\n"), std::runtime_error);
}

TEST_F(Web, ErrorsAreCodesAndAFailureStaysInside) {
    start();
    EXPECT_THAT(post("/api/scan", R"({"text":"busy"})"), HasSubstr(R"({"error":"running"})"));
    EXPECT_THAT(post("/api/scan", R"({"text":5})"), StartsWith("HTTP/1.1 400"));
    EXPECT_THAT(post("/api/scan", "[1"), StartsWith("HTTP/1.1 400"));
    EXPECT_THAT(post("/api/scan", R"({"text":")" + std::string(400, 'x') + "\"}"),
                HasSubstr("too-long"));
    EXPECT_THAT(get("/api/attempt"), HasSubstr("missing-id"));
    EXPECT_THAT(get("/api/board?serial=1"), HasSubstr(R"({"error":"failed"})"));
    EXPECT_THAT(get("/api/yield"), StartsWith("HTTP/1.1 404"));
    EXPECT_THAT(get("/../../etc/passwd"), StartsWith("HTTP/1.1 404"));
    EXPECT_THAT(ask("DELETE /api/state HTTP/1.1\r\nHost: localhost\r\n\r\n"),
                StartsWith("HTTP/1.1 405"));
    const std::string page = get("/");
    EXPECT_THAT(page, HasSubstr("Content-Security-Policy: default-src 'none'"));
    EXPECT_THAT(page, HasSubstr("<!doctype html>"));
    EXPECT_THAT(get("/chart.js"), HasSubstr("Chart.js"));
}

TEST_F(Web, ARequestHasATimeToArriveAndASize) {
    Limits limits;
    limits.arrival = 300ms;
    start({}, limits);
    const auto begun = Clock::now();
    const Client silent(http->port());
    const Client slow(http->port());
    std::thread drip([&] {
        for (const char c :
             std::string("GET /api/state HTTP/1.1\r\nHost: localhost\r\nX: 0123456789"))
            if (!slow.send({&c, 1}))
                return;
            else
                std::this_thread::sleep_for(20ms);
    });
    EXPECT_THAT(silent.receive(), StartsWith("HTTP/1.1 408"));
    EXPECT_LT(Clock::now() - begun, 2s);
    drip.join();
    EXPECT_THAT(slow.receive(), StartsWith("HTTP/1.1 408"));
    EXPECT_THAT(post("/api/scan", "{\"text\":\"" + std::string(20'000, 'x') + "\"}"),
                StartsWith("HTTP/1.1 413"));
    EXPECT_THAT(get("/" + std::string(40'000, 'x')), Not(StartsWith("HTTP/1.1 200")));
    EXPECT_EQ(scans, 0);
}

TEST_F(Web, ConnectionsAndStreamsBeyondTheBoundAreToldSo) {
    Limits limits;
    limits.connections = 24;
    limits.streams = 4;
    start({}, limits);
    http->publish("state", "{}");
    std::vector<Client> streams;
    for (int i = 0; i < 4; ++i) {
        streams.emplace_back(http->port());
        streams.back().send("GET /api/events HTTP/1.1\r\nHost: localhost\r\n\r\n");
        EXPECT_THAT(streams.back().receive(2s, "data: {}"), HasSubstr("event: state"));
    }
    EXPECT_THAT(get("/api/events"), HasSubstr(R"({"error":"streams"})"));
    std::vector<Client> silent;
    for (int i = 0; i < 20; ++i)
        silent.emplace_back(http->port());
    std::this_thread::sleep_for(150ms);
    const Client refused(http->port());
    EXPECT_THAT(refused.receive(1s), StartsWith("HTTP/1.1 503"));
    http->publish("state", R"({"now":2})");
    for (const Client& stream : streams)
        EXPECT_THAT(stream.receive(2s, R"({"now":2})"), HasSubstr(R"(data: {"now":2})"));
    silent.clear();
    std::this_thread::sleep_for(150ms);
    EXPECT_THAT(get("/api/state"), StartsWith("HTTP/1.1 200"));
}

TEST_F(Web, AThousandSilentConnectionsAreBounded) {
    rlimit files{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &files), 0);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 4096);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &files), 0);
    start();
    std::vector<Client> silent;
    for (int i = 0; i < 1000; ++i)
        silent.emplace_back(http->port());
    std::this_thread::sleep_for(300ms);
    EXPECT_THAT(silent.back().receive(1s), StartsWith("HTTP/1.1 503"));
    EXPECT_THAT(silent.front().receive(4s), StartsWith("HTTP/1.1 408"));
    std::this_thread::sleep_for(300ms);
    EXPECT_THAT(get("/api/state"), StartsWith("HTTP/1.1 200"));
}

// Requests of random bytes, and whole requests with random bytes changed.
TEST_F(Web, RandomRequestsDoNoHarm) {
    start();
    const bool full = std::getenv("Q7_FULL") != nullptr;
    std::mt19937 random(7);
    const std::vector<std::string> seeds = {
        "GET /api/attempt?id=3L02-20261123-0088 HTTP/1.1\r\nHost: localhost\r\nCookie: q7=x; "
        "a=b\r\n\r\n",
        "POST /api/scan HTTP/1.1\r\nHost: localhost\r\nContent-Type: "
        "application/json\r\nContent-Length: 12\r\n\r\n{\"text\":\"1\"}",
        "POST /api/answer HTTP/1.1\r\nHost: [::1]:80\r\nContent-Type: "
        "application/json\r\nTransfer-Encoding: "
        "chunked\r\n\r\n5\r\n{\"a\":\r\n2\r\n1}\r\n0\r\n\r\n"};
    for (int i = 0; i < (full ? 100'000 : 3'000); ++i) {
        std::string text = seeds[random() % seeds.size()];
        for (unsigned k = random() % 8; k > 0; --k)
            text[random() % text.size()] = char(random());
        if (random() % 4 == 0) text.resize(random() % text.size());
        const Client client(http->port());
        ASSERT_TRUE(client.connected()) << i;
        client.send(text);
        if (random() % 3 == 0) client.receive(5ms, "\r\n");
    }
    std::this_thread::sleep_for(100ms);
    EXPECT_THAT(get("/api/state"), StartsWith("HTTP/1.1 200"));
}

// A day on which boards were only tested again, or broke off, has no first-pass yield: no 0 %.
TEST(YieldPage, DrawsDaysThatHaveAYield) {
    station::index::AttemptRecord failed = checks::full_attempt();
    failed.mark = "production";
    failed.verdict = "FAIL";
    auto repaired = failed;
    repaired.id += "-2";
    repaired.verdict = "PASS";
    repaired.start.utc_ms += 24 * 3600 * 1000;
    auto broken_off = repaired;
    broken_off.serial = "45270-2648-9999";
    broken_off.id += "-3";
    broken_off.verdict = "INCOMPLETE";
    station::index::Index index(":memory:");
    const std::vector all{failed, repaired, broken_off};
    index.add(all);
    const json yield = station::web::yield_json(index, {{"date", "14"}}, to_iso(repaired.start));
    ASSERT_EQ(yield.at("series").at("rows").size(), 1u);
    const json row = yield.at("series").at("rows").at(0);
    EXPECT_EQ(row.at("key"), to_iso(failed.start).substr(0, 10));
    EXPECT_EQ(row.at("first_good"), 0);
    EXPECT_EQ(row.at("final_good"), 1);
    EXPECT_EQ(yield.at("totals").at("days"), 1);
    EXPECT_EQ(yield.at("totals").at("incomplete"), 1);
}

}  // namespace
