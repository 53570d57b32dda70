#include "station/agent/recorder.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "station/agent/event.h"
#include "station/agent/identity.h"
#include "station/agent/records.h"

namespace agent {
namespace {

constexpr std::int64_t kSecond = 1'000'000;  // microseconds, as monotonic_us()

// A program that is to stop gets these one after the other, each with this time to end by it.
constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGKILL};
constexpr std::int64_t kStopPatience = 5 * kSecond;

// A process that q7 leaves behind receives on the RS-485 line for up to six seconds.
constexpr std::int64_t kOutputPatience = 10 * kSecond;

constexpr off_t kReserved = 4096;  // bytes of the spool for the events that end a run

int g_signals = -1;  // the writing end of the pipe by which signals come into the loop

void pass_on(int signal) {
    const int saved_errno = errno;
    const char byte = static_cast<char>(signal);
    if (::write(g_signals, &byte, 1) < 0) { /* full: the loop is awake anyway */
    }
    errno = saved_errno;
}

struct Pipe {
    Descriptor reading, writing;
    // False: errno says why.
    bool open(int flags) {
        int ends[2];
        if (::pipe2(ends, flags | O_CLOEXEC) != 0) return false;
        reading = Descriptor(ends[0]);
        writing = Descriptor(ends[1]);
        return true;
    }
};

void do_not_block(const Descriptor& descriptor) {
    ::fcntl(descriptor.get(), F_SETFL, ::fcntl(descriptor.get(), F_GETFL) | O_NONBLOCK);
}

class Recorder {
  public:
    Recorder(const RunOptions& options, const Folder& folder, const Run& run, Descriptor lock)
        : options_(options), folder_(folder), run_(run), lock_(std::move(lock)) {}

    // Everything up to a q7 that runs. A failure leaves no spool, except kNoProgram.
    Result begin();

    // Everything from there to the event "end".
    int finish();

  private:
    Result open_fifo();
    Result open_spool();
    Result watch_signals();
    Result start_program();
    [[noreturn]] void become_program(pid_t recorder, int out, int err, int failed);
    void end_without_program(const char* why);

    Line event(const char* name) const;
    void store(Line& line);
    bool append(std::string_view line, off_t reserved);
    bool make_room();
    template <typename Attempt>
    bool with_room(Attempt attempt);
    bool reserve_room() const;
    void problem(const char* what, std::string_view text);
    void store_output(const char* name, std::string_view bytes);
    void store_record(std::string_view text);

    void wait_and_read();
    void read_signals();
    void read_control();
    void read_stream(Descriptor& stream, const char* name);
    void read_fifo();
    void stop(const char* by);
    void press();
    void reap();
    bool fifo_stays() const;
    bool is_over() const;
    void end();

    const RunOptions& options_;
    const Folder& folder_;
    const Run run_;
    Descriptor lock_;
    SpoolWriter spool_;
    std::uint64_t events_ = 0;
    bool full_ = false;
    int full_reason_ = 0;     // errno
    char removed_[200] = "";  // spools that gave their room, not yet said

    Descriptor fifo_, fifo_writer_;  // our own writer: the FIFO has no end while q7 may come
    struct stat fifo_info_ {};
    Descriptor control_, signals_, signals_writer_, out_, err_;
    Records records_;

