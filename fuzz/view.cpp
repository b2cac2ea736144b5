// The view's cutting operations and the conversions between text and numbers, on wide text made
// from the input.
//
// Input format: the first byte chooses the number base (bits 0-1: 10, 16, 8, 2) and the precision
// of number formatting (bits 2-5, minus 4: -4 to 11). The rest is wide text, one character per
// byte (0x00-0xFE as that code point), except that 0xFF takes the next four bytes, little-endian,
// as one raw wchar_t of any value. The text splits at its first U+0000 into the subject and the
// argument: the needle, the separator set, the text compared with; its first character is the
// separator of the line operations (else '.'). The subject and the argument each live in a buffer
// of their exact size, so a read past either end is caught.
//
// Every cut must leave the view and its out views inside the subject with lengths of zero or more;
// searches must agree with a plain search of the same text; an integer read from text and written
// back must read the same.
#include <limits.h>
#include <unistd.h>

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "fuzz/Arguments.h"
#include "text/Conversions.h"

namespace {

struct Text {
    std::unique_ptr<wchar_t[]> chars;
    int32_t length = 0;
    CREFString View() const { return CREFString(chars.get(), length); }
};

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "fuzz_view: %s\n", what);
    std::abort();
}

void Check(bool holds, const char* what) {
    if (!holds) Fail(what);
}

// Decodes `bytes` as described above into the subject and the argument.
void Decode(const uint8_t* bytes, size_t size, Text& subject, Text& argument) {
    std::unique_ptr<wchar_t[]> all(new wchar_t[size]);
    int32_t n = 0;
    for (size_t i = 0; i < size; ++i) {
        if (bytes[i] != 0xFF) {
            all[n++] = static_cast<wchar_t>(bytes[i]);
        } else if (i + 4 < size) {
            uint32_t raw = 0;
            for (int k = 4; k >= 1; --k) raw = raw << 8 | bytes[i + k];
            all[n++] = static_cast<wchar_t>(raw);
            i += 4;
        }
    }
    int32_t split = 0;
    while (split < n && all[split] != L'\0') ++split;
    const int32_t rest = split < n ? n - split - 1 : 0;
    subject.chars.reset(new wchar_t[split]);
    subject.length = split;
    std::memcpy(subject.chars.get(), all.get(), sizeof(wchar_t) * split);
    argument.chars.reset(new wchar_t[rest]);
    argument.length = rest;
    if (rest > 0) std::memcpy(argument.chars.get(), all.get() + split + 1, sizeof(wchar_t) * rest);
}

// A view or out view lies inside `within`, or is the null/empty view an operation may leave.
bool Inside(const tagREFString& view, const Text& within) {
    if (view.length < 0) return false;
    if (view.length == 0) return true;
    const wchar_t* begin = within.chars.get();
    return view.text >= begin && view.text + view.length <= begin + within.length;
}

// Runs one cutting operation on a fresh view of `subject` and checks where the pieces lie. An out
// view the operation leaves untouched keeps its start on the subject, so the check still holds.
template <class Cut>
HRESULT CheckCut(const Text& subject, Cut&& cut) {
    CREFString view = subject.View();
    tagREFString first{0, subject.chars.get()}, second{0, subject.chars.get()};
    const HRESULT hr = cut(view, &first, &second);
    Check(Inside(view, subject), "the view left the text it cuts");
    Check(Inside(first, subject) && Inside(second, subject), "a cut piece lies outside the text");
    return hr;
}

// The line operations answer 0, 1 (used up) or E_FAIL, nothing else.
void CheckResult(HRESULT hr) { Check(hr == S_OK || hr == 1 || hr == E_FAIL, "a cut answered an unknown result"); }

