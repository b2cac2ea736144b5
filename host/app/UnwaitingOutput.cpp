#include "host/app/UnwaitingOutput.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

UnwaitingOutput OutputWithoutWaiting(int fd, bool terminals) {
    UnwaitingOutput output{fd, false, true};
    struct stat status {};
    if (fstat(fd, &status) != 0) return output;
    if (S_ISSOCK(status.st_mode)) return UnwaitingOutput{fd, true, false};
    if (S_ISFIFO(status.st_mode) || (terminals && isatty(fd))) {
        const int own = open(("/proc/self/fd/" + std::to_string(fd)).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
        if (own >= 0) return UnwaitingOutput{own, false, false};
    }
    return output;
}

ssize_t WriteWithoutWaiting(const UnwaitingOutput& output, const char* bytes, size_t length) {
    return output.socket ? send(output.fd, bytes, length, MSG_DONTWAIT | MSG_NOSIGNAL) : write(output.fd, bytes, length);
}
