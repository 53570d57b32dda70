#include "station/attempt.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>

#include "station/text.h"

namespace station {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using nlohmann::ordered_json;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kReleaseTimeout_ms = 10'000, kStopTimeout_ms = 30'000, kEndAfterStop_ms = 5'000;
constexpr int kFirstPause_ms = 100, kLongestPause_ms = 2'000;
constexpr std::size_t kLongestNoise = 65'536;  // of a connection; what is longer is noise

// Statuses of q7-agent that no retry changes, and those of a shell that finds no agent.
bool is_final(int status) {
    constexpr std::array<int, 9> kFinal{64, 65, 66, 67, 68, 70, 72, 126, 127};
    return std::find(kFinal.begin(), kFinal.end(), status) != kFinal.end();
}
constexpr int kRecorderDead = 69;

int milliseconds_until(std::chrono::steady_clock::time_point instant) {
    const auto left = std::chrono::ceil<milliseconds>(instant - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 1000));
}

JournalWriter create_journal(AttemptSetup& setup) {
    setup.identity.plan_text = setup.plan_text;
    setup.identity.model = setup.plan.model;
    setup.identity.connection = setup.board.connection;
    JournalWriter writer = JournalWriter::create(setup.journals, setup.identity);
    for (const Repair& repair : setup.repairs) {
        writer.line("repair", {{"of", repair.of},
                               {"defect", repair.defect},
                               {"text", repair.text},
                               {"operator", repair.operator_id},
                               {"entered", repair.at}});
    }
    writer.sync();
    return writer;
}

std::string last_line(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    return text.substr(text.rfind('\n') + 1);
}

}  // namespace

Attempt::Attempt(AttemptSetup setup) : setup_(std::move(setup)), writer_(create_journal(setup_)) {
    load();
}

Attempt::Attempt(AttemptSetup setup, JournalWriter writer)
    : setup_(std::move(setup)), writer_(std::move(writer)) {
    load();
}

void Attempt::load() {
    const std::string content = read_file(writer_.path().string());
    std::string_view text = content;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size() - 1);
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end + 1);
        reader_.take(line, text);
    }
    id_ = reader_.journal().identity.id;
    setup_.identity = reader_.journal().identity;
    evidence_ = take_evidence(reader_.journal());
    wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

Attempt::~Attempt() { ::close(wake_); }

std::unique_ptr<Attempt> Attempt::resume(const fs::path& journal, AttemptSetup setup) {
    JournalWriter writer = JournalWriter::resume(journal);
    return std::unique_ptr<Attempt>(new Attempt(std::move(setup), std::move(writer)));
}

Judgement Attempt::run(AttemptWatcher& watcher) {
    watcher_ = &watcher;
    {
        const std::lock_guard lock(mutex_);
        runner_ = std::this_thread::get_id();
        running_ = true;
    }
    const Ending ending{*this};
    const int commands = static_cast<int>(setup_.plan.commands.size());
    for (int number = 1; number <= commands && !given_up_; ++number) {
        const PlannedCommand& planned = setup_.plan.commands[static_cast<std::size_t>(number) - 1];
        if (has_ended(number)) continue;
        refresh();
        const bool waits_for_pass = planned.only_when_passed && number > 1;
        if (waits_for_pass
            && judge_so_far(reader_.journal(), evidence_, setup_.plan) != Verdict::pass) {
            continue;
        }
        if (!run_command(number)) break;
    }
    wait_for_answers();
    write("end", {{"commands", reader_.journal().commands.size()}});
    writer_.sync();
    refresh();
    Judgement judgement = judge(reader_.journal(), evidence_, setup_.plan);
    if (setup_.diagnose) setup_.diagnose(judgement, evidence_);
    write_file(judgement_path(writer_.path()), to_json(judgement).dump() + "\n");
    return judgement;
}

