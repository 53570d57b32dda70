// The grammar of q7's texts: the lines of one command's channels, in their order, become facts.
// Used by evidence.cpp alone.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "station/evidence.h"
#include "station/pattern.h"

namespace station {

// What an event of the board gave to a line.
struct Fragment {
    int line = 0;  // of the journal
    std::int64_t time_us = 0;
    std::size_t begin = 0, end = 0;  // bytes of the line
};

// A line as q7 wrote it, without its line end.
struct TextLine {
    std::string_view bytes;
    std::vector<Fragment> fragments;  // not empty
};

enum class Step : std::uint8_t {
    start,
    buzzer,
    panel,
    network,
    alarm,
    rtc,
    usb,
    sata,
    rs485,
    info,
    summary,
    end,
    pmp,
    watchdog
};
std::string_view name_of(Step step);

// How a command runs: the whole sequence in net or console mode, one test, or none at all.
struct Mode {
    enum class Kind : std::uint8_t { net, console, single, none } kind = Kind::none;
    Step test = Step::start;  // of a single test

    static Mode of(const std::vector<std::string>& words);  // q7's own arguments
};

// True for a name that a file in /dev can have.
bool is_node(std::string_view name);

// Takes the lines of one command, each channel in its own order. In net mode records and printed
// lines are two channels whose common order is unknown: finish() brings them together.
class Grammar {
  public:
    Grammar(Evidence& evidence, CommandSeen command, Mode mode);

    void take(Channel channel, const TextLine& line);
    // A line that has no end yet: of the run that goes on, only its step may count.
    void peek(Channel channel, const TextLine& line);
    void finish();

  private:
    enum class Source : std::uint8_t { reported, printed, error };
    struct Row {
        Pattern pattern;
        Source source;
        bool (Grammar::*act)(const Row&);
        Step step;               // where it may stand; with `anywhere`, its step if none is known
        const char* first = "";  // meaning depends on `act`
        const char* second = "";
        const char* unit = "";
    };
    // The rows, and the places of those that a line with this first byte can match.
    struct Table {
        explicit Table(std::vector<Row> all);

        std::vector<Row> rows;
        std::array<std::vector<std::size_t>, 256> by_byte;
    };
    static const Table& table();
    static Row row(Source source, Step step, const char* pattern, bool (Grammar::*act)(const Row&),
                   const char* first = "", const char* second = "", const char* unit = "");
    static std::vector<Row> start_rows();
    static std::vector<Row> heading_rows();
    static std::vector<Row> anywhere_rows();
    static std::vector<Row> panel_rows();
    static std::vector<Row> network_rows();
    static std::vector<Row> alarm_rows();
    static std::vector<Row> rtc_rows();
    static std::vector<Row> usb_rows();
    static std::vector<Row> disk_rows();
    static std::vector<Row> rs485_rows();
    static std::vector<Row> info_rows();
    static std::vector<Row> summary_rows();
    static std::vector<Row> end_rows();
    static std::vector<Row> pmp_rows();

    // A fact of the record channel whose place only the printed lines tell.
    struct Waiting {
        std::size_t group;  // network: pass; USB: place in the list of disks
        std::string name;   // behind that of the port or run
        Value value;
        const char* unit;
        int line;
        std::size_t piece;
    };
    struct NetworkPass {
        std::string port;  // "copper", "fibre", "port"; empty = not known
        int ports = 0;
        int line = 0;
        enum Await : std::uint8_t { nothing, link, speed, hint } await = nothing;
    };
    struct Segment {  // of printed lines: a port type that was to be examined
        const char* port;
        int line;
        bool selected, socket;
        bool over;  // something came behind it
    };
    struct UsbRow {
        std::string node;  // empty = one that gave no statistics, or none at all
        enum class Kind : std::uint8_t { disk, failed, none } kind;
        std::int64_t free_mb;
        int line;
        std::size_t piece;
    };
    struct Unexplained {
        Channel channel;
        TextLine line;
        std::size_t pieces;
    };
    // What has come so far; a repetition of a single test starts anew.
    struct State {
        // How far each channel has come.
        Step step = Step::start, printed_step = Step::start;
        bool awaits_heading = false;  // a number came alone: the step's name follows
        int headings = 0;
        int first_step_line = 0, settled_line = 0, root_line = 0;
        std::vector<std::string> step_names;
        std::vector<Step> seen;
        std::vector<Unexplained> unexplained;  // where they stand

        std::int64_t unknown_keys = 0, other_frames = 0, read_failures = 0;

        std::vector<NetworkPass> passes;
        std::vector<Waiting> waiting;
        std::vector<Segment> segments;

        std::int64_t alarm_inputs = -1, alarm_outputs = -1, alarm_good = -1, alarm_bad = -1;
        std::vector<std::int64_t> wrong_outputs;
        int alarm_line = 0;

        std::vector<std::string> clocks;  // the RTC's and the system's in turn

