#include "protocol/LocaleCache.h"

#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>
#include <locale.h>

void CLocaleCache::Refresh() {
    // A thread with a locale of its own is served by libc directly.
    if (uselocale(static_cast<locale_t>(0)) != LC_GLOBAL_LOCALE) {
        m_Cached = false;
        m_Name = nullptr;
        m_Locale[0] = '\0';
        return;
    }
    // The name of the global locale's character classes, as setlocale(LC_CTYPE, nullptr) gives
    // it, but read without taking libc's locale lock: this runs twice for every line.
    const char* name = nl_langinfo(_NL_LOCALE_NAME(LC_CTYPE));
    if (name == nullptr) name = "";
    // libc may hand a new locale's name in the memory of an old one: the text decides.
    if (m_Cached && name == m_Name && std::strcmp(name, m_Locale) == 0) return;
    m_Name = name;
    if (m_Cached && std::strcmp(name, m_Locale) == 0) return;
    const size_t length = std::strlen(name);
    if (length >= kNameCapacity) {
        m_Cached = false;
        m_Name = nullptr;
        m_Locale[0] = '\0';
        return;
    }
    std::memcpy(m_Locale, name, length + 1);
    for (int b = 0; b < 128; ++b) {
        const char byte = static_cast<char>(b);
        wchar_t c = 0;
        mbstate_t decoding{};
        m_Decoded[b] = static_cast<signed char>(DecodeByLibc(&c, &byte, 1, decoding));
        m_Char[b] = c;
        char out[MB_LEN_MAX];
        mbstate_t encoding{};
        const size_t n = std::wcrtomb(out, static_cast<wchar_t>(b), &encoding);
        m_Encoded[b] = static_cast<signed char>(n == 1 ? 1 : -1);
        m_Byte[b] = out[0];
        m_Lower[b] = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(b)));
        m_SpaceOrControl[b] = std::iswspace(static_cast<wint_t>(b)) || std::iswcntrl(static_cast<wint_t>(b));
    }
    m_AsciiItself = true;
    m_AsciiWritesItself = true;
    for (int b = 1; b < 128; ++b) {
        m_AsciiItself = m_AsciiItself && m_Decoded[b] == 1 && m_Char[b] == static_cast<wchar_t>(b);
        m_AsciiWritesItself = m_AsciiWritesItself && m_Encoded[b] == 1 && m_Byte[b] == static_cast<char>(b);
    }
    m_Cached = true;
}

int CLocaleCache::DecodeByLibc(wchar_t* out, const char* bytes, size_t available, mbstate_t& state) {
    const size_t n = std::mbrtowc(out, bytes, available, &state);
    if (n == static_cast<size_t>(-1) || n == static_cast<size_t>(-2)) {
        state = mbstate_t{};  // undefined after an error: start over at the next byte
        return -1;
    }
    return static_cast<int>(n);
}

int CLocaleCache::Encode(char* out, wchar_t c, mbstate_t& state) {
    if (m_Cached && c >= 0 && c < 128 && m_Encoded[c] == 1) {
        out[0] = m_Byte[c];
        return 1;
    }
    const size_t n = std::wcrtomb(out, c, &state);
    if (n == static_cast<size_t>(-1)) {
        state = mbstate_t{};
        return -1;
    }
    return static_cast<int>(n);
}
