// Cuts a server's answers into blocks, one block per line the client sent, as the bytes arrive.
//
//   counted  wks-host --framing counted: a header line "+N" (N replies), then every reply as "L:",
//            exactly L bytes (anything, line breaks included) and "\n". A host error is one line
//            "-text".
//   redis    one reply per command: "+text", ":number" or "$L" + CR LF + L bytes + CR LF, each a
//            block of one reply; "$-1" (nothing) a block of none; "-text" an error.
//
// Bytes may arrive cut anywhere: the parser keeps what it has of the current block between calls
// and holds nothing else. What it holds is bounded: a block whose replies need more than
// kMaxHeld bytes (their bytes and four per reply) is a protocol error, found before it is stored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

enum class Dialect { kCounted, kRedis };

class CReplyParser {
public:
    static constexpr size_t kMaxHeld = 16u << 20;
    static constexpr size_t kMaxLine = 64u << 10;  // a header or error line

    enum class Result { kNeedMore, kBlock, kError };

    explicit CReplyParser(Dialect dialect) : m_Dialect(dialect) {}

    // Consumes bytes from the front of `bytes` up to the end of the next complete block (kBlock:
    // Failure(), Count() and Reply() describe it until the next call) or to the end of `bytes`
    // (kNeedMore). kError: the stream is not well formed; Why() says how and every later call
    // fails the same way, since nothing after a framing fault can be trusted.
    Result Parse(std::string_view& bytes);

    // The block is a host error line; Failure() is its text, without the sign.
    bool IsFailure() const { return m_Failure; }
    std::string_view Failure() const { return m_Failure ? std::string_view(m_Line) : std::string_view(); }
    size_t Count() const { return m_Ends.size(); }
    std::string_view Reply(size_t index) const {
        const size_t begin = index == 0 ? 0 : m_Ends[index - 1];
        return std::string_view(m_Held).substr(begin, m_Ends[index] - begin);
    }
    const std::string& Why() const { return m_Why; }

private:
    enum class State { kHeader, kLength, kBody, kTrailer, kBroken };

    bool TakeLine(std::string_view& bytes, size_t limit);
    Result Header();
    Result Fail(std::string why);
    Result ReplyDone();
    void StartBlock();

    Dialect m_Dialect;
    State m_State = State::kHeader;
    std::string m_Line;           // the line read so far (header, length prefix, error text)
    std::string m_Held;           // the replies of the block, one after another
    std::vector<uint32_t> m_Ends; // where each reply ends in m_Held
    size_t m_Left = 0;            // replies still to come in the block (counted)
    size_t m_Need = 0;            // bytes still to come in the reply
    std::string_view m_Trailer;   // what ends a reply's bytes: "\n" or "\r\n"
    size_t m_TrailerAt = 0;
    bool m_Failure = false;
    bool m_Done = false;          // the last call returned a block; the next starts a new one
    std::string m_Why;
};
