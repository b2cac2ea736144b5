// The set-up of the fuzz targets that host the module: paths made absolute, the program moved into
// its own folder (the module loads ./CollectionsEx.so from the current directory), the module
// loaded once for the whole run and never unloaded (objects it made may outlive the run).
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz/Arguments.h"
#include "host/kit/ModuleHost.h"

// Says what went wrong, as `target`, and stops the run as a finding.
[[noreturn]] inline void FUZZFail(const char* target, const char* what, const std::string& detail = std::string()) {
    std::fprintf(stderr, "%s: %s%s\n", target, what, detail.c_str());
    std::abort();
}

// Call from LLVMFuzzerInitialize.
inline CModuleHost& FUZZLoadModule(const char* target, int* argc, char*** argv) {
    FUZZAbsolutePaths(argc, argv);
    if (!HOSTChangeToFolderOf(HOSTProgramFolder())) FUZZFail(target, "cannot move into the program's folder");
    static CModuleHost* host = new CModuleHost;
    std::string error;
    if (!host->Loaded() && !host->Load("./WKSProtocol.so", error)) FUZZFail(target, error.c_str());
    return *host;
}
