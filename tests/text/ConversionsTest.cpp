// Numbers to text and text to numbers, with real host strings and variants made through the
// module's factories.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <string>

#include "text/Conversions.h"

namespace {

std::wstring Text(IString* string) {
    wchar_t* text = nullptr;
    int32_t length = 0;
    if (string == nullptr || string->GetText(&text, &length) < 0) return L"<null>";
    return std::wstring(text, length);
}

std::wstring Take(IString* string) {
    SmartPtr<IString> held(string);
    return Text(held.get());
}

TEST(Conversions, TextToInteger) {
    const struct { const wchar_t* text; int base; int value; } rows[] = {
        {L"-42", 10, -42}, {L"#ff", 10, 255}, {L"#FF", 16, 255}, {L"12abc", 10, 12}, {L"ff", 16, 255},
        {L"ff", 10, 0},    {L"+", 10, 0},      {L"", 10, 0},      {L"+7", 10, 7},     {L"4294967297", 10, 1},
        {L"2147483648", 10, INT32_MIN}, {L"#FFFFFFFF", 10, -1}, {L"-2147483649", 10, INT32_MAX},
    };
    for (const auto& row : rows) EXPECT_EQ(_IS2Integer(CREFString(row.text), row.base), row.value) << row.text;
}

TEST(Conversions, TextToReal) {
    const struct { const wchar_t* text; double value; } rows[] = {
        {L"-3.25", -3.25}, {L"1.5e3", 1.5}, {L"#10", 16.0}, {L".5", 0.5}, {L"2.5.7", 2.5}, {L"", 0.0},
        {L"0.1234567890123456789999", 0.123456789012345678},
    };
    for (const auto& row : rows) EXPECT_DOUBLE_EQ(_IS2Double(CREFString(row.text)), row.value) << row.text;
    const double negativeZero = _IS2Double(CREFString(L"-"));
    EXPECT_EQ(negativeZero, 0.0);
    EXPECT_TRUE(std::signbit(negativeZero));
}

// The integer part wraps modulo 2^64 and reads as a signed 64-bit number; compared exactly.
TEST(Conversions, TextToRealWrapsItsIntegerPart) {
    const struct { const wchar_t* text; double value; } rows[] = {
        {L"99999999999999999999.5", 7766279631452241920.0},
        {L"-99999999999999999999.5", -7766279631452241920.0},
        {L"10000000000000000000", -8446744073709551616.0},
        {L"18446744073709551616.25", 0.25},
        {L"9223372036854775807", 9223372036854775807.0},
    };
    for (const auto& row : rows) EXPECT_EQ(_IS2Double(CREFString(row.text)), row.value) << row.text;
}

TEST(Conversions, ClassifyText) {
    enum Kind { kInt, kReal, kText };
    const struct { const wchar_t* text; Kind kind; double number; const wchar_t* rest; } rows[] = {
        {L"  42", kInt, 42, L"42"},           {L"123456789", kInt, 123456789, L"123456789"},
        {L"1234567890", kText, 0, nullptr},   {L"3.5", kReal, 3.5, nullptr},
        {L"1.2.3", kText, 0, nullptr},        {L"12 apples", kInt, 12, nullptr},
        {L"12 bananas", kText, 0, nullptr},   {L"abc", kText, 0, nullptr},
        {L"-", kInt, 0, nullptr},             {L"+5", kText, 0, nullptr},
        {L"", kText, 0, nullptr},             {L"-7", kInt, -7, nullptr},
    };
    for (const auto& row : rows) {
        CREFString view(row.text);
        SmartPtr<IVariant> value(IVCreateConvert(view));
        ASSERT_TRUE(value) << row.text;
        if (row.rest) {
            EXPECT_EQ(std::wstring(view.text, view.length), row.rest);
        }
        switch (row.kind) {
            case kInt:
                EXPECT_EQ(value->get_NumberType(), 1) << row.text;
                EXPECT_EQ(value->get_Integer(), static_cast<int>(row.number)) << row.text;
                break;
            case kReal:
                EXPECT_GT(value->get_NumberType(), 1) << row.text;
                EXPECT_DOUBLE_EQ(value->get_Double(), row.number) << row.text;
                break;
            case kText: {
                EXPECT_TRUE(value->IsString()) << row.text;
                SmartPtr<IString> text;
                value->get_String(text.Out());
                EXPECT_EQ(Text(text.get()), std::wstring(view.text ? view.text : L"", view.length));
                break;
            }
        }
    }
}

TEST(Conversions, Formatting) {
    EXPECT_EQ(Take(ISCreate(42)), L"42");
    EXPECT_EQ(Take(ISCreate(-7)), L"-7");
    EXPECT_EQ(Take(ISCreate(1.5)), L"1.500000");
    EXPECT_EQ(Take(ISCreateHex(255)), L"#0000FF");
    EXPECT_EQ(Take(ISCreateHex(0x12345678)), L"#12345678");
    EXPECT_EQ(Take(ISCreateHex(-1)), L"#FFFFFFFF");
    EXPECT_EQ(Take(ISCreate(static_cast<const wchar_t*>(nullptr))), L"");
    EXPECT_EQ(Take(ISCreate(CREFString(L"abcdef", 3))), L"abc");
    EXPECT_EQ(Take(ISCreate("Hello", 5)), L"Hello");
    EXPECT_EQ(Take(ISCreate("x\0y", 3)), std::wstring(L"x\0y", 3)) << "a zero byte becomes a zero character";
    EXPECT_EQ(Take(ISCreate("abc", 0)), L"");
    wchar_t buffer[8];
    EXPECT_EQ(_swprintf(buffer, 8, L"%d-%d", 12, 34), 5);
    EXPECT_EQ(std::wstring(buffer), L"12-34");
}

TEST(Conversions, VariantText) {
    const struct { double value; bool integer; short precision; const wchar_t* text; } rows[] = {
        {2.5, false, -1, L"2.5"},  {3.0, false, -1, L"3"},           {7, true, -1, L"7"},
        {2.5, false, 2, L"2.50"},  {2.5, false, 0, L"2"},            {1.0 / 3.0, false, -1, L"0.333333333"},
        {-0.25, false, -1, L"-0.25"}, {1e20, false, -1, L"100000000000000000000"},
    };
    for (const auto& row : rows) {
        SmartPtr<IVariant> value(row.integer ? IVCreate(static_cast<int>(row.value)) : IVCreate(row.value));
        EXPECT_EQ(Take(ISCreate(value.get(), row.precision)), row.text) << row.value;
    }
    SmartPtr<IString> hello(ISCreate(L"hello"));
    SmartPtr<IVariant> text(IVCreate(hello.get()));
    EXPECT_EQ(Take(ISCreate(text.get(), -1)), L"hello");
    SmartPtr<IVariant> empty(CREFString::CreateVariant());
    EXPECT_EQ(ISCreate(empty.get(), -1), nullptr);
    EXPECT_EQ(ISCreate(static_cast<IVariant*>(nullptr), -1), nullptr);
}

// Reals whose fixed-point text would not fit 255 characters, NaN and infinities. A row without
// text expects the fixed-point text of exactly 255 characters.
TEST(Conversions, RealsAtTheEdges) {
    enum How { kDouble, kAutomatic, kTwoDecimals };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const struct { double value; How how; const wchar_t* text; } rows[] = {
        {1e300, kDouble, L"1.000000e+300"},     {-1e300, kDouble, L"-1.000000e+300"},
        {1e300, kAutomatic, L"1e+300"},         {-1e300, kAutomatic, L"-1e+300"},
        {-2.5e300, kAutomatic, L"-2.5e+300"},   {1.2345678912e300, kAutomatic, L"1.234567891e+300"},
        {1e300, kTwoDecimals, L"1.00e+300"},    {-1e300, kTwoDecimals, L"-1.00e+300"},
        {nan, kDouble, L"nan"},                 {nan, kAutomatic, L"nan"},
        {-nan, kAutomatic, L"-nan"},            {nan, kTwoDecimals, L"nan"},
        {inf, kDouble, L"inf"},                 {-inf, kAutomatic, L"-inf"},
        {inf, kTwoDecimals, L"inf"},
        // Just under and just over the buffer: 248, 255 and 252 integer digits fit.
        {9e247, kDouble, nullptr},              {1e248, kDouble, L"1.000000e+248"},
        {-9e247, kDouble, L"-9.000000e+247"},   {9e254, kAutomatic, nullptr},
        {2e255, kAutomatic, L"2e+255"},         {-9e254, kAutomatic, L"-9e+254"},
        {9e251, kTwoDecimals, nullptr},         {1e252, kTwoDecimals, L"1.00e+252"},
    };
    for (const auto& row : rows) {
        SmartPtr<IVariant> variant(IVCreate(row.value));
        const std::wstring text = row.how == kDouble ? Take(ISCreate(row.value))
                                                     : Take(ISCreate(variant.get(), row.how == kAutomatic ? -1 : 2));
        if (row.text != nullptr) {
            EXPECT_EQ(text, row.text) << row.value;
        } else {
            EXPECT_EQ(text.size(), 255u) << row.value;
            EXPECT_EQ(text.find(L'e'), std::wstring::npos) << text;
        }
    }
}

TEST(Conversions, ViewOfAStringObject) {
    SmartPtr<IString> text(ISCreate(L"borrowed"));
    CREFString view(reinterpret_cast<IDataStream*>(text.get()));  // any object that answers IString
    EXPECT_EQ(std::wstring(view.text, view.length), L"borrowed");
    SmartPtr<IVariant> notText(IVCreate(1));
    CREFString empty(reinterpret_cast<IDataStream*>(notText.get()));
    EXPECT_EQ(empty.length, 0);
    EXPECT_EQ(empty.text, nullptr);
    CREFString none(static_cast<IDataStream*>(nullptr));
    EXPECT_EQ(none.length, 0);
}

}  // namespace
