#include "host/app/Framing.h"

#include <charconv>
#include <cstring>

void CReplyBlock::Begin(std::string& out) {
    m_Start = out.size();
    m_Count = 0;
    if (m_Framing == Framing::kCounted) out.append("+0\n", 3);  // the count is written over at the end
}

void CReplyBlock::Add(std::string& out, std::string_view reply) {
    if (m_Start == std::string::npos) Begin(out);
    ++m_Count;
    switch (m_Framing) {
        case Framing::kCounted: {
            // "LENGTH:REPLY\n", written with one resize: every reply of every line comes here.
            char head[24];
            char* const colon = std::to_chars(head, head + sizeof head - 1, reply.size()).ptr;
            *colon = ':';
            const size_t headLength = static_cast<size_t>(colon + 1 - head);
            const size_t at = out.size();
            out.resize(at + headLength + reply.size() + 1);
            char* to = &out[at];
            std::memcpy(to, head, headLength);
            if (!reply.empty()) std::memcpy(to + headLength, reply.data(), reply.size());
            to[headLength + reply.size()] = '\n';
            return;
        }
        case Framing::kText: {
            // Every line of the reply, ended as input lines are (LF, CR LF or a lone CR) and sent
            // with a LF, an empty one as a blank: only the block's end is an empty line, whichever
            // line ends the client reads.
            size_t start = 0;
            for (;;) {
                const size_t end = reply.find_first_of("\r\n", start);
                const std::string_view line = reply.substr(start, end == std::string_view::npos ? end : end - start);
                out += line.empty() ? std::string_view(" ") : line;
                if (end == std::string_view::npos) break;
                out += '\n';
                start = end + (reply.compare(end, 2, "\r\n") == 0 ? 2 : 1);
            }
            break;
        }
        case Framing::kRaw:
            out += reply;
            break;
    }
    out += '\n';
}

void CReplyBlock::Finish(std::string& out) {
    if (m_Start == std::string::npos) Begin(out);
    if (m_Framing == Framing::kCounted) {
        char digits[24];
        const size_t length = static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, m_Count).ptr - digits);
        if (length == 1) out[m_Start + 1] = digits[0];
        else out.replace(m_Start + 1, 1, digits, length);  // ten replies or more: the body moves up
    }
    if (m_Framing == Framing::kText) out += '\n';
    m_Start = std::string::npos;
}

void CReplyBlock::Discard(std::string& out) {
    if (m_Start != std::string::npos) out.resize(m_Start);
    m_Start = std::string::npos;
}

void FrameError(Framing framing, std::string_view text, std::string& out) {
    out += framing == Framing::kCounted ? "-" : "ERROR: ";
    out += text;
    out += '\n';
}
