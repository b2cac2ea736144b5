#include "host/app/LogOutput.h"

#include <unistd.h>

#include <cerrno>

#include "host/app/UnwaitingOutput.h"

namespace {

// A line up to PIPE_BUF bytes goes into a pipe whole or not at all; what a file or a socket took
// in part is followed by the rest, as far as it goes now.
bool WriteOnce(const UnwaitingOutput& output, const char* line, size_t length) {
    while (length > 0) {
        const ssize_t n = WriteWithoutWaiting(output, line, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        line += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

bool LogOutputWrite(const char* line, size_t length) {
    // Decided once; a terminal is written as usual.
    static const UnwaitingOutput output = OutputWithoutWaiting(STDERR_FILENO, false);
    return WriteOnce(output, line, length);
}
