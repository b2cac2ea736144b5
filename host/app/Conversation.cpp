#include "host/app/Conversation.h"

#include <cstring>

#include "host/kit/Files.h"

namespace {

// Compares without leaving the time it takes to tell where the texts differ.
bool SameSecret(std::string_view given, std::string_view secret) {
    unsigned char difference = given.size() == secret.size() ? 0 : 1;
    for (size_t i = 0; i < given.size(); ++i)
        difference |= static_cast<unsigned char>(given[i] ^ (secret.empty() ? 0 : secret[i % secret.size()]));
    return difference == 0;
}

// Another protocol's opening line, named; null for anything else.
const char* ForeignProtocol(std::string_view line) {
    static const char* const kHttp[] = {"GET ", "POST ", "PUT ", "HEAD ", "DELETE ", "OPTIONS ", "CONNECT ", "PATCH ", "TRACE "};
    for (const char* method : kHttp)
        if (line.substr(0, std::strlen(method)) == method) return "an HTTP request";
    if (line.size() >= 5 && strncasecmp(line.data(), "host:", 5) == 0) return "an HTTP header";
    if (line.substr(0, 4) == "SSH-") return "an SSH banner";
    return nullptr;
}

// A line that offers `token` as a login does, however typed: the token alone, or "auth" in any
// case, blanks and the token, with blanks around either.
bool OffersToken(std::string_view line, std::string_view token) {
    line = TrimBlanks(line);
    if (line == token) return true;
    if (line.size() <= 4 || strncasecmp(line.data(), "auth", 4) != 0 || (line[4] != ' ' && line[4] != '\t')) return false;
    return TrimBlanks(line.substr(4)) == token;
}

}  // namespace

bool CConversation::Refuse(const char* why, std::string& out) {
    FrameError(m_Options.framing, why, out);
    m_Ending = why;
    m_Over = true;
    return false;
}

bool CConversation::RefuseInput(const char* why, std::string& out) {
    const size_t before = out.size();
    Refuse(why, out);
    if (m_Transcript) m_Transcript->Answer(std::string_view(out).substr(before));
    return false;
}

bool CConversation::TooLong(size_t length, std::string& out) {
    if (m_Transcript) m_Transcript->Refused("a line of " + std::to_string(m_Partial.size() + length) + " bytes or more");
    if (!m_Options.skipLongLines) return RefuseInput("line too long", out);
    m_First = false;  // a line was seen: what follows it is no other protocol's opening
    m_Skipping = true;
    m_Skipped = m_Partial.size() + length;
    m_Partial.clear();
    m_Partial.shrink_to_fit();  // the memory of a long line is not kept for the next one
    return true;
}

// Refused whole, never cut: answered like a failed command.
void CConversation::AnswerSkipped(std::string& out) {
    ++m_Lines;
    if (m_Options.refused) m_Options.refused(m_Lines, m_Skipped);
    m_Skipping = false;
    m_Skipped = 0;
    const size_t before = out.size();
    m_Block.Add(out, "?");
    Answered(out);
    if (m_Transcript) m_Transcript->Answer(std::string_view(out).substr(before, m_AnswerEnd - before));
}

void CConversation::Record(std::unique_ptr<CTranscript> transcript) {
    m_Transcript = std::move(transcript);
    SmartPtr<IUIPropInterrogate> settings = QueryAs<IUIPropInterrogate>(m_Object.Manager(), IID_IUIPropInterrogate);
    int32_t style = 0;
    if (m_Transcript && settings && settings->Inquire(kReturnStyleItem, &style) >= 0) m_Transcript->ReturnStyle(style);
}

void CConversation::Answered(std::string& out) {
    m_Block.Finish(out);
    m_AnswerEnd = out.size();
    if (m_Options.afterAnswer) m_Options.afterAnswer(out);
}

bool CConversation::Feed(std::string_view bytes, std::string& out) {
    if (m_Over) return false;
    if (m_Backlog.empty()) return Consume(bytes, out);
    std::string held;
    held.swap(m_Backlog);
    held.append(bytes);
    return Consume(held, out);
}

