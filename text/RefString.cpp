#include "text/RefString.h"

#include <cwctype>

namespace {
constexpr HRESULT kUsedUp = 1;

bool IsBlank(wchar_t c) { return std::iswspace(c) || std::iswcntrl(c); }

// Index of the first `c` in [0, n), or -1.
int32_t Find(const wchar_t* text, int32_t n, wchar_t c) {
    for (int32_t i = 0; i < n; ++i)
        if (text[i] == c) return i;
    return -1;
}

int32_t FindLast(const wchar_t* text, int32_t n, wchar_t c) {
    for (int32_t i = n - 1; i >= 0; --i)
        if (text[i] == c) return i;
    return -1;
}

bool InSet(const tagREFString& set, wchar_t c) { return set.length > 0 && Find(set.text, set.length, c) >= 0; }

void SetView(tagREFString* out, const wchar_t* text, int32_t length) {
    if (out) {
        out->text = text;
        out->length = length;
    }
}

void SetLength(tagREFString* out, int32_t length) {
    if (out) out->length = length;
}
}  // namespace

CREFString::CREFString(const wchar_t* terminated) {
    text = terminated;
    length = terminated ? static_cast<int32_t>(std::wcslen(terminated)) : 0;
}

CREFString::CREFString(IDataStream* source) : CREFString(QueryAs<IString>(source, IID_IString).get()) {}

CREFString::CREFString(IString* string) {
    length = 0;
    text = nullptr;
    wchar_t* chars = nullptr;
    int32_t count = 0;
    if (string != nullptr && string->GetText(&chars, &count) >= 0 && chars != nullptr && count > 0) {
        text = chars;
        length = count;
    }
}

HRESULT CREFString::GetLine(tagREFString* line, bool advance, wchar_t separator, bool dropSeparator) {
    if (length <= 0) {
        SetLength(line, 0);
        return E_FAIL;
    }
    const int32_t found = Find(text, length, separator);
    const int32_t n = found >= 0 ? found + 1 : length;
    int32_t lineLength = n;
    if (dropSeparator && n > 0 && text[n - 1] == separator) lineLength = n - 1;
    SetView(line, text, lineLength);
    if (!advance) return n < length ? S_OK : E_FAIL;
    text += n;
    length -= n;
    if (length == 0) return kUsedUp;
    return S_OK;
}

HRESULT CREFString::GetLineCRLF(tagREFString* line, bool dropBreak, bool advance) {
    if (length <= 0) {
        SetLength(line, 0);
        return E_FAIL;
    }
    int32_t i = 0;
    while (i < length && text[i] != L'\n' && text[i] != L'\r') ++i;
    int32_t breakLength = 0;
    if (i < length) {
        breakLength = 1;
        const wchar_t other = text[i] == L'\n' ? L'\r' : L'\n';
        if (i + 1 < length && text[i + 1] == other) breakLength = 2;
    }
    SetView(line, text, dropBreak ? i : i + breakLength);
    if (!advance) return S_OK;
    text += i + breakLength;
    length -= i + breakLength;
    return length == 0 ? kUsedUp : S_OK;
}

HRESULT CREFString::GetReverseLine(tagREFString* head, wchar_t separator, bool advance, bool skipSeparator) {
    const int32_t i = length > 0 ? FindLast(text, length, separator) : -1;
    if (i <= 0) {  // empty, absent, or only at the very start
        SetView(head, text, 0);
        return E_FAIL;
    }
    SetView(head, text, i);
    if (advance) {
        const int32_t drop = skipSeparator ? i + 1 : i;
        text += drop;
        length -= drop;
    }
    return S_OK;
}

HRESULT CREFString::GetLineRight(tagREFString* tail, wchar_t separator, bool advance, bool skipSeparator,
                                 bool wholeIfAbsent) {
    if (length <= 0) return E_FAIL;
    const int32_t i = FindLast(text, length, separator);
    if (i < 0) {
        if (!wholeIfAbsent) {
            SetLength(tail, 0);
            return E_FAIL;
        }
        SetView(tail, text, length);
        if (advance) length = 0;
        return S_OK;
    }
    const int32_t start = skipSeparator ? i + 1 : i;
    SetView(tail, text + start, length - start);
    if (advance) length = skipSeparator ? i : i + 1;
    return S_OK;
}

HRESULT CREFString::Crop(tagREFString* tail, wchar_t separator, bool advance, bool skipSeparator) {
    if (length <= 0 || Find(text, length, separator) < 0) {
        SetLength(tail, 0);
        return E_FAIL;
    }
    return GetLineRight(tail, separator, advance, skipSeparator, false);
}

