// Runs a command as on Linux 2.6.32: every system call that came later answers ENOSYS, and the
// release begins with 2.6. System calls are numbered in the order in which they came.
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>

namespace {

// perf_event_open was the last one; the next was recvmmsg, of 2.6.33.
#if defined(__x86_64__)
constexpr unsigned kLastCall = 298, kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__arm__)
constexpr unsigned kLastCall = 364, kArchitecture = AUDIT_ARCH_ARM;
#endif
constexpr unsigned kArmPrivateCalls = 0x0F0000;  // cache flush and thread pointer, as old as ARM

constexpr int kRelease26 = 0x0020000;  // UNAME26 of the kernel's personality.h

int refuse_newer_calls() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kArchitecture, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, kArmPrivateCalls, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, kLastCall, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
    };
    const sock_fprog filter = {sizeof program / sizeof program[0], program};
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return -1;
    return ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: q7-old-kernel COMMAND [ARGUMENT...]\n");
        return 2;
    }
    if (::personality(kRelease26) < 0 || refuse_newer_calls() != 0) {
        std::perror("q7-old-kernel");
        return 126;
    }
    ::execvp(argv[1], argv + 1);
    std::perror(argv[1]);
    return 127;
}
