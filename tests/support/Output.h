// Runs a shell command from the folder the suite runs in, for the suites that drive programs.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

// The command's standard output; its exit status (-1 when it did not exit) goes to `status`.
inline std::string Output(const std::string& command, int& status) {
    FILE* run = popen(command.c_str(), "r");
    std::string output;
    if (run == nullptr) return status = -1, output;
    char buffer[4096];
    while (size_t n = std::fread(buffer, 1, sizeof buffer, run)) output.append(buffer, n);
    const int raw = pclose(run);
    status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return output;
}
