// The description of one simulated board: what it is fitted with, what is wrong with it, what
// the operator does and when. It does not change once a run has begun; a scenario file or a check
// fills it. Times are seconds after the start of the run.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "sim/scenario/node.h"

namespace sim {

// Takes the place of the n-th platform call that matches, or, from then on, of each.
struct Fault {
    enum class Effect : std::uint8_t { error, shorten, interrupt, power_cut };

    std::string call;           // function; empty = any
    std::string path;           // of the file or directory; empty = any
    std::string actor;          // "main", "thread1", "child1" ...; empty = any
    std::uint32_t request = 0;  // of an ioctl; 0 = any
    std::uint32_t nth = 1;
    bool onwards = false;
    Effect effect = Effect::error;
    int error = 5;            // errno, with Effect::error
    std::uint32_t count = 0;  // bytes that remain, with Effect::shorten
    std::string place{};      // in the scenario: "board.toml:12"
};

// A field of the 256-byte block that request 0x04 of the control device answers, little endian.
struct HardwareField {
    const char* key;
    int offset, high, low;  // of its word in the block; its bits in that word
    std::uint32_t preset;
    const char* meaning;

    std::uint32_t most() const { return 0xFFFFFFFFu >> (31 - high + low); }
};
extern const HardwareField kHardwareFields[29];
std::map<std::string, std::uint32_t> preset_hardware();

struct ControlDevice {
    bool present = false;
    std::uint16_t boot_device_type = 0;
    std::set<std::uint8_t> high_lines;  // that something outside drives; it drives the others low
};

struct FifoReader {
    bool fifo = false, reader = false;  // the FIFO exists; somebody has it open for reading
    std::uint32_t stalls_at = 0, leaves_at = 0;  // record, from 1; 0 = never
    std::uint32_t unread = 0;  // bytes that lie in the pipe already when the reader stalls
};

constexpr double kNeverSeconds = 1e9;

// The most that a board can have.
constexpr std::size_t kMostFaults = 64;
constexpr std::size_t kMostFrames = 1024;  // of the panel
constexpr std::size_t kMostLines = 1024;   // that the operator types
constexpr std::size_t kMostFiles = 8;
constexpr std::size_t kMostFileBytes = 1 << 20;
constexpr std::size_t kMostBridges = 4;
constexpr std::size_t kFlashSize = 1 << 17;
constexpr std::size_t kMostSticks = 32;
constexpr std::size_t kMostDirectories = 8;  // under /mnt, left from earlier

struct SerialPort {
    bool present = false;
    bool blocked = false;             // takes no byte
    double hangs_up = kNeverSeconds;  // from then on reads give 0 bytes and writes EIO
};

struct PanelFrame {
    double at = 0;
    std::string bytes;   // as they are on the wire
    bool whole = false;  // all of them become readable at once, when the last one has arrived
};

// The frame of a key by its name, as it is on the line; empty for a name that no key has.
std::string key_frame(const std::string& key, bool pressed);
std::string key_names();  // with commas

struct Panel {  // on /dev/ttyS2
    SerialPort port;
    bool connected = true;
    std::vector<PanelFrame> frames;
};

struct Rs485 {  // on /dev/ttyS0
    SerialPort port;
    bool fixture = true;
    std::set<std::uint32_t> corrupt, drop;  // bytes, counted from 0 since the start
    double delay = 0;
    std::vector<std::uint32_t> pieces;  // sizes in which the echo becomes readable, in turn
};

struct Link {
    bool up = false, full_duplex = true;
    std::uint16_t speed = 1000;  // Mbit/s
};

struct NetworkPort {
    bool present = true;
    bool ethtool = true;  // its driver answers ethtool queries
    Link copper, fibre;   // as the port selector has it
};

struct Alarm {  // the fixture between alarm outputs and inputs, all counted from 1
    std::vector<std::set<std::uint8_t>> wiring;  // inputs that each output drives
    std::set<std::uint8_t> stuck, dead;          // inputs: always active, never active
    std::set<std::uint8_t> slow;                 // outputs that follow after slow_time
    double slow_time = 3;
};

struct Rtc {
    bool present = false;
    std::int64_t offset_s = 0;  // ahead of the system clock at the start
    double rate = 1;            // seconds that it counts in a second
    int isdst = 0;              // that its driver leaves
};

// There from a scan of /dev, counted from 1, until another; 0 = for ever.
struct Presence {
    std::uint32_t from_scan = 1, until_scan = 0;
};

struct UsbDisk {
    enum class Mount : std::uint8_t { works, by_shell, never };

