// The workspace loader on arbitrary text taken as TOML: it loads or names a problem, and either
// way leaves no host object behind once the workspace is released.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/collections/HostObject.h"
#include "host/workspace/Workspace.h"

namespace {

[[noreturn]] void Fail(const char* what, const std::string& detail = std::string()) {
    std::fprintf(stderr, "fuzz_workspace: %s%s\n", what, detail.c_str());
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int32_t live = HOSTLiveObjects();
    {
        Workspace workspace;
        std::string error;
        const std::string text(reinterpret_cast<const char*>(data), size);
        const bool loaded = WorkspaceLoad(text, "fuzz", workspace, error);
        if (loaded && !workspace.table) Fail("loaded without a table");
        if (!loaded && workspace.table) Fail("failed but kept a table: ", error);
        if (!loaded && error.rfind("fuzz:", 0) != 0) Fail("a problem without its source and line: ", error);
        if (loaded && !workspace.Root()) Fail("the table is no workspace object");
    }
    if (HOSTLiveObjects() != live) Fail("host objects left behind by a released workspace");
    return 0;
}