void CuttingOperations(const Text& subject, const Text& argument) {
    using Out = tagREFString*;
    const wchar_t separator = argument.length > 0 ? argument.chars[0] : L'.';
    const tagREFString arg = argument.View();
    for (int flags = 0; flags < 8; ++flags) {
        const bool a = flags & 1, b = flags & 2, c = flags & 4;
        CheckResult(CheckCut(subject, [&](CREFString& v, Out o, Out) { return v.GetLine(o, a, separator, b); }));
        CheckResult(CheckCut(subject, [&](CREFString& v, Out o, Out) { return v.GetLineCRLF(o, a, b); }));
        CheckResult(CheckCut(subject, [&](CREFString& v, Out o, Out) { return v.GetReverseLine(o, separator, a, b); }));
        CheckResult(
            CheckCut(subject, [&](CREFString& v, Out o, Out) { return v.GetLineRight(o, separator, a, b, c); }));
        CheckResult(CheckCut(subject, [&](CREFString& v, Out o, Out) { return v.Crop(o, separator, a, b); }));
        if (b || c) continue;
        CheckResult(CheckCut(subject, [&](CREFString& v, Out, Out) { return v.TrimLeft(a); }));
        CheckResult(CheckCut(subject, [&](CREFString& v, Out o, Out) { return v.GetFirstWord(o, a); }));

        // The searches against a plain search of the same text.
        const std::wstring_view text(subject.chars.get(), subject.length), set(argument.chars.get(), argument.length);
        const size_t stop = text.find_first_of(set);
        const HRESULT word = CheckCut(subject, [&](CREFString& v, Out o, Out) { return v.GetWord(o, a, arg); });
        Check(subject.length == 0 ? word == E_FAIL : word == (stop == std::wstring_view::npos ? 0 : HRESULT(stop + 1)),
              "GetWord disagrees with a plain search");
        Check(subject.View().ContainsChar(arg) == (stop == std::wstring_view::npos ? E_FAIL : HRESULT(stop)),
              "ContainsChar disagrees with a plain search");
        const size_t found = argument.length == 0 ? std::wstring_view::npos : text.find(set);
        Check(subject.View().Contains(arg) == (found == std::wstring_view::npos ? E_FAIL : HRESULT(found)),
              "Contains disagrees with a plain search");
        // Split stops at the first character of the set, or below 32 with stopAtControl; an empty
        // set never splits.
        size_t splitAt = std::wstring_view::npos;
        for (size_t i = 0; i < text.size() && !set.empty(); ++i)
            if (set.find(text[i]) != std::wstring_view::npos || (a && static_cast<uint32_t>(text[i]) < 32)) {
                splitAt = i;
                break;
            }
        tagREFString left{0, nullptr}, right{0, nullptr};
        const HRESULT split = CheckCut(subject, [&](CREFString& v, Out l, Out r) {
            const HRESULT hr = v.Split(l, r, argument.View(), a);
            left = *l, right = *r;
            return hr;
        });
        if (splitAt == std::wstring_view::npos)
            Check(split == E_FAIL && left.length == subject.length, "Split found a separator that is not there");
        else
            Check(split == S_OK && left.length == HRESULT(splitAt) && left.length + right.length == subject.length,
                  "Split did not stop at the first separator");
    }

    // Cutting token after token ends, and every token it takes is a real piece of the text.
    for (int advance = 0; advance < 2; ++advance) {
        CREFString view = subject.View();
        for (int32_t steps = 0; view.length > 0; ++steps) {
            Check(steps <= subject.length, "a run of cuts made no progress");
            tagREFString line{0, nullptr};
            const int32_t before = view.length;
            const HRESULT hr = advance ? view.GetLineCRLF(&line, true, true) : view.GetFirstWord(&line, true);
            Check(Inside(view, subject) && Inside(line, subject), "a token lies outside the text");
            if (hr < 0) break;
            Check(view.length < before, "a cut that succeeded took nothing");
        }
    }

    // A text equals itself and the comparison is symmetric.
    const CREFString self = subject.View(), other = argument.View();
    if (subject.length > 0) Check(subject.View().CompareI(self, 0) == S_OK, "a text differs from itself");
    Check((subject.View().CompareI(other, 0) >= 0) == (argument.View().CompareI(self, 0) >= 0),
          "CompareI is not symmetric");
    subject.View().CompareI(other, 1);
}

template <class I>
void Drop(I* made) {
    SmartPtr<I> held(made);
}

// Text of a string made by the module's factories; fails when the factory made nothing.
std::wstring_view Held(const SmartPtr<IString>& string) {
    Check(static_cast<bool>(string), "a string factory made nothing");
    wchar_t* text = nullptr;
    int32_t length = 0;
    Check(string->GetText(&text, &length) >= 0 && length >= 0 && (length == 0 || text != nullptr),
          "a made string has no readable text");
    return std::wstring_view(text, static_cast<size_t>(length));
}

void Conversions(const uint8_t* bytes, size_t size, const Text& subject, int base, short precision) {
    _IS2Integer(subject.View(), base);
    const double real = _IS2Double(subject.View());
    Drop(ISCreate(real));
    SmartPtr<IVariant> made(IVCreate(real));
    Drop(ISCreate(made.get(), precision));
    Drop(ISCreate(made.get(), -1));

    CREFString view = subject.View();
    SmartPtr<IVariant> converted(IVCreateConvert(view));
    Check(static_cast<bool>(converted), "IVCreateConvert made nothing");
    Check(Inside(view, subject), "IVCreateConvert left the view outside the text");
    SmartPtr<IString> written(ISCreate(converted.get(), -1));
    Drop(ISCreate(converted.get(), precision));
    if (converted->get_NumberType() == 1) {
        const std::wstring_view text = Held(written);
        const int32_t number = converted->get_Integer();
        Check(_IS2Integer(CREFString(text.data(), static_cast<int32_t>(text.size())), 10) == number,
              "an integer written as text reads back differently");
        Drop(ISCreateHex(number));
        Drop(ISCreate(static_cast<int>(number)));
    } else if (!converted->get_NumberType()) {
        Check(Held(written).size() == static_cast<size_t>(view.length),
              "a text turned into a string of another length");
    }

    SmartPtr<IString> decoded(ISCreate(reinterpret_cast<const char*>(bytes), static_cast<int>(size)));
    Check(Held(decoded).size() <= size, "decoding made more characters than there were bytes");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    FUZZAbsolutePaths(argc, argv);
    // The module's string and variant factories load ./CollectionsEx.so from the current directory:
    // move beside it, into the program's folder.
    char path[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    char* slash = n > 0 ? (path[n] = '\0', std::strrchr(path, '/')) : nullptr;
    if (slash == nullptr) Fail("cannot find the program's folder");
    *slash = '\0';
    if (chdir(path[0] ? path : "/") != 0) Fail("cannot move into the program's folder");
    if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) std::setlocale(LC_ALL, "");
    // Loads the host's collections now, so that the fuzzer sees their code from the first input.
    SmartPtr<IString> probe(ISCreate(L""));
    if (!probe) Fail("./CollectionsEx.so could not be loaded");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    static const int kBases[] = {10, 16, 8, 2};
    const int base = kBases[data[0] & 3];
    const short precision = static_cast<short>(((data[0] >> 2) & 15) - 4);
    Text subject, argument;
    Decode(data + 1, size - 1, subject, argument);
    CuttingOperations(subject, argument);
    Conversions(data + 1, size - 1, subject, base, precision);
    return 0;
}
