// The changeable state of one simulated run: clock, actors, descriptors, devices, event log.
// It lies in one shared mapping that is made before the product is forked, so that every thread
// and process of the run sees one board. Trivially copyable and of fixed capacity; what would
// not fit ends the run with a message.
#pragma once

#include <semaphore.h>
#include <sys/types.h>
#include <termios.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

#include "sim/board.h"

namespace sim {

using Microseconds = std::int64_t;  // virtual time since the start of the run
constexpr Microseconds kNever = INT64_MAX;

inline Microseconds from_seconds(double seconds) { return std::llround(seconds * 1e6); }
constexpr Microseconds from_ms(std::int64_t milliseconds) { return milliseconds * 1000; }

enum class Direction : std::uint8_t { read, write };

// One flow of control: the main thread, a thread that it started, a process that it forked.
struct Actor {
    enum class State : std::uint8_t { unused, alive, ended } state;
    bool interruptible;   // what it waits for ends early when an interrupt comes
    Direction direction;  // of the wait for a descriptor
    std::int16_t process;
    std::int16_t file;     // open file that it waits for, -1 = none
    Microseconds until;    // end of its wait
    std::uint64_t order;   // of its wait among all; of those that end together the first begun ends
    Microseconds instant;  // time of its latest call
    std::uint32_t calls_at_instant;
    std::uint32_t name;  // in the text arena: "main", "thread1", "child1" ...
    sem_t turn;

    bool is_used() const { return state != State::unused; }
};

struct Process {
    enum class State : std::uint8_t { unused, alive, ended } state;
    bool interrupt_pending;
    std::int16_t main_actor;
    std::int16_t parent;       // -1 = it has ended
    pid_t pid;                 // on the host; 0 = not forked yet
    std::uint32_t number;      // in the order of their start, from 0
    std::int16_t files[1024];  // open file of each descriptor, -1 = closed

    bool is_used() const { return state != State::unused; }
};

struct OpenFile {
    std::uint8_t device;  // row of the device table
    std::int16_t index;   // which one of its kind
    std::int16_t users;   // descriptors that refer to it; 0 = free
    std::uint32_t path;   // in the text arena
    std::int64_t offset;

    bool is_used() const { return users > 0; }
};

// A platform call, or a change on a device (function "panel", "watchdog" ...; text in sent).
struct Event {
    Microseconds at, ended;  // ended = -1: the call did not return
    const char* function;    // a literal, valid in every process of the run
    std::int64_t argument, result;
    std::uint32_t request;
    std::int32_t error;                            // errno of a failed call
    std::int32_t fd;                               // -1 = none
    std::uint32_t path;                            // in the text arena; 0 = none
    std::uint32_t sent, sent_size, got, got_size;  // bytes in and out, in the text arena
    std::uint32_t printed;                         // bytes on standard output before the call
    std::uint32_t actor;                           // its name, in the text arena; 0 = the board
};

// What arrives from outside, in order; from head to tail it has not been read.
template <class Item, std::uint32_t kCapacity>
struct Queue {
    static_assert(std::has_single_bit(kCapacity), "or the counters must not wrap");
    std::uint32_t head, tail;
    Item items[kCapacity];

