#pragma once

#include <cerrno>

#include "platform/platform.h"

// Owns an open directory: closed at the end of its scope, errno left as it was.
class DirectoryStream {
  public:
    explicit DirectoryStream(const char* path) : stream_(platform::opendir(path)) {}
    ~DirectoryStream() {
        if (!is_open()) return;
        const int saved_errno = errno;
        platform::closedir(stream_);
        errno = saved_errno;
    }
    DirectoryStream(const DirectoryStream&) = delete;
    DirectoryStream& operator=(const DirectoryStream&) = delete;

    bool is_open() const { return stream_ != nullptr; }
    const char* next() { return platform::readdir(stream_); }  // null at the end or on failure

  private:
    platform::Directory* stream_;
};
