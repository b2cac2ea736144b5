// The exchange as a host drives it: the built module, loaded through the module-host kit, takes
// the input as a series of messages.
//
// Input format: messages separated by a 0x00 byte, each handed to Exchange as it stands (line
// breaks inside a message make it a message of several lines). A message that asks to break is
// not an error: the input goes on with the next message.
//
// The module is loaded once per process. Every input gets a fresh workspace (the sample without
// its busy time, so that no query waits) and a fresh protocol object: an input's outcome then
// depends on its bytes alone, and a finding reproduces from its file. When both are released the
// count of live host objects must be back where it was; a difference is a leaked reference.
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz/Arguments.h"
#include "host/collections/HostObject.h"
#include "host/kit/ModuleHost.h"
#include "host/workspace/Workspace.h"

namespace {

constexpr int32_t kLineBudget = 11;  // lines of one message that are executed at most

CModuleHost* gHost = nullptr;  // never destroyed: objects of the module may outlive the run
std::string gWorkspaceText;
int32_t gLiveAtRest = 0;

// The sample workspace with every busy_ms line left out.
std::string WithoutBusyTime(const std::string& text) {
    std::string out;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        end = end == std::string::npos ? text.size() : end + 1;
        const size_t key = text.find_first_not_of(" \t", start);
        if (key == std::string::npos || text.compare(key, 7, "busy_ms") != 0) out.append(text, start, end - start);
        start = end;
    }
    return out;
}

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "fuzz_exchange: %s\n", what);
    std::abort();
}

// One session over a fresh workspace: every message of `data` in turn.
void Session(const uint8_t* data, size_t size) {
    Workspace workspace;
    std::string error;
    if (!WorkspaceLoad(gWorkspaceText, "fuzz", workspace, error)) Fail(error.c_str());
    SmartPtr<INamedCollection> names = QueryAs<INamedCollection>(workspace.table.get(), IID_INamedCollection);
    CProtocolSession session;
    if (session.Open(*gHost, names.get()) != S_OK) Fail("the protocol object could not be made and bound");

    for (size_t start = 0;;) {
        const void* separator = std::memchr(data + start, 0, size - start);
        const size_t stop = separator ? static_cast<size_t>(static_cast<const uint8_t*>(separator) - data) : size;
        int32_t lines = 0;
        const HRESULT received = session.Exchange(
            data + start, stop - start,
            [](const unsigned char* reply, int32_t length) {
                if (length <= 0 || reply == nullptr) Fail("a reply without bytes");
            },
            &lines);
        if (received < 0 && received != E_BREAK) Fail("a message was refused");
        if (lines > kLineBudget) Fail("more lines of one message were executed than the budget allows");
        if (stop == size) break;
        start = stop + 1;
    }
    session.Close();
    names.Reset();
    workspace.table.Reset();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    FUZZAbsolutePaths(argc, argv);
    // The module loads ./CollectionsEx.so relative to the current directory.
    if (!HOSTChangeToFolderOf(HOSTProgramFolder())) Fail("cannot move into the program's folder");
    // A multibyte locale, so that decoding and encoding meet characters beyond ASCII.
    if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) std::setlocale(LC_ALL, "");
    gHost = new CModuleHost;
    std::string error;
    if (!gHost->Load("./WKSProtocol.so", error)) Fail(error.c_str());
    gWorkspaceText = WithoutBusyTime(WorkspaceSample());
    // The module's factories and the host components it caches stay alive from their first use.
    const char warmUp[] = "?\nVar1?\nStation.ResultsView?\nOven?\nLamp=1\nManagers:x\nKQBible.x\nFiles?";
    Session(reinterpret_cast<const uint8_t*>(warmUp), sizeof warmUp - 1);
    gLiveAtRest = HOSTLiveObjects();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Session(data, size);
    if (HOSTLiveObjects() != gLiveAtRest) {
        std::fprintf(stderr, "fuzz_exchange: %d host objects alive after the input, %d before\n", HOSTLiveObjects(),
                     gLiveAtRest);
        std::abort();
    }
    return 0;
}
