#include "station/web/controller.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <set>
#include <system_error>

#include "station/hooks.h"
#include "station/text.h"
#include "station/web/record.h"
#include "station/web/repairs.h"
#include "station/web/server.h"

namespace station::web {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using std::chrono::duration_cast;
using std::chrono::seconds;

constexpr seconds kRefusalShown{5}, kProbeEvery{5}, kProofReadEvery{1}, kSupervised{60};
constexpr std::size_t kProbeBytes = 4096;

struct Leaving {};  // thrown out of a run that the server leaves

int whole_seconds(std::chrono::steady_clock::duration time) {
    return static_cast<int>(std::max<std::int64_t>(0, duration_cast<seconds>(time).count()));
}

// Why nothing can be stored in the folder: "disk-full", "read-only"; empty = it can.
std::string storage_problem(int error) {
    return error == ENOSPC || error == EDQUOT ? "disk-full" : "read-only";
}

std::string probe(const fs::path& folder) {
    std::error_code ignored;
    fs::create_directories(folder, ignored);
    const std::string path = folder / ".probe";
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return storage_problem(errno);
    const std::string bytes(kProbeBytes, '\n');
    const bool written =
        ::write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size())
        && ::fdatasync(fd) == 0;
    const int error = errno;
    ::close(fd);
    ::unlink(path.c_str());
    return written ? "" : storage_problem(error);
}

// The latest journal of the station, those of simulated boards aside; empty = none.
fs::path latest_journal(const fs::path& folder, const std::string& station) {
    const std::set<std::string> simulated = simulated_attempts(folder, station);
    fs::path latest;
    for (const fs::path& path : journals_in(folder)) {
        const std::string name = path.stem().string();
        if (name.starts_with(station + "-") && !simulated.contains(name)) latest = path;
    }
    return latest;
}

template <typename Function, typename... Arguments>
auto ask(const Function& function, decltype(function(std::declval<Arguments>()...)) otherwise,
         const Arguments&... arguments) {
    if (!function) return otherwise;
    try {
        return function(arguments...);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "q7-station: %s\n", error.what());
        return otherwise;
    }
}

}  // namespace

std::vector<LoadedPlan> load_plans(const fs::path& folder) {
    std::vector<LoadedPlan> plans;
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        if (entry.path().extension() == ".toml") files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
        const std::string text = read_file(file.string());
        plans.push_back({Plan::parse(text, file.string()), text});
    }
    if (plans.empty()) throw std::runtime_error(folder.string() + ": no plan");
    return plans;
}

Controller::Controller(ControllerSetup setup, Records records, std::function<void()> changed)
    : setup_(std::move(setup)),
      records_(std::move(records)),
      changed_(std::move(changed)),
      operator_id_(setup_.people.empty() ? setup_.operator_id : ""),
      factory_(setup_.before, setup_.after) {
    const std::lock_guard lock(mutex_);
    plan_ = setup_.plans.front().plan;
    const fs::path latest = latest_journal(setup_.journals, setup_.station);
    if (!latest.empty()) restore(latest);
}

Controller::~Controller() {
    leaving_ = true;
    if (runner_.joinable()) runner_.join();
}

// ---- the state ----

