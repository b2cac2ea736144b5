#include "bench/ReplyParser.h"

#include <cstring>

namespace {

// After a large block, the buffers go back to this size so that one huge answer is not kept
// for the rest of the run.
constexpr size_t kKeep = 1u << 20;

// `text` as it can appear in a message: printable ASCII as is, the rest as \xHH, at most 40 bytes.
std::string Shown(std::string_view text) {
    static const char kHex[] = "0123456789abcdef";
    std::string out;
    for (const char c : text.substr(0, 40)) {
        const auto u = static_cast<unsigned char>(c);
        if (u >= 0x20 && u < 0x7f) {
            out += c;
        } else {
            out += "\\x";
            out += kHex[u >> 4];
            out += kHex[u & 15];
        }
    }
    if (text.size() > 40) out += "...";
    return out;
}

// A decimal number of at most 9 digits and nothing else; -1 when `text` is not one.
long Number(std::string_view text) {
    if (text.empty() || text.size() > 9) return -1;
    long value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') return -1;
        value = value * 10 + (c - '0');
    }
    return value;
}

}  // namespace

CReplyParser::Result CReplyParser::Parse(std::string_view& bytes) {
    if (m_State == State::kBroken) return Result::kError;
    if (m_Done) StartBlock();
    // Each step either ends the call or leaves the state ready for the bytes that follow; a step
    // that answers kNeedMore with bytes left over has moved on to its next state.
    for (;;) {
        Result result = Result::kNeedMore;
        switch (m_State) {
            case State::kHeader:
                if (!TakeLine(bytes, kMaxLine)) {
                    if (m_Line.size() > kMaxLine) return Fail("a line longer than " + std::to_string(kMaxLine) + " bytes");
                    return Result::kNeedMore;
                }
                result = Header();
                break;
            case State::kLength:
                while (!bytes.empty() && bytes.front() != ':' && m_Line.size() < 9) {
                    m_Line += bytes.front();
                    bytes.remove_prefix(1);
                }
                if (bytes.empty()) return Result::kNeedMore;
                if (bytes.front() != ':') return Fail("a reply's length '" + Shown(m_Line) + "...' is too long");
                if (Number(m_Line) < 0) return Fail("a reply's length '" + Shown(m_Line) + "' is not a number");
                bytes.remove_prefix(1);
                m_Need = static_cast<size_t>(Number(m_Line));
                if (m_Held.size() + m_Need + 4 * (m_Ends.size() + 1) > kMaxHeld)
                    return Fail("a block larger than " + std::to_string(kMaxHeld >> 20) + " MiB");
                m_Trailer = "\n";
                m_TrailerAt = 0;
                m_State = State::kBody;
                break;
            case State::kBody: {
                const size_t n = m_Need < bytes.size() ? m_Need : bytes.size();
                m_Held.append(bytes.data(), n);
                bytes.remove_prefix(n);
                m_Need -= n;
                if (m_Need > 0) return Result::kNeedMore;
                m_State = State::kTrailer;
                break;
            }
            case State::kTrailer:
                while (m_TrailerAt < m_Trailer.size()) {
                    if (bytes.empty()) return Result::kNeedMore;
                    if (bytes.front() != m_Trailer[m_TrailerAt])
                        return Fail("a reply's bytes end with '" + Shown(bytes.substr(0, 1)) + "', not a line end");
                    bytes.remove_prefix(1);
                    ++m_TrailerAt;
                }
                m_Ends.push_back(static_cast<uint32_t>(m_Held.size()));
                result = ReplyDone();
                break;
            case State::kBroken:
                return Result::kError;
        }
        if (result != Result::kNeedMore) return result;
    }
}

// Appends to m_Line up to the next line feed, which it consumes and leaves out; true when the
// line is complete. Stops taking bytes once the line passes `limit`.
bool CReplyParser::TakeLine(std::string_view& bytes, size_t limit) {
    const void* end = std::memchr(bytes.data(), '\n', bytes.size());
    const size_t n = end ? static_cast<size_t>(static_cast<const char*>(end) - bytes.data()) : bytes.size();
    if (m_Line.size() + n > limit) {
        m_Line.append(bytes.data(), limit + 1 - m_Line.size());
        return false;
    }
    m_Line.append(bytes.data(), n);
    bytes.remove_prefix(end ? n + 1 : n);
    return end != nullptr;
}

// m_Line holds the block's first line.
CReplyParser::Result CReplyParser::Header() {
    if (m_Dialect == Dialect::kRedis) {
        if (m_Line.empty() || m_Line.back() != '\r') return Fail("a line '" + Shown(m_Line) + "' not ended by CR LF");
        m_Line.pop_back();
    }
    const char sign = m_Line.empty() ? '\0' : m_Line[0];
    const std::string_view rest = std::string_view(m_Line).substr(m_Line.empty() ? 0 : 1);
    if (sign == '-') {
        m_Failure = true;
        m_Line.erase(0, 1);
        m_Done = true;
        return Result::kBlock;
    }
    if (m_Dialect == Dialect::kCounted) {
        const long count = sign == '+' ? Number(rest) : -1;
        if (count < 0) return Fail("a block header '" + Shown(m_Line) + "', not +N or -text");
        if (static_cast<size_t>(count) > kMaxHeld / 4)
            return Fail("a block of " + std::to_string(count) + " replies, larger than " + std::to_string(kMaxHeld >> 20) + " MiB");
        if (count == 0) return m_Done = true, Result::kBlock;
        m_Left = static_cast<size_t>(count);
        m_Line.clear();
        m_State = State::kLength;
        return Result::kNeedMore;
    }
    switch (sign) {
        case '+':
        case ':':
            m_Held.assign(rest);
            m_Ends.push_back(static_cast<uint32_t>(m_Held.size()));
            return m_Done = true, Result::kBlock;
        case '$': {
            if (rest == "-1") return m_Done = true, Result::kBlock;  // nothing: a block of no reply
            const long length = Number(rest);
            if (length < 0) return Fail("a bulk length '" + Shown(m_Line) + "'");
            if (static_cast<size_t>(length) + 4 > kMaxHeld)
                return Fail("a block larger than " + std::to_string(kMaxHeld >> 20) + " MiB");
            m_Need = static_cast<size_t>(length);
            m_Trailer = "\r\n";
            m_TrailerAt = 0;
            m_State = State::kBody;
            return Result::kNeedMore;
        }
        default:
            return Fail("a reply '" + Shown(m_Line) + "' of a type this client does not read");
    }
}

// The reply just ended: the block ends with it, or the next reply's length follows.
CReplyParser::Result CReplyParser::ReplyDone() {
    if (m_Dialect == Dialect::kCounted && --m_Left > 0) {
        m_Line.clear();
        m_State = State::kLength;
        return Result::kNeedMore;
    }
    m_Done = true;
    return Result::kBlock;
}

CReplyParser::Result CReplyParser::Fail(std::string why) {
    m_State = State::kBroken;
    m_Why = std::move(why);
    return Result::kError;
}

void CReplyParser::StartBlock() {
    m_Line.clear();
    if (m_Held.capacity() > kKeep) std::string().swap(m_Held);
    if (m_Ends.capacity() > kKeep / 4) std::vector<uint32_t>().swap(m_Ends);
    m_Held.clear();
    m_Ends.clear();
    m_Failure = false;
    m_Done = false;
    m_State = State::kHeader;
}
