// The devices of the simulated board, one source each.
#pragma once

#include <string>

#include "sim/device.h"

namespace sim {

extern const Device& console_device;    // standard streams
extern const Device& control_device;    // /dev/zebio
extern const Device& fifo_device;       // /var/q7.fifo
extern const Device& file_device;       // regular files
extern const Device& serial_device;     // /dev/ttyS0 and /dev/ttyS2
extern const Device& directory_device;  // an open directory
extern const Device& socket_device;     // datagram sockets, and the network ports behind them
extern const Device& rtc_device;        // /dev/rtc
extern const Device& usb_device;        // disks, mice and the device tree
extern const Device& null_device;       // /dev/null
extern const Device& pipe_device;       // pipes between processes

// Adds what the operator types at the present instant; empty = end of input.
void type_line(std::string_view text);

extern const Device& disk_device;  // SATA, eSATA and miniSAS disks

// The pass-through request on a disk: one register block of 16 bytes, in and out.
void bridge_start();
long pass_through(const std::string& bridge, std::uint8_t* block);
void reset_bridges(std::uint32_t selector);

// Directories and mount points. Results as of a Device.
long open_directory(std::string_view path);
const char* next_entry(OpenFile& directory);  // null at the end
long make_directory(std::string_view path);
long remove_directory(std::string_view path);
long mount_disk(std::string_view device, std::string_view directory, std::string_view type,
                bool by_shell);
long unmount(std::string_view directory);
long statistics(std::string_view path, struct statfs& statistics);
int run_shell(std::string_view command);  // wait status

// The alarm side of the control device.
void drive_alarm_outputs(std::uint32_t mask);
std::uint16_t alarm_inputs();

long remove_file(const char* path);

long open_pipe(int ends[2], int flags);

}  // namespace sim
