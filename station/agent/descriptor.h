#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace agent {

// Owns a descriptor: closed at the end of its scope, errno left as it was. Holds whatever open
// returned, -1 included.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        other.close();
        return *this;
    }
    ~Descriptor() { close(); }

    int get() const { return fd_; }
    bool is_open() const { return fd_ >= 0; }

    void close() {
        if (!is_open()) return;
        const int saved_errno = errno;
        ::close(std::exchange(fd_, -1));
        errno = saved_errno;
    }

  private:
    int fd_ = -1;
};

}  // namespace agent