bool CConversation::Consume(std::string_view bytes, std::string& out) {
    // A TLS handshake begins with a record of type 22: no line end may ever come.
    if (m_Options.guard && m_First && m_Partial.empty() && !bytes.empty() && bytes[0] == 0x16) {
        if (m_Transcript) m_Transcript->Refused("a TLS handshake");
        return RefuseInput("this is a line protocol, not TLS", out);
    }
    size_t start = 0;
    if (m_SkipLf && !bytes.empty() && bytes[0] == '\n') start = 1;
    m_SkipLf = false;
    // The next LF is searched for once and kept while lines that end in CR come before it.
    const char* lf = nullptr;
    bool lfSearched = false;  // and lf is the next LF at or after `start`, or null when none is left
    while (start < bytes.size()) {
        const char* from = bytes.data() + start;
        const char* last = bytes.data() + bytes.size();
        if (!lfSearched || (lf != nullptr && lf < from)) {
            lf = static_cast<const char*>(std::memchr(from, '\n', static_cast<size_t>(last - from)));
            lfSearched = true;
        }
        const char* cr = static_cast<const char*>(std::memchr(from, '\r', static_cast<size_t>((lf ? lf : last) - from)));
        const char* end = cr ? cr : lf;
        if (end == nullptr) {
            const size_t rest = bytes.size() - start;
            if (m_Skipping) m_Skipped += rest;
            else if (m_Partial.size() + rest > m_Options.maxLine) return TooLong(rest, out);
            else m_Partial.append(bytes.data() + start, rest);
            return true;
        }
        const size_t length = static_cast<size_t>(end - (bytes.data() + start));
        bool go = true;
        if (m_Skipping) {
            m_Skipped += length;
            AnswerSkipped(out);
        } else if (m_Partial.size() + length > m_Options.maxLine) {
            if (!TooLong(length, out)) return false;
            AnswerSkipped(out);
        } else if (m_Partial.empty()) {
            go = Line(bytes.substr(start, length), out);
        } else {
            m_Partial.append(bytes.data() + start, length);
            std::string line;
            line.swap(m_Partial);
            go = Line(line, out);
        }
        if (!go) return false;
        start += length + 1;
        if (*end == '\r') {
            if (start == bytes.size()) m_SkipLf = true;  // its LF may come with the next read
            else if (bytes[start] == '\n') ++start;
        }
        if (start < bytes.size() && ((m_Options.pauseAt != 0 && out.size() >= m_Options.pauseAt) ||
                                     (m_Options.holdInput && m_Options.holdInput()))) {
            m_Backlog.assign(bytes.substr(start));
            return true;
        }
    }
    return true;
}

void CConversation::End(std::string& out) {
    if (!m_Over && m_Skipping) AnswerSkipped(out);
    if (!m_Over && !m_Partial.empty()) {
        std::string line;
        line.swap(m_Partial);
        Line(line, out);
    }
    if (!m_Over) m_Ending = "end of input";
    m_Over = true;
}

bool CConversation::Line(std::string_view line, std::string& out) {
    // A text file saved with a byte order mark begins with one: it is no part of the first line.
    if (m_First) line = WithoutByteOrderMark(line);
    if (!m_Transcript) return Handle(line, out);
    // The token is never written: a line that must authenticate is recorded as "AUTH *" when it
    // is accepted and "AUTH -" when not, which is how a replay (whose token is "*") answers them,
    // whatever it holds ("auth TOKEN" or the bare token are refused, and are secrets all the same).
    // Only a first line refused as another protocol's is kept as it came: it is answered as such.
    const bool offersToken = !m_Options.token.empty() && !m_Authenticated &&
                             !(m_First && m_Options.guard && ForeignProtocol(line) != nullptr);
    // After it, a line is written as it came, but for a login repeated, however typed ("AUTH
    // TOKEN", "auth  TOKEN", the bare token): it becomes "AUTH *", which the object answers as it
    // answers the token's line (a name it does not have).
    const bool repeatsToken = !m_Options.token.empty() && m_Authenticated && OffersToken(line, m_Options.token);
    // The answer is recorded without the prompt that may follow it: a replay shows none.
    const size_t before = out.size();
    m_AnswerEnd = std::string::npos;
    const bool goOn = Handle(line, out);
    const size_t end = m_AnswerEnd == std::string::npos ? out.size() : m_AnswerEnd;
    m_Transcript->Message(offersToken ? (m_Authenticated ? "AUTH *" : "AUTH -") : repeatsToken ? "AUTH *" : line);
    m_Transcript->Answer(std::string_view(out).substr(before, end - before));
    return goOn;
}

bool CConversation::Handle(std::string_view line, std::string& out) {
    ++m_Lines;
    if (m_First) {
        m_First = false;
        if (const char* foreign = m_Options.guard ? ForeignProtocol(line) : nullptr) {
            std::string why = std::string("this is a line protocol: refused ") + foreign;
            FrameError(m_Options.framing, why, out);
            m_Ending = std::move(why);
            m_Over = true;
            return false;
        }
    }
    if (!m_Options.token.empty() && !m_Authenticated) {
        if (line.substr(0, 5) != "AUTH " || !SameSecret(line.substr(5), m_Options.token))
            return Refuse(kAuthenticationFailed, out);
        m_Authenticated = true;
        Answered(out);  // an empty block: accepted
        return true;
    }
    ++m_Messages;
    const HRESULT received = m_Object.Exchange(line.data(), line.size(), [&](const unsigned char* reply, int32_t length) {
        m_Block.Add(out, std::string_view(reinterpret_cast<const char*>(reply), static_cast<size_t>(length)));
    });
    if (m_AfterMessage) m_AfterMessage();
    if (received == E_BREAK) {
        m_Block.Discard(out);
        m_Ending = "break";
        m_Over = true;
        return false;
    }
    Answered(out);
    return true;
}

std::string_view TrimBlanks(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}
