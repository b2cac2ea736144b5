// Transcripts of sessions (--record DIR) and their replay (--replay FILE).
//
// A transcript is a text file, one event per line, written as the session goes:
//   # wks-host transcript 1
//   # framing text|counted|raw
//   # max-line 65536             (the session's line limit in bytes)
//   # peer 127.0.0.1:41234
//   # auth                       (only when the session had to authenticate first)
//   # guard off                  (standard input: a first line of another protocol is a message)
//   # return-style 1             (the object's reply style when the session began: 0 CSV, 1 INI,
//                                  or whatever number a state file gave it)
//   2026-11-23T19:50:01.123+0000 > Lamp=1
//   2026-11-23T19:50:01.123+0000 < \n
// ">" is one message as it was received (without its line end), "<" the bytes sent in answer.
// Input refused before it became a message (a line over the limit, a TLS handshake) is noted as a
// remark, "# refused: why", which a replay passes over.
// Bytes are escaped: \\ for a backslash, \n, \r, \t, and \xHH for every other byte below 0x20,
// 0x7F and above. No line that must authenticate is written: it is recorded as "AUTH *" when the
// token was accepted, "AUTH -" when it was refused (a replay's token is "*"), whatever it held.
// Once a session is authenticated, or when it needs no token, every line is as it came, but for
// a repeated login, "AUTH TOKEN", again recorded as "AUTH *". The file is readable by the host's
// own user only; a session that recorded nothing but the header leaves no file.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "host/app/Framing.h"
#include "host/kit/ModuleHost.h"

struct ConversationOptions;

class CTranscript {
public:
    // A new transcript file in `folder`, named after the time and the peer; null (and `error`) when
    // it cannot be created.
    static std::unique_ptr<CTranscript> Open(const std::string& folder, const std::string& peer,
                                             const ConversationOptions& options, std::string& error);
    ~CTranscript();
    void Message(std::string_view line);
    void Answer(std::string_view bytes);
    void Refused(std::string_view why);
    void ReturnStyle(int32_t style);

private:
    CTranscript(FILE* file, std::string path) : m_File(file), m_Path(std::move(path)) {}
    void Write(const std::string& line);
    FILE* m_File;
    std::string m_Path;
    bool m_Failed = false;  // a write failed: said once on standard error, nothing written after
    bool m_Events = false;  // a line, an answer or a refusal was recorded
};

// Runs the messages of the transcript at `path` against `object` (fresh and bound by the caller;
// its reply style set as the transcript's was) and compares the answers with the recorded ones. Returns 0 when they agree, 1 when they differ
// (`report` then shows each differing message with the recorded and the new answer), 2 when the
// file is no transcript (`report` says why, naming the file `name`, as the user wrote it).
int ReplayTranscript(const std::string& path, const std::string& name, CProtocolSession& object, std::string& report);