json Controller::state() {
    const std::lock_guard lock(mutex_);
    const std::vector<std::string> locked = locks(*plan_, next_mark_);
    const bool live = phase_ == Phase::running || phase_ == Phase::storing;
    const bool shows_run = live || phase_ == Phase::verdict;
    const bool shows_last = phase_ == Phase::waiting || phase_ == Phase::refused;
    const bool refused = !refusal_.empty() && Clock::now() - refused_at_ < kRefusalShown;
    const std::string problem = factory_.problem();
    std::string board = "idle";
    if (phase_ == Phase::verdict) board = "connected";
    if (live) board = run_.connected ? "connected" : "lost";
    return {{"version", 1},
            {"now", now_iso()},
            {"station", setup_.station},
            {"operator", operator_id_.empty() ? json() : json(operator_id_)},
            {"supervisor", supervised() ? json(supervisor_) : json()},
            {"mark", next_mark_.empty() ? json("production") : json(next_mark_)},
            {"proof", proof_json()},
            {"unsent", ask(records_.unsent, std::size_t{0})},
            {"database", ask(records_.database, true)},
            {"board", board},
            {"phase", phase_name(!locked.empty())},
            {"locked", locked},
            {"attempt", phase_ == Phase::waiting ? json() : about_},
            {"plan", plan_json(*plan_)},
            {"steps", shows_run ? run_.steps : idle_steps(*plan_, learned_)},
            {"progress", live ? progress() : json()},
            {"facts", shows_run ? run_.facts : json::object()},
            {"answers", shows_run ? run_.answers : json::object()},
            {"question", question()},
            {"verdict", phase_ == Phase::verdict ? verdict_ : json()},
            {"last", shows_last ? last_ : json()},
            {"refusal", refused ? json{{"code", refusal_}} : json()},
            {"factory",
             {{"refused", phase_ == Phase::refused ? json(refused_words_) : json()},
              {"problem", problem.empty() ? json() : json(problem)}}}};
}

// What the stage shows. A verdict stays, whatever keeps the next board from being started.
std::string Controller::phase_name(bool is_locked) const {
    if (phase_ == Phase::asking) return "asking";
    if (phase_ == Phase::running) return "running";
    if (phase_ == Phase::storing) return "storing";
    if (phase_ == Phase::verdict) return "verdict";
    if (!problem_.empty()) return "locked";
    if (phase_ == Phase::refused) return "refused";
    if (operator_id_.empty()) return "sign-in";
    return is_locked ? "locked" : "waiting";
}

json Controller::progress() const {
    const int elapsed = whole_seconds(Clock::now() - run_.started);
    double whole = 0;
    bool learned = true;
    for (const json& step : run_.steps) {
        learned = learned && step.at("seconds").is_number();
        if (learned) whole += step.at("seconds").get<double>();
    }
    const int rest = static_cast<int>(std::lround(whole)) - elapsed;
    return {{"step", run_.step},
            {"elapsed", elapsed},
            {"left", learned ? json(std::max(0, rest)) : json()},
            {"over", learned ? std::max(0, -rest) : 0},
            {"silent", whole_seconds(Clock::now() - run_.latest_event)}};
}

json Controller::question() const {
    if (phase_ != Phase::running || run_.due.empty()) return nullptr;
    const AttemptState::Due& due = run_.due.front();
    const auto since = std::chrono::duration<double>(Clock::now() - run_.due_at).count();
    const auto place = std::find_if(plan_->questions.begin(), plan_->questions.end(),
                                    [&](const Question& one) { return one.name == due.question; });
    return {{"name", due.question},
            {"number", place - plan_->questions.begin() + 1},
            {"count", plan_->questions.size()},
            {"left", std::max(0, static_cast<int>(due.seconds_left - since))}};
}

// What keeps a new attempt from being started. Reference boards and trial runs release nothing: they
// need no proof.
std::vector<std::string> Controller::locks(const Plan& plan, const std::string& mark) {
    std::vector<std::string> reasons;
    if (phase_ == Phase::asking || phase_ == Phase::running || phase_ == Phase::storing)
        return reasons;
    if (!probed_at_ || Clock::now() - *probed_at_ > kProbeEvery) {
        problem_ = probe(setup_.journals);
        probed_at_ = Clock::now();
    }
    if (!problem_.empty()) reasons.push_back(problem_);
    const std::string missing = mark.empty() || mark == "production" ? proof_lock(plan) : "";
    if (!missing.empty()) reasons.push_back(missing);
    return reasons;
}

// ---- the proof of the shift ----

// Read again each second: `prove` writes it in another process.
const std::optional<Proof>& Controller::proof_of(const Plan& plan) {
    const bool is_fresh = proof_read_at_ && Clock::now() - *proof_read_at_ < kProofReadEvery;
    if (is_fresh && proof_plan_ == plan.sha256) return proof_;
    proof_ = latest_proof(setup_.journals, setup_.station, plan.sha256,
                          shift_begin(setup_.shifts, seconds_since_1970()));
    proof_plan_ = plan.sha256;
    proof_read_at_ = Clock::now();
    return proof_;
}

