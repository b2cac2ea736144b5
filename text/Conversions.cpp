#include "text/Conversions.h"

#include <cctype>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cwchar>
#include <cwctype>

namespace {
constexpr int kBufferLength = 256;
constexpr wchar_t kReplacement = 0xFFFD;

// The fractional part of a non-negative value, without libm: the module links libc only. From
// 2^53 on every double is whole; NaN and infinities have no fraction either. Below that bound the
// conversion to a 64-bit integer is always in range.
double FractionOf(double a) {
    if (!(a < 9007199254740992.0)) return 0.0;
    return a - static_cast<double>(static_cast<uint64_t>(a));
}

// The text is set even when it is empty; a null buffer makes an empty string that is never set.
IString* StringFromBuffer(const wchar_t* buffer, int count) {
    IString* made = CREFString::CreateString();
    if (made != nullptr && buffer != nullptr) made->SetText(count > 0 ? count : 0, buffer);
    return made;
}

IString* Format(const wchar_t* format, ...) {
    wchar_t buffer[kBufferLength];
    va_list args;
    va_start(args, format);
    int count = std::vswprintf(buffer, kBufferLength, format, args);
    va_end(args);
    return StringFromBuffer(buffer, count < 0 ? 0 : count);
}

// "%.Nf" or "%.Ne" of the value with N decimals; negative when the text does not fit the buffer.
int FormatReal(wchar_t (&buffer)[kBufferLength], double value, int decimals, wchar_t notation) {
    wchar_t format[16];
    _swprintf(format, 16, L"%%.%d%lc", decimals, static_cast<wint_t>(notation));
    return _swprintf(buffer, kBufferLength, format, value);
}

// Reals print in fixed point whenever that text fits the buffer. Beyond it (from about 1e248
// with six decimals) they print in exponent notation with the same count of decimals rather than
// be cut or lost: 1e300 with six decimals is "1.000000e+300". NaN and infinities always fit and
// print as libc writes them: "nan", "-nan", "inf", "-inf". So many decimals that even the exponent
// form does not fit still give empty text.
IString* StringOfReal(double value, int decimals) {
    wchar_t buffer[kBufferLength];
    int count = FormatReal(buffer, value, decimals, L'f');
    if (count < 0) count = FormatReal(buffer, value, decimals, L'e');
    return StringFromBuffer(buffer, count < 0 ? 0 : count);
}

// The fewest decimals, at most 9, that show the value: the fractional part of |value| x 10^N is
// checked for N = 0, 1, ... against a tolerance of 1e-8. A value too large for its fixed-point text
// prints in exponent notation with the fewest mantissa decimals, at most 9, that show it: the
// mantissa is rounded to 9 decimals and its trailing zeros dropped, so -2.5e300 prints as
// "-2.5e+300" and 1e300 as "1e+300".
IString* StringOfRealShortest(double value) {
    const double a = value < 0 ? -value : value;
    // Each power of ten is exact, and |value| is multiplied by it once: multiplying by 10 step by
    // step would add a rounding per step, and 0.47 would then print with 9 decimals, not 2.
    static constexpr double kPowers[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
    int decimals = 0;
    while (decimals < 9 && FractionOf(a * kPowers[decimals]) >= 1e-8) ++decimals;
    wchar_t buffer[kBufferLength];
    int count = FormatReal(buffer, value, decimals, L'f');
    if (count >= 0) return StringFromBuffer(buffer, count);
    count = FormatReal(buffer, value, 9, L'e');
    if (count < 0) return StringFromBuffer(buffer, 0);
    const wchar_t* e = std::wcschr(buffer, L'e');
    if (e == nullptr) return StringFromBuffer(buffer, count);
    const int exponent = static_cast<int>(e - buffer);
    int end = exponent;
    while (end > 1 && buffer[end - 1] == L'0') --end;
    if (buffer[end - 1] < L'0' || buffer[end - 1] > L'9') --end;  // the decimal point
    std::wmemmove(buffer + end, buffer + exponent, static_cast<size_t>(count - exponent));
    return StringFromBuffer(buffer, count - (exponent - end));
}

int DigitValue(wchar_t c, int base) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (base >= 11 && base <= 16) {
        const int upper = (c >= 0 && c <= 255) ? std::toupper(static_cast<int>(c)) : static_cast<int>(c);
        if (upper >= 'A' && upper <= 'F') return upper - 'A' + 10;
    }
    return -1;
}
}  // namespace

int _swprintf(wchar_t* buffer, size_t capacity, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    const int count = std::vswprintf(buffer, capacity, format, args);
    va_end(args);
    if (count >= 0 && static_cast<size_t>(count) < capacity) buffer[count] = L'\0';
    return count;
}

IString* ISCreate(const wchar_t* text) {
    const size_t length = text ? std::wcslen(text) : 0;
    return StringFromBuffer(text, length <= INT32_MAX ? static_cast<int>(length) : INT32_MAX);
}

// A view is always set, an empty or null one as the empty text.
IString* ISCreate(const tagREFString& view) {
    return StringFromBuffer(view.text != nullptr ? view.text : L"", view.text != nullptr ? view.length : 0);
}

// A byte at which decoding fails (also an incomplete character) is appended as U+FFFD; decoding
// goes on at the next byte. The shift state is this call's own, never libc's hidden one, so
// conversions on several threads cannot disturb each other.
IString* ISCreate(const char* bytes, int count) {
    IString* made = CREFString::CreateString();
    if (made == nullptr || bytes == nullptr) return made;
    std::mbstate_t state{};
    int p = 0;
    while (p < count) {
        wchar_t c = 0;
        const size_t used = std::mbrtowc(&c, bytes + p, static_cast<size_t>(count - p), &state);
        const bool failed = used == static_cast<size_t>(-1) || used == static_cast<size_t>(-2);
        if (failed) {
            c = kReplacement;
            state = std::mbstate_t{};  // undefined after an error: start over at the next byte
        }
        made->AppendText(1, &c);
        p += failed || used == 0 ? 1 : static_cast<int>(used);
    }
    return made;
}

