// The devices of the board: what a scenario says of each, its state, its behaviour. Whoever adds one
// adds its pair of files and its rows here. They stand in the order of their sections in
// `q7-sim --keys`, and of their nodes in /dev.
#pragma once

#include "sim/devices/alarm.h"
#include "sim/devices/bridge.h"
#include "sim/devices/console.h"
#include "sim/devices/control.h"
#include "sim/devices/disk.h"
#include "sim/devices/files.h"
#include "sim/devices/network.h"
#include "sim/devices/panel.h"
#include "sim/devices/pipe.h"
#include "sim/devices/rs485.h"
#include "sim/devices/rtc.h"
#include "sim/devices/serial.h"
#include "sim/devices/usb.h"

namespace sim {

struct Descriptions {  // members of the board
    std::map<std::string, std::uint32_t> hardware = preset_hardware();
    ControlDevice control;
    FifoReader fifo;
    Panel panel;
    Rs485 rs485;
    Alarm alarm;
    Rtc rtc;
    std::map<std::string, NetworkPort> ports;
    Usb usb;
    std::map<std::string, Bridge> bridges;
    std::map<std::string, Disk, std::greater<>> disks;  // the newest node first
    std::map<std::string, FileContent> files;
    Operator person;
};

struct States {  // members of the world
    Control control;
    std::uint32_t fifo_used;  // bytes, to the end of the last record
    PanelState panel;
    FixtureState rs485;
    std::uint32_t alarm_outputs;  // as last written
    SerialLine lines[2];
    RtcState rtc;
    std::uint32_t net_port;
    MountPoint mount_points[32];
    BridgeState bridges[kMostBridges];
    bool removed[kMostFiles];  // files, by the product
    ConsoleState console;
    Pipe pipes[64];
};

inline const Device* const kDevices[] = {
    &control_device,  // /dev/zebio, with the hardware block
    &fifo_device,     // /var/q7.fifo
    &panel_device,    // on /dev/ttyS2
    &rs485_device,    // on /dev/ttyS0
    &alarm_device,    // behind the control device
    &serial_device,   // /dev/ttyS0, /dev/ttyS2
    &rtc_device,      // /dev/rtc
    &network_device,  // sockets
    &usb_device,      // /dev/ms*, /dev/input, /sys/bus/usb/devices, /mnt
    &bridge_device,   // behind disks
    &disk_device,     // /dev/sd*, /dev/esd*, /dev/sas*
    &file_device,     // regular files, /dev, /dev/null
    &console_device,  // standard streams
    &pipe_device,     // pipes
};

}  // namespace sim
