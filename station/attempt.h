// An attempt as it runs: the plan's commands on the board, the journal, the questions, the
// verdict. One thread runs it; others may answer and stop.
#pragma once

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "station/connection.h"
#include "station/evidence.h"
#include "station/journal.h"
#include "station/judge.h"
#include "station/plan.h"

namespace station {

struct AttemptSetup {
    Plan plan;
    std::string plan_text;
    Identity identity;            // serial, operator_id, station, mark, attempt, shift
    std::vector<Repair> repairs;  // of earlier attempts; written behind the first line
    std::filesystem::path journals;
    BoardWords board;
    std::map<std::string, std::string> answers;  // given beforehand: "yes", "no", "unsure"
    bool somebody_answers = false;  // else a question without an answer is left at once
    // Other serial numbers under which a network address was seen; without it, the folder is read.
    std::function<std::vector<std::string>(const std::string& address)> serials_of_address;
    // Adds the causes to the judgement before it is stored; without it, there are none.
    std::function<void(Judgement&, const Evidence&)> diagnose;
};

// How far an attempt has come; valid during the call that carries it.
struct AttemptState {
    const Journal& journal;
    const Evidence& evidence;
    struct Due {
        std::string question;
        double seconds_left;
    };
    std::vector<Due> due;
    bool connected = false;
    int command = 0;  // at hand, from 1
};

class AttemptWatcher {
  public:
    virtual ~AttemptWatcher() = default;
    virtual void changed(const AttemptState&) {}
    virtual void note(const std::string&) {}  // a line for a person
    virtual int input() { return -1; }        // a descriptor: tick() follows when it is readable
    virtual void tick() {}                    // often, in the thread that runs the attempt
};

class Attempt {
  public:
    // Takes an id and writes the first line. Throws std::system_error where the folder refuses.
    explicit Attempt(AttemptSetup setup);

    // Goes on with the attempt of a station that was killed. The plan is the journal's.
    static std::unique_ptr<Attempt> resume(const std::filesystem::path& journal,
                                           AttemptSetup setup);

    ~Attempt();
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;

    // Runs to the end, then stores the judgement beside the journal. Throws std::system_error when
    // the disk refuses: there is no verdict then.
    Judgement run(AttemptWatcher& watcher);

    // From any thread. False when the question is not due: unknown, answered, or its time is over.
    bool answer(const std::string& question, const std::string& answer,
                const std::string& operator_id, const std::string& via);
    void stop(const std::string& operator_id);

    const std::string& id() const { return id_; }
    const std::filesystem::path& journal_path() const { return writer_.path(); }

  private:
    using Clock = std::chrono::steady_clock;
    struct Asked {
        std::string question;
        Clock::time_point until;
        bool answered = false;
        std::size_t answered_by = 0;  // number of the request; 0 = of none
    };
    struct Request {
        std::size_t number;                              // from 1; 0 = of no thread
        std::string question, answer, operator_id, via;  // no question: stop
    };

    struct Ending {
        Attempt& attempt;
        ~Ending();
    };

    Attempt(AttemptSetup setup, JournalWriter writer);

    // The journal.
    void load();
    void write(std::string_view kind, const nlohmann::ordered_json& members);
    void feed(const std::string& line);
    void sync_when_due();
    void refresh();
    void tell();

    // The commands.
    void begin_command(int number);
    bool run_command(int number);  // false = the attempt is over
    bool has_ended(int number) const;
    void finish_command(int number);
    std::string run_name(int number) const;

    // The connection.
    bool connect();
    void connection_ended();
    void pump(int timeout_ms);
    void take_lines();
    void take_line(const std::string& line);
    void take_event(const std::string& line, const nlohmann::json& event);
    void look_up_addresses(const nlohmann::json& start);
    void pause_before_retry();
    int wait_ms() const;

    // What ends an attempt early.
    void check_limits();
    void give_up(const char* kind, const nlohmann::ordered_json& members);
    void stop_board();

    // The questions.
    void ask_due_questions();
    void expire_questions();
    void take_requests();
    void wait_for_answers();
    void write_answer(const Request& request);
    Asked* open_question(const std::string& question);

    AttemptSetup setup_;
    JournalWriter writer_;
    JournalReader reader_;
    Evidence evidence_;
    std::string id_;
    AttemptWatcher* watcher_ = nullptr;

    std::unique_ptr<Child> child_;
    std::string received_, errors_;
    bool connected_ = false;      // an event or sign of life came on this connection
    int failed_connections_ = 0;  // in turn
    int command_ = 0;             // at hand
    std::uint64_t next_event_ = 1;
    bool command_ended_ = false, given_up_ = false, stop_asked_ = false;
    bool events_missing_ = false;  // the board has events that did not come
    bool changed_ = false;
    Clock::time_point started_ = Clock::now(), latest_event_ = started_;

    std::mutex mutex_;  // of what follows
    std::condition_variable taken_;
    std::thread::id runner_;
    bool running_ = false;
    std::vector<Asked> asked_;
    std::vector<Request> requests_;
    std::size_t requests_made_ = 0, requests_taken_ = 0;
    int wake_ = -1;  // event descriptor: a request is there
};

// Other serial numbers than this whose journals in the folder name the address.
std::vector<std::string> serials_in_folder(const std::filesystem::path& folder,
                                           const std::string& address, const std::string& serial);

}  // namespace station