// Why production with this plan is locked; empty = it is not.
std::string Controller::proof_lock(const Plan& plan) {
    const bool is_wanted = setup_.needs_proof || !plan.references.empty();
    switch (state_of(proof_of(plan), plan)) {
    case ProofState::none:
        return is_wanted ? "no-proof" : "";
    case ProofState::failed:
        return "proof-failed";
    case ProofState::boards_due:
        return "proof-boards";
    case ProofState::good:
        break;
    }
    return "";
}

json Controller::proof_json() {
    const std::optional<Proof>& proof = proof_of(*plan_);
    if (!proof) return nullptr;
    static constexpr const char* kStates[] = {"none", "failed", "boards-due", "good"};
    const ReferenceBoard* const next = next_reference(*proof, *plan_);
    return {{"number", proof->number},
            {"time", proof->at},
            {"state", kStates[static_cast<std::size_t>(state_of(proof, *plan_))]},
            {"next", next == nullptr
                         ? json()
                         : json{{"serial", next->serial}, {"verdict", state_name(next->verdict)}}}};
}

// The verdict of a reference board becomes part of the proof.
void Controller::note_proof(const Judgement& judgement) {
    if (judgement.identity.mark != "reference") return;
    proof_read_at_.reset();
    std::optional<Proof> proof = proof_of(*plan_);
    if (!proof || proof->number != judgement.identity.shift) return;
    note_reference(setup_.journals, *proof, *plan_, judgement.identity.serial,
                   judgement.identity.id, name_of(judgement.verdict));
    proof_read_at_.reset();
}

// ---- scans, answers, stop ----

void Controller::scan(const std::string& text) {
    {
        const std::lock_guard lock(mutex_);
        try {
            take_scan(text);
            refusal_.clear();
        } catch (const Refusal& refused) {
            refusal_ = refused.what();
            refused_at_ = Clock::now();
            changed_();
            throw;
        }
    }
    changed_();
}

void Controller::take_scan(const std::string& text) {
    if (phase_ == Phase::asking || phase_ == Phase::running || phase_ == Phase::storing)
        throw Refusal(409, run_.due.empty() ? "running" : "question");
    if (const auto person = find_badge(setup_.people, text)) return sign_in(*person);
    const bool release_due =
        phase_ == Phase::verdict && verdict_.value("scan_out", json()) == "due";
    const LoadedPlan* loaded = plan_of(text);
    if (loaded != nullptr
        && std::any_of(loaded + 1, setup_.plans.data() + setup_.plans.size(),
                       [&](const LoadedPlan& other) { return other.plan.takes_serial(text); }))
        throw Refusal(409, "two-plans");
    if (loaded == nullptr) throw Refusal(409, operator_id_.empty() ? "sign-in" : "serial-pattern");
    if (operator_id_.empty()) throw Refusal(409, "sign-in");
    if (release_due) return scan_out(text);
    probed_at_.reset();
    const std::string mark = mark_of(loaded->plan, text);
    if (!locks(loaded->plan, mark).empty()) {
        leave_verdict();
        plan_ = loaded->plan;  // the stage says what this plan lacks
        throw Refusal(409, "locked");
    }
    if (mark == "production" && supervised_serial_ != text
        && ask(records_.wants_supervisor, false, text, loaded->plan.model))
        throw Refusal(409, "supervisor");
    begin(text, *loaded, mark);
}

// A reference board is known by its serial number; a trial run is marked by a supervisor.
std::string Controller::mark_of(const Plan& plan, const std::string& serial) const {
    if (reference_of(plan, serial) != nullptr) return "reference";
    return next_mark_.empty() || !supervised() ? "production" : next_mark_;
}

// The verdict moves to the place of the last board's.
void Controller::leave_verdict() {
    if (phase_ != Phase::verdict) return;
    last_ = {{"verdict", verdict_.at("verdict")}, {"id", about_.at("id")},
             {"serial", about_.at("serial")},     {"number", about_.at("number")},
             {"time", verdict_.at("end")},        {"released", false}};
    phase_ = Phase::waiting;
}

