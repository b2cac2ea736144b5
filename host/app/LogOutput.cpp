#include "host/app/LogOutput.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace {

enum class Sink { kBlocking, kPipe, kSocket };

struct Output {
    Sink sink = Sink::kBlocking;
    int fd = STDERR_FILENO;
};

// Decided once. A pipe gets a descriptor of its own, opened anew without waiting, so that the
// descriptor shared with whoever started the host (a shell's pipeline) keeps its own mode; a
// socket is asked not to wait call by call.
Output Choose() {
    Output output;
    struct stat status {};
    if (fstat(STDERR_FILENO, &status) != 0) return output;
    if (S_ISSOCK(status.st_mode)) {
        output.sink = Sink::kSocket;
    } else if (S_ISFIFO(status.st_mode)) {
        const int own = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (own >= 0) output = Output{Sink::kPipe, own};
    }
    return output;
}

// A line up to PIPE_BUF bytes goes into a pipe whole or not at all; what a file or a socket took
// in part is followed by the rest, as far as it goes now.
bool WriteOnce(const Output& output, const char* line, size_t length) {
    while (length > 0) {
        const ssize_t n = output.sink == Sink::kSocket
                              ? send(output.fd, line, length, MSG_DONTWAIT | MSG_NOSIGNAL)
                              : write(output.fd, line, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        line += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

bool LogOutputWrite(const char* line, size_t length) {
    static const Output output = Choose();
    return WriteOnce(output, line, length);
}
