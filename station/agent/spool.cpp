#include "station/agent/spool.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace agent {
namespace {

constexpr char kLock[] = "lock";
constexpr char kHidden[] = "new";  // ending of a spool that is not published yet

struct FileName {
    char text[128];
    FileName(const Run& run, const char* ending) {
        std::snprintf(text, sizeof text, "%08u-%s.%s", run.number, run.name, ending);
    }
};

// The run whose spool has this file name, or none.
Run run_of(const char* file) {
    Run run;
    char* rest = nullptr;
    const unsigned long number = std::strtoul(file, &rest, 10);
    const std::string_view ending = ".spool";
    std::string_view name = rest;
    if (!name.starts_with('-') || !name.ends_with(ending)) return run;
    name.remove_prefix(1);
    name.remove_suffix(ending.size());
    if (!is_name(name)) return run;
    std::memcpy(run.name, name.data(), name.size());
    run.number = static_cast<unsigned>(number);
    return run;
}

// Calls `visit` with the name of every file of the folder, in no order.
template <typename Visit>
void for_each_file(int folder, Visit visit) {
    const int fd = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    DIR* stream = ::fdopendir(fd);
    if (stream == nullptr) {
        ::close(fd);
        return;
    }
    while (const dirent* entry = ::readdir(stream))
        visit(entry->d_name);
    ::closedir(stream);
}

template <typename Visit>
void for_each_run(int folder, Visit visit) {
    for_each_file(folder, [&](const char* file) {
        const Run run = run_of(file);
        if (run.number != 0) visit(run);
    });
}

}  // namespace

bool is_name(std::string_view name) {
    for (const char byte : name) {
        const bool letter = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
        const bool digit = byte >= '0' && byte <= '9';
        if (!letter && !digit && byte != '.' && byte != '_' && byte != '-') return false;
    }
    return !name.empty() && name.size() <= kLongestName;
}

Folder::Folder(const char* path, Missing missing) {
    if (missing == Missing::make) ::mkdir(path, 0700);
    folder_ = Descriptor(::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

Run Folder::after(unsigned number) const {
    Run first;
    for_each_run(folder_.get(), [&](const Run& run) {
        if (run.number > number && (first.number == 0 || run.number < first.number)) first = run;
    });
    return first;
}

Run Folder::find(std::string_view name) const {
    Run found;
    for_each_run(folder_.get(), [&](const Run& run) {
        if (run.name == name) found = run;
    });
    return found;
}

unsigned Folder::next_number() const {
    unsigned highest = 0;
    for_each_run(folder_.get(), [&](const Run& run) {
        if (run.number > highest) highest = run.number;
    });
    return highest + 1;
}

Descriptor Folder::open(const Run& run, const char* ending, int flags) const {
    const FileName name(run, ending);
    return Descriptor(::openat(folder_.get(), name.text, flags | O_CLOEXEC | O_NOFOLLOW, 0600));
}

bool Folder::make_fifo(const Run& run, const char* ending) const {
    return ::mkfifoat(folder_.get(), FileName(run, ending).text, 0600) == 0;
}

bool Folder::rename(const Run& run, const char* from, const char* to) const {
    return ::renameat(folder_.get(), FileName(run, from).text, folder_.get(),
                      FileName(run, to).text)
           == 0;
}

void Folder::remove(const Run& run, const char* ending) const {
    ::unlinkat(folder_.get(), FileName(run, ending).text, 0);
}

void Folder::remove(const Run& run) const {
    for (const char* ending : {kControl, kReserve, kHidden, kSpool})
        remove(run, ending);
}

void Folder::sweep() const {
    for_each_file(folder_.get(), [&](std::string_view file) {
        for (const std::string_view ending : {".control", ".reserve", ".new"})
            if (file.ends_with(ending)) ::unlinkat(folder_.get(), file.data(), 0);
    });
}

void Folder::sync() const { ::fsync(folder_.get()); }

Descriptor Folder::lock(char (&holder)[kLongestName + 1]) const {
    holder[0] = '\0';
    Descriptor file(
        ::openat(folder_.get(), kLock, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file.is_open() || ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) return file;
    const int saved_errno = errno;
    const ssize_t size = ::pread(file.get(), holder, kLongestName, 0);
    holder[size > 0 ? size : 0] = '\0';
    errno = saved_errno;
    return {};
}

void Folder::name_holder(const Descriptor& lock, const char* name) {
    // Where the disk is full the name is missing in a message later, no more.
    if (::ftruncate(lock.get(), 0) == 0) write_all(lock.get(), name);
}

bool SpoolWriter::create(const Folder& folder, const Run& run) {
    folder_ = &folder;
    run_ = run;
    file_ = folder.open(run, kHidden, O_RDWR | O_CREAT | O_TRUNC);
    if (!file_.is_open()) return false;
    struct flock lives {};  // for recorder_lives(); not inherited, gone with this process
    lives.l_type = F_WRLCK;
    return ::fcntl(file_.get(), F_SETLK, &lives) == 0;
}

bool SpoolWriter::publish() {
    if (!folder_->rename(run_, kHidden, kSpool)) return false;
    sync();
    folder_->sync();
    return true;
}

bool SpoolWriter::append(std::string_view line) {
    std::size_t written = 0;
    while (written < line.size()) {
        const ssize_t count = ::pwrite(file_.get(), line.data() + written, line.size() - written,
                                       size_ + static_cast<off_t>(written));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) {
            const int saved_errno = count < 0 ? errno : ENOSPC;
            if (::ftruncate(file_.get(), size_) != 0) synced_ = -1;  // the next line overwrites it
            errno = saved_errno;
            return false;
        }
        written += static_cast<std::size_t>(count);
    }
    size_ += static_cast<off_t>(line.size());
    return true;
}

void SpoolWriter::sync() {
    ::fdatasync(file_.get());
    synced_ = size_;
}

SpoolReader::SpoolReader(const Folder& folder, const Run& run)
    : file_(folder.open(run, kSpool, O_RDONLY)) {}

std::string_view SpoolReader::next() {
    const auto line_end = [&] {
        return static_cast<const char*>(std::memchr(bytes_ + begin_, '\n', end_ - begin_));
    };
    const char* end = line_end();
    if (end == nullptr) {
        // Read a line that is not whole yet once more: the recorder may have taken it back.
        offset_ += static_cast<off_t>(begin_);
        begin_ = 0;
        const ssize_t count = ::pread(file_.get(), bytes_, sizeof bytes_, offset_);
        end_ = count > 0 ? static_cast<std::size_t>(count) : 0;
        end = line_end();
        if (end == nullptr) return {};
    }
    const std::string_view line(bytes_ + begin_,
                                static_cast<std::size_t>(end + 1 - bytes_) - begin_);
    if (!is_sound(line) || event_number(line) != last_ + 1) {
        end_ = begin_;  // read it once more, for this process may have been too early
        return {};
    }
    begin_ += line.size();
    note(line);
    return line;
}

void SpoolReader::note(std::string_view line) {
    last_ = event_number(line);
    ended_ = has(line, "event", "end");
    spool_full_ = spool_full_ || has(line, "what", "spool-full");
    program_missing_ = has(line, "failed", "program-not-found");
}

bool SpoolReader::recorder_lives() const {
    struct flock lives {};
    lives.l_type = F_WRLCK;
    return ::fcntl(file_.get(), F_GETLK, &lives) == 0 && lives.l_type != F_UNLCK;
}

bool write_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(fd, bytes.data(), bytes.size());
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {
            pollfd ready{fd, POLLOUT, 0};
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace agent