HRESULT CREFString::Split(tagREFString* left, tagREFString* right, CREFString separators, int32_t stopAtControl) {
    if (length > 0 && separators.length > 0) {
        for (int32_t i = 0; i < length; ++i) {
            const wchar_t c = text[i];
            if (InSet(separators, c) || (stopAtControl && static_cast<uint32_t>(c) < 32)) {
                SetView(left, text, i);
                SetView(right, text + i, length - i);
                return S_OK;
            }
        }
    }
    SetView(left, text, length);
    SetLength(right, 0);
    return E_FAIL;
}

namespace {
bool IsDigit(wchar_t c) { return std::iswdigit(c) != 0; }

// Length of a number starting at `start`: digits, then a fraction only if "." is followed by a
// digit, then an exponent only after a fraction and only as e/E, a sign and a digit.
int32_t NumberEnd(const wchar_t* text, int32_t length, int32_t start) {
    int32_t i = start;
    while (i < length && IsDigit(text[i])) ++i;
    if (i + 1 < length && text[i] == L'.' && IsDigit(text[i + 1])) {
        i += 1;
        while (i < length && IsDigit(text[i])) ++i;
        if (i + 2 < length && (text[i] == L'e' || text[i] == L'E') && (text[i + 1] == L'+' || text[i + 1] == L'-') &&
            IsDigit(text[i + 2])) {
            i += 2;
            while (i < length && IsDigit(text[i])) ++i;
        }
    }
    return i;
}
}  // namespace

HRESULT CREFString::GetFirstWord(tagREFString* word, bool advance) {
    if (length <= 0) {
        SetLength(word, 0);
        return E_FAIL;
    }
    const wchar_t c = text[0];
    int32_t n = 0;
    bool quotedAndClosed = false;
    if (c == L'"') {
        if (length == 1 || text[1] == L'"') {
            n = 1;
            quotedAndClosed = length > 1;  // «""»: the empty text between the quotes
        } else {
            const int32_t close = Find(text + 2, length - 2, L'"');
            n = close >= 0 ? close + 2 : length;
            quotedAndClosed = close >= 0;
        }
    } else if (c == L'-') {
        if (length > 1 && IsDigit(text[1])) n = NumberEnd(text, length, 1);
    } else if (IsDigit(c)) {
        n = NumberEnd(text, length, 0);
    } else if (std::iswpunct(c)) {
        n = 1;
    } else {
        while (n < length && !std::iswspace(text[n]) && (!std::iswpunct(text[n]) || text[n] == L'_')) ++n;
    }
    if (n == 0) return E_FAIL;
    if (quotedAndClosed) SetView(word, text + 1, n - 1);
    else SetView(word, text, n);
    if (advance) {
        text += n;
        length -= n;
    }
    return S_OK;
}

HRESULT CREFString::GetWord(tagREFString* word, bool advance, tagREFString separators) {
    if (length <= 0) {
        SetLength(word, 0);
        return E_FAIL;
    }
    int32_t i = 0;
    while (i < length && !InSet(separators, text[i])) ++i;
    SetView(word, text, i);
    const bool found = i < length;
    if (advance) {
        text += i;
        length -= i;
    }
    return found ? i + 1 : S_OK;
}

// After a partial match breaks off, the search restarts one character after the start of that
// attempt, so overlapping beginnings ("aab" in "aaab") are found.
HRESULT CREFString::Contains(tagREFString needle) {
    if (needle.length <= 0 || length <= 0 || needle.length > length) return E_FAIL;
    for (int32_t start = 0; start + needle.length <= length; ++start) {
        int32_t k = 0;
        while (k < needle.length && text[start + k] == needle.text[k]) ++k;
        if (k == needle.length) return start;
    }
    return E_FAIL;
}

HRESULT CREFString::ContainsChar(tagREFString set) {
    if (set.length <= 0 || length <= 0) return E_FAIL;
    for (int32_t i = 0; i < length; ++i)
        if (InSet(set, text[i])) return i;
    return E_FAIL;
}

HRESULT CREFString::TrimLeft(bool alsoPunctuation) {
    int32_t dropped = 0;
    while (dropped < length && (IsBlank(text[dropped]) || (alsoPunctuation && std::iswpunct(text[dropped]))))
        ++dropped;
    text += dropped;
    length -= dropped;
    return dropped > 0 ? 1 : 0;
}

HRESULT CREFString::CompareI(tagREFString other, int16_t prefixOnly) {
    int32_t n;
    if (prefixOnly) {
        if (other.length > length) return E_FAIL;
        n = other.length;
    } else {
        n = other.length < length ? other.length : length;
    }
    if (n <= 0 || length <= 0) return E_FAIL;
    for (int32_t i = 0; i < n; ++i)
        if (std::towlower(text[i]) != std::towlower(other.text[i])) return E_FAIL;
    return other.length == length ? S_OK : 1;
}
