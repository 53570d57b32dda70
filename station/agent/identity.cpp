#include "station/agent/identity.h"

#include <fcntl.h>
#include <limits.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "station/agent/descriptor.h"
#include "station/agent/sha256.h"

namespace agent {
namespace {

constexpr int kMostInterfaces = 16;

void add_boot(Line& line) {
    const Descriptor file(::open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
    char id[36];
    const bool known = ::read(file.get(), id, sizeof id) == sizeof id;
    line.text("boot", {id, known ? sizeof id : 0});
}

void add_kernel(Line& line) {
    utsname system{};
    ::uname(&system);
    line.text("kernel", system.release);
}

// Names of network interfaces, sorted, from /proc/net/dev; returns their number.
int find_interfaces(char (&names)[kMostInterfaces][IFNAMSIZ]) {
    std::FILE* file = std::fopen("/proc/net/dev", "re");
    if (file == nullptr) return 0;
    int count = 0;
    char row[512];
    while (count < kMostInterfaces && std::fgets(row, sizeof row, file) != nullptr) {
        const char* start = row + std::strspn(row, " ");
        const char* end = std::strrchr(start, ':');  // an alias has one in its name
        if (end == nullptr || end == start || end - start >= IFNAMSIZ) continue;
        const auto size = static_cast<std::size_t>(end - start);
        std::memcpy(names[count], start, size);
        names[count++][size] = '\0';
    }
    std::fclose(file);
    std::qsort(names, static_cast<std::size_t>(count), IFNAMSIZ, [](const void* a, const void* b) {
        return std::strcmp(static_cast<const char*>(a), static_cast<const char*>(b));
    });
    return count;
}

void add_addresses(Line& line) {
    char names[kMostInterfaces][IFNAMSIZ];
    const int count = find_interfaces(names);
    const Descriptor query(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    line.open("addresses");
    for (int i = 0; i < count; ++i) {
        ifreq request{};
        std::memcpy(request.ifr_name, names[i], IFNAMSIZ);
        if (::ioctl(query.get(), SIOCGIFHWADDR, &request) != 0) continue;
        const auto* bytes = reinterpret_cast<const unsigned char*>(request.ifr_hwaddr.sa_data);
        if (std::all_of(bytes, bytes + 6, [](unsigned char byte) { return byte == 0; })) continue;
        char address[18];
        std::snprintf(address, sizeof address, "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1],
                      bytes[2], bytes[3], bytes[4], bytes[5]);
        line.text(names[i], address);
    }
    line.close();
}

bool is_program(const char* path) {
    struct stat info {};
    return ::access(path, X_OK) == 0 && ::stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

// Where execvp() finds a program; false = nowhere.
bool find_program(const char* name, char (&path)[PATH_MAX]) {
    if (std::strchr(name, '/') != nullptr) {
        return std::snprintf(path, sizeof path, "%s", name) < PATH_MAX && is_program(path);
    }
    const char* folders = std::getenv("PATH");
    if (folders == nullptr) folders = "/bin:/usr/bin";
    while (true) {
        const int size = static_cast<int>(std::strcspn(folders, ":"));
        const char* separator = size == 0 ? "" : "/";  // empty: the working directory
        const int length =
            std::snprintf(path, sizeof path, "%.*s%s%s", size, folders, separator, name);
        if (length < PATH_MAX && is_program(path)) return true;
        folders += size;
        if (*folders++ == '\0') return false;
    }
}

void add_program(Line& line, const char* name) {
    static char path[PATH_MAX], bytes[65536];
    if (!find_program(name, path)) {
        line.json("program", "null");
        return;
    }
    const Descriptor file(::open(path, O_RDONLY | O_CLOEXEC));
    Sha256 hash;
    std::int64_t size = 0;
    ssize_t count = 0;
    while ((count = ::read(file.get(), bytes, sizeof bytes)) > 0) {
        hash.add(bytes, static_cast<std::size_t>(count));
        size += count;
    }
    char hex[65] = "";  // stays so for a program that may be run, but not read
    if (count == 0) hash.finish(hex);
    line.open("program").text("path", path).number("size", size).text("sha256", hex).close();
}

}  // namespace

void describe_board(Line& line, const char* program) {
    add_boot(line);
    add_kernel(line);
    line.number("time", ::time(nullptr));
    add_addresses(line);
    add_program(line, program);
}

}  // namespace agent
