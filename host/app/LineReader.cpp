#include "host/app/LineReader.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {
constexpr size_t kReadSize = 64 * 1024;
}

bool CLineReader::Fill() {
    if (m_Eof) return false;
    if (m_Start > 0) {  // keep only what is not handed out yet
        m_Buffer.erase(0, m_Start);
        m_Start = 0;
    }
    const size_t old = m_Buffer.size();
    m_Buffer.resize(old + kReadSize);
    ssize_t n;
    do {
        n = read(m_Fd, &m_Buffer[old], kReadSize);
    } while (n < 0 && errno == EINTR);
    m_Buffer.resize(old + (n > 0 ? static_cast<size_t>(n) : 0));
    if (n <= 0) m_Eof = true;
    return n > 0;
}

CLineReader::Result CLineReader::Next(const char*& text, unsigned long long& length) {
    text = nullptr;
    length = 0;
    size_t scanned = m_Start;
    for (;;) {
        const char* begin = m_Buffer.data() + scanned;
        const void* end = std::memchr(begin, '\n', m_Buffer.size() - scanned);
        if (end != nullptr) {
            const size_t stop = static_cast<size_t>(static_cast<const char*>(end) - m_Buffer.data());
            length = stop - m_Start;
            const bool fits = length <= m_MaxLine;
            if (fits) text = m_Buffer.data() + m_Start;
            m_Start = stop + 1;
            return fits ? kLine : kTooLong;
        }
        const size_t pending = m_Buffer.size() - m_Start;  // searched: no line feed in them
        if (pending > m_MaxLine) break;                    // too long: dropped below
        if (!Fill()) {
            if (pending == 0) return kEnd;
            length = pending;
            text = m_Buffer.data() + m_Start;
            m_Start = m_Buffer.size();
            return kLine;
        }
        scanned = m_Start + pending;  // Fill moved the pending bytes to the front
    }
    // Drop the too-long line up to its line feed, counting it, without keeping it.
    unsigned long long dropped = 0;
    for (;;) {
        const char* begin = m_Buffer.data() + m_Start;
        const void* end = std::memchr(begin, '\n', m_Buffer.size() - m_Start);
        if (end != nullptr) {
            const size_t stop = static_cast<size_t>(static_cast<const char*>(end) - m_Buffer.data());
            length = dropped + (stop - m_Start);
            m_Start = stop + 1;
            return kTooLong;
        }
        dropped += m_Buffer.size() - m_Start;
        m_Buffer.clear();
        m_Start = 0;
        if (!Fill()) {
            length = dropped;
            return kTooLong;
        }
    }
}
