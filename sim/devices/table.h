// The devices of the board: whoever adds one adds its pair of files and a row here. They stand in the
// order of their sections in `q7-sim --keys`, and of their nodes in /dev.
#pragma once

#include "sim/devices/alarm.h"
#include "sim/devices/bridge.h"
#include "sim/devices/console.h"
#include "sim/devices/control.h"
#include "sim/devices/directory.h"
#include "sim/devices/disk.h"
#include "sim/devices/fifo.h"
#include "sim/devices/files.h"
#include "sim/devices/hardware.h"
#include "sim/devices/network.h"
#include "sim/devices/null.h"
#include "sim/devices/panel.h"
#include "sim/devices/pipe.h"
#include "sim/devices/rs485.h"
#include "sim/devices/rtc.h"
#include "sim/devices/serial.h"
#include "sim/devices/usb.h"

namespace sim {

// Joins the members that the devices add. Each has its own base class, as a device may add none.
template <class... Row>
class DeviceTable {
    template <class R>
    struct Described : R::Described {};
    template <class R>
    struct State : R::State {};

  public:
    struct Descriptions : Described<Row>... {};
    struct States : State<Row>... {};
};

using Devices = DeviceTable<  //
    HardwareRow,              // what the control device says of the board
    ControlRow,               // /dev/zebio
    FifoRow,                  // /var/q7.fifo
    PanelRow,                 // on /dev/ttyS2
    Rs485Row,                 // on /dev/ttyS0
    AlarmRow,                 // behind the control device
    SerialRow,                // /dev/ttyS0, /dev/ttyS2
    RtcRow,                   // /dev/rtc
    NetworkRow,               // sockets
    UsbRow,                   // /dev/ms*, /dev/input, /sys/bus/usb/devices, /mnt
    BridgeRow,                // behind disks
    DiskRow,                  // /dev/sd*, /dev/esd*, /dev/sas*
    FilesRow,                 // regular files
    ConsoleRow,               // standard streams
    DirectoryRow,             // /dev itself
    PipeRow,                  // pipes
    NullRow>;                 // /dev/null

}  // namespace sim
