// One client's conversation with the protocol object, whatever carries the bytes: lines are cut
// from the bytes as they come (a line ends at LF, CR LF or a lone CR; a line split across reads is
// joined, and lines that arrive together are handled one after another), each line is one message,
// and its replies go out as one block (host/app/Framing.h).
//
// Before any message reaches the object: a first line that is clearly another protocol's (an HTTP
// request line or header, a TLS handshake, an SSH banner) ends the conversation with one error
// line; with a token, the first line must be "AUTH <token>", compared in constant time, and a
// wrong one ends the conversation. A line longer than the limit without its line end ends it too.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "host/app/Framing.h"
#include "host/app/Transcript.h"
#include "host/kit/ModuleHost.h"

// `text` without the blanks and tabs around it (a token as typed in a line or a file).
std::string_view TrimBlanks(std::string_view text);

struct ConversationOptions {
    Framing framing = Framing::kText;
    size_t maxLine = 64 * 1024;  // bytes of one line, its line end not counted
    std::string token;           // empty: no authentication
    bool guard = true;           // refuse a first line of another protocol
    // Stop handling lines once this many bytes of answers wait to be sent (0: never), and keep
    // the rest of the input until Resume: a client's input cannot make unbounded answers.
    size_t pauseAt = 0;
    // The operator's standard input: a line longer than maxLine is refused alone (its bytes are
    // dropped as they come, it is answered like a failed command, and `refused` is told its
    // number and length) instead of ending the conversation.
    bool skipLongLines = false;
    std::function<void(uint64_t line, uint64_t bytes)> refused;
    // Appends what follows every message's answer (the prompt of an interactive session).
    std::function<void(std::string& out)> afterAnswer;
    // Asked after every line: true holds the rest of the input back, as a pause does (a stop was
    // asked for, and no further line is to be handled).
    std::function<bool()> holdInput;
};

// The ending of a conversation whose first line was not the token: worth a warning, as someone
// may be guessing.
inline constexpr char kAuthenticationFailed[] = "authentication failed";

class CConversation {
public:
    // `object` is shared by all conversations; `afterMessage` runs after every message it handled.
    CConversation(CProtocolSession& object, const ConversationOptions& options, std::function<void()> afterMessage)
        : m_Object(object), m_Options(options), m_AfterMessage(std::move(afterMessage)), m_Block(options.framing) {}

    // Handles the received `bytes` and appends what is to be sent to `out`. False once the
    // conversation is over: send `out`, then close; further bytes are ignored.
    bool Feed(std::string_view bytes, std::string& out);
    // Paused: input is held back because the answers reached `pauseAt`. Resume once they have
    // been sent; it handles what was held back (and may pause again).
    bool Paused() const { return !m_Backlog.empty(); }
    bool Resume(std::string& out) { return Feed(std::string_view(), out); }

    // The input has ended: a last line without its line end is still a message. Appends its
    // answer to `out`; the conversation is over.
    void End(std::string& out);

    // A token is required and has not been given yet.
    bool AwaitsToken() const { return !m_Options.token.empty() && !m_Authenticated && !m_Over; }
    // Ends a conversation that awaits its token, with `why` as its error line appended to `out`;
    // false (and nothing appended) when it awaits none.
    bool EndUnauthenticated(const std::string& why, std::string& out) { return AwaitsToken() && !Refuse(why.c_str(), out); }

    // Records every line and its answer from now on, after the object's reply style of the moment.
    void Record(std::unique_ptr<CTranscript> transcript);

    // Why it ended: "break", kAuthenticationFailed, or another error sent (empty while it goes on).
    const std::string& Ending() const { return m_Ending; }
    uint64_t Messages() const { return m_Messages; }
    // Lines seen: every message, a token line and every refused line.
    uint64_t Lines() const { return m_Lines; }

private:
    bool Consume(std::string_view bytes, std::string& out);
    bool Line(std::string_view line, std::string& out);
    bool Handle(std::string_view line, std::string& out);
    bool Refuse(const char* why, std::string& out);
    // Refuses input that never became a message: the transcript keeps the answer after its remark.
    bool RefuseInput(const char* why, std::string& out);
    // A line over the limit: the conversation's end, or with skipLongLines the start of skipping it.
    bool TooLong(size_t length, std::string& out);
    void AnswerSkipped(std::string& out);
    void Answered(std::string& out);

    CProtocolSession& m_Object;
    const ConversationOptions& m_Options;
    std::function<void()> m_AfterMessage;
    CReplyBlock m_Block;
    std::string m_Partial;   // a line begun in an earlier read
    std::string m_Backlog;   // input held back while paused
    bool m_SkipLf = false;   // the last read ended in CR: a LF that follows belongs to it
    bool m_First = true;     // no line seen yet
    bool m_Over = false;
    bool m_Authenticated = false;
    bool m_Skipping = false;     // dropping the rest of a line over the limit
    uint64_t m_Skipped = 0;      // bytes of that line so far
    uint64_t m_Lines = 0;        // lines seen, refused ones included
    uint64_t m_Messages = 0;
    std::string m_Ending;
    std::unique_ptr<CTranscript> m_Transcript;
    size_t m_AnswerEnd = 0;  // where the last answer ended in the output, before what follows it
};