// However the run ends: whoever waits for an answer to be stored learns that it is not.
Attempt::Ending::~Ending() {
    {
        const std::lock_guard lock(attempt.mutex_);
        attempt.running_ = false;
    }
    attempt.taken_.notify_all();
}

// The journal.

void Attempt::write(std::string_view kind, const ordered_json& members) {
    feed(writer_.line(kind, members));
}

void Attempt::feed(const std::string& line) {
    if (!reader_.take(line)) {
        throw std::runtime_error("the journal does not take its own line: "
                                 + reader_.journal().damage.front().text);
    }
    changed_ = true;
}

void Attempt::sync_when_due() {
    const auto due = writer_.sync_due();
    if (due && *due <= Clock::now()) writer_.sync();
}

void Attempt::refresh() {
    if (!changed_) return;
    evidence_ = take_evidence(reader_.journal());
    changed_ = false;
}

void Attempt::tell() {
    AttemptState state{reader_.journal(), evidence_, {}, connected_, command_};
    {
        const std::lock_guard lock(mutex_);
        for (const Asked& asked : asked_) {
            if (asked.answered) continue;
            const std::chrono::duration<double> left = asked.until - Clock::now();
            state.due.push_back({asked.question, std::max(0.0, left.count())});
        }
    }
    watcher_->changed(state);
}

// The commands.

std::string Attempt::run_name(int number) const { return id_ + "-" + std::to_string(number); }

bool Attempt::has_ended(int number) const {
    return std::any_of(
        evidence_.commands.begin(), evidence_.commands.end(),
        [&](const CommandSeen& each) { return each.number == number && each.ended; });
}

void Attempt::begin_command(int number) {
    const PlannedCommand& planned = setup_.plan.commands[static_cast<std::size_t>(number) - 1];
    const Journal& journal = reader_.journal();
    command_ = number;
    next_event_ = 1;
    command_ended_ = false;
    failed_connections_ = 0;
    const bool known = std::any_of(journal.commands.begin(), journal.commands.end(),
                                   [&](const CommandLine& each) { return each.number == number; });
    if (known) {
        for (const BoardEvent& event : journal.events) {
            if (event.command == number) next_event_ = std::max(next_event_, event.number + 1);
        }
    } else {
        write("command", {{"command", number},
                          {"name", planned.name},
                          {"run", run_name(number)},
                          {"words", planned.words}});
    }
    latest_event_ = Clock::now();
}

bool Attempt::run_command(int number) {
    begin_command(number);
    while (!command_ended_ && !given_up_) {
        if (!child_ && !connect()) break;
        pump(wait_ms());
        const bool over = child_->output() < 0;
        if (events_missing_ || (over && !command_ended_)) connection_ended();
        sync_when_due();
        check_limits();
        if (changed_) {
            refresh();
            ask_due_questions();
        }
        expire_questions();
        tell();
    }
    child_.reset();
    if (command_ended_ && !given_up_) finish_command(number);
    return !given_up_;
}

// The board may forget a run only when its end is on the disk.
void Attempt::finish_command(int number) {
    refresh();
    writer_.sync();
    std::string output;
    try {
        const int status =
            run_to_end(setup_.board.about("release", run_name(number)), kReleaseTimeout_ms, output);
        if (status != 0) watcher_->note("the board keeps the spool of " + run_name(number));
    } catch (const std::system_error& error) {
        watcher_->note(error.what());
    }
}

// The connection.

bool Attempt::connect() {
    const PlannedCommand& planned = setup_.plan.commands[static_cast<std::size_t>(command_) - 1];
    const std::string name = run_name(command_);
    received_.clear();
    errors_.clear();
    events_missing_ = false;
    try {
        child_ = std::make_unique<Child>(
            next_event_ == 1 ? setup_.board.run(name, setup_.plan.run_s, planned.words)
                             : setup_.board.follow(name, next_event_));
        return true;
    } catch (const std::system_error& error) {
        give_up("failed", {{"text", error.what()}});
        return false;
    }
}

