// The changeable state of one simulated run: clock, actors, descriptors, devices, event log.
// It lies in one shared mapping that is made before the product is forked, so that every thread
// and process of the run sees one board. Trivially copyable and of fixed capacity; what would
// not fit ends the run with a message.
#pragma once

#include <semaphore.h>
#include <sys/types.h>
#include <termios.h>

#include <cmath>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

namespace sim {

using Microseconds = std::int64_t;  // virtual time since the start of the run
constexpr Microseconds kNever = INT64_MAX;

inline Microseconds from_seconds(double seconds) { return std::llround(seconds * 1e6); }
constexpr Microseconds from_ms(std::int64_t milliseconds) { return milliseconds * 1000; }

enum class Direction : std::uint8_t { read, write };

// One flow of control: the main thread, a thread that it started, a process that it forked.
struct Actor {
    enum class State : std::uint8_t { unused, alive, ended } state;
    std::uint8_t process;
    bool interruptible;    // what it waits for ends early when an interrupt comes
    Direction direction;   // of the wait for a descriptor
    std::int16_t file;     // open file that it waits for, -1 = none
    Microseconds until;    // end of its wait
    Microseconds instant;  // time of its latest call
    std::uint32_t calls_at_instant;
    char name[12];  // "main", "thread1", "child1" ...
    sem_t turn;
};

struct Process {
    pid_t pid;  // on the host
    bool alive, collected, interrupt_pending;
    std::int16_t main_actor;
    std::int16_t files[64];  // open file of each descriptor, -1 = closed
};

struct OpenFile {
    std::uint8_t device;  // row of the device table
    std::int16_t index;   // which one of its kind
    std::int16_t users;   // descriptors that refer to it; 0 = free
    std::uint32_t path;   // in the text arena
    std::int64_t offset;
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
    std::int16_t actor;                            // -1 = the board itself
};

// Bytes that arrive from outside, in order; those from head to tail have not been read.
template <class Item, std::uint32_t kCapacity>
struct Queue {
    std::uint32_t head, tail;
    Item items[kCapacity];
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
    MountPoint points[16];
};

struct ReportFifo {
    std::uint32_t records, unread;  // records taken so far; bytes that lie in the pipe
    bool reader_left;
};

struct Pipe {
    bool closed[2];  // its ends: of reading, of writing
    std::uint32_t size;
    std::uint8_t bytes[65'536];  // written and not yet read
};

struct File {
    bool present;
    std::uint32_t reads;
};

struct Flash {
    std::uint8_t cells[1 << 17];
    bool write_enabled;
    std::uint8_t protection;
    Microseconds busy_until;
};

struct BridgeState {
    Flash flash;
    std::uint8_t running[1 << 17];  // the firmware that it was last reset with
    std::uint32_t resets, programmed_words;
};

struct World {
    Microseconds now;
    std::int16_t running;  // actor that holds the turn
    std::uint32_t actors_used, processes_used;
    pid_t supervisor;
    int wake_supervisor;  // event descriptor, inherited by every process
    bool paced;           // the supervisor moves the clock
    bool stopped, power_cut, restarted;
    char stop_reason[4096];

    std::uint32_t interrupts_delivered;  // of the scenario's list
    Microseconds typed_interrupt;        // by the person in front of q7-sim; kNever = none
    std::uint32_t fault_matches[64];

    Actor actors[64];
    Process processes[64];
    OpenFile files[256];

    Queue<ConsoleInput, 1024> console;
    Control control;
    ReportFifo fifo;
    SerialLine lines[2];
    PanelState panel;
    FixtureState rs485;
    AlarmState alarm;
    UsbState usb;
    BridgeState bridges[4];
    File tree[64];
    std::uint32_t pipes_used;
    Pipe pipes[4];

    std::uint32_t events_used, text_used;
    Event events[400'000];
    char text[32'000'000];

    std::span<Actor> all_actors() { return {actors, actors_used}; }
    std::span<Process> all_processes() { return {processes, processes_used}; }
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

// Marks the run as stopped, with the reason, and wakes the supervisor, which ends it.
[[gnu::format(printf, 1, 2)]] void stop_run(const char* format, ...);

}  // namespace sim
