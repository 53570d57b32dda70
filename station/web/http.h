// A small HTTP server that bounds what a client can take: connections, live streams, the size of a
// request and the time for it to arrive. One thread, one request a connection.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace station::web {

struct Request {
    std::string method;
    std::string path;                            // decoded, without the query
    std::map<std::string, std::string> query;    // decoded
    std::map<std::string, std::string> headers;  // names in lower case
    std::string body;
};

struct Response {
    int status = 200;
    std::string type = "application/json";
    std::string body = {};
    std::vector<std::pair<std::string, std::string>> headers = {};
    bool stream = false;  // a live stream: what is published, from the latest event on
};

struct Limits {
    std::size_t connections = 512;
    std::size_t streams = 32;
    std::size_t body_bytes = 16'384;
    std::chrono::milliseconds arrival{2000};  // for the whole request, from the connection on
    unsigned idle_s = 10;                     // without a byte taken by the client
};

class HttpServer {
  public:
    // Called by the thread in run(); must not throw.
    using Handler = std::function<Response(const Request&)>;

    // Listens on a numeric address; port 0 takes a free one. Throws std::system_error.
    HttpServer(const std::string& address, std::uint16_t port, const Limits& limits,
               Handler handler);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    [[nodiscard]] std::uint16_t port() const;

    // Serves until stop(), which any thread or signal handler may call.
    void run();
    void stop() noexcept;

    // From any thread: the event that every stream gets next. A stream that cannot keep up gets the
    // latest one alone.
    void publish(std::string_view name, std::string_view data);

  private:
    struct Server;
    std::unique_ptr<Server> server_;
};

}  // namespace station::web