// Without the end of the run: to be tried again, unless the agent said that there is no use.
void Attempt::connection_ended() {
    const int status = events_missing_ ? -1 : child_->wait(1000).value_or(-1);
    for (std::size_t before = kLongestNoise; child_->errors() >= 0 && before != errors_.size();) {
        before = errors_.size();
        child_->read_errors(errors_);
    }
    child_.reset();
    const std::string said = last_line(errors_);
    if (status == kRecorderDead) {
        give_up("dead", {{"command", command_}, {"text", said}});
    } else if (is_final(status)) {
        give_up("failed", {{"text", said.empty() ? "status " + std::to_string(status) : said}});
    }
    if (given_up_) return;
    if (connected_) {
        write("connection", {{"state", "lost"}, {"command", command_}});
        watcher_->note(events_missing_ ? "a line arrived broken: asked for again"
                                       : "connection lost: " + said);
    }
    if (!events_missing_) pause_before_retry();
    connected_ = false;
}

void Attempt::pause_before_retry() {
    const int longest = kFirstPause_ms << std::min(failed_connections_++, 5);
    const auto until = Clock::now() + milliseconds(std::min(longest, kLongestPause_ms));
    while (Clock::now() < until && !given_up_) {
        pump(std::min(milliseconds_until(until), wait_ms()));
        sync_when_due();
        check_limits();
        expire_questions();
    }
}

// Waits for the connection, for requests of other threads, and for the watcher's own input.
void Attempt::pump(int timeout_ms) {
    std::array<pollfd, 4> waits{{{child_ ? child_->output() : -1, POLLIN, 0},
                                 {child_ ? child_->errors() : -1, POLLIN, 0},
                                 {wake_, POLLIN, 0},
                                 {watcher_->input(), POLLIN, 0}}};
    const int ready = ::poll(waits.data(), waits.size(), timeout_ms);
    if (ready > 0 && waits[0].revents != 0) {
        child_->read_output(received_);
        take_lines();
    }
    if (ready > 0 && waits[1].revents != 0) child_->read_errors(errors_);
    watcher_->tick();
    take_requests();
}

void Attempt::take_lines() {
    std::size_t from = 0;
    for (std::size_t end; (end = received_.find('\n', from)) != std::string::npos; from = end + 1) {
        std::string line = received_.substr(from, end - from);
        if (!line.empty() && line.back() == '\r') line.pop_back();  // of a terminal
        take_line(line);
    }
    received_.erase(0, from);
    if (received_.size() > kLongestNoise) received_.clear();
}

// Whatever is no whole line of the agent is noise of the connection.
void Attempt::take_line(const std::string& line) {
    if (command_ended_ || given_up_ || !has_valid_crc(line)) return;
    try {
        take_event(line, json::parse(line));
    } catch (const json::exception&) {
        return;
    }
}

void Attempt::take_event(const std::string& line, const json& event) {
    const std::string kind = event.at("event");
    if (!connected_) {
        if (failed_connections_ > 0 || next_event_ > 1) {
            write("connection", {{"state", "restored"}, {"command", command_}});
        }
        connected_ = true;
        failed_connections_ = 0;
    }
    if (kind == "alive") {
        events_missing_ = events_missing_ || event.at("last") >= next_event_;
        return;
    }
    if (kind == "dead") {
        give_up("dead", {{"command", command_}, {"text", "the recorder on the board died"}});
        return;
    }
    const std::uint64_t number = event.at("n");
    if (number < next_event_) return;
    if (number > next_event_) {
        events_missing_ = true;
        return;
    }
    if (kind == "start" && event.at("run") != run_name(command_)) {
        give_up("failed", {{"text", "the board follows another run"}});
        return;
    }
    feed(writer_.board(command_, line));
    ++next_event_;
    latest_event_ = Clock::now();
    if (kind == "start" && command_ == 1) look_up_addresses(event);
    if (kind == "end") command_ended_ = true;
}