        int usb_prompt_line = 0;
        std::size_t usb_rows_before_prompt = 0;  // where both stand in one channel
        std::vector<UsbRow> usb_rows;

        std::string disk;           // node of the disk at hand, empty = none
        std::size_t disk_part = 0;  // texts of it that have come

        const char* rs485_result = nullptr;  // its first line came, its second follows

        std::int64_t chip = 1, chip_resets = 0;
        int chip_line = 0;

        int rules = 0, summary_line = 0, restart_line = 0;
        bool console_ok = false, console_faults = false;
        bool minisas = false;  // the disk at hand is behind a miniSAS port
        enum : std::uint8_t { nothing_said, good, bad } alarm_idle = nothing_said;
    };

    // Matching.
    bool match_line(std::size_t begin, std::size_t end);
    void match_lines_in_one();
    bool match_rows(Source source, std::string_view line);
    bool match_part(Source source, std::string_view line, std::size_t offset);
    bool may_stand(const Row& row);
    static bool is_about_order(const Row& row);
    void misplaced() { find(Finding::Kind::unexplained); }
    bool is_full_sequence() const;
    bool two_channels() const { return mode_.kind == Mode::Kind::net; }
    Step current() const;

    // Facts.
    bool add(std::string name, Value value, const char* unit, int line, bool derived = false,
             std::string doubt = {});
    bool add_here(const std::string& name, Value value, const char* unit = "");
    bool add_at(std::size_t capture, const std::string& name, Value value, const char* unit = "");
    void derive(const std::string& name, Value value, int line, const char* unit = "");
    void attach(std::size_t piece, std::size_t fact);
    std::size_t piece_at(std::size_t offset) const;
    void find(Finding::Kind kind);
    void see_step(Step step);
    std::string prefixed(std::string_view name) const;

    // Acts of rows; false = the line may not stand here.
    bool known(const Row& row);
    bool failure(const Row& row);
    bool lost(const Row& row);
    bool interrupted(const Row& row);
    bool text_fact(const Row& row);
    bool number_fact(const Row& row);
    bool word_fact(const Row& row);
    bool count(const Row& row);
    bool heading(const Row& row);
    bool heading_number_alone(const Row& row);
    bool heading_behind_number(const Row& row);
    bool capability(const Row& row);
    bool settled(const Row& row);
    bool repetition(const Row& row);
    bool port_type(const Row& row);
    bool port_refused(const Row& row);
    bool no_socket(const Row& row);
    bool port_number(const Row& row);
    bool port_link(const Row& row);
    bool port_speed(const Row& row);
    bool port_speed_failed(const Row& row);
    bool port_hint(const Row& row);
    bool alarm_counts(const Row& row);
    bool alarm_idle(const Row& row);
    bool alarm_mismatch(const Row& row);
    bool alarm_result(const Row& row);
    bool clock(const Row& row);
    bool usb_disk(const Row& row);
    bool usb_failed(const Row& row);
    bool usb_none(const Row& row);
    bool usb_rear(const Row& row);
    bool usb_again(const Row& row);
    bool disk_ports(const Row& row);
    bool disk_begins(const Row& row);
    bool disk_text(const Row& row);
    bool disk_size(const Row& row);
    bool disk_without_size(const Row& row);
    bool disk_absent(const Row& row);
    bool minisas_absent(const Row& row);
    bool rs485_first(const Row& row);
    bool rs485_second(const Row& row);
    bool info_model(const Row& row);
    bool summary_begins(const Row& row);
    bool rule(const Row& row);
    bool sata_missing(const Row& row);
    bool console_faults(const Row& row);
    bool console_ok(const Row& row);
    bool net_end(const Row& row);
    bool run_end(const Row& row);
    bool chip_disk(const Row& row);
    bool chip_number(const Row& row);
    bool chip_text(const Row& row);
    bool chip_flash(const Row& row);
    bool chip_error(const Row& row);
    bool chip_state(const Row& row);
    bool continued(const Row& row);

    bool add_port_fact(const char* name, Value value, const char* unit, std::size_t offset);
    std::string disk_name(const char* name) const;
    bool end_disk(const char* state);

    // Bringing together at the end.
    void finish_facts();
    void read_again();
    void finish_network();
    void find_without_place(const Waiting& fact);
    void finish_usb();
    std::optional<std::size_t> first_run_of_usb(std::size_t& runs) const;
    void finish_alarm();
    void finish_rest();

    Evidence& evidence_;
    CommandSeen command_;
    Mode mode_;
    int repetition_ = 1;

    // The line at hand.
    const TextLine* line_ = nullptr;
    Channel channel_ = Channel::record;
    std::size_t pieces_ = 0;  // first of the line's in Evidence::pieces
    std::size_t offset_ = 0;  // of the part that is matched, in the line
    std::vector<Capture> captures_;

    State now_;
    bool reads_again_ = false;
};

}  // namespace station
