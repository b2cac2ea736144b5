#include "protocol/LocaleCache.h"

#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <locale.h>

void CLocaleCache::Refresh() {
    // A thread with a locale of its own is served by libc directly.
    if (uselocale(static_cast<locale_t>(0)) != LC_GLOBAL_LOCALE) {
        m_Cached = false;
        m_Name = nullptr;
        m_Locale.clear();
        return;
    }
    const char* name = std::setlocale(LC_CTYPE, nullptr);
    if (name == nullptr) name = "";
    // libc may hand a new locale's name in the memory of an old one: the text decides.
    if (m_Cached && name == m_Name && std::strcmp(name, m_Locale.c_str()) == 0) return;
    m_Name = name;
    if (m_Cached && m_Locale == name) return;
    m_Locale = name;
    for (int b = 0; b < 128; ++b) {
        const char byte = static_cast<char>(b);
        wchar_t c = 0;
        std::mbtowc(nullptr, nullptr, 0);
        m_Decoded[b] = static_cast<signed char>(std::mbtowc(&c, &byte, 1));
        m_Char[b] = c;
        char out[MB_LEN_MAX];
        std::wctomb(nullptr, 0);
        const int n = std::wctomb(out, static_cast<wchar_t>(b));
        m_Encoded[b] = static_cast<signed char>(n == 1 ? 1 : -1);
        m_Byte[b] = out[0];
        m_Lower[b] = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(b)));
        m_SpaceOrControl[b] = std::iswspace(static_cast<wint_t>(b)) || std::iswcntrl(static_cast<wint_t>(b));
    }
    m_Cached = true;
}

int CLocaleCache::DecodeByLibc(wchar_t* out, const char* bytes, size_t available) {
    return std::mbtowc(out, bytes, available);
}

int CLocaleCache::Encode(char* out, wchar_t c) {
    if (m_Cached && c >= 0 && c < 128 && m_Encoded[c] == 1) {
        out[0] = m_Byte[c];
        return 1;
    }
    return std::wctomb(out, c);
}
