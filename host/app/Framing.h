// How wks-host answers one message, the same on every transport, so that a client always knows
// where the replies to one message end:
//
//   text     (default; natural at a terminal or netcat) the message's replies, each on its own
//            line(s) as the object wrote it, then one empty line that ends the block. A reply's
//            line breaks (LF, CR LF or a lone CR) are sent as LF, and a line of a reply that is
//            empty as a single blank, so that only the end of a block is an empty line. A message
//            without replies (an assignment, say) is answered by the empty line alone.
//   counted  (for programs) a header line "+N" with the number of replies, then each reply as
//            "L:" followed by exactly L bytes and a line feed; the bytes are the reply as it is,
//            line breaks included, so any reply passes unchanged.
//   raw      the replies, one per line, and nothing else: what instrument-control libraries
//            expect (a query is answered by a line, a setting by nothing). A client cannot tell
//            where a message without replies ends.
//
// An error of the host itself (a refused line, authentication) is one line: "ERROR: text" in the
// text and raw forms, "-text" in the counted form. A reply "?" is the object's answer to a
// command that failed (or a value that is itself "?": the object's replies do not say which).
#pragma once

#include <string>
#include <string_view>

enum class Framing { kText, kCounted, kRaw };

// Writes the replies to one message as one block, straight into the output.
class CReplyBlock {
public:
    explicit CReplyBlock(Framing framing) : m_Framing(framing) {}
    // Appends one reply to the block, which begins at the end of `out` with its first reply.
    void Add(std::string& out, std::string_view reply);
    // Ends the block in `out` (an empty one when nothing was added) and starts a new one.
    void Finish(std::string& out);
    // Takes the block begun so far back out of `out`: the message gets no answer.
    void Discard(std::string& out);

private:
    void Begin(std::string& out);

    Framing m_Framing;
    int m_Count = 0;
    size_t m_Start = std::string::npos;  // where the block begins in the output; npos: not begun
};

// Appends the host's error line.
void FrameError(Framing framing, std::string_view text, std::string& out);
