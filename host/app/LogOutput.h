// Where the service's log lines go: standard error, written so that a reader who stops reading
// never holds up the service.
//
// When standard error is a pipe or a socket (a pager, a log collector), a line is written without
// waiting, and one that finds it full is not written; a terminal or a file is written as usual.
#pragma once

#include <cstddef>

// Writes one whole line (its line feed included) on standard error; false when it was not written.
// Safe from any thread: a line is one write.
bool LogOutputWrite(const char* line, size_t length);
