// An XML document a user edited, read with HOSTXMLStreamFromText and, when it parses, loaded into
// a fresh protocol object in every way the module reads XML: its parameters in the value form
// (update by name, then rebuild), in the object form (rebuild, then in place) and its property
// table. The object must still answer "?" with bytes, and once it and the stream are released the
// count of live host objects must be back where it was.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz/ModuleHost.h"
#include "host/collections/HostObject.h"
#include "host/collections/SuperCollection.h"
#include "host/components/XmlStream.h"
#include "host/kit/ModuleHost.h"

namespace {

CModuleHost* gHost = nullptr;
int32_t gLiveAtRest = 0;

[[noreturn]] void Fail(const char* what) { FUZZFail("fuzz_paramsxml", what); }

constexpr int32_t kRebuild = 0x1000000, kInPlace = 0x2000000;

// A fresh protocol object reads `text` (when it is a document) every way, then answers "?".
void LoadAndQuery(std::string_view text) {
    SmartPtr<ISuperCollection> names(HOSTNewCollection());
    if (!names) Fail("no collection to bind to");
    CProtocolSession session;
    if (session.Open(*gHost, names.get()) != S_OK) Fail("the protocol object could not be made and bound");
    std::string problem;
    SmartPtr<IXMLStream> stream(HOSTXMLStreamFromText(text, problem));
    if (stream) {
        // The persistence slots follow those of the interfaces, on the same tables: the objects are
        // the persisting kinds, which hosts call by position.
        SmartPtr<IParametersCreatable> creatable = QueryAs<IParametersCreatable>(session.Manager(), IID_IParametersCreatable);
        SmartPtr<IUIPropInterrogate> table = QueryAs<IUIPropInterrogate>(session.Manager(), IID_IUIPropInterrogate);
        if (!creatable || !table) Fail("the protocol object lacks its parameters or its property table");
        auto* parameters = static_cast<IParametersPersist*>(creatable.get());
        auto* properties = static_cast<IUIPropInterrogatePersist*>(table.get());
        // Each reading starts from the document's beginning: a stream's reading cursor is rewound.
        for (int pass = 0; pass < 5; ++pass) {
            stream->Seek(0, 0, 0);
            switch (pass) {
                case 0: parameters->Params_LoadXML(stream.get(), 0, 0); break;
                case 1: parameters->Params_LoadXML(stream.get(), kRebuild, 0); break;
                case 2: parameters->Params_LoadXMLUnk(stream.get(), kRebuild); break;
                case 3: parameters->Params_LoadXMLUnk(stream.get(), kInPlace); break;
                default: properties->UIPropInterrogate_LoadXML(nullptr, stream.get(), 0); break;
            }
        }
    }
    const char query[] = "?";
    const HRESULT received = session.Exchange(query, sizeof query - 1, [](const unsigned char* reply, int32_t length) {
        if (length < 0 || (length > 0 && reply == nullptr)) Fail("a reply with a bad length");
    });
    if (received < 0) Fail("the query was refused");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    gHost = &FUZZLoadModule("fuzz_paramsxml", argc, argv);
    // The module's factories and the host components it caches stay alive from their first use.
    LoadAndQuery("<wks version=\"1\"><Var1>5</Var1><Use_Prompt>1</Use_Prompt></wks>");
    gLiveAtRest = HOSTLiveObjects();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    LoadAndQuery(std::string_view(reinterpret_cast<const char*>(data), size));
    if (HOSTLiveObjects() != gLiveAtRest) {
        std::fprintf(stderr, "fuzz_paramsxml: %d host objects alive after the input, %d before\n", HOSTLiveObjects(),
                     gLiveAtRest);
        std::abort();
    }
    return 0;
}
