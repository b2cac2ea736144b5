// What libc says of single characters in the process's locale: multibyte conversions,
// towlower, and the blank tests of the command language. Characters below 0x80 answer the same way
// every time in a given locale, so their answers are asked of libc once per locale and then looked
// up; everything else goes to libc each time.
#pragma once

#include <cstddef>
#include <cwchar>
#include <cwctype>

#include "text/TagRefString.h"

class CLocaleCache {
public:
    // Call before a run of questions: notices a change of the locale.
    void Refresh();
    // As mbtowc(out, bytes, available): the count of bytes used, 0 for a zero byte, -1 for bytes
    // that do not form a character (also an incomplete one). Conversions keep their shift state
    // in `state`, the caller's, never in libc's hidden one.
    int Decode(wchar_t* out, const char* bytes, size_t available, mbstate_t& state) {
        const unsigned char b = static_cast<unsigned char>(bytes[0]);
        if (m_Cached && b < 128 && (m_Decoded[b] == 1 || (b == 0 && m_Decoded[b] == 0))) {
            *out = m_Char[b];
            return m_Decoded[b];
        }
        return DecodeByLibc(out, bytes, available, state);
    }
    // True when every byte from 0x01 to 0x7F decodes, on its own, to the character of the same
    // code (as in every ASCII-compatible locale), so that a run of such bytes needs no lookup.
    bool AsciiDecodesItself() const { return m_Cached && m_AsciiItself; }
    // True when every character from U+0001 to U+007F encodes, on its own, to the one byte of the
    // same code.
    bool AsciiEncodesItself() const { return m_Cached && m_AsciiWritesItself; }
    // As wctomb(out, c); `out` holds at least MB_LEN_MAX bytes.
    int Encode(char* out, wchar_t c, mbstate_t& state);
    // As towlower(c).
    wchar_t Lower(wchar_t c) const { return m_Cached && Ascii(c) ? m_Lower[c] : static_cast<wchar_t>(std::towlower(c)); }
    // iswspace(c) || iswcntrl(c).
    bool IsSpaceOrControl(wchar_t c) const {
        return m_Cached && Ascii(c) ? m_SpaceOrControl[c] : std::iswspace(c) || std::iswcntrl(c);
    }

    // The one trimming rule of the protocol. The front drops white space and control characters
    // as the locale classifies them; the back drops DEL and every code up to 32. The two ends use
    // different tests on purpose: a received text is trimmed that way.
    enum { kFront = 1, kBack = 2, kBoth = 3 };
    void Trim(tagREFString& view, int ends) const {
        if (ends & kFront)
            while (view.length > 0 && IsSpaceOrControl(view.text[0])) ++view.text, --view.length;
        if (ends & kBack)
            while (view.length > 0 && IsTrailingBlank(view.text[view.length - 1])) --view.length;
    }
    static bool IsTrailingBlank(wchar_t c) { return c == 127 || static_cast<unsigned>(c) <= 32; }

private:
    static int DecodeByLibc(wchar_t* out, const char* bytes, size_t available, mbstate_t& state);
    static bool Ascii(wchar_t c) { return c >= 0 && c < 128; }

    // Long enough for any locale name a system uses; a longer one is simply not cached. A fixed
    // array, so that noticing a new locale can never fail or throw.
    static constexpr size_t kNameCapacity = 128;

    bool m_Cached = false;  // the tables hold the answers of the locale named m_Locale
    bool m_AsciiItself = false;
    bool m_AsciiWritesItself = false;
    const char* m_Name = nullptr;  // libc's name string of that locale, when it was asked
    char m_Locale[kNameCapacity] = {};
    wchar_t m_Char[128] = {};         // what each byte below 0x80 decodes to
    signed char m_Decoded[128] = {};  // mbtowc's count for it; only 1 (and 0 for NUL) is looked up
    char m_Byte[128] = {};            // what each character below 0x80 encodes to
    signed char m_Encoded[128] = {};  // wctomb's count for it; only 1 is looked up
    wchar_t m_Lower[128] = {};
    bool m_SpaceOrControl[128] = {};
};
