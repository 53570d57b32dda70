// A socket to a server of this machine, on which a check says what it likes.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace checks {

// Closed with it.
class Client {
  public:
    explicit Client(std::uint16_t port)
        : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connected_ = ::connect(socket_, reinterpret_cast<sockaddr*>(&to), sizeof to) == 0;
    }
    ~Client() {
        if (socket_ >= 0) ::close(socket_);
    }
    Client(Client&& other) noexcept : socket_(other.socket_), connected_(other.connected_) {
        other.socket_ = -1;
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    Client& operator=(Client&&) = delete;

    [[nodiscard]] bool connected() const { return connected_; }
    bool send(std::string_view text) const {
        return ::send(socket_, text.data(), text.size(), MSG_NOSIGNAL) == ssize_t(text.size());
    }
    // What comes until the server closes, `until` is in it, or the time is over.
    std::string receive(std::chrono::milliseconds limit = std::chrono::seconds(5),
                        std::string_view until = {}) const {
        std::string all;
        const auto end = std::chrono::steady_clock::now() + limit;
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                                  end - std::chrono::steady_clock::now())
                                  .count();
            pollfd one{socket_, POLLIN, 0};
            if (left <= 0 || ::poll(&one, 1, int(left)) <= 0) return all;
            char bytes[16384];
            const ssize_t count = ::recv(socket_, bytes, sizeof bytes, 0);
            if (count <= 0) return all;
            all.append(bytes, std::size_t(count));
            if (!until.empty() && all.find(until) != std::string::npos) return all;
        }
    }

  private:
    int socket_;
    bool connected_;
};

}  // namespace checks
