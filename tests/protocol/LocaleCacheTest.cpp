// The cached answers are libc's, in each locale the machine has, one after another.
#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cstdlib>
#include <cwctype>

#include "protocol/LocaleCache.h"

namespace {

void ExpectSameAsLibc(CLocaleCache& cache, const char* locale) {
    cache.Refresh();
    for (int c = 0; c < 0x200; ++c) {
        const wchar_t w = static_cast<wchar_t>(c);
        EXPECT_EQ(cache.Lower(w), static_cast<wchar_t>(std::towlower(c))) << locale << " " << c;
        EXPECT_EQ(cache.IsSpaceOrControl(w), std::iswspace(c) || std::iswcntrl(c)) << locale << " " << c;
        char mine[MB_LEN_MAX] = {}, libc[MB_LEN_MAX] = {};
        std::wctomb(nullptr, 0);
        const int n = std::wctomb(libc, w);
        mbstate_t state{};
        ASSERT_EQ(cache.Encode(mine, w, state), n) << locale << " " << c;
        for (int i = 0; i < n; ++i) EXPECT_EQ(mine[i], libc[i]) << locale << " " << c;
    }
    for (int b = 0; b < 0x100; ++b) {
        const char byte = static_cast<char>(b);
        wchar_t mine = 0, libc = 0;
        std::mbtowc(nullptr, nullptr, 0);
        const int n = std::mbtowc(&libc, &byte, 1);
        std::mbtowc(nullptr, nullptr, 0);
        mbstate_t state{};
        ASSERT_EQ(cache.Decode(&mine, &byte, 1, state), n) << locale << " " << b;
        if (n >= 0) {
            EXPECT_EQ(mine, libc) << locale << " " << b;
        }
    }
}

TEST(LocaleCache, AnswersAsLibc) {
    CLocaleCache cache;
    const char* locales[] = {"C", "C.UTF-8", "POSIX", "C"};
    for (const char* locale : locales) {
        if (std::setlocale(LC_ALL, locale) == nullptr) continue;
        ExpectSameAsLibc(cache, locale);
    }
    std::setlocale(LC_ALL, "C");
}

}  // namespace
