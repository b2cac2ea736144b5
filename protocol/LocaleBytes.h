// Single characters to and from the bytes of the process's locale, as mbtowc and wctomb convert
// them. A character below 0x80 converts the same way every time in a given locale, so those
// answers are asked of libc once per locale and then looked up; everything else goes to libc.
#pragma once

#include <cstddef>
#include <string>

class CLocaleBytes {
public:
    // Call once before a run of conversions: notices a change of the locale.
    void Refresh();
    // As mbtowc(out, bytes, available).
    int Decode(wchar_t* out, const char* bytes, size_t available);
    // As wctomb(out, c); `out` holds at least MB_LEN_MAX bytes.
    int Encode(char* out, wchar_t c);

private:
    bool m_Cached = false;     // the tables hold the answers of the locale named m_Locale
    std::string m_Locale;
    wchar_t m_Char[128] = {};  // what each byte below 0x80 decodes to
    signed char m_Decoded[128] = {};  // mbtowc's count for it; only 1 (and 0 for NUL) is looked up
    char m_Byte[128] = {};     // what each character below 0x80 encodes to
    signed char m_Encoded[128] = {};  // wctomb's count for it; only 1 is looked up
};