    Item& operator[](std::uint32_t place) { return items[place % kCapacity]; }
    const Item& operator[](std::uint32_t place) const { return items[place % kCapacity]; }
    bool is_empty() const { return head == tail; }
    bool is_full() const { return tail - head == kCapacity; }
    const Item& front() const { return (*this)[head]; }
};

struct ConsoleInput {
    Microseconds at;
    std::uint32_t text, size;  // in the text arena; size 0 = end of input, which stays
};

struct Control {
    std::uint8_t level[256], direction[256];
    Microseconds watchdog_expires;  // kNever = not running
    std::uint32_t watchdog_timeout_s, net_port;
    bool rs485_first, rs485_second;  // both switches of the RS-485 line
};

struct ArrivingByte {
    Microseconds readable;
    std::uint8_t value;
};

struct SerialLine {
    termios attributes;
    Microseconds sent_until;      // when the last byte given to it leaves
    Microseconds received_until;  // when the last byte so far arrives
    std::uint32_t group;          // bytes in the receiver's unfinished group
    Queue<ArrivingByte, 1 << 17> arriving;
};

struct PanelState {
    std::uint16_t record[2], network[2], function;  // LED masks
    std::uint32_t frames;                           // valid ones received
};

struct FixtureState {
    std::uint32_t bytes, pieces;  // that have come so far
};

struct AlarmState {
    std::uint32_t outputs, before;  // as last written; as they were in effect until then
    Microseconds written;
};

struct MountPoint {
    std::uint32_t path;  // in the text arena; 0 = free
    std::int16_t disk;   // that is mounted there, -1 = none
};

struct UsbState {
    std::uint32_t scans;  // of /dev
    MountPoint points[32];
};

struct ReportFifo {
    std::uint32_t records, unread;  // records taken so far; bytes that lie in the pipe
    bool reader_left;
};

struct Pipe {
    bool open[2];  // its ends: of reading, of writing
    std::uint32_t size;
    std::uint8_t bytes[65'536];  // written and not yet read

    bool is_used() const { return open[0] || open[1]; }
};

struct File {
    bool present;
    std::uint32_t reads;
};

struct Flash {
    std::uint8_t cells[kFlashSize];
    bool write_enabled;
    std::uint8_t protection;
    Microseconds busy_until;
};

struct BridgeState {
    Flash flash;
    std::uint8_t running[kFlashSize];  // the firmware that it was last reset with
    std::uint32_t resets, programmed_words;
};

struct World {
    Microseconds now;
    std::int16_t running;  // actor that holds the turn
    std::uint32_t threads_started, children_started;
    std::uint64_t waits_begun;
    pid_t supervisor;
    int wake_supervisor;  // event descriptor, inherited by every process
    bool paced;           // the supervisor moves the clock
    bool stopped, power_cut, restarted;
    char stop_reason[4096];

    std::uint32_t interrupts_delivered;  // of the scenario's list
    Microseconds typed_interrupt;        // by the person in front of q7-sim; kNever = none
    std::uint32_t fault_matches[kMostFaults];

    Actor actors[64];
    Process processes[64];
    OpenFile files[8192];

    Queue<ConsoleInput, kMostLines> console;
    Control control;
    ReportFifo fifo;
    SerialLine lines[2];
    PanelState panel;
    FixtureState rs485;
    AlarmState alarm;
    UsbState usb;
    BridgeState bridges[kMostBridges];
    File tree[kMostFiles];
    Pipe pipes[64];

    std::uint32_t events_used, text_used;
    Event events[400'000];
    char text[32'000'000];

    const char* name_of(const Actor& actor) const { return text + actor.name; }
    std::string_view path_of(const Event& event) const { return text + event.path; }
    std::string_view sent(const Event& event) const { return {text + event.sent, event.sent_size}; }
    std::string_view got(const Event& event) const { return {text + event.got, event.got_size}; }
    std::span<const Event> log() const { return {events, events_used}; }
};
static_assert(std::is_trivially_copyable_v<World>);

extern World* world;  // of this run; set before the product starts

// Records a change on a device in the event log.
[[gnu::format(printf, 2, 3)]] void note(const char* device, const char* format, ...);

// Adds bytes to the text arena; returns their place.
std::uint32_t keep(std::string_view bytes);

// Marks the run as stopped, with the reason, and wakes the supervisor, which ends it. stop_here does
// not return to the product; before the run, it throws.
[[gnu::format(printf, 1, 2)]] void stop_run(const char* format, ...);
[[noreturn, gnu::format(printf, 1, 2)]] void stop_here(const char* format, ...);

}  // namespace sim