void Attempt::look_up_addresses(const json& start) {
    const auto addresses = start.find("addresses");
    if (!setup_.plan.addresses_unique || addresses == start.end()) return;
    for (const auto& [interface, address] : addresses->items()) {
        const std::string text = address;
        const std::vector<std::string> serials =
            setup_.serials_of_address
                ? setup_.serials_of_address(text)
                : serials_in_folder(setup_.journals, text, setup_.identity.serial);
        write("lookup", {{"what", "address"},
                         {"interface", interface},
                         {"address", text},
                         {"serials", serials}});
    }
}

int Attempt::wait_ms() const {
    int wait = 1000;
    if (const auto due = writer_.sync_due()) wait = std::min(wait, milliseconds_until(*due));
    return wait;
}

// What ends an attempt early.

void Attempt::check_limits() {
    if (given_up_ || command_ended_) return;
    const auto now = Clock::now();
    const char* limit = now - latest_event_ > seconds(setup_.plan.silence_s) ? "silence"
                        : now - started_ > seconds(setup_.plan.run_s)        ? "run"
                                                                             : nullptr;
    if (limit != nullptr) {
        give_up("limit", {{"limit", limit}, {"command", command_}});
        stop_board();
    } else if (stop_asked_) {
        stop_board();
        given_up_ = true;
    }
}

void Attempt::give_up(const char* kind, const ordered_json& members) {
    write(kind, members);
    given_up_ = true;
    if (members.contains("text")) watcher_->note(members.at("text"));
}

// Ends q7 on the board, and takes what still comes of the run.
void Attempt::stop_board() {
    std::string output;
    try {
        run_to_end(setup_.board.about("stop", run_name(command_)), kStopTimeout_ms, output);
    } catch (const std::system_error& error) {
        watcher_->note(error.what());
        return;
    }
    const bool had_given_up = std::exchange(given_up_, false);
    const auto until = Clock::now() + milliseconds(kEndAfterStop_ms);
    while (!command_ended_ && child_ && child_->output() >= 0 && Clock::now() < until) {
        pump(std::min(100, milliseconds_until(until)));
    }
    given_up_ = had_given_up || given_up_;
}

// The questions.

Attempt::Asked* Attempt::open_question(const std::string& question) {
    for (Asked& asked : asked_) {
        if (asked.question == question && !asked.answered) return &asked;
    }
    return nullptr;
}

void Attempt::ask_due_questions() {
    for (const Question& question : setup_.plan.questions) {
        const bool due =
            std::any_of(evidence_.steps.begin(), evidence_.steps.end(), [&](const StepSeen& step) {
                return step.command == question.command && step.finished
                       && step.name.substr(step.name.rfind('.') + 1) == question.step;
            });
        const std::unique_lock lock(mutex_);
        const bool asked = std::any_of(asked_.begin(), asked_.end(), [&](const Asked& each) {
            return each.question == question.name;
        });
        const auto& answers = reader_.journal().answers;
        const bool answered = std::any_of(answers.begin(), answers.end(), [&](const Answer& each) {
            return each.question == question.name;
        });
        if (!due || asked || answered) continue;
        write("question", {{"question", question.name}, {"command", question.command}});
        asked_.push_back({question.name, Clock::now() + seconds(setup_.plan.answer_s)});
        const auto given = setup_.answers.find(question.name);
        const std::string& who = setup_.identity.operator_id;
        if (given != setup_.answers.end()) {
            write_answer({0, question.name, given->second, who, "option"});
        } else if (!setup_.somebody_answers) {
            write_answer({0, question.name, "none", who, "option"});
        }
    }
    refresh();
}

// With the mutex held.
void Attempt::write_answer(const Request& request) {
    Asked* const asked = open_question(request.question);
    if (asked == nullptr) return;
    write("answer", {{"question", request.question},
                     {"answer", request.answer},
                     {"operator", request.operator_id},
                     {"via", request.via}});
    asked->answered = true;
    asked->answered_by = request.number;
}

