#include "sim/device.h"

#include <algorithm>
#include <iterator>

#include "sim/devices/console.h"
#include "sim/devices/control.h"
#include "sim/devices/directory.h"
#include "sim/devices/disk.h"
#include "sim/devices/fifo.h"
#include "sim/devices/files.h"
#include "sim/devices/network.h"
#include "sim/devices/null.h"
#include "sim/devices/pipe.h"
#include "sim/devices/rtc.h"
#include "sim/devices/serial.h"
#include "sim/devices/usb.h"
#include "sim/world.h"

namespace sim {
namespace {

// A new device is a row here; the first rows are known by number.
const Device* const kDevices[] = {
    &console_device, &directory_device, &socket_device, &pipe_device, &control_device, &fifo_device,
    &file_device,    &serial_device,    &rtc_device,    &usb_device,  &disk_device,    &null_device,
};

}  // namespace

Microseconds Device::ready_at(const OpenFile&, Direction) const { return world->now; }

const Device& device(int row) { return *kDevices[row]; }

void start_devices() {
    for (const Device* each : kDevices)
        each->start();
}

Microseconds next_act_at() {
    Microseconds at = kNever;
    for (const Device* each : kDevices)
        at = std::min(at, each->acts_at());
    return at;
}

void act_devices() {
    for (const Device* each : kDevices)
        if (each->acts_at() <= world->now) each->act();
}

std::vector<std::string> list_nodes() {
    std::vector<std::string> names{".", ".."};
    for (const Device* each : kDevices)
        each->list(names);
    return names;
}

int find_device(std::string_view path, int* index) {
    for (int row = 0; row < static_cast<int>(std::size(kDevices)); ++row) {
        *index = kDevices[row]->find(path);
        if (*index >= 0) return row;
    }
    return -1;
}

}  // namespace sim
