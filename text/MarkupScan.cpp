#include "text/MarkupScan.h"

#include <cwctype>
#include <new>

CMarkupScan::CMarkupScan(CREFString text) : m_Text(text), m_SearchBudget(2 * static_cast<int64_t>(text.length) + 64) { Index(); }

CMarkupScan::~CMarkupScan() {
    delete[] m_Closings;
    delete[] m_Buckets;
}

// Every "</" followed somewhere by ">" is a closing tag whose name is what lies between. A name
// searched for never holds ">", so "</" name ">" occurs exactly where such a closing tag has that
// name. The ">" after each "</" is found with one pointer that only moves forward.
void CMarkupScan::Index() {
    const wchar_t* t = m_Text.text;
    const int32_t n = m_Text.length;
    int32_t count = 0;
    for (int32_t i = 0; i + 1 < n; ++i)
        if (t[i] == L'<' && t[i + 1] == L'/') ++count;
    if (count == 0) return;
    uint32_t buckets = 16;
    while (buckets < 2u * static_cast<uint32_t>(count)) buckets *= 2;
    m_Closings = new (std::nothrow) Closing[count];
    m_Buckets = new (std::nothrow) int32_t[buckets];
    if (m_Closings == nullptr || m_Buckets == nullptr) {
        delete[] m_Closings;
        delete[] m_Buckets;
        m_Closings = nullptr;
        m_Buckets = nullptr;
        m_Unindexed = true;  // FindClosing searches the text instead
        return;
    }
    m_Mask = buckets - 1;
    for (uint32_t b = 0; b < buckets; ++b) m_Buckets[b] = -1;
    int32_t found = 0;
    int32_t close = 0;  // the first ">" at or after the name being looked at, or n
    for (int32_t i = 0; i + 1 < n; ++i) {
        if (t[i] != L'<' || t[i + 1] != L'/') continue;
        if (close < i + 2) close = i + 2;
        while (close < n && t[close] != L'>') ++close;
        if (close >= n) break;  // no ">" is left for this one or any later one
        m_Closings[found++] = Closing{i, i + 2, close - (i + 2), -1};
    }
    // Chained from the last to the first, so that every chain runs by position.
    for (int32_t k = found - 1; k >= 0; --k) {
        int32_t& head = m_Buckets[Hash(t + m_Closings[k].name, m_Closings[k].length) & m_Mask];
        m_Closings[k].next = head;
        head = k;
    }
}

uint32_t CMarkupScan::Hash(const wchar_t* text, int32_t length) {
    uint32_t hash = 2166136261u;  // FNV-1a over the characters' code points
    for (int32_t i = 0; i < length; ++i) {
        hash ^= static_cast<uint32_t>(text[i]);
        hash *= 16777619u;
    }
    return hash;
}

bool CMarkupScan::SameName(const Closing& closing, tagREFString name) const {
    if (closing.length != name.length) return false;
    for (int32_t i = 0; i < name.length; ++i)
        if (m_Text.text[closing.name + i] != name.text[i]) return false;
    return true;
}

int32_t CMarkupScan::FindClosing(tagREFString name, int32_t from) {
    const wchar_t* t = m_Text.text;
    const int32_t n = m_Text.length;
    if (m_Buckets == nullptr) {
        if (!m_Unindexed) return -1;  // the text holds no closing tag
        for (int32_t c = from; c + name.length + 2 < n; ++c) {
            if (t[c] != L'<' || t[c + 1] != L'/' || t[c + 2 + name.length] != L'>') continue;
            int32_t i = 0;
            while (i < name.length && t[c + 2 + i] == name.text[i]) ++i;
            if (i == name.length) return c;
        }
        return -1;
    }
    int32_t& head = m_Buckets[Hash(name.text, name.length) & m_Mask];
    while (head >= 0 && m_Closings[head].position < from) head = m_Closings[head].next;
    for (int32_t k = head; k >= 0; k = m_Closings[k].next)
        if (SameName(m_Closings[k], name)) return m_Closings[k].position;
    return -1;
}

// Where the content of the first "<" name at or after `from` begins (after the first ">" that
// follows it). Left to us: when there is none, or no ">" after it, or the name itself begins
// with "/" (whose "<" name is a closing tag), the tag found stands for the element and its
// content begins at `fallback`. The searches of one scan look at most at about twice the text's
// characters, so that a text full of such tags still costs linear time; past that budget the
// tag found stands for the element as well.
int32_t CMarkupScan::ElementAfter(tagREFString name, int32_t from, int32_t fallback) {
    const wchar_t* t = m_Text.text;
    const int32_t n = m_Text.length;
    if (name.length == 0 || name.text[0] == L'/') return fallback;
    for (int32_t c = from; c + name.length < n && m_SearchBudget > 0; ++c, --m_SearchBudget) {
        if (t[c] != L'<') continue;
        int32_t i = 0;
        while (i < name.length && t[c + 1 + i] == name.text[i]) ++i;
        m_SearchBudget -= i;
        if (i < name.length) continue;
        // A ">" looked for in vain is not looked for again from any later place.
        for (int32_t gt = c + 1 + name.length; gt < n && gt < m_NoCloseFrom; ++gt)
            if (t[gt] == L'>') return gt + 1;
        if (c + 1 + name.length < m_NoCloseFrom) m_NoCloseFrom = c + 1 + name.length;
        return fallback;
    }
    return fallback;
}

bool CMarkupScan::Next(tagREFString* tag, tagREFString* content) {
    const wchar_t* t = m_Text.text;
    const int32_t n = m_Text.length;
    int32_t open = m_Position;
    while (open < n && (t[open] != L'<' || (open + 1 < n && t[open + 1] == L'/'))) ++open;
    int32_t close = open + 1;
    while (close < n && t[close] != L'>') ++close;
    if (close >= n) {
        m_Position = n;
        return false;
    }
    int32_t first = open + 1, last = close;
    while (first < last && (std::iswspace(t[first]) || std::iswcntrl(t[first]))) ++first;
    while (last > first && (t[last - 1] < 0x21 || t[last - 1] == 0x7F)) --last;
    int32_t nameEnd = first;
    while (nameEnd < last && t[nameEnd] != L' ' && t[nameEnd] != L'\r') ++nameEnd;
    const tagREFString name{nameEnd - first, t + first};
    // The element is the first "<" name from here on: the tag just found, unless blanks stand
    // between its "<" and its name; then it is looked for further on.
    int32_t begin = close + 1;
    if (first > open + 1) begin = ElementAfter(name, open + 1, begin);
    const int32_t end = FindClosing(name, begin);
    *tag = tagREFString{last - first, t + first};
    if (end >= 0) {
        *content = tagREFString{end - begin, t + begin};
        m_Position = end + name.length + 3;
    } else {
        *content = tagREFString{0, t + begin};
        m_Position = begin;
    }
    return true;
}
