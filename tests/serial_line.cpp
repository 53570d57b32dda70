#include "tests/serial_line.h"

#include <fcntl.h>
#include <termios.h>

#include "platform/platform.h"

int open_serial_line(const char* path) {
    return platform::open(path, O_RDWR | O_NOCTTY | O_NONBLOCK);
}

int set_up_serial_line(int fd) {
    termios attributes{};
    platform::tcgetattr(fd, &attributes);
    cfsetispeed(&attributes, B9600);
    cfsetospeed(&attributes, B9600);
    attributes.c_cflag &= ~static_cast<tcflag_t>(CSIZE | CSTOPB | PARENB | CREAD | CLOCAL);
    attributes.c_cflag |= CS8 | CREAD | CLOCAL;
    attributes.c_lflag &= ~static_cast<tcflag_t>(ISIG | ICANON | ECHO | ECHOE);
    attributes.c_iflag &= ~static_cast<tcflag_t>(INLCR | IGNCR | ICRNL | IXON | IXOFF);
    attributes.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    return platform::tcsetattr(fd, TCSANOW, &attributes);
}
