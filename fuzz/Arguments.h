// The fuzz programs move into their own folder in LLVMFuzzerInitialize, because the module loads
// ./CollectionsEx.so from the current directory. libFuzzer reads its arguments after that, so the
// paths among them (inputs, corpus folders and the path options) are made absolute against the
// folder the program was started in first. libFuzzer wants the program's own name untouched.
#pragma once

#include <limits.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

inline void FUZZAbsolutePaths(int* argc, char*** argv) {
    static const char* const kPathOptions[] = {"-artifact_prefix=", "-exact_artifact_path=", "-dict=",
                                               "-merge_control_file=", "-features_dir="};
    // The rewritten arguments live as long as the process, as the originals do.
    static std::vector<std::string> arguments;
    static std::vector<char*> pointers;
    char folder[PATH_MAX];
    if (getcwd(folder, sizeof folder) == nullptr) return;
    for (int i = 1; i < *argc; ++i) {
        std::string argument = (*argv)[i];
        size_t path = std::string::npos;  // where the path begins, if the argument holds one
        if (argument[0] != '-') {
            path = 0;
        } else {
            for (const char* option : kPathOptions)
                if (argument.rfind(option, 0) == 0) path = std::strlen(option);
        }
        if (path < argument.size() && argument[path] != '/') argument.insert(path, std::string(folder) + "/");
        arguments.push_back(argument);
    }
    pointers.push_back((*argv)[0]);
    for (std::string& argument : arguments) pointers.push_back(&argument[0]);
    pointers.push_back(nullptr);
    *argv = pointers.data();
}
