// One test station as its pages show it: who works there, the board on the fixture, the run, the
// verdict. The run has a thread of its own, which nothing of the server can hold up.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "station/attempt.h"
#include "station/proof.h"
#include "station/web/factory.h"
#include "station/web/people.h"
#include "station/web/state.h"

namespace station::web {

struct LoadedPlan {
    Plan plan;
    std::string text;
};

// Every plan of the folder. Throws PlanError or std::runtime_error.
std::vector<LoadedPlan> load_plans(const std::filesystem::path& folder);

// What is known beyond the attempt at hand. A function may throw std::exception where the database
// is away; an empty one is passed over.
struct Records {
    struct Stored {
        bool committed = false;
        std::size_t unsent = 0;
    };
    // The number that the next attempt of this board gets.
    std::function<int(const std::string& serial, const std::string& model)> next_attempt;
    // How many attempts of this board, this one too, have its set of failing items.
    std::function<int(const Judgement&)> same_failures;
    // Whether the latest attempts of this board ask for a supervisor before the next one.
    std::function<bool(const std::string& serial, const std::string& model)> wants_supervisor;
    // Adds what the dictionary knows to the judgement.
    std::function<nlohmann::json(const Judgement&, const Evidence&)> causes;
    // Puts the attempt into the database, or beside the journals until the database is back.
    std::function<Stored(const nlohmann::json& judgement)> store;
    std::function<std::size_t()> unsent;
    std::function<bool()> database;
    std::function<std::vector<std::string>(const std::string& address, const std::string& serial)>
        serials_of_address;
};

struct ControllerSetup {
    std::string station;
    std::filesystem::path journals;
    std::vector<LoadedPlan> plans;
    BoardWords board;
    std::vector<Person> people;  // nobody: `operator_id` works there
    std::string operator_id;
    bool needs_proof = false;  // for plans without reference boards, too
    Shifts shifts{0};
    std::string before, after;  // the factory's own commands; empty = none
};

class Controller : private AttemptWatcher {
  public:
    // Takes up the latest attempt of this station where it is. `changed` is called by any
    // thread, and must not call back.
    Controller(ControllerSetup setup, Records records, std::function<void()> changed);
    // Leaves a run where it is: the board goes on, and the next server takes it up.
    ~Controller() override;
    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;

    [[nodiscard]] nlohmann::json state();

    // Each throws Refusal.
    void scan(const std::string& text);
    void answer(const std::string& attempt, const std::string& serial, const std::string& question,
                const std::string& answer);
    void stop(const std::string& attempt);
    // What the next attempt is for; within a minute of a supervisor's badge.
    void mark(const std::string& mark);
    // Keeps what was repaired after the attempt `of`, which did not pass, for the next one.
    void repair(const std::string& of, const std::string& defect, const std::string& text,
                const std::string& badge);

  private:
    using Clock = std::chrono::steady_clock;
    enum class Phase : unsigned char { waiting, asking, refused, running, storing, verdict };

    // What a run has shown so far; made by the thread that runs it.
    struct Run {
        nlohmann::json steps = nlohmann::json::array(), facts = nlohmann::json::object(),
                       answers = nlohmann::json::object();
        std::vector<AttemptState::Due> due;
        std::string step;
        bool connected = false;
        std::size_t events = 0;
        Clock::time_point due_at, latest_event, started;
    };

    // With the mutex held.
    void take_scan(const std::string& text);
    void sign_in(const Person& person);
    void scan_out(const std::string& text);
    void begin(const std::string& serial, const LoadedPlan& loaded, const std::string& mark);
    void open(AttemptSetup setup);
    void take_up(std::unique_ptr<Attempt> attempt, const Plan& plan);
    void launch(std::function<void()> work);
    void leave_verdict();
    [[nodiscard]] std::string mark_of(const Plan& plan, const std::string& serial) const;
    [[nodiscard]] bool supervised() const;
    [[nodiscard]] const std::optional<Proof>& proof_of(const Plan& plan);
    [[nodiscard]] nlohmann::json proof_json();
    [[nodiscard]] std::string proof_lock(const Plan& plan);
    void restore(const std::filesystem::path& journal);
    [[nodiscard]] bool awaits_release(const Journal& journal, const Judgement& judgement) const;
    [[nodiscard]] nlohmann::json write_judgement(const Journal& journal, const Evidence& evidence,
                                                 const Judgement& judgement) const;
    [[nodiscard]] nlohmann::json written_judgement(const Journal& journal, const Evidence& evidence,
                                                   const Judgement& judgement) const;
    [[nodiscard]] nlohmann::json send(const nlohmann::json& judgement) const;
    void show_verdict(const Journal& journal, const Judgement& judgement, nlohmann::json stored);
    [[nodiscard]] std::vector<std::string> locks(const Plan& plan, const std::string& mark);
    [[nodiscard]] std::string phase_name(bool is_locked) const;
    [[nodiscard]] nlohmann::json progress() const;
    [[nodiscard]] nlohmann::json question() const;
    void learn(const Evidence& evidence);
    [[nodiscard]] const LoadedPlan* plan_of(const std::string& serial) const;
    [[nodiscard]] AttemptSetup attempt_setup(const LoadedPlan& loaded) const;

    // In the thread that runs the attempt.
    void ask_factory(AttemptSetup setup);
    void run();
    void note_proof(const Judgement& judgement);
    void finish(const Judgement& judgement);
    void changed(const AttemptState& now) override;
    void tick() override;

    const ControllerSetup setup_;
    const Records records_;
    const std::function<void()> changed_;

    std::mutex mutex_;
    std::thread runner_;
    std::atomic<bool> leaving_ = false;
    Phase phase_ = Phase::waiting;
    std::string operator_id_, supervised_serial_, problem_;
    std::unique_ptr<Attempt> attempt_;
    std::optional<Plan> plan_;  // of the attempt, else the latest
    nlohmann::json about_;      // the attempt: {id, serial, number, provisional}
    Run run_;
    nlohmann::json verdict_, last_;
    std::string refusal_;
    Clock::time_point refused_at_;
    Learned learned_;
    std::filesystem::path journal_;
    std::string refused_words_;  // of the factory's command before the start
    std::string supervisor_;     // whose badge was scanned at `supervised_at_`
    std::string next_mark_;      // "trial", or empty
    Clock::time_point supervised_at_;
    std::optional<Clock::time_point> probed_at_, proof_read_at_;
    std::optional<Proof> proof_;  // of the plan with this hash, as it was read
    std::string proof_plan_;
    Factory factory_;
};

}  // namespace station::web
