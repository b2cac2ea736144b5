// Runs a shell command from the folder the suite runs in, for the suites that drive programs.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>
#include <vector>

// The output of a command started with popen, once it ends; its exit status (-1 when it did not
// exit) goes to `status`.
inline std::string OutputOf(FILE* run, int& status) {
    std::string output;
    if (run == nullptr) return status = -1, output;
    char buffer[4096];
    while (size_t n = std::fread(buffer, 1, sizeof buffer, run)) output.append(buffer, n);
    const int raw = pclose(run);
    status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return output;
}

// The command's standard output and exit status.
inline std::string Output(const std::string& command, int& status) { return OutputOf(popen(command.c_str(), "r"), status); }

// Several commands run at the same time (each waiting on its own timer, say): their outputs and
// exit statuses, in the order given.
inline std::vector<std::string> Outputs(const std::vector<std::string>& commands, std::vector<int>& statuses) {
    std::vector<FILE*> runs;
    for (const std::string& command : commands) runs.push_back(popen(command.c_str(), "r"));
    std::vector<std::string> outputs;
    statuses.assign(runs.size(), -1);
    for (size_t i = 0; i < runs.size(); ++i) outputs.push_back(OutputOf(runs[i], statuses[i]));
    return outputs;
}