bool Controller::supervised() const {
    return !supervisor_.empty() && Clock::now() - supervised_at_ < kSupervised;
}

void Controller::sign_in(const Person& person) {
    if (person.role == Role::repairs) throw Refusal(409, "badge");
    if (operator_id_.empty() || person.role == Role::operates) operator_id_ = person.name;
    if (person.role != Role::supervises) return;
    supervisor_ = person.name;
    supervised_at_ = Clock::now();
    next_mark_.clear();
    if (phase_ == Phase::verdict) supervised_serial_ = about_.at("serial");
}

void Controller::mark(const std::string& mark) {
    if (mark != "production" && mark != "trial") throw Refusal(400, "missing-mark");
    {
        const std::lock_guard lock(mutex_);
        if (!supervised()) throw Refusal(409, "supervisor");
        next_mark_ = mark == "trial" ? mark : "";
        supervised_at_ = Clock::now();
    }
    changed_();
}

void Controller::repair(const std::string& of, const std::string& defect, const std::string& text,
                        const std::string& badge) {
    const Journal journal = read_journal(journal_of(setup_.journals, of));
    if (!journal.ended || judge(journal).verdict == Verdict::pass) throw Refusal(409, "not-failed");
    if (defect.empty() && text.empty()) throw Refusal(400, "missing-text");
    const std::lock_guard lock(mutex_);
    std::string who = operator_id_;
    if (!setup_.people.empty()) {
        const auto person = find_badge(setup_.people, badge);
        if (!person || person->role == Role::operates) throw Refusal(409, "badge");
        who = person->name;
    }
    try {
        enter_repair(setup_.journals, journal.identity.serial, {of, defect, text, who, now_iso()});
    } catch (const std::system_error& error) {
        problem_ = storage_problem(error.code().value());
        throw Refusal(409, "locked");
    }
}

// The board leaves with the serial number it came with, or two boards were swapped.
void Controller::scan_out(const std::string& text) {
    try {
        append_scan_out(journal_, text, operator_id_);
    } catch (const std::system_error& error) {
        problem_ = storage_problem(error.code().value());
        throw Refusal(409, "locked");
    }
    const Journal journal = read_journal(journal_);
    const Evidence evidence = take_evidence(journal);
    const Judgement judgement = judge(journal, evidence, *plan_);
    json object, stored;
    try {
        object = write_judgement(journal, evidence, judgement);
        stored = send(object);
    } catch (const std::system_error& error) {
        problem_ = storage_problem(error.code().value());
        throw Refusal(409, "locked");
    }
    factory_.tell(object.dump() + "\n");
    if (judgement.verdict == Verdict::pass) {
        last_ = {{"verdict", "pass"},
                 {"id", about_.at("id")},
                 {"serial", about_.at("serial")},
                 {"number", about_.at("number")},
                 {"time", now_iso()},
                 {"released", true}};
        phase_ = Phase::waiting;
        return;
    }
    show_verdict(journal, judgement, stored);
    throw Refusal(409, "swapped");
}

void Controller::answer(const std::string& attempt, const std::string& serial,
                        const std::string& question, const std::string& answer) {
    if (answer != "yes" && answer != "no" && answer != "unsure")
        throw Refusal(400, "missing-answer");
    Attempt* running = nullptr;
    std::string who;
    {
        const std::lock_guard lock(mutex_);
        const bool waits = phase_ == Phase::running && about_.at("id") == attempt
                           && about_.at("serial") == serial && !run_.due.empty()
                           && run_.due.front().question == question;
        if (!waits) throw Refusal(409, "late-answer");
        running = attempt_.get();
        who = operator_id_;
    }
    // The attempt outlives the run's thread: only another scan replaces it, and a run refuses that.
    if (!running->answer(question, answer, who, "page")) throw Refusal(409, "late-answer");
    changed_();
}

void Controller::stop(const std::string& attempt) {
    const std::lock_guard lock(mutex_);
    if (phase_ != Phase::running || about_.at("id") != attempt) throw Refusal(409, "late-answer");
    attempt_->stop(operator_id_);
}

// ---- runs ----

