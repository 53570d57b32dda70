#include "station/web/http.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <set>
#include <system_error>
#include <utility>

namespace station::web {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPollMs = 40;
constexpr unsigned kRefusedConnections = 64;  // above the bound, long enough to be told so
constexpr std::size_t kHeaderBytes = 32'768;
constexpr int kBacklog = 1024;

constexpr std::string_view kTooSlow =
    "HTTP/1.1 408 Request Timeout\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
constexpr std::string_view kTooMany =
    "HTTP/1.1 503 Service Unavailable\r\nConnection: close\r\nRetry-After: 2\r\n"
    "Content-Length: 0\r\n\r\n";

struct Connection {
    int socket;
    Clock::time_point since;
    bool arrived = false;
};

using Event = std::string;  // as it goes over the wire

struct Pending {
    Request request;
    bool too_large = false;
};

void tell_and_close(int socket, std::string_view words) {
    ::send(socket, words.data(), words.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    ::shutdown(socket, SHUT_RDWR);
}

std::string lower(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; });
    return result;
}

MHD_Result add_header(void* to, MHD_ValueKind, const char* name, const char* value) {
    static_cast<Request*>(to)->headers[lower(name)] = value == nullptr ? "" : value;
    return MHD_YES;
}

MHD_Result add_argument(void* to, MHD_ValueKind, const char* name, const char* value) {
    static_cast<Request*>(to)->query[name] = value == nullptr ? "" : value;
    return MHD_YES;
}

}  // namespace

struct HttpServer::Server {
    struct Stream {
        Stream(Server* of, MHD_Connection* to) : server(of), connection(to) {}
        Server* server;
        MHD_Connection* connection;
        std::shared_ptr<const Event> event;
        std::size_t sent = 0;
        bool suspended = false;
    };

    Limits limits;
    Handler handler;
    MHD_Daemon* daemon = nullptr;
    std::map<MHD_Connection*, Connection> connections;
    std::set<Stream*> streams;
    std::atomic<bool> stopping = false;

    std::mutex mutex;
    std::shared_ptr<const Event> latest;  // guarded by mutex

    std::shared_ptr<const Event> newest() {
        const std::lock_guard lock(mutex);
        return latest;
    }

    // ---- connections ----

    static void on_connection(void* self, MHD_Connection* connection, void** /*context*/,
                              MHD_ConnectionNotificationCode code) {
        auto& server = *static_cast<Server*>(self);
        if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
            server.connections.erase(connection);
            return;
        }
        const MHD_ConnectionInfo* info =
            MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
        if (info == nullptr) return;
        const int socket = info->connect_fd;
        if (server.connections.size() >= server.limits.connections) {
            tell_and_close(socket, kTooMany);
            return;
        }
        server.connections.emplace(connection, Connection{socket, Clock::now()});
    }

    void close_slow() {
        const auto limit = Clock::now() - limits.arrival;
        for (auto& [connection, about] : connections) {
            if (about.arrived || about.since > limit) continue;
            tell_and_close(about.socket, kTooSlow);
            about.arrived = true;
        }
    }

    // ---- requests ----

    static MHD_Result on_request(void* self, MHD_Connection* connection, const char* url,
                                 const char* method, const char* /*version*/, const char* data,
                                 std::size_t* size, void** context) {
        auto& server = *static_cast<Server*>(self);
        if (*context == nullptr) return server.begin(connection, url, method, context);
        auto& pending = *static_cast<Pending*>(*context);
        if (*size != 0) {
            if (pending.request.body.size() + *size > server.limits.body_bytes)
                pending.too_large = true;
            else
                pending.request.body.append(data, *size);
            *size = 0;
            return MHD_YES;
        }
        if (pending.too_large)
            return server.reply(connection, {413, "application/json", R"({"error":"too-large"})"});
        return server.reply(connection, server.handler(pending.request));
    }

    MHD_Result begin(MHD_Connection* connection, const char* url, const char* method,
                     void** context) {
        auto pending = std::make_unique<Pending>();
        pending->request.method = method;
        pending->request.path = url;
        MHD_get_connection_values(connection, MHD_HEADER_KIND, add_header, &pending->request);
        MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, add_argument,
                                  &pending->request);
        const auto length = pending->request.headers.find("content-length");
        const bool large =
            length != pending->request.headers.end()
            && std::strtoull(length->second.c_str(), nullptr, 10) > limits.body_bytes;
        *context = pending.release();
        if (large) return reply(connection, {413, "application/json", R"({"error":"too-large"})"});
        return MHD_YES;
    }

    static void on_completed(void* /*self*/, MHD_Connection* /*connection*/, void** context,
                             MHD_RequestTerminationCode /*code*/) {
        delete static_cast<Pending*>(*context);
        *context = nullptr;
    }

    MHD_Result reply(MHD_Connection* connection, const Response& response) {
        if (const auto found = connections.find(connection); found != connections.end())
            found->second.arrived = true;
        if (response.stream && streams.size() >= limits.streams)
            return reply(connection, {503, "application/json", R"({"error":"streams"})"});
        MHD_Response* made =
            response.stream ? make_stream(connection)
                            : MHD_create_response_from_buffer(
                                response.body.size(),
                                // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
                                const_cast<char*>(response.body.data()), MHD_RESPMEM_MUST_COPY);
        if (made == nullptr) return MHD_NO;
        MHD_add_response_header(made, "Content-Type",
                                response.stream ? "text/event-stream" : response.type.c_str());
        MHD_add_response_header(made, "Connection", "close");
        for (const auto& [name, value] : response.headers)
            MHD_add_response_header(made, name.c_str(), value.c_str());
        const MHD_Result queued =
            MHD_queue_response(connection, static_cast<unsigned>(response.status), made);
        MHD_destroy_response(made);
        return queued;
    }

    // ---- streams ----

    MHD_Response* make_stream(MHD_Connection* connection) {
        auto stream = std::make_unique<Stream>(this, connection);
        MHD_Response* made = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, 16'384, on_read,
                                                               stream.get(), on_stream_end);
        if (made != nullptr) streams.insert(stream.release());
        return made;
    }

    static void on_stream_end(void* of) {
        const std::unique_ptr<Stream> stream(static_cast<Stream*>(of));
        stream->server->streams.erase(stream.get());
    }

    static ssize_t on_read(void* of, std::uint64_t /*position*/, char* to, std::size_t room) {
        auto& stream = *static_cast<Stream*>(of);
        if (stream.server->stopping) return MHD_CONTENT_READER_END_OF_STREAM;
        if (stream.event == nullptr || stream.sent == stream.event->size()) {
            auto newest = stream.server->newest();
            if (newest == stream.event) {
                stream.suspended = true;
                MHD_suspend_connection(stream.connection);
                return 0;
            }
            stream.event = std::move(newest);
            stream.sent = 0;
        }
        const std::size_t count = std::min(room, stream.event->size() - stream.sent);
        std::copy_n(stream.event->data() + stream.sent, count, to);
        stream.sent += count;
        return static_cast<ssize_t>(count);
    }

    void wake_streams() {
        const auto newest_event = newest();
        for (Stream* stream : streams) {
            if (!stream->suspended || (stream->event == newest_event && !stopping)) continue;
            stream->suspended = false;
            MHD_resume_connection(stream->connection);
        }
    }
};

