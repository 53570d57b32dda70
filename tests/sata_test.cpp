#include "tests/sata_test.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "device/capability.h"
#include "driver/report.h"
#include "driver/results.h"
#include "platform/error_text.h"
#include "platform/print.h"
#include "tests/ata.h"
#include "tests/directory_stream.h"

namespace {

constexpr char kModule[] = "sata_test";

// The path of a disk node with the longest name that a directory can hold.
using DiskPath = std::array<char, sizeof "/dev/" + 255>;

// A text field after its label, without NUL bytes, with its blanks.
void report_field(const char* label, const IdentifyBlock& block, std::size_t offset,
                  std::size_t size) {
    char text[128];
    std::size_t length = static_cast<std::size_t>(std::snprintf(text, sizeof text, "%s", label));
    for (std::size_t i = offset; i < offset + size; ++i) {
        if (block[i] != 0) text[length++] = static_cast<char>(block[i]);
    }
    text[length] = '\0';
    report(kModule, "%s", text);
}

void report_identity(const char* path, const IdentifyBlock& block) {
    report(kModule, "%s", path);
    report_field("\n序列号    :", block, 20, 20);
    report_field("\n型号      :", block, 54, 40);
    report_field("\n固件版本  :", block, 46, 8);
    report(kModule, "\n");
}

enum class DiskState { absent, without_size, good };

// Identifies the disk and reads its size; reports both, or what is missing.
DiskState examine_disk(const char* path) {
    IdentifyBlock block{};
    if (ata_identify(path, block) == -1) {
        report(kModule, "%s 不存在\n", path);
        return DiskState::absent;
    }
    report_identity(path, block);
    const std::uint64_t size = disk_size(path);
    if (size == kNoSize) {
        report(kModule, "%s 无法获取硬盘容量\n", path);
        return DiskState::without_size;
    }
    report(kModule, "硬盘容量  :%lldGB\n", static_cast<long long>(size >> 30));
    return DiskState::good;
}

DiskPath port_path(int port, int internal_ports) {
    DiskPath path;
    if (port < internal_ports) {
        std::snprintf(path.data(), path.size(), "/dev/sd%c", 'a' + port);
    } else {
        std::snprintf(path.data(), path.size(), "/dev/esd%c", 'a' + port - internal_ports);
    }
    return path;
}

// The first matching entry of /dev in alphabetical order, empty when there is none. Returns 0, or
// -1 with errno when the directory cannot be read.
int find_sas_disk(DiskPath& path) {
    DirectoryStream directory("/dev");
    if (!directory.is_open()) return -1;
    path[0] = '\0';
    const char* const first = path.data() + std::strlen("/dev/");
    errno = 0;
    while (const char* name = directory.next()) {
        if (!sas_name_filter(name)) continue;
        if (path[0] != '\0' && std::strcmp(name, first) >= 0) continue;
        std::snprintf(path.data(), path.size(), "/dev/%s", name);
    }
    return errno == 0 ? 0 : -1;
}

}  // namespace

void sata_disk_test() {
    sata_port_report();
    minisas_report();
}

int internal_sata_ports() {
    if (g_sata_port_num == 5 || g_sata_port_num == 9) return g_sata_port_num - 1;
    return g_cSataNewRule == 1 ? g_sata_port_num - g_cESataNum : g_sata_port_num;
}

void sata_port_report() {
    results.sata_fault_mask = 0;
    const int internal_ports = internal_sata_ports();
    report(kModule, "设备有%d个sata口\n", internal_ports);
    for (int port = 0; port < internal_ports + g_cESataNum; ++port) {
        const DiskState state = examine_disk(port_path(port, internal_ports).data());
        if (state == DiskState::good) {
            ++results.sata_disks_found;
        } else if (port < internal_ports) {
            results.sata_fault_mask |= 1u << port;
        }
    }
}

bool sas_name_filter(const char* name) { return std::strncmp(name, "sas1", 4) == 0; }

void minisas_report() {
    if (g_cMiniSASNum == 0) return;
    report(kModule, "设备有%d个miniSAS口\n", g_cMiniSASNum);
    DiskPath path;
    if (find_sas_disk(path) < 0) {
        const int error = errno;
        print_error("scandir fail, errno = %d(%s)\n", error, error_text(error));
        results.minisas = 1;
        return;
    }
    if (path[0] == '\0') {
        print_line("没有找到miniSAS口 ");
        results.minisas = 1;
        return;
    }
    if (examine_disk(path.data()) != DiskState::good) results.minisas = 1;
}
