#include "host/app/Framing.h"

#include <charconv>

namespace {

// Without a string of its own to hold the digits.
void AppendCount(std::string& out, size_t count) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, count).ptr;
    out.append(digits, static_cast<size_t>(end - digits));
}

}  // namespace

void CReplyBlock::Add(std::string_view reply) {
    ++m_Count;
    switch (m_Framing) {
        case Framing::kCounted:
            AppendCount(m_Body, reply.size());
            m_Body += ':';
            m_Body += reply;
            break;
        case Framing::kText: {
            // Every line of the reply, ended as input lines are (LF, CR LF or a lone CR) and sent
            // with a LF, an empty one as a blank: only the block's end is an empty line, whichever
            // line ends the client reads.
            size_t start = 0;
            for (;;) {
                const size_t end = reply.find_first_of("\r\n", start);
                const std::string_view line = reply.substr(start, end == std::string_view::npos ? end : end - start);
                m_Body += line.empty() ? std::string_view(" ") : line;
                if (end == std::string_view::npos) break;
                m_Body += '\n';
                start = end + (reply.compare(end, 2, "\r\n") == 0 ? 2 : 1);
            }
            break;
        }
        case Framing::kRaw:
            m_Body += reply;
            break;
    }
    m_Body += '\n';
}

void CReplyBlock::Finish(std::string& out) {
    if (m_Framing == Framing::kCounted) {
        out += '+';
        AppendCount(out, static_cast<size_t>(m_Count));
        out += '\n';
    }
    out += m_Body;
    if (m_Framing == Framing::kText) out += '\n';
    m_Body.clear();
    m_Count = 0;
}

void FrameError(Framing framing, std::string_view text, std::string& out) {
    out += framing == Framing::kCounted ? "-" : "ERROR: ";
    out += text;
    out += '\n';
}
