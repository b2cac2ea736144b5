// Reads lines from a file descriptor with a bound on their length, in memory that never exceeds
// the bound plus one read buffer, however long a line the peer sends.
#pragma once

#include <cstddef>
#include <string>

class CLineReader {
public:
    enum Result { kLine, kTooLong, kEnd };

    CLineReader(int fd, size_t maxLine) : m_Fd(fd), m_MaxLine(maxLine) {}

    // The next line without its line feed (a carriage return before it stays: the exchange
    // treats it as a line end), as `line` bytes at `text`, valid until the next call: lines are
    // handed out in place, never copied. kTooLong when the line exceeded the bound: its bytes are
    // read and dropped up to its line feed, and `length` holds the line's full length. kEnd at
    // the end of the input; a last line without a line feed is still a line.
    Result Next(const char*& text, unsigned long long& length);

private:
    bool Fill();

    int m_Fd;
    size_t m_MaxLine;
    std::string m_Buffer;  // bytes read but not yet handed out
    size_t m_Start = 0;
    bool m_Eof = false;
};
