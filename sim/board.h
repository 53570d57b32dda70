// The description of one simulated board: what it is fitted with, what is wrong with it, what
// the operator does and when, and how it changes. A scenario file or a check fills it. Times are
// seconds after the start of the run.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/change.h"
#include "sim/devices/alarm.h"
#include "sim/devices/bridge.h"
#include "sim/devices/console.h"
#include "sim/devices/control.h"
#include "sim/devices/disk.h"
#include "sim/devices/fifo.h"
#include "sim/devices/files.h"
#include "sim/devices/hardware.h"
#include "sim/devices/network.h"
#include "sim/devices/panel.h"
#include "sim/devices/pipe.h"
#include "sim/devices/rs485.h"
#include "sim/devices/rtc.h"
#include "sim/devices/serial.h"
#include "sim/devices/usb.h"
#include "sim/fault.h"
#include "sim/scenario/expect.h"
#include "sim/scenario/node.h"

namespace sim {

struct Board {
    std::string file;  // that describes it, without its bases; empty for a built-in board
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
    std::vector<Change> changes;
    std::optional<Expect> expect;
};

extern const Board* scenario;  // of this run, as it is at present

}  // namespace sim
