#include "sim/keys.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <numeric>

namespace sim {
namespace {

constexpr int kLastErrno = 133;

bool set_errno(int& error, const std::string& name) {
    for (int number = 1; number <= kLastErrno; ++number) {
        const char* known = strerrorname_np(number);
        if (known != nullptr && name == known) error = number;
        if (known != nullptr && name == known) return true;
    }
    return false;
}

// The platform calls, as the event log names them.
const std::set<std::string> kCalls = {
    "_exit",  "access",        "close",          "closedir",  "exit",  "fork",
    "ioctl",  "lseek",         "mkdir",          "mount",     "open",  "opendir",
    "pipe",   "pread",         "pthread_create", "raise",     "read",  "readdir",
    "remove", "rmdir",         "setuid",         "signal",    "sleep", "socket",
    "statfs", "system",        "tcgetattr",      "tcsetattr", "time",  "umount",
    "uname",  "wait_readable", "wait_writable",  "waitpid",   "write"};

void describe_fault(Keys& keys, Fault& fault) {
    std::string calls;
    for (const std::string& call : kCalls)
        calls += (calls.empty() ? "" : ", ") + call;
    keys.key("call",
             Word{"one of " + calls, "any",
                  [&](const std::string& name) {
                      fault.call = name;
                      return kCalls.count(name) != 0;
                  }},
             "what goes wrong, as the event log names it");
    keys.key("path", fault.path, "path that the call works on; \"\" = any");
    keys.key("actor", fault.actor, "\"main\", \"thread1\", \"child1\" ...; \"\" = any");
    keys.key("request", fault.request, "request of an ioctl; 0 = any");
    keys.key("nth", fault.nth, "which of the matching calls", {1});
    keys.key("onwards", fault.onwards, "that call and each matching one after it");
    keys.key(
        "effect",
        one_of(fault.effect, {{"error", Fault::Effect::error},
                              {"short", Fault::Effect::shorten},
                              {"interrupt", Fault::Effect::interrupt},
                              {"power cut", Fault::Effect::power_cut}}),
        "what happens: it fails, transfers `count` bytes at most, Ctrl-C comes, the power goes");
    keys.key("errno",
             Word{"name of an error", "\"EIO\"",
                  [&](const std::string& name) { return set_errno(fault.error, name); }},
             "with which it fails");
    keys.key("count", fault.count, "bytes that a short transfer takes at most");
}

void describe_control(Keys& keys, ControlDevice& control) {
    keys.key("present", control.present, "/dev/zebio exists");
    keys.key("boot_device_type", control.boot_device_type,
             "device type in the boot parameters; 0x4487, 0x448F, 0x4497 and 0x449F have no RS-485 "
             "step, and alarm I/O by control line 25");
    keys.key("high_lines", control.high_lines,
             "control lines that something outside drives high; it drives the others low");
}

void describe_fifo(Keys& keys, FifoReader& fifo) {
    keys.key("present", fifo.fifo, "/var/q7.fifo exists");
    keys.key("reader", fifo.reader, "a service has it open for reading");
    keys.key("stalls_at", fifo.stalls_at, "record from which it reads no more; 0 = never");
    keys.key("leaves_at", fifo.leaves_at, "record at which it closes its end; 0 = never");
    keys.key("unread", fifo.unread, "bytes that lie in the pipe when it stalls", {0, 65'536});
}

void describe_port(Keys& keys, SerialPort& port) {
    keys.key("present", port.present, "the serial port exists");
    keys.key("blocked", port.blocked, "the port takes no byte");
    keys.key("hangs_up", port.hangs_up, "second at which it hangs up; 1e9 = never");
}

bool set_bytes(std::string& bytes, const std::string& text) {
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits),
                 [](char character) { return character != ' '; });
    if (digits.size() % 2 != 0
        || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return false;
    }
    bytes.clear();
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return true;
}

Word hexadecimal(std::string& bytes) {
    return {"bytes in hexadecimal, such as \"FF 07\"", "\"\"",
            [&](const std::string& text) { return set_bytes(bytes, text); }};
}

// A key's frame, as it is on the line.
Word panel_key(std::string& bytes, bool pressed) {
    return {"name of a key, such as \"UP\"", "", [&bytes, pressed](const std::string& name) {
                bytes = key_frame(name, pressed);
                return !bytes.empty();
            }};
}

void describe_panel_frame(Keys& keys, PanelFrame& frame) {
    keys.key("at", frame.at, "second at which the panel begins to send");
    keys.key("key", panel_key(frame.bytes, true), "it sends that this key is pressed");
    keys.key("release", panel_key(frame.bytes, false), "it sends that this key is released");
    keys.key("bytes", hexadecimal(frame.bytes), "it sends these bytes");
    keys.key("whole", frame.whole, "they become readable all at once");
}

void describe_panel(Keys& keys, Panel& panel) {
    describe_port(keys, panel.port);
    keys.key("connected", panel.connected, "false: the panel neither sends nor receives");
    keys.list("frames", panel.frames, describe_panel_frame);
}

void describe_rs485(Keys& keys, Rs485& rs485) {
    describe_port(keys, rs485.port);
    keys.key("fixture", rs485.fixture, "the loopback fixture is connected");
    keys.key("corrupt", rs485.corrupt, "bytes that come back changed, counted from 0");
    keys.key("drop", rs485.drop, "bytes that do not come back");
    keys.key("delay", rs485.delay, "seconds from a byte to its echo");
    keys.key("pieces", rs485.pieces, "sizes in which the echo becomes readable, in turn");
}

void describe_link(Keys& keys, Link& link) {
    keys.key("up", link.up, "the port has a link on this side of the selector");
    keys.key("speed", link.speed, "Mbit/s");
    keys.key("full_duplex", link.full_duplex, "full duplex, else half");
}

void describe_network_port(Keys& keys, NetworkPort& port) {
    keys.key("present", port.present, "the interface exists");
    keys.key("ethtool", port.ethtool, "its driver answers ethtool queries");
    keys.table("copper", [&](Keys& sub) { describe_link(sub, port.copper); });
    keys.table("fibre", [&](Keys& sub) { describe_link(sub, port.fibre); });
}

void describe_alarm(Keys& keys, Alarm& alarm) {
    keys.key("wiring", alarm.wiring, "inputs that each alarm output drives", {1, 16});
    keys.key("stuck", alarm.stuck, "inputs that are always active", {1, 16});
    keys.key("dead", alarm.dead, "inputs that are never active", {1, 16});
    keys.key("slow", alarm.slow, "outputs that follow after slow_time", {1, 32});
    keys.key("slow_time", alarm.slow_time, "seconds that these take");
}

void describe_rtc(Keys& keys, Rtc& rtc) {
    keys.key("present", rtc.present, "/dev/rtc exists");
    keys.key("offset", rtc.offset_s, "seconds ahead of the system clock; negative = behind");
    keys.key("rate", rtc.rate, "seconds that it counts in a second; 0 = it stands still");
    keys.key("isdst", rtc.isdst, "daylight-saving flag that its driver leaves");
}

void describe_presence(Keys& keys, Presence& presence) {
    keys.key("from_scan", presence.from_scan, "scan of /dev from which on it is there");
    keys.key("until_scan", presence.until_scan, "scan from which on it is not; 0 = stays");
}

void describe_usb_disk(Keys& keys, UsbDisk& disk) {
    keys.key("node", disk.node, "its name in /dev, such as \"msa1\"");
    describe_presence(keys, disk.presence);
    keys.key("mount",
             one_of(disk.mount, {{"works", UsbDisk::Mount::works},
                                 {"by shell", UsbDisk::Mount::by_shell},
                                 {"never", UsbDisk::Mount::never}}),
             "what can mount it");
    keys.key("free_blocks", disk.free_blocks, "free blocks of its file system");
    keys.key("block_size", disk.block_size, "bytes in a block");
}

void describe_usb_device(Keys& keys, UsbDevice& device) {
    keys.key("name", device.name, "in /sys/bus/usb/devices, such as \"4-1:1.0\"");
    describe_presence(keys, device.presence);
}

void describe_usb(Keys& keys, Usb& usb) {
    keys.list("disks", usb.disks, describe_usb_disk);
    keys.list("devices", usb.devices, describe_usb_device);
    keys.key("mice", usb.mice, "nodes /dev/input/mouse0 and up");
    keys.key("directories", usb.directories, "directories under /mnt, left from earlier");
    keys.key("mount_time", usb.mount_time, "seconds that a mount takes");
    keys.key("shell_time", usb.shell_time, "seconds that a shell command takes");
    keys.key("host_free_blocks", usb.host_free_blocks,
             "free blocks, of 1 KiB, of the file system that holds /mnt");
}

bool set_from_file(std::string& bytes, const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(file), {});
    return file.is_open() && !file.bad();
}

Word from_file(std::string& bytes, const std::string& folder) {
    return {"path of a file that can be read", "", [&bytes, folder](const std::string& path) {
                return set_from_file(bytes, folder + path);
            }};
}

// Reads `image = 4096`: an image of this many bytes.
void describe_image(Keys& keys, std::string& bytes) {
    std::uint32_t size = 0;
    keys.key("image", size, "a valid firmware image of this many bytes", {0, 131'072});
    if (size != 0) bytes = firmware_image(size);
}

void describe_file(Keys& keys, FileContent& file, const std::string& folder) {
    keys.key("present", file.present, "false: the board does not have this file of its base");
    keys.key("bytes", hexadecimal(file.bytes), "its content");
    keys.key("text", file.bytes, "its content, as text");
    keys.key("from", from_file(file.bytes, folder), "a file of this machine with its content");
    describe_image(keys, file.bytes);
    keys.key("resized_at_read", file.resized_at_read,
             "read, counted from 1, at which somebody changes its size; 0 = never");
    keys.key("resized_to", file.resized_to, "its size from then on");
}

void describe_disk(Keys& keys, Disk& disk) {
    keys.key("present", disk.present, "the disk's node exists");
    keys.key("identify", disk.identify, "it answers IDENTIFY DEVICE");
    keys.key("size64", disk.size64, "it answers BLKGETSIZE64");
    keys.key("size", disk.size, "it answers BLKGETSIZE, which ends at 2 TiB");
    keys.key("identify_data", hexadecimal(disk.identify_data),
             "the data of its answer from byte 0, in place of its texts");
    keys.key("model", disk.model, "model number");
    keys.key("serial", disk.serial, "serial number");
    keys.key("firmware", disk.firmware, "firmware revision");
    keys.key("bytes", disk.bytes, "its size");
    keys.key("bridge", disk.bridge, "bridge that it lies behind; \"\" = none");
}

void describe_bridge(Keys& keys, Bridge& bridge, const std::string& folder) {
    keys.key("presence", bridge.registers.at(0xFC00), "register 0xFC00; 0x8F or 0xF8 = it answers");
    keys.key("revision", bridge.registers.at(0xFC03), "register 0xFC03");
    keys.key("bonding_high", bridge.registers.at(0xFAFD), "register 0xFAFD");
    keys.key("bonding_low", bridge.registers.at(0xFAFC), "register 0xFAFC");
    keys.key("reset_selector", bridge.reset_selector, "selector that resets it: 256 or 128");
    keys.key("request_time", bridge.request_time, "seconds that a request takes");
    keys.key("erase_time", bridge.erase_time, "seconds that the flash is busy after an erase");
    keys.key("program_time", bridge.program_time, "seconds that it is busy after a word");
    keys.key("status_time", bridge.status_time, "seconds that it is busy after a status write");
    keys.key("protection", bridge.protection, "block protection, bits 2 to 4 of the status");
    keys.key("unlocks", bridge.unlocks, "writing the status changes them");
    keys.key("erases", bridge.erases, "the flash obeys the erase");
    keys.key("programs", bridge.programs, "the flash obeys the programming");
    keys.key("flash", hexadecimal(bridge.flash), "content of the flash from address 0");
    keys.key("from", from_file(bridge.flash, folder), "a file of this machine with its content");
    describe_image(keys, bridge.flash);
    const auto set_save = [&bridge, folder](const std::string& path) {
        bridge.save = folder + path;
        return true;
    };
    keys.key("save", Word{"path", "", set_save},
             "a file of this machine for the flash as the run leaves it");
}

void describe_line(Keys& keys, TypedLine& line) {
    keys.key("at", line.at, "second at which it is typed");
    keys.key("text", line.text, "the line, with its \"\\n\"; \"\" = end of input");
}

void describe_operator(Keys& keys, Operator& person) {
    keys.list("lines", person.lines, describe_line);
    keys.key("interrupts", person.interrupts, "seconds at which Ctrl-C is pressed, in order");
}

}  // namespace

void describe(Keys& keys, Board& board, const std::string& folder) {
    keys.key("story", board.story, "one line: what this board is, and what is wrong with it");
    keys.key("start", board.start, "system time at the start");
    keys.key("time_zone", board.time_zone, "TZ of the board, such as \"Asia/Shanghai\"");
    keys.key("kernel_release", board.kernel_release, "release of the running kernel");
    keys.key("end", board.end, "second of virtual time after which the run is stopped");
    keys.key("root", board.root, "q7 can become the super-user");
    keys.table("hardware", [&](Keys& sub) {
        for (const HardwareField& field : kHardwareFields) {
            sub.key(field.key, board.hardware.at(field.key), field.meaning, {0, field.most()});
        }
    });
    keys.table("control", [&](Keys& sub) { describe_control(sub, board.control); });
    keys.table("fifo", [&](Keys& sub) { describe_fifo(sub, board.fifo); });
    keys.table("panel", [&](Keys& sub) { describe_panel(sub, board.panel); });
    keys.table("rs485", [&](Keys& sub) { describe_rs485(sub, board.rs485); });
    keys.table("alarm", [&](Keys& sub) { describe_alarm(sub, board.alarm); });
    keys.table("rtc", [&](Keys& sub) { describe_rtc(sub, board.rtc); });
    keys.named("ports", "NAME", [&](Keys& sub, const std::string& name) {
        describe_network_port(sub, board.ports[name]);
    });
    keys.table("usb", [&](Keys& sub) { describe_usb(sub, board.usb); });
    keys.named("disks", "NODE",
               [&](Keys& sub, const std::string& node) { describe_disk(sub, board.disks[node]); });
    keys.named("bridges", "NAME", [&](Keys& sub, const std::string& name) {
        describe_bridge(sub, board.bridges[name], folder);
    });
    keys.named("files", "PATH", [&](Keys& sub, const std::string& path) {
        describe_file(sub, board.files[path], folder);
    });
    keys.table("operator", [&](Keys& sub) { describe_operator(sub, board.person); });
    keys.list("faults", board.faults, describe_fault);
}

}  // namespace sim
