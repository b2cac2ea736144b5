// A saved state file: the bytes as the text of a host folder stream, read with
// HOSTFolderStreamFromText. A refused text must come with a one-line problem and no folder. An
// accepted one must write back as text that reads back to the same text (text -> folder -> text is
// a fixed point from the first writing on), and a fresh protocol object, bound to an empty
// collection, loads it through IDataPersist and answers one query. When the object and the
// folders are released the count of live host objects must be back where it was.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz/ModuleHost.h"
#include "host/collections/HostObject.h"
#include "host/collections/SuperCollection.h"
#include "host/components/FolderStream.h"
#include "host/kit/ModuleHost.h"

namespace {

CModuleHost* gHost = nullptr;
int32_t gLiveAtRest = 0;

[[noreturn]] void Fail(const char* what, const std::string& detail = std::string()) { FUZZFail("fuzz_statefile", what, detail); }

// A fresh protocol object loads `folder` (when given) and answers "?".
void LoadAndQuery(IFolderStream* folder) {
    SmartPtr<ISuperCollection> names(HOSTNewCollection());
    if (!names) Fail("no collection to bind to");
    CProtocolSession session;
    if (session.Open(*gHost, names.get()) != S_OK) Fail("the protocol object could not be made and bound");
    if (folder != nullptr) {
        SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(session.Manager(), IID_IDataPersist);
        if (!persist) Fail("the protocol object does not persist itself");
        if (persist->Load(folder, 0) < 0) Fail("a folder stream was refused");
    }
    const char query[] = "?";
    const HRESULT received = session.Exchange(query, sizeof query - 1, [](const unsigned char* reply, int32_t length) {
        if (length <= 0 || reply == nullptr) Fail("a reply without bytes");
    });
    if (received < 0) Fail("the query was refused");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    gHost = &FUZZLoadModule("fuzz_statefile", argc, argv);
    // The module's factories and the host components it caches stay alive from their first use.
    LoadAndQuery(nullptr);
    gLiveAtRest = HOSTLiveObjects();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    {
        std::string problem;
        SmartPtr<IFolderStream> folder(
            HOSTFolderStreamFromText(std::string_view(reinterpret_cast<const char*>(data), size), problem));
        if (!folder) {
            if (problem.empty() || problem.find('\n') != std::string::npos) Fail("a refusal without a one-line problem: ", problem);
        } else {
            std::string first, second;
            if (!HOSTFolderStreamToText(folder.get(), first)) Fail("an accepted folder cannot be written");
            SmartPtr<IFolderStream> again(HOSTFolderStreamFromText(first, problem));
            if (!again) Fail("a written text is refused: ", problem);
            if (!HOSTFolderStreamToText(again.get(), second) || second != first) Fail("the text changed on its second trip:\n", second);
            LoadAndQuery(folder.get());
        }
    }
    if (HOSTLiveObjects() != gLiveAtRest) {
        std::fprintf(stderr, "fuzz_statefile: %d host objects alive after the input, %d before\n", HOSTLiveObjects(),
                     gLiveAtRest);
        std::abort();
    }
    return 0;
}