// The first of them: a serial number must name one plan.
const LoadedPlan* Controller::plan_of(const std::string& serial) const {
    const auto found =
        std::find_if(setup_.plans.begin(), setup_.plans.end(),
                     [&](const LoadedPlan& one) { return one.plan.takes_serial(serial); });
    return found == setup_.plans.end() ? nullptr : &*found;
}

AttemptSetup Controller::attempt_setup(const LoadedPlan& loaded) const {
    AttemptSetup setup;
    setup.plan = loaded.plan;
    setup.plan_text = loaded.text;
    setup.journals = setup_.journals;
    setup.board = setup_.board;
    setup.somebody_answers = true;
    return setup;
}

void Controller::begin(const std::string& serial, const LoadedPlan& loaded,
                       const std::string& mark) {
    AttemptSetup setup = attempt_setup(loaded);
    const int number = ask(records_.next_attempt, 0, serial, loaded.plan.model);
    setup.identity.serial = serial;
    setup.identity.model = loaded.plan.model;
    setup.identity.operator_id = operator_id_;
    setup.identity.station = setup_.station;
    setup.identity.mark = mark;
    if (mark == "trial") setup.identity.marked_by = supervisor_;
    if (number > 0) setup.identity.attempt = number;
    proof_read_at_.reset();  // a proof that has just been made counts
    if (const std::optional<Proof>& proof = proof_of(loaded.plan))
        setup.identity.shift = proof->number;
    if (records_.serials_of_address)
        setup.serials_of_address = [this, serial](const std::string& address) {
            return records_.serials_of_address(address, serial);
        };
    about_ = {{"id", nullptr},
              {"serial", serial},
              {"number", std::max(1, number)},
              {"provisional", number == 0 || ask(records_.unsent, std::size_t{0}) > 0},
              {"mark", mark}};
    if (factory_.is_asked()) {
        leave_verdict();
        plan_ = loaded.plan;
        phase_ = Phase::asking;
        return launch([this, setup] { ask_factory(setup); });
    }
    open(std::move(setup));
    launch([this] { run(); });
}

// Throws Refusal where nothing can be stored.
void Controller::open(AttemptSetup setup) {
    const Plan plan = setup.plan;
    const std::string serial = setup.identity.serial;
    try {
        setup.repairs = waiting_repairs(setup_.journals, serial);
        const std::vector<Repair> repairs = setup.repairs;
        auto attempt = std::make_unique<Attempt>(std::move(setup));
        forget_repairs(setup_.journals, serial, repairs);
        supervised_serial_.clear();
        supervisor_.clear();
        next_mark_.clear();
        about_["id"] = attempt->id();
        take_up(std::move(attempt), plan);
    } catch (const std::system_error& error) {
        problem_ = storage_problem(error.code().value());
        probed_at_ = Clock::now();
        phase_ = Phase::waiting;
        throw Refusal(409, "locked");
    }
}

void Controller::take_up(std::unique_ptr<Attempt> attempt, const Plan& plan) {
    attempt_ = std::move(attempt);
    journal_ = attempt_->journal_path();
    plan_ = plan;
    run_ = Run();
    run_.steps = idle_steps(plan, learned_);
    run_.started = run_.latest_event = Clock::now();
    verdict_ = nullptr;
    last_ = nullptr;
    phase_ = Phase::running;
}

// The thread before has done its work: whoever comes here saw the phase that it left.
void Controller::launch(std::function<void()> work) {
    if (runner_.joinable()) runner_.join();
    runner_ = std::thread(std::move(work));
}