    std::string node;  // "msa1"
    Presence presence;
    Mount mount = Mount::works;
    std::uint64_t free_blocks = 0;
    std::uint32_t block_size = 4096;
};

struct UsbDevice {
    std::string name;  // in /sys/bus/usb/devices
    Presence presence;
};

struct Usb {
    std::vector<UsbDisk> disks;  // in the order of the directory
    std::vector<UsbDevice> devices;
    std::uint32_t mice = 0;
    std::set<std::string> directories;  // under /mnt, left from earlier
    double mount_time = 0.2, shell_time = 0.1;
    std::uint64_t host_free_blocks = 100'000;  // of the file system that holds /mnt, 1 KiB each
};

struct Disk {  // by the name of its node: "sda", "esda", "sas1"
    bool present = true;
    bool identify = true;             // it answers IDENTIFY DEVICE
    bool size64 = true, size = true;  // it answers BLKGETSIZE64, BLKGETSIZE
    std::string identify_data;        // its 512 bytes, instead of the texts below
    std::string model = "Simulated disk", serial = "0001", firmware = "1.0";
    std::uint64_t bytes = 1'000'204'886'016;
    std::string bridge;  // that it lies behind; empty = none
};

// An image that a bridge as described below takes, of this many bytes.
std::string firmware_image(std::uint32_t size);

struct Bridge {  // port multiplier with its SPI flash
    std::map<std::uint32_t, std::uint8_t> registers = {
        // by address
        {0xFC00, 0x8F},  // presence
        {0xFC03, 0x10},  // revision
        {0xFAFD, 0x01},  // bonding, high part
        {0xFAFC, 0x02},  // and low part
    };
    std::uint32_t reset_selector = 256;
    double request_time = 20e-6;  // of each pass-through request
    double erase_time = 0.1, program_time = 15e-6, status_time = 10e-6;
    std::uint8_t protection = 0;  // block protection bits of the status register, 2 to 4
    bool unlocks = true;          // writing the status register changes them
    bool erases = true, programs = true;
    std::string flash;  // its content from address 0; the rest is 0xFF
    std::string save;   // file of this machine for the flash as the run leaves it
};

struct TypedLine {
    double at = 0;
    std::string text;  // as typed, with its "\n"; empty = end of input
};

struct Operator {
    std::vector<TypedLine> lines;
    std::vector<double> interrupts;  // Ctrl-C
};

struct FileContent {
    bool present = true;
    std::string bytes;
    std::uint32_t resized_at_read = 0, resized_to = 0;  // from that read on, counted from 1
};

struct Board {
    std::string story;
    std::string time_zone = "UTC";
    std::string kernel_release = "3.10.0";
    UnixTime start{1'384'000'000};  // system time at the start
    double end = 3600;              // the run is stopped when virtual time passes this
    bool root = true;               // setuid(0) succeeds

    std::map<std::string, std::uint32_t> hardware = preset_hardware();  // by key
    ControlDevice control;
    FifoReader fifo;
    Panel panel;
    Rs485 rs485;
    Alarm alarm;
    Rtc rtc;
    std::map<std::string, NetworkPort> ports;
    Usb usb;
    std::map<std::string, Disk> disks;
    std::map<std::string, Bridge> bridges;
    std::map<std::string, FileContent> files;
    Operator person;
    std::vector<Fault> faults;
};

extern const Board* scenario;  // of this run; set before the product starts

}  // namespace sim
