// The smallest process, to compare the start of q7 with.
#include <unistd.h>

int main() { return ::write(STDOUT_FILENO, "\n", 1) == 1 ? 0 : 1; }