    pid_t program_ = 0;  // 0 = ended, and collected
    int wait_status_ = 0;
    std::int64_t started_ = 0, ended_ = 0;
    std::size_t pressed_ = 0;  // signals sent so far
    std::int64_t next_press_ = 0;
    bool stopping_ = false, given_up_ = false;
};

Result Recorder::open_fifo() {
    const char* path = options_.fifo;
    struct stat& info = fifo_info_;
    if (::mkfifo(path, 0600) != 0 && errno != EEXIST) {
        return failure(kNoFifo, "%s: cannot be made: %s", path, std::strerror(errno));
    }
    if (::stat(path, &info) != 0 || !S_ISFIFO(info.st_mode)) {
        return failure(kNoFifo, "%s: is no FIFO", path);
    }
    if (Descriptor(::open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC)).is_open()) {
        return failure(kInProgress, "%s: another process reads it", path);
    }
    fifo_ = Descriptor(::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (::fstat(fifo_.get(), &info) != 0 || !S_ISFIFO(info.st_mode)) {
        return failure(kNoFifo, "%s: cannot be read: %s", path, std::strerror(errno));
    }
    char byte;
    if (::read(fifo_.get(), &byte, 1) != 0) {
        return failure(kInProgress, "%s: another process writes it", path);
    }
    fifo_writer_ = Descriptor(::open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fifo_writer_.is_open()) {
        return failure(kNoFifo, "%s: cannot be written: %s", path, std::strerror(errno));
    }
    return {};
}

Result Recorder::open_spool() {
    const auto refuse = [&] {
        const int reason = full_ ? full_reason_ : errno;
        folder_.remove(run_);
        return failure(kNoSpool, "%s: cannot be written: %s", options_.folder,
                       std::strerror(reason));
    };
    Line start = event("start");
    start.text("run", run_.name).text("agent", Q7_VERSION).list("command", options_.command);
    describe_board(start, options_.command[0]);
    start.text("fifo", options_.fifo);
    if (!start.fits()) return failure(kBadUse, "the command is too long");

    folder_.sweep();
    const bool ready = with_room([&] { return folder_.make_fifo(run_, kControl); })
                       && with_room([&] { return spool_.create(folder_, run_); })
                       && with_room([&] { return reserve_room(); });
    if (ready) store(start);
    if (!ready || full_ || !spool_.publish()) return refuse();
    control_ = folder_.open(run_, kControl, O_RDWR | O_NONBLOCK);
    return control_.is_open() ? Result{} : refuse();
}

Result Recorder::watch_signals() {
    Pipe pipe;
    if (!pipe.open(O_NONBLOCK)) return failure(kNoProcess, "no pipe: %s", std::strerror(errno));
    signals_ = std::move(pipe.reading);
    signals_writer_ = std::move(pipe.writing);
    g_signals = signals_writer_.get();
    for (const int number : {SIGHUP, SIGPIPE, SIGXFSZ})
        ::signal(number, SIG_IGN);
    struct sigaction action {};
    action.sa_handler = pass_on;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGCHLD, SIGINT, SIGTERM})
        ::sigaction(number, &action, nullptr);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    return {};
}

// In the new process. The program finds what it would find at a shell, but for its streams.
void Recorder::become_program(pid_t recorder, int out, int err, int failed) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // without its recorder a run is worth nothing
    if (::getppid() != recorder) ::_exit(127);
    for (int number = 1; number < NSIG; ++number)
        ::signal(number, SIG_DFL);
    // The lock stays as long as q7 and what it leaves behind; its number is none that q7 gets.
    if (::fcntl(lock_.get(), F_DUPFD, 200) < 0) ::fcntl(lock_.get(), F_DUPFD, 20);
    const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (null >= 0 && ::dup2(null, STDIN_FILENO) >= 0 && ::dup2(out, STDOUT_FILENO) >= 0
        && ::dup2(err, STDERR_FILENO) >= 0) {
        ::execvp(options_.command[0], options_.command);
    }
    const int reason = errno;
    if (::write(failed, &reason, sizeof reason) < 0) ::_exit(126);
    ::_exit(127);
}

Result Recorder::start_program() {
    Pipe out, err, failed;
    if (!out.open(0) || !err.open(0) || !failed.open(0)) {
        const int reason = errno;
        end_without_program("no-process");
        return failure(kNoProcess, "no pipe: %s", std::strerror(reason));
    }
    const pid_t recorder = ::getpid();
    started_ = monotonic_us();
    const pid_t pid = ::fork();
    if (pid < 0) {
        const int reason = errno;
        end_without_program("no-process");
        return failure(kNoProcess, "no process: %s", std::strerror(reason));
    }
    if (pid == 0) {
        become_program(recorder, out.writing.get(), err.writing.get(), failed.writing.get());
    }
    failed.writing.close();
    int reason = 0;
    ssize_t count = 0;
    while ((count = ::read(failed.reading.get(), &reason, sizeof reason)) < 0 && errno == EINTR) {
    }
    if (count != 0) {
        ::waitpid(pid, nullptr, 0);
        end_without_program("program-not-found");
        return failure(kNoProgram, "%s: %s", options_.command[0], std::strerror(reason));
    }
    program_ = pid;
    out_ = std::move(out.reading);
    err_ = std::move(err.reading);
    do_not_block(out_);
    do_not_block(err_);
    return {};
}

