#include "host/collections/Utf8.h"

#include <cstdint>

namespace {

// The code point at `utf8[i]`, advancing `i`; -1 (and one byte consumed) when it does not decode.
int32_t Next(std::string_view utf8, size_t& i) {
    const uint8_t lead = static_cast<uint8_t>(utf8[i++]);
    if (lead < 0x80) return lead;
    int extra;
    uint32_t code, least;
    if (lead >= 0xC2 && lead <= 0xDF) extra = 1, code = lead & 0x1F, least = 0x80;
    else if (lead >= 0xE0 && lead <= 0xEF) extra = 2, code = lead & 0x0F, least = 0x800;
    else if (lead >= 0xF0 && lead <= 0xF4) extra = 3, code = lead & 0x07, least = 0x10000;
    else return -1;
    size_t at = i;
    for (int k = 0; k < extra; ++k, ++at) {
        if (at >= utf8.size() || (static_cast<uint8_t>(utf8[at]) & 0xC0) != 0x80) return -1;
        code = (code << 6) | (static_cast<uint8_t>(utf8[at]) & 0x3F);
    }
    if (code < least || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return -1;
    i = at;
    return static_cast<int32_t>(code);
}

}  // namespace

size_t HOSTFindBadUtf8(std::string_view utf8) {
    for (size_t i = 0; i < utf8.size();) {
        const size_t at = i;
        if (Next(utf8, i) < 0) return at;
    }
    return std::string_view::npos;
}

bool HOSTDecodeUtf8(std::string_view utf8, std::wstring& out) {
    out.clear();
    out.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size();) {
        const int32_t code = Next(utf8, i);
        if (code < 0) return false;
        out += static_cast<wchar_t>(code);
    }
    return true;
}

std::wstring HOSTWidenUtf8(std::string_view utf8) {
    std::wstring out;
    out.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size();) {
        const int32_t code = Next(utf8, i);
        out += code < 0 ? L'\xFFFD' : static_cast<wchar_t>(code);
    }
    return out;
}

namespace {

bool IsCodePoint(uint32_t code) { return code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF); }

void Append(uint32_t code, std::string& out) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

}  // namespace

bool HOSTEncodeUtf8(std::wstring_view text, std::string& out) {
    out.clear();
    out.reserve(text.size());
    for (wchar_t c : text) {
        if (!IsCodePoint(static_cast<uint32_t>(c))) return false;
        Append(static_cast<uint32_t>(c), out);
    }
    return true;
}

std::string HOSTNarrowUtf8(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    for (wchar_t c : text) Append(IsCodePoint(static_cast<uint32_t>(c)) ? static_cast<uint32_t>(c) : 0xFFFD, out);
    return out;
}
