// The smallest process, to compare q7 with. Given a command, it runs that instead and says how much
// memory it took: a larger parent would show through in the figure of its child.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc == 1) return ::write(STDOUT_FILENO, "\n", 1) == 1 ? 0 : 1;
    const pid_t child = ::fork();
    if (child < 0) return 1;
    if (child == 0) {
        std::freopen("/dev/null", "w", stdout);
        ::execv(argv[1], argv + 1);
        ::_exit(127);
    }
    int status = 0;
    rusage usage{};
    if (::wait4(child, &status, 0, &usage) != child || !WIFEXITED(status)) return 1;
    std::printf("%ld\n", usage.ru_maxrss);  // KiB
    return WEXITSTATUS(status) == 127 ? 1 : 0;
}