void Attempt::expire_questions() {
    const std::lock_guard lock(mutex_);
    for (const Asked& asked : asked_) {
        if (asked.answered || asked.until > Clock::now()) continue;
        write_answer({0, asked.question, "none", setup_.identity.operator_id, "time"});
    }
}

void Attempt::wait_for_answers() {
    refresh();
    if (!given_up_) ask_due_questions();
    const auto open = [&] {
        const std::lock_guard lock(mutex_);
        return std::any_of(asked_.begin(), asked_.end(),
                           [](const Asked& asked) { return !asked.answered; });
    };
    while (open() && !given_up_ && !stop_asked_) {
        tell();
        pump(wait_ms());
        sync_when_due();
        expire_questions();
    }
}

void Attempt::take_requests() {
    std::uint64_t count = 0;
    if (::read(wake_, &count, sizeof count) < 0 && errno != EAGAIN) return;
    std::unique_lock lock(mutex_);
    if (requests_.empty()) return;
    const std::vector<Request> requests = std::exchange(requests_, {});
    for (const Request& request : requests) {
        if (!request.question.empty()) {
            write_answer(request);
        } else if (!stop_asked_) {
            stop_asked_ = true;
            write("stopped", {{"operator", request.operator_id}});
        }
    }
    writer_.sync();
    requests_taken_ += requests.size();
    lock.unlock();
    taken_.notify_all();
}

bool Attempt::answer(const std::string& question, const std::string& answer,
                     const std::string& operator_id, const std::string& via) {
    std::unique_lock lock(mutex_);
    const Asked* const asked = open_question(question);
    if (!running_ || asked == nullptr || asked->until < Clock::now()) return false;
    for (const Request& request : requests_) {
        if (request.question == question) return false;  // somebody was faster
    }
    const std::size_t mine = ++requests_made_;
    requests_.push_back({mine, question, answer, operator_id, via});
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(wake_, &one, sizeof one);
    if (std::this_thread::get_id() == runner_) return true;  // taken before the next event
    taken_.wait(lock, [&] { return requests_taken_ >= mine || !running_; });
    return std::any_of(asked_.begin(), asked_.end(),
                       [&](const Asked& each) { return each.answered_by == mine; });
}

void Attempt::stop(const std::string& operator_id) {
    const std::lock_guard lock(mutex_);
    if (!running_) return;
    requests_.push_back({++requests_made_, "", "", operator_id, ""});
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(wake_, &one, sizeof one);
}

// The address stands in an event near the beginning, behind the attempt and its plan.
std::vector<std::string> serials_in_folder(const fs::path& folder, const std::string& address,
                                           const std::string& serial) {
    constexpr std::size_t kHead = 131'072;
    std::vector<std::string> serials;
    for (const fs::path& path : journals_in(folder)) {
        std::ifstream file(path, std::ios::binary);
        std::string head(kHead, '\0');
        file.read(head.data(), static_cast<std::streamsize>(head.size()));
        head.resize(static_cast<std::size_t>(file.gcount()));
        if (head.find("\"" + address + "\"") == std::string::npos) continue;
        const Journal journal = parse_journal(head);
        const std::string& other = journal.identity.serial;
        if (other.empty() || other == serial) continue;
        const bool names_it =
            std::any_of(journal.events.begin(), journal.events.end(), [&](const BoardEvent& event) {
                const auto found = event.fields.find("addresses");
                return event.kind == BoardEvent::Kind::start && found != event.fields.end()
                       && std::any_of(found->begin(), found->end(),
                                      [&](const json& each) { return each == address; });
            });
        if (names_it && std::find(serials.begin(), serials.end(), other) == serials.end()) {
            serials.push_back(other);
        }
    }
    return serials;
}

}  // namespace station