// Goes on where the server was killed: with a run, or with the verdict of one.
void Controller::restore(const fs::path& path) {
    const Journal journal = read_journal(path);
    const Identity& identity = journal.identity;
    if (journal.lines == 0 || identity.plan_text.empty()) return;
    LoadedPlan loaded{Plan::parse(identity.plan_text, path.string()), identity.plan_text};
    about_ = {{"id", identity.id},
              {"serial", identity.serial},
              {"number", identity.attempt.value_or(1)},
              {"provisional", !identity.attempt},
              {"mark", identity.mark}};
    journal_ = path;
    plan_ = loaded.plan;
    forget_repairs(setup_.journals, identity.serial, journal.repairs);
    if (operator_id_.empty()) operator_id_ = identity.operator_id;
    if (!journal.ended) {
        try {
            take_up(Attempt::resume(path, attempt_setup(loaded)), loaded.plan);
            launch([this] { run(); });
        } catch (const std::exception& error) {
            std::fprintf(stderr, "q7-station: %s\n", error.what());
            phase_ = Phase::waiting;
        }
        return;
    }
    const Evidence evidence = take_evidence(journal);
    const Judgement judgement = judge(journal, evidence, loaded.plan);
    if (identity.mark == "production") learn(evidence);
    run_.facts = facts_json(loaded.plan, evidence);
    run_.answers = answers_json(journal, {});
    run_.steps = judged_steps(loaded.plan, evidence, judgement, learned_);
    try {
        show_verdict(journal, judgement, send(written_judgement(journal, evidence, judgement)));
    } catch (const std::system_error& error) {
        problem_ = storage_problem(error.code().value());
        probed_at_ = Clock::now();
        std::fprintf(stderr, "q7-station: %s\n", error.what());
        return;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "q7-station: %s\n", error.what());
        return;
    }
    const bool released =
        std::any_of(journal.remarks.begin(), journal.remarks.end(),
                    [](const Remark& remark) { return remark.kind == "scan-out"; });
    if (!released || judgement.verdict != Verdict::pass) return;
    last_ = {{"verdict", "pass"},         {"id", identity.id},
             {"serial", identity.serial}, {"number", identity.attempt.value_or(1)},
             {"time", journal.end_at},    {"released", true}};
    phase_ = Phase::waiting;
}

void Controller::ask_factory(AttemptSetup setup) {
    const auto words = factory_.refusal(start_question(setup.identity, setup.plan.sha256));
    bool begun = false;
    {
        const std::lock_guard lock(mutex_);
        if (leaving_) return;
        refused_words_ = words.value_or("");
        phase_ = Phase::refused;
        try {
            if (!words) open(std::move(setup));
            begun = !words;
        } catch (const Refusal& refused) {
            refusal_ = refused.what();
            refused_at_ = Clock::now();
        }
    }
    changed_();
    if (begun) run();
}

void Controller::run() {
    try {
        const Judgement judgement = attempt_->run(*this);
        finish(judgement);
    } catch (const Leaving&) {
        return;
    } catch (const std::system_error& error) {
        const std::lock_guard lock(mutex_);
        problem_ = storage_problem(error.code().value());
        probed_at_ = Clock::now();
        phase_ = Phase::waiting;
        std::fprintf(stderr, "q7-station: %s\n", error.what());
    } catch (const std::exception& error) {
        const std::lock_guard lock(mutex_);
        phase_ = Phase::waiting;
        std::fprintf(stderr, "q7-station: %s\n", error.what());
    }
    changed_();
}

// The judgement is on the disk; the verdict is shown when the database, or the copy that waits for
// it, has it too.
void Controller::finish(const Judgement& judgement) {
    fs::path path;
    {
        const std::lock_guard lock(mutex_);
        phase_ = Phase::storing;
        path = journal_;
    }
    changed_();
    const Journal journal = read_journal(path);
    const Evidence evidence = take_evidence(journal);
    const json object = write_judgement(journal, evidence, judgement);
    json stored = send(object);
    const std::lock_guard lock(mutex_);
    if (judgement.verdict == Verdict::pass && judgement.identity.mark == "production")
        learn(evidence);
    run_.facts = facts_json(*plan_, evidence);
    run_.answers = answers_json(journal, {});
    run_.steps = judged_steps(*plan_, evidence, judgement, learned_);
    run_.due.clear();
    note_proof(judgement);
    show_verdict(journal, judgement, std::move(stored));
    if (!object.contains("release")) factory_.tell(object.dump() + "\n");
}

// A board that passed and is not scanned out yet. Until then its verdict can change, and the
// database takes each attempt once.
bool Controller::awaits_release(const Journal& journal, const Judgement& judgement) const {
    return judgement.verdict == Verdict::pass && plan_->scan_out
           && judgement.identity.mark == "production"
           && std::none_of(journal.remarks.begin(), journal.remarks.end(),
                           [](const Remark& remark) { return remark.kind == "scan-out"; });
}

