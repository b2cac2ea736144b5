// Writing a descriptor without waiting where a write could wait for a reader.
//
// A pipe (and, when asked, a terminal) gets a description of its own, opened anew without
// waiting, so that the one shared with whoever started the host (a shell's pipeline, the
// terminal) keeps its mode; a socket is asked not to wait call by call; a file is written as it is.
#pragma once

#include <sys/types.h>

#include <cstddef>

struct UnwaitingOutput {
    int fd = -1;
    bool socket = false;
    bool waits = true;  // writes may still wait: the kind has no way not to, or reopening failed
};

UnwaitingOutput OutputWithoutWaiting(int fd, bool terminals);

// One write: the bytes taken, or -1 with errno (EAGAIN: full now).
ssize_t WriteWithoutWaiting(const UnwaitingOutput& output, const char* bytes, size_t length);
