// Transcripts (--record, --replay). Byte 0 picks the case; the rest are the bytes.
//   bit 0 clear: the bytes are a client's input. They are answered through a recorded
//     conversation with a fresh protocol object; replaying that transcript against another fresh
//     object must find every answer as recorded. Bit 1 requires a token, bit 2 adds a prompt after
//     each answer, bits 3-4 pick the framing, bit 5 turns the first-line guard off.
//   bit 0 set: the bytes are a transcript file, perhaps hand-edited into anything. Its replay must
//     end in one of its three outcomes, with a report when it is not "as recorded".
// No host object may be left behind either way.
#include <dirent.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz/ModuleHost.h"
#include "host/app/Conversation.h"
#include "host/app/Transcript.h"
#include "host/collections/HostObject.h"
#include "host/collections/SuperCollection.h"

namespace {

CModuleHost* gHost = nullptr;
int32_t gLiveAtRest = 0;
std::string gFolder;  // where transcripts are written, one at a time

[[noreturn]] void Fail(const char* what, const std::string& detail = std::string()) { FUZZFail("fuzz_transcript", what, detail); }

// Opens `session` as a fresh protocol object bound to an empty workspace.
void OpenFresh(CProtocolSession& session) {
    SmartPtr<ISuperCollection> names(HOSTNewCollection());
    if (!names || session.Open(*gHost, names.get()) != S_OK) Fail("the protocol object could not be made and bound");
}

// A fresh object's replay of the file at `path`.
int Replay(const std::string& path, std::string& report) {
    CProtocolSession session;
    OpenFresh(session);
    return ReplayTranscript(path, "fuzz", session, report);
}

// The one transcript in the folder, or empty.
std::string Recorded() {
    std::string found;
    if (DIR* folder = opendir(gFolder.c_str())) {
        while (const dirent* entry = readdir(folder))
            if (entry->d_name[0] != '.') found = gFolder + "/" + entry->d_name;
        closedir(folder);
    }
    return found;
}

void RecordAndReplay(std::string_view bytes, uint8_t choice) {
    ConversationOptions options;
    const int framing = (choice >> 3) & 3;
    options.framing = framing == 0 ? Framing::kText : framing == 1 ? Framing::kCounted : Framing::kRaw;
    if (choice & 2) options.token = "t";
    if (choice & 4) options.afterAnswer = [](std::string& out) { out += "> "; };
    options.guard = (choice & 32) == 0;
    uint64_t lines = 0;
    {
        CProtocolSession session;
        OpenFresh(session);
        std::string error;
        std::unique_ptr<CTranscript> transcript = CTranscript::Open(gFolder, "fuzz", options, error);
        if (!transcript) Fail("no transcript: ", error);
        CConversation conversation(session, options, nullptr);
        conversation.Record(std::move(transcript));
        std::string out;
        if (conversation.Feed(bytes, out)) conversation.End(out);
        lines = conversation.Lines();
    }
    const std::string path = Recorded();
    if (path.empty() && lines == 0) return;  // a session without a line leaves no file
    if (path.empty()) Fail("the transcript of a session with lines is gone");
    std::string report;
    const int outcome = Replay(path, report);
    std::remove(path.c_str());
    if (outcome != 0) Fail("a recorded session replays differently:\n", report);
}

void ReplayAnything(std::string_view bytes) {
    const std::string path = gFolder + "/edited";
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size() || std::fclose(file) != 0)
        Fail("cannot write ", path);
    std::string report;
    const int outcome = Replay(path, report);
    std::remove(path.c_str());
    if (outcome < 0 || outcome > 2) Fail("an outcome of ", std::to_string(outcome));
    if ((outcome != 0) == report.empty()) Fail("a report that does not fit the outcome: ", report);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    gHost = &FUZZLoadModule("fuzz_transcript", argc, argv);
    char folder[] = "/tmp/fuzz_transcript.XXXXXX";
    if (mkdtemp(folder) == nullptr) Fail("no scratch folder");
    gFolder = folder;
    std::atexit([] { std::remove(gFolder.c_str()); });
    RecordAndReplay("?\nVar1=1\nVar1?\n", 0);  // the module's factories exist from here on
    gLiveAtRest = HOSTLiveObjects();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] & 1) ReplayAnything(bytes);
    else RecordAndReplay(bytes, data[0]);
    if (HOSTLiveObjects() != gLiveAtRest) Fail("host objects left behind");
    return 0;
}
