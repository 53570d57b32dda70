// The folder of spools: one file of events a run.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string_view>

#include "station/agent/descriptor.h"
#include "station/agent/event.h"

namespace agent {

constexpr std::size_t kLongestName = 64;

// True for 1 to 64 of the characters A-Z a-z 0-9 . _ -
bool is_name(std::string_view name);

// Runs are numbered in the order of their start; the clock is not asked, for it may be wrong.
struct Run {
    unsigned number = 0;  // 0 = no run
    char name[kLongestName + 1] = "";
};

// What belongs to a run, by the ending of its file.
constexpr char kSpool[] = "spool";      // the events
constexpr char kControl[] = "control";  // a FIFO: a byte in it asks the recorder to stop q7
constexpr char kReserve[] = "reserve";  // makes room for the last events when the disk is full

class Folder {
  public:
    // Opens the folder; makes it first if it is missing and `make` is true. Where that fails, it is
    // not open, and errno says why.
    enum class Missing { fail, make };
    Folder(const char* path, Missing missing);
    bool is_open() const { return folder_.is_open(); }
    int get() const { return folder_.get(); }

    // The run with the lowest number above this one; in the order of their start, from after(0).
    Run after(unsigned number) const;
    Run find(std::string_view name) const;
    unsigned next_number() const;

    // A file of a run; flags as for open().
    Descriptor open(const Run& run, const char* ending, int flags) const;
    bool make_fifo(const Run& run, const char* ending) const;
    bool rename(const Run& run, const char* from, const char* to) const;
    void remove(const Run& run, const char* ending) const;
    void remove(const Run& run) const;  // all that belongs to it
    void sync() const;

    // Removes what recorders that were killed have left beside their spools. The folder has to be
    // locked.
    void sweep() const;

    // Locks the folder for a run. The lock lasts as long as any process has the descriptor or one
    // that it inherited. Not open: `holder` is the run that has it; "" = not known, see errno.
    Descriptor lock(char (&holder)[kLongestName + 1]) const;
    static void name_holder(const Descriptor& lock, const char* name);

  private:
    Descriptor folder_;
};

// The spool as its recorder writes it.
class SpoolWriter {
  public:
    // Makes the file, which nobody sees before publish(). False: errno says why.
    bool create(const Folder& folder, const Run& run);
    bool publish();

    // Appends one line, or nothing. False: errno says why.
    bool append(std::string_view line);

    void sync();  // what was appended since the last time
    bool is_synced() const { return synced_ == size_; }
    off_t size() const { return size_; }

  private:
    Descriptor file_;
    const Folder* folder_ = nullptr;
    Run run_;
    off_t size_ = 0, synced_ = 0;
};

// The spool as anybody reads it, while it grows and later.
class SpoolReader {
  public:
    SpoolReader(const Folder& folder, const Run& run);
    bool is_open() const { return file_.is_open(); }

    // The next line, valid until the next call; empty = there is none yet. Behind a damaged line
    // there is never one.
    std::string_view next();

    // True while the recorder lives. Ask first, then read: then nothing is missed.
    bool recorder_lives() const;

    bool ended() const { return ended_; }
    bool spool_full() const { return spool_full_; }
    bool program_missing() const { return program_missing_; }
    std::uint64_t last() const { return last_; }                         // number of the last line
    off_t size() const { return offset_ + static_cast<off_t>(begin_); }  // of the lines so far

  private:
    void note(std::string_view line);

    Descriptor file_;
    char bytes_[4 * kLongestLine];
    std::size_t begin_ = 0, end_ = 0;
    off_t offset_ = 0;  // of bytes_[0] in the file
    std::uint64_t last_ = 0;
    bool ended_ = false, spool_full_ = false, program_missing_ = false;
};

// All of `bytes`, however many writes it takes, to a descriptor that may block or not.
bool write_all(int fd, std::string_view bytes);

}  // namespace agent