IString* ISCreate(int value) { return Format(L"%i", value); }

IString* ISCreate(double value) { return StringOfReal(value, 6); }  // "%f", or "%e" when too long

IString* ISCreate(IVariant* value, short precision) {
    if (value == nullptr) return nullptr;
    if (value->IsString()) {
        IString* text = nullptr;
        value->get_String(&text);
        return text;
    }
    const int16_t type = value->get_NumberType();
    if (type == 0) return nullptr;
    if (type == 1 || precision == 0) return Format(L"%d", value->get_Integer());
    const double real = value->get_Double();
    if (precision > 0) return StringOfReal(real, precision);
    return StringOfRealShortest(real);
}

IString* ISCreateHex(int value) { return Format(value <= 0xFFFFFF ? L"#%06X" : L"#%X", value); }

IVariant* IVCreate(int value) {
    IVariant* made = CREFString::CreateVariant();
    if (made) made->put_Integer(value);
    return made;
}

IVariant* IVCreate(double value) {
    IVariant* made = CREFString::CreateVariant();
    if (made) made->put_Double(value);
    return made;
}

IVariant* IVCreate(IString* value) {
    IVariant* made = CREFString::CreateVariant();
    if (made) made->put_String(value);
    return made;
}

int _IS2Integer(CREFString text, int base) {
    if (text.length <= 0) return 0;
    int32_t i = 0;
    bool negative = false;
    if (text.text[0] == L'-') negative = true, i = 1;
    else if (text.text[0] == L'+') i = 1;
    else if (text.text[0] == L'#') base = 16, i = 1;
    uint32_t value = 0;  // unsigned: wraps on overflow as 32-bit arithmetic does
    for (; i < text.length; ++i) {
        const int digit = DigitValue(text.text[i], base);
        if (digit < 0) break;
        value = value * static_cast<uint32_t>(base) + static_cast<uint32_t>(digit);
    }
    if (negative) value = 0u - value;
    // The two's-complement reading of the 32 bits, without an out-of-range conversion.
    return value <= INT32_MAX ? static_cast<int>(value) : -static_cast<int>(~value) - 1;
}

double _IS2Double(CREFString text) {
    if (text.length <= 0) return 0.0;
    if (text.text[0] == L'#') {
        // Hexadecimal digits only: a sign or a second "#" after the first is not read as one.
        if (text.length < 2 || DigitValue(text.text[1], 16) < 0) return 0.0;
        return static_cast<double>(_IS2Integer(CREFString(text.text + 1, text.length - 1), 16));
    }
    int32_t i = 0;
    bool negative = false;
    if (text.text[0] == L'-') negative = true, i = 1;
    else if (text.text[0] == L'+') i = 1;
    // The integer part is collected modulo 2^64 and read as a signed 64-bit number, so
    // 99999999999999999999.5 reads as 7766279631452241920 and 10000000000000000000 as
    // -8446744073709551616. Fraction digits are read while the divisor is at most
    // 999999999999999999, which is 18 of them; the divisor then stays within 64 bits.
    uint64_t whole = 0;
    uint64_t fraction = 0;
    uint64_t divisor = 1;
    bool inFraction = false;
    for (; i < text.length; ++i) {
        const wchar_t c = text.text[i];
        if (c == L'.') {
            if (inFraction) break;
            inFraction = true;
            continue;
        }
        if (c < L'0' || c > L'9') break;
        const uint64_t digit = static_cast<uint64_t>(c - L'0');
        if (!inFraction) {
            whole = whole * 10u + digit;
            continue;
        }
        if (divisor > 999999999999999999u) break;
        divisor *= 10u;
        fraction = fraction * 10u + digit;
    }
    const double signedWhole =
        whole <= INT64_MAX ? static_cast<double>(whole) : -static_cast<double>(0u - whole);
    const double value = signedWhole + static_cast<double>(fraction) / static_cast<double>(divisor);
    return negative ? -value : value;
}

IVariant* IVCreateConvert(CREFString& text) {
    while (text.length > 0 && (std::iswspace(text.text[0]) || std::iswcntrl(text.text[0]))) {
        ++text.text;
        --text.length;
    }
    enum { kInteger, kReal, kText } kind = kInteger;
    if (text.length == 0) {
        kind = kText;
    } else {
        int32_t i = text.text[0] == L'-' ? 1 : 0;
        int digits = 0;
        bool dot = false;
        for (; i < text.length; ++i) {
            const wchar_t c = text.text[i];
            if (c >= L'0' && c <= L'9') {
                ++digits;
            } else if (c == L'.') {
                if (dot) { kind = kText; break; }
                dot = true;
            } else if (std::iswspace(c)) {
                if (digits == 0) kind = kText;
                break;
            } else {
                kind = kText;
                break;
            }
        }
        if (kind != kText && dot) kind = kReal;
        if (kind == kInteger && text.length > 9) kind = kText;
    }
    if (kind == kReal) return IVCreate(_IS2Double(text));
    if (kind == kInteger) return IVCreate(_IS2Integer(text, 10));
    SmartPtr<IString> string(ISCreate(static_cast<const tagREFString&>(text)));
    IVariant* made = CREFString::CreateVariant();
    if (made && string) made->put_String(string.get());
    return made;
}