namespace {

struct Address {
    sockaddr_storage bytes{};
    socklen_t size = 0;
};

Address parse_address(const std::string& text, std::uint16_t port) {
    Address result;
    auto* four = reinterpret_cast<sockaddr_in*>(&result.bytes);
    auto* six = reinterpret_cast<sockaddr_in6*>(&result.bytes);
    if (inet_pton(AF_INET, text.c_str(), &four->sin_addr) == 1) {
        four->sin_family = AF_INET;
        four->sin_port = htons(port);
        result.size = sizeof *four;
    } else if (inet_pton(AF_INET6, text.c_str(), &six->sin6_addr) == 1) {
        six->sin6_family = AF_INET6;
        six->sin6_port = htons(port);
        result.size = sizeof *six;
    } else {
        throw std::system_error(EINVAL, std::generic_category(), "address " + text);
    }
    return result;
}

// A listening socket of the address; the caller closes it.
int listen_on(const std::string& text, std::uint16_t port) {
    const Address address = parse_address(text, port);
    const int socket =
        ::socket(address.bytes.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0) throw std::system_error(errno, std::generic_category(), "socket");
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(socket, reinterpret_cast<const sockaddr*>(&address.bytes), address.size) != 0
        || ::listen(socket, kBacklog) != 0) {
        const int error = errno;
        ::close(socket);
        throw std::system_error(error, std::generic_category(), text + ":" + std::to_string(port));
    }
    return socket;
}

}  // namespace

HttpServer::HttpServer(const std::string& address, std::uint16_t port, const Limits& limits,
                       Handler handler)
    : server_(std::make_unique<Server>()) {
    server_->limits = limits;
    server_->handler = std::move(handler);
    const int socket = listen_on(address, port);
    Server* self = server_.get();
    server_->daemon = MHD_start_daemon(
        MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr, Server::on_request, self,
        MHD_OPTION_LISTEN_SOCKET, socket, MHD_OPTION_CONNECTION_LIMIT,
        static_cast<unsigned>(limits.connections) + kRefusedConnections,
        MHD_OPTION_CONNECTION_TIMEOUT, limits.idle_s, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
        kHeaderBytes, MHD_OPTION_NOTIFY_COMPLETED, Server::on_completed, self,
        MHD_OPTION_NOTIFY_CONNECTION, Server::on_connection, self, MHD_OPTION_STRICT_FOR_CLIENT, 1,
        MHD_OPTION_END);
    if (server_->daemon == nullptr) {
        ::close(socket);
        throw std::system_error(EIO, std::generic_category(), "http server");
    }
}

HttpServer::~HttpServer() {
    server_->stopping = true;
    server_->wake_streams();
    MHD_run_wait(server_->daemon, 0);
    MHD_stop_daemon(server_->daemon);
}

std::uint16_t HttpServer::port() const {
    const MHD_DaemonInfo* info = MHD_get_daemon_info(server_->daemon, MHD_DAEMON_INFO_BIND_PORT);
    return info == nullptr ? 0 : info->port;
}

void HttpServer::run() {
    while (!server_->stopping) {
        server_->wake_streams();
        MHD_run_wait(server_->daemon, kPollMs);
        server_->close_slow();
    }
}

void HttpServer::stop() noexcept { server_->stopping = true; }

void HttpServer::publish(std::string_view name, std::string_view data) {
    auto event = std::make_shared<const Event>("event: " + std::string(name)
                                               + "\ndata: " + std::string(data) + "\n\n");
    const std::lock_guard lock(server_->mutex);
    server_->latest = std::move(event);
}

}  // namespace station::web