void Recorder::end_without_program(const char* why) {
    folder_.remove(run_, kControl);
    folder_.remove(run_, kReserve);
    Line line = event("end");
    append(line.text("failed", why).seal(), 0);
    spool_.sync();
    lock_.close();
}

Result Recorder::begin() {
    Result result = watch_signals();
    if (result.status == kGood) result = open_fifo();
    if (result.status == kGood) result = open_spool();
    if (result.status == kGood) result = start_program();
    return result;
}

// --- Events

Line Recorder::event(const char* name) const {
    Line line;
    line.number("n", static_cast<std::int64_t>(events_) + 1).number("t", monotonic_us());
    line.text("event", name);
    return line;
}

// Removes the oldest run that is not this one; false = there is none, errno as it was.
bool Recorder::make_room() {
    const int saved_errno = errno;
    const Run oldest = folder_.after(0);
    if (oldest.number == 0 || oldest.number == run_.number) {
        errno = saved_errno;
        return false;
    }
    folder_.remove(oldest);
    const std::size_t size = std::strlen(removed_);
    std::snprintf(removed_ + size, sizeof removed_ - size, "%s%s", size > 0 ? " " : "",
                  oldest.name);
    return true;
}

// Tries it again with the room of older runs, as long as room is what it wants.
template <typename Attempt>
bool Recorder::with_room(Attempt attempt) {
    while (!attempt()) {
        if ((errno != ENOSPC && errno != EDQUOT) || !make_room()) return false;
    }
    return true;
}

bool Recorder::reserve_room() const {
    const Descriptor file = folder_.open(run_, kReserve, O_WRONLY | O_CREAT | O_TRUNC);
    static const char room[kReserved] = {};
    return file.is_open() && write_all(file.get(), {room, sizeof room});
}

// Appends a line and counts it. Of the size that the spool may have, `reserved` bytes stay free.
bool Recorder::append(std::string_view line, off_t reserved) {
    if (spool_.size() + static_cast<off_t>(line.size()) + reserved > options_.size_limit) {
        errno = EFBIG;
        return false;
    }
    if (!with_room([&] { return spool_.append(line); })) return false;
    ++events_;
    return true;
}

// Stores an event. A full spool takes no event any more but those that say so and end the run.
void Recorder::store(Line& line) {
    if (full_) return;
    if (!append(line.seal(), kReserved)) {
        full_ = true;
        full_reason_ = errno;
        folder_.remove(run_, kReserve);
        problem("spool-full", std::strerror(full_reason_));
    }
    if (removed_[0] == '\0') return;
    char names[sizeof removed_];
    std::memcpy(names, removed_, sizeof names);
    removed_[0] = '\0';
    problem("spool-removed", names);
}

void Recorder::problem(const char* what, std::string_view text) {
    Line line = event("problem");
    line.text("what", what).text("text", text);
    if (full_) {
        append(line.seal(), kReserved / 2);
    } else {
        store(line);
    }
}

void Recorder::store_output(const char* name, std::string_view bytes) {
    while (!bytes.empty()) {
        const std::string_view part(bytes.data(), std::min(bytes.size(), kLongestText));
        Line line = event(name);
        store(line.text("text", part));
        bytes.remove_prefix(part.size());
    }
}

// A record whose text is too long for one event takes several: all but the last say "more".
void Recorder::store_record(std::string_view text) {
    do {
        const std::string_view part(text.data(), std::min(text.size(), kLongestText));
        text.remove_prefix(part.size());
        Line line = event("record");
        line.number("type", 0);
        if (!text.empty()) line.json("more", "true");
        store(line.text("text", part));
    } while (!text.empty());
}

// --- The run

// What read() returned: the end, or a failure that stays.
bool is_end(ssize_t count) {
    return count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR);
}

void Recorder::read_stream(Descriptor& stream, const char* name) {
    char bytes[kLongestText];
    const ssize_t count = ::read(stream.get(), bytes, sizeof bytes);
    if (is_end(count)) stream.close();
    if (count > 0) store_output(name, {bytes, static_cast<std::size_t>(count)});
}

void Recorder::read_fifo() {
    if (is_end(records_.read_from(fifo_.get()))) fifo_.close();
    Records::Piece piece;
    while (records_.next(piece)) {
        if (piece.is_record) {
            store_record(piece.bytes);
        } else {
            store_output("torn", piece.bytes);
        }
    }
}