// Writes the judgement with its causes, and returns it. That of a board that awaits its release is
// marked: no index takes it yet. Throws where nothing can be written.
json Controller::write_judgement(const Journal& journal, const Evidence& evidence,
                                 const Judgement& judgement) const {
    json object = to_json(judgement);
    object["causes"] = ask(records_.causes, json::array(), judgement, evidence);
    if (awaits_release(journal, judgement)) object["release"] = "due";
    write_file(judgement_path(journal_), object.dump() + "\n");
    return object;
}

// The judgement that an earlier server wrote. Writes it again where that server was killed before it
// had looked up the causes, or after the scan that released the board.
json Controller::written_judgement(const Journal& journal, const Evidence& evidence,
                                   const Judgement& judgement) const {
    const fs::path file = judgement_path(journal_);
    if (!fs::exists(file)) return write_judgement(journal, evidence, judgement);
    json object = json::parse(read_file(file.string()), nullptr, false);
    const bool is_whole =
        object.is_object() && object.contains("release") == awaits_release(journal, judgement)
        && (judgement.verdict == Verdict::pass || !object.value("causes", json::array()).empty());
    return is_whole ? object : write_judgement(journal, evidence, judgement);
}

// Hands a judgement to the database, or to the copy that waits for it, unless the board awaits its
// release. Throws where neither works.
json Controller::send(const json& judgement) const {
    json stored{{"journal", true}, {"judgement", true}};
    if (judgement.contains("release")) {
        stored["database"] = "at-release";
        stored["unsent"] = ask(records_.unsent, std::size_t{0});
        return stored;
    }
    Records::Stored sent{true, 0};
    if (records_.store) sent = records_.store(judgement);
    stored["database"] = sent.committed ? "committed" : "spooled";
    stored["unsent"] = sent.unsent;
    return stored;
}

void Controller::show_verdict(const Journal& journal, const Judgement& judgement, json stored) {
    json shown = for_page(to_json(judgement));
    const std::string last_step = running_step(take_evidence(journal));
    shown["number"] = about_.at("number");
    shown["same"] =
        judgement.verdict == Verdict::pass ? 1 : ask(records_.same_failures, 1, judgement);
    shown["scan_out"] = awaits_release(journal, judgement) ? json("due") : json();
    shown["lines"] = judgement.journal_lines;
    shown["broke_off"] =
        judgement.verdict == Verdict::incomplete && !last_step.empty() ? json(last_step) : json();
    shown["stored"] = std::move(stored);
    if (const fs::path path = judgement_path(journal_); fs::exists(path)) {
        const json kept = json::parse(read_file(path.string()), nullptr, false);
        if (kept.is_object() && kept.contains("causes")) shown["causes"] = kept.at("causes");
    }
    verdict_ = std::move(shown);
    phase_ = Phase::verdict;
}

void Controller::learn(const Evidence& evidence) {
    for (const auto& [step, time_s] : durations(evidence)) {
        const auto [place, is_new] = learned_.emplace(step, time_s);
        if (!is_new) place->second = (2 * place->second + time_s) / 3;
    }
}

void Controller::changed(const AttemptState& now) {
    std::vector<std::string> open;
    for (const AttemptState::Due& due : now.due)
        open.push_back(due.question);
    const std::lock_guard lock(mutex_);
    if (now.journal.events.size() != run_.events) {
        run_.events = now.journal.events.size();
        run_.latest_event = Clock::now();
    }
    run_.steps = running_steps(*plan_, now.evidence, open, learned_);
    run_.facts = facts_json(*plan_, now.evidence);
    run_.answers = answers_json(now.journal, open);
    run_.due = now.due;
    run_.due_at = Clock::now();
    const std::string step = running_step(now.evidence);
    if (!step.empty()) run_.step = step;
    run_.connected = now.connected;
    changed_();
}

void Controller::tick() {
    if (leaving_) throw Leaving();
}

}  // namespace station::web
