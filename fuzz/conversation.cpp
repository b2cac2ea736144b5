// A network client's bytes, cut into reads at arbitrary places, through a conversation with a
// fresh protocol object in the counted framing. Byte 0 picks whether a token is required, or
// (as for standard input) whether lines over the limit are refused alone; byte 1 seeds where the
// reads are cut. Every answer must be a well-formed block or one error line; the number of blocks
// must equal the lines answered (the messages the object handled, an accepted token, refused lines);
// the same bytes cut elsewhere must give the same answers; and no host object may be left over.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz/ModuleHost.h"
#include "host/app/Conversation.h"
#include "host/collections/HostObject.h"
#include "host/collections/SuperCollection.h"

namespace {

CModuleHost* gHost = nullptr;
int32_t gLiveAtRest = 0;

[[noreturn]] void Fail(const char* what, const std::string& detail = std::string()) { FUZZFail("fuzz_conversation", what, detail); }

// The number of blocks in `out`, which must hold nothing but blocks and at most one error line
// at its end.
size_t CountBlocks(const std::string& out) {
    size_t at = 0, blocks = 0;
    while (at < out.size()) {
        const size_t end = out.find('\n', at);
        if (end == std::string::npos) Fail("an unfinished line: ", out.substr(at));
        if (out[at] == '-') {
            if (end + 1 != out.size()) Fail("answers after an error line");
            return blocks;
        }
        if (out[at] != '+') Fail("a block without its header: ", out.substr(at, end - at));
        const long count = std::strtol(out.c_str() + at + 1, nullptr, 10);
        at = end + 1;
        for (long i = 0; i < count; ++i) {
            const size_t colon = out.find(':', at);
            if (colon == std::string::npos) Fail("a reply without its length");
            const size_t length = std::strtoul(out.c_str() + at, nullptr, 10);
            at = colon + 1 + length;
            if (at >= out.size() || out[at] != '\n') Fail("a reply longer or shorter than its length");
            ++at;
        }
        ++blocks;
    }
    return blocks;
}

// The answers to `bytes` cut every `step` bytes (0: in one read).
std::string Converse(std::string_view bytes, bool token, bool skip, size_t step, uint64_t& lines) {
    SmartPtr<ISuperCollection> names(HOSTNewCollection());
    CProtocolSession session;
    if (!names || session.Open(*gHost, names.get()) != S_OK) Fail("the protocol object could not be made and bound");
    ConversationOptions options;
    options.framing = Framing::kCounted;
    options.maxLine = 64;  // short, so that lines over it are common
    if (token) options.token = "t";
    options.skipLongLines = skip;
    CConversation conversation(session, options, nullptr);
    std::string out;
    bool goOn = true;
    for (size_t at = 0; goOn && at < bytes.size(); at += step ? step : bytes.size())
        goOn = conversation.Feed(bytes.substr(at, step ? step : bytes.size()), out);
    if (goOn) conversation.End(out);
    lines = skip ? conversation.Lines() : conversation.Messages();
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    gHost = &FUZZLoadModule("fuzz_conversation", argc, argv);
    uint64_t messages = 0;
    Converse("?\nVar1=1\nVar1?\nLamp?\n", false, false, 0, messages);  // the module's factories exist from here on
    gLiveAtRest = HOSTLiveObjects();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const bool token = data[0] & 1;
    const bool skip = !token && (data[0] & 2) != 0;
    const size_t step = 1 + data[1] % 7;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
    uint64_t whole = 0, cut = 0;
    const std::string once = Converse(bytes, token, skip, 0, whole);
    const std::string pieces = Converse(bytes, token, skip, step, cut);
    if (once != pieces) Fail("the answers depend on where the reads were cut:\n", once + "\n---\n" + pieces);
    const size_t blocks = CountBlocks(once);
    const bool accepted = token && once.rfind("+0\n", 0) == 0;
    if (blocks != whole + (accepted ? 1 : 0) && blocks + 1 != whole + (accepted ? 1 : 0))
        Fail("blocks and lines disagree: ", std::to_string(blocks) + " blocks, " + std::to_string(whole) + " lines");
    if (HOSTLiveObjects() != gLiveAtRest) Fail("host objects left behind");
    return 0;
}
