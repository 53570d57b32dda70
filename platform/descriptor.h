#pragma once

#include <cerrno>
#include <utility>

#include "platform/platform.h"

namespace platform {

// Owns a descriptor: closes it at the end of its scope and keeps errno. It may hold -1, as returned by
// a failed open: some routines go on with such a descriptor.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            close();
            fd_ = other.release();
        }
        return *this;
    }
    ~Descriptor() { close(); }

    int get() const { return fd_; }
    bool is_open() const { return fd_ >= 0; }

    // Hands the open descriptor over to the caller.
    int release() { return std::exchange(fd_, -1); }

    void close() {
        if (!is_open()) return;
        const int saved_errno = errno;
        platform::close(release());
        errno = saved_errno;
    }

  private:
    int fd_ = -1;
};

}  // namespace platform