void Recorder::read_signals() {
    char numbers[64];
    const ssize_t count = ::read(signals_.get(), numbers, sizeof numbers);
    for (ssize_t i = 0; i < count; ++i) {
        if (numbers[i] == SIGINT || numbers[i] == SIGTERM) stop("signal");
    }
}

void Recorder::read_control() {
    char bytes[64];
    if (::read(control_.get(), bytes, sizeof bytes) > 0) stop("command");
}

// Waits for at most a second, then reads what there is of each.
void Recorder::wait_and_read() {
    pollfd files[] = {
        {signals_.get(), POLLIN, 0}, {control_.get(), POLLIN, 0}, {fifo_.get(), POLLIN, 0},
        {out_.get(), POLLIN, 0},     {err_.get(), POLLIN, 0},
    };
    const int ready = ::poll(files, std::size(files), 1000);
    if (ready == 0 && !spool_.is_synced()) spool_.sync();  // in silence it delays nothing of q7's
    if (ready <= 0) return;
    if (files[2].revents != 0) read_fifo();
    if (files[3].revents != 0) read_stream(out_, "out");
    if (files[4].revents != 0) read_stream(err_, "err");
    if (files[1].revents != 0) read_control();
    if (files[0].revents != 0) read_signals();
}

void Recorder::reap() {
    if (program_ != 0 && ::waitpid(program_, &wait_status_, WNOHANG) == program_) {
        program_ = 0;
        ended_ = monotonic_us();
    }
    // Nobody of q7's is left but for who has the FIFO alone: now it ends with that one.
    if (program_ == 0 && !out_.is_open() && !err_.is_open()) fifo_writer_.close();
}

void Recorder::stop(const char* by) {
    if (stopping_) return;
    stopping_ = true;
    Line line = event("stop");
    store(line.text("by", by));
}

// Presses a program that is to stop, with the next signal when the last one did not help.
void Recorder::press() {
    const std::int64_t now = monotonic_us();
    if (program_ == 0) return;
    if (options_.time_limit_s > 0 && now - started_ > options_.time_limit_s * kSecond) stop("time");
    if (!stopping_ || now < next_press_) return;
    if (pressed_ == std::size(kStopSignals)) {
        given_up_ = true;  // it hangs within the kernel
        return;
    }
    ::kill(program_, kStopSignals[pressed_++]);  // ours, and not collected
    next_press_ = now + kStopPatience;
}

bool Recorder::fifo_stays() const {
    struct stat now {};
    return ::stat(options_.fifo, &now) == 0 && now.st_dev == fifo_info_.st_dev
           && now.st_ino == fifo_info_.st_ino;
}

bool Recorder::is_over() const {
    if (given_up_) return true;
    if (program_ != 0) return false;
    if (!out_.is_open() && !err_.is_open() && !fifo_.is_open()) return true;
    return monotonic_us() - ended_ > kOutputPatience;
}

void Recorder::end() {
    Records::Piece rest;
    if (records_.rest(rest)) store_output("torn", rest.bytes);
    if (program_ == 0 && (out_.is_open() || err_.is_open() || fifo_.is_open())) {
        problem("output-open", "a process that the program left behind still has its output");
    }
    if (!fifo_stays()) problem("fifo-lost", "the FIFO was removed or replaced during the run");
    Line line = event("end");
    if (program_ != 0) {
        line.text("failed", "not-ended");
    } else if (WIFEXITED(wait_status_)) {
        line.number("status", WEXITSTATUS(wait_status_));
    } else {
        line.number("signal", WTERMSIG(wait_status_));
    }
    folder_.remove(run_, kControl);
    folder_.remove(run_, kReserve);
    spool_.sync();  // so that an "end" that is on the disk ends a whole run
    append(line.seal(), 0);
    spool_.sync();
    lock_.close();  // before the spool's: who sees that no recorder lives may start the next run
}

int Recorder::finish() {
    while (!is_over()) {
        wait_and_read();
        reap();
        press();
    }
    end();
    return full_ ? kNoSpool : kGood;
}

}  // namespace

int record(const RunOptions& options, const Folder& folder, const Run& run, Descriptor lock,
           Report report, int report_to) {
    Recorder recorder(options, folder, run, std::move(lock));
    const Result result = recorder.begin();
    report(report_to, result);
    return result.status == kGood ? recorder.finish() : result.status;
}

}  // namespace agent
