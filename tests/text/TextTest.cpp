// The text view's cutting operations, and numbers to text and text to numbers with real host
// strings and variants made through the module's factories; table-driven.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "text/Conversions.h"
#include "text/RefString.h"

namespace {

std::wstring Str(const tagREFString& view) { return std::wstring(view.text ? view.text : L"", view.length); }

std::wstring Take(IString* string) {
    SmartPtr<IString> held(string);
    wchar_t* text = nullptr;
    int32_t length = 0;
    if (!held || held->GetText(&text, &length) < 0) return L"<null>";
    return std::wstring(text, length);
}

using Op = std::function<HRESULT(CREFString&, tagREFString*)>;
Op GetLine(bool advance, bool drop) { return [=](CREFString& v, tagREFString* o) { return v.GetLine(o, advance, L'=', drop); }; }
Op GetLineCRLF(bool drop, bool advance) { return [=](CREFString& v, tagREFString* o) { return v.GetLineCRLF(o, drop, advance); }; }
Op GetReverseLine(bool skip) { return [=](CREFString& v, tagREFString* o) { return v.GetReverseLine(o, L'/', true, skip); }; }
Op GetLineRight(bool skip, bool whole) { return [=](CREFString& v, tagREFString* o) { return v.GetLineRight(o, L'.', true, skip, whole); }; }
Op Crop() { return [](CREFString& v, tagREFString* o) { return v.Crop(o, L'.', true, true); }; }
Op GetWord() { return [](CREFString& v, tagREFString* o) { return v.GetWord(o, true, tagREFString{1, L" "}); }; }
Op GetFirstWord() { return [](CREFString& v, tagREFString* o) { return v.GetFirstWord(o, true); }; }
Op TrimLeft(bool punctuation) { return [=](CREFString& v, tagREFString*) { return v.TrimLeft(punctuation); }; }

TEST(RefString, CuttingOperations) {
    const struct {
        const wchar_t* input;
        Op op;
        const wchar_t* out;   // expected out view, or null when it must be left untouched
        const wchar_t* rest;  // expected view afterwards
        HRESULT result;
    } rows[] = {
        {L"Width=10", GetLine(true, true), L"Width", L"10", 0},  {L"Width", GetLine(true, true), L"Width", L"", 1},
        {L"a=", GetLine(false, false), L"a=", L"a=", E_FAIL},   {L"a=b", GetLine(false, false), L"a=", L"a=b", 0},
        {L"", GetLine(true, true), L"", L"", E_FAIL},
        {L"ab\r\ncd", GetLineCRLF(true, true), L"ab", L"cd", 0}, {L"ab\r\ncd", GetLineCRLF(false, true), L"ab\r\n", L"cd", 0},
        {L"ab\n\ncd", GetLineCRLF(true, true), L"ab", L"\ncd", 0}, {L"ab\n\r", GetLineCRLF(true, true), L"ab", L"", 1},
        {L"ab", GetLineCRLF(true, false), L"ab", L"ab", 0},
        {L"a/b/c", GetReverseLine(true), L"a/b", L"c", 0},     {L"a/b/c", GetReverseLine(false), L"a/b", L"/c", 0},
        {L"/c", GetReverseLine(true), L"", L"/c", E_FAIL},      {L"abc", GetReverseLine(true), L"", L"abc", E_FAIL},
        {L"Obj.Sub.Name", GetLineRight(true, false), L"Name", L"Obj.Sub", 0},
        {L"Obj.Sub.Name", GetLineRight(false, false), L".Name", L"Obj.Sub.", 0},
        {L"Name", GetLineRight(true, false), L"", L"Name", E_FAIL}, {L"Name", GetLineRight(true, true), L"Name", L"", 0},
        {L"a.b", Crop(), L"b", L"a", 0},                        {L"ab", Crop(), L"", L"ab", E_FAIL},
        // GetWord: the position of the separator counted from 1, or 0 when there is none.
        {L"abc def", GetWord(), L"abc", L" def", 4},            {L"abc", GetWord(), L"abc", L"", 0},
        // GetFirstWord: a name, a number (an exponent only after a fraction), punctuation, a quote.
        {L"Width=10", GetFirstWord(), L"Width", L"=10", 0},     {L"-12.5e+3x", GetFirstWord(), L"-12.5e+3", L"x", 0},
        {L"1e+5", GetFirstWord(), L"1", L"e+5", 0},             {L"1.5e5", GetFirstWord(), L"1.5", L"e5", 0},
        {L"12.x", GetFirstWord(), L"12", L".x", 0},             {L"=10", GetFirstWord(), L"=", L"10", 0},
        {L"my_name x", GetFirstWord(), L"my_name", L" x", 0},   {L"\"a b\" c", GetFirstWord(), L"a b", L"\" c", 0},
        {L"\"open", GetFirstWord(), L"\"open", L"", 0},        {L"\"\"x", GetFirstWord(), L"", L"\"x", 0},
        {L" x", GetFirstWord(), nullptr, L" x", E_FAIL},        {L"-x", GetFirstWord(), nullptr, L"-x", E_FAIL},
        // TrimLeft: 1 when it dropped blanks and control characters (and punctuation when asked).
        {L"  \x01;x", TrimLeft(false), nullptr, L";x", 1},       {L";x", TrimLeft(false), nullptr, L";x", 0},
        {L";x", TrimLeft(true), nullptr, L"x", 1},
    };
    for (const auto& row : rows) {
        CREFString view(row.input);
        tagREFString out{-7, L"untouched"};
        EXPECT_EQ(row.op(view, &out), row.result) << row.input;
        EXPECT_EQ(Str(view), row.rest) << row.input;
        if (row.out) EXPECT_EQ(Str(out), row.out) << row.input;
        else EXPECT_EQ(out.length, -7) << row.input << ": the out view is left untouched";
    }
}

TEST(RefString, SplitLeavesTheViewAndKeepsTheSeparatorOnTheRight) {
    CREFString view(L"abc:d\te");
    tagREFString left{}, right{};
    EXPECT_EQ(view.Split(&left, &right, CREFString(L":"), 0), S_OK);
    EXPECT_EQ(Str(left) + L"|" + Str(right) + L"|" + Str(view), L"abc|:d\te|abc:d\te");
    EXPECT_EQ(view.Split(&left, &right, CREFString(L";"), 1), S_OK);
    EXPECT_EQ(Str(left), L"abc:d") << "stops at a control character";
    EXPECT_EQ(view.Split(&left, &right, CREFString(), 1), E_FAIL) << "an empty set matches nothing";
    EXPECT_EQ(Str(left), L"abc:d\te");
    EXPECT_EQ(right.length, 0);
}

TEST(RefString, SearchAndCompare) {
    const struct {
        const wchar_t* view;
        const wchar_t* other;
        HRESULT contains, containsChar, compare, prefix;
    } rows[] = {
        {L"xxab", L"ab", 2, 2, E_FAIL, E_FAIL},               {L"ab", L"ab", 0, 0, 0, 0},
        {L"aaab", L"aab", 1, 0, E_FAIL, E_FAIL},              {L"results", L"ResultsView", E_FAIL, 1, 1, E_FAIL},
        {L"ResultsView", L"results", E_FAIL, 1, 1, 1},        {L"RESULTSVIEW", L"ResultsView", E_FAIL, 0, 0, 0},
        {L"abc", L"", E_FAIL, E_FAIL, E_FAIL, E_FAIL},        {L"", L"abc", E_FAIL, E_FAIL, E_FAIL, E_FAIL},
    };
    for (const auto& row : rows) {
        CREFString view(row.view);
        const CREFString other(row.other);
        EXPECT_EQ((std::vector<HRESULT>{view.Contains(other), view.ContainsChar(other), view.CompareI(other, 0), view.CompareI(other, 1)}),
                  (std::vector<HRESULT>{row.contains, row.containsChar, row.compare, row.prefix})) << row.view << " / " << row.other;
    }
}

TEST(RefString, ValueLayoutAndVirtualOrder) {
    // (virtual-table pointer, length, text); GetLine is the first virtual slot, ContainsChar the tenth.
    EXPECT_EQ(sizeof(CREFString), 3 * sizeof(void*));
    CREFString view(L"k=v");
    void** slots = *reinterpret_cast<void***>(&view);
    tagREFString line{};
    EXPECT_EQ(reinterpret_cast<HRESULT (*)(CREFString*, tagREFString*, bool, wchar_t, bool)>(slots[0])(&view, &line, true, L'=', true), S_OK);
    EXPECT_EQ(Str(line), L"k");
    EXPECT_EQ(reinterpret_cast<HRESULT (*)(CREFString*, tagREFString)>(slots[9])(&view, tagREFString{1, L"v"}), 0);
}

// A variant as "int N", "real N" or "text T".
std::wstring Describe(IVariant* value) {
    if (value->IsString()) {
        IString* text = nullptr;
        value->get_String(&text);
        return L"text " + Take(text);
    }
    if (value->get_NumberType() == 1) return L"int " + std::to_wstring(value->get_Integer());
    return L"real " + Take(ISCreate(value, -1));
}

TEST(Conversions, TextToInteger) {
    const struct { const wchar_t* text; int base; int value; } rows[] = {
        {L"-42", 10, -42},        {L"12abc", 10, 12},         {L"ff", 16, 255},
        {L"ff", 10, 0},           {L"+7", 10, 7},             {L"4294967297", 10, 1},
        {L"2147483648", 10, INT32_MIN}, {L"#FFFFFFFF", 10, -1}, {L"-2147483649", 10, INT32_MAX},
    };
    for (const auto& row : rows) EXPECT_EQ(_IS2Integer(CREFString(row.text), row.base), row.value) << row.text;
}

// The integer part wraps modulo 2^64 and reads as a signed 64-bit number.
TEST(Conversions, TextToReal) {
    const struct { const wchar_t* text; double value; } rows[] = {
        {L"-3.25", -3.25}, {L"1.5e3", 1.5}, {L"#10", 16.0}, {L"2.5.7", 2.5},
        // After "#" only hexadecimal digits count: no sign, no second "#".
        {L"#-10", 0.0}, {L"#+10", 0.0}, {L"##10", 0.0}, {L"#", 0.0}, {L"#fFfFfFfF", -1.0},
        {L"0.1234567890123456789999", 0.123456789012345678},        {L"18446744073709551616.25", 0.25},
        {L"99999999999999999999.5", 7766279631452241920.0},         {L"-99999999999999999999.5", -7766279631452241920.0},
        {L"10000000000000000000", -8446744073709551616.0},          {L"9223372036854775807", 9223372036854775807.0},
        // 18 fraction digits are read, the 19th is not.
        {L"0.000000000000000009", 9e-18},                           {L"-0.0000000000000000019", -1e-18},
    };
    for (const auto& row : rows) EXPECT_DOUBLE_EQ(_IS2Double(CREFString(row.text)), row.value) << row.text;
    const double negativeZero = _IS2Double(CREFString(L"-"));
    EXPECT_EQ(negativeZero, 0.0);
    EXPECT_TRUE(std::signbit(negativeZero));
}

// An integer of at most 9 characters, a real with one ".", else text; leading blanks are cut off
// the view, a blank after digits ends the number.
TEST(Conversions, ClassifyText) {
    const struct { const wchar_t* text; const wchar_t* value; const wchar_t* rest; } rows[] = {
        {L"  42", L"int 42", L"42"},              {L"123456789", L"int 123456789", L"123456789"},
        {L"3.5", L"real 3.5", L"3.5"},            {L"1.2.3", L"text 1.2.3", L"1.2.3"},
        {L"12 apples", L"int 12", L"12 apples"},  {L"12 bananas", L"text 12 bananas", L"12 bananas"},
        {L"-", L"int 0", L"-"},                   {L"+5", L"text +5", L"+5"},
        {L"", L"text ", L""},
    };
    for (const auto& row : rows) {
        CREFString view(row.text);
        SmartPtr<IVariant> value(IVCreateConvert(view));
        ASSERT_TRUE(value) << row.text;
        EXPECT_EQ(Describe(value.get()) + L"|" + Str(view), std::wstring(row.value) + L"|" + row.rest);
    }
}

TEST(Conversions, Formatting) {
    const std::pair<IString*, std::wstring> rows[] = {
        {ISCreate(-7), L"-7"},              {ISCreate(1.5), L"1.500000"},
        {ISCreateHex(255), L"#0000FF"},     {ISCreateHex(0x12345678), L"#12345678"},
        {ISCreateHex(-1), L"#FFFFFFFF"},    {ISCreate(static_cast<const wchar_t*>(nullptr)), L""},
        {ISCreate(CREFString(L"abcdef", 3)), L"abc"},
        {ISCreate("x\0y", 3), std::wstring(L"x\0y", 3)},  // a zero byte becomes a zero character
    };
    for (const auto& [made, text] : rows) EXPECT_EQ(Take(made), text);
    wchar_t buffer[8];
    EXPECT_EQ(_swprintf(buffer, 8, L"%d-%d", 12, 34), 5);
    EXPECT_EQ(std::wstring(buffer), L"12-34");
}

// Reals with the fewest decimals (precision -1) or a given count; in exponent notation where the
// fixed-point text would not fit 255 characters. A row without text expects the fixed-point text
// of exactly 255 characters.
TEST(Conversions, VariantAndRealText) {
    constexpr short kPlain = -2;  // ISCreate(double): six decimals
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const struct { double value; short precision; const wchar_t* text; } rows[] = {
        {2.5, -1, L"2.5"},    {3.0, -1, L"3"},     {1.0 / 3.0, -1, L"0.333333333"}, {-0.25, -1, L"-0.25"},
        // The fraction of |value| x 10^N is that of one product: 0.47 x 100 is 47 exactly, while
        // 0.29 x 100 falls just short of 29 and 0.29 x 1000 is 290.
        {0.47, -1, L"0.47"},  {-0.83, -1, L"-0.83"}, {0.29, -1, L"0.290"},
        {2.5, 2, L"2.50"},    {2.5, 0, L"2"},      {1e20, -1, L"100000000000000000000"},
        {1e300, kPlain, L"1.000000e+300"}, {1e300, -1, L"1e+300"},  {-2.5e300, -1, L"-2.5e+300"},
        {1.2345678912e300, -1, L"1.234567891e+300"}, {1e300, 2, L"1.00e+300"},
        {nan, -1, L"nan"},    {-nan, -1, L"-nan"}, {-inf, -1, L"-inf"},
        // Just under and just over the buffer: 248 and 255 integer digits fit.
        {9e247, kPlain, nullptr}, {1e248, kPlain, L"1.000000e+248"}, {9e254, -1, nullptr}, {2e255, -1, L"2e+255"},
    };
    for (const auto& row : rows) {
        SmartPtr<IVariant> variant(IVCreate(row.value));
        const std::wstring text = Take(row.precision == kPlain ? ISCreate(row.value) : ISCreate(variant.get(), row.precision));
        if (row.text != nullptr) {
            EXPECT_EQ(text, row.text) << row.value;
        } else {
            EXPECT_EQ(text.size(), 255u) << row.value;
            EXPECT_EQ(text.find(L'e'), std::wstring::npos) << text;
        }
    }
    SmartPtr<IVariant> integer(IVCreate(7)), empty(CREFString::CreateVariant());
    SmartPtr<IString> hello(ISCreate(L"hello"));
    SmartPtr<IVariant> text(IVCreate(hello.get()));
    EXPECT_EQ(Take(ISCreate(integer.get(), 2)), L"7");
    EXPECT_EQ(Take(ISCreate(text.get(), -1)), L"hello");
    EXPECT_EQ(ISCreate(empty.get(), -1), nullptr);
    EXPECT_EQ(ISCreate(static_cast<IVariant*>(nullptr), -1), nullptr);
}

// A view of any object that answers IString borrows its text; of anything else it is empty.
TEST(Conversions, ViewOfAStringObject) {
    SmartPtr<IString> text(ISCreate(L"borrowed"));
    SmartPtr<IVariant> notText(IVCreate(1));
    EXPECT_EQ(Str(CREFString(reinterpret_cast<IDataStream*>(text.get()))), L"borrowed");
    EXPECT_EQ(CREFString(reinterpret_cast<IDataStream*>(notText.get())).text, nullptr);
}

}  // namespace
