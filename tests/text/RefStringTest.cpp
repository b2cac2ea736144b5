// The cutting operations of CREFString, table-driven: input, operation, the view it yields, what
// is left, and the result.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "text/RefString.h"

namespace {

std::wstring Str(const tagREFString& view) { return std::wstring(view.text ? view.text : L"", view.length); }

struct Cut {
    const wchar_t* input;
    std::function<HRESULT(CREFString&, tagREFString*)> op;
    const wchar_t* out;   // expected out view, or null when it must be left untouched
    const wchar_t* rest;  // expected view afterwards
    HRESULT result;
};

constexpr HRESULT kFail = E_FAIL;

TEST(RefString, CuttingOperations) {
    const Cut rows[] = {
        // GetLine(line, advance, separator, dropSeparator)
        {L"Width=10", [](CREFString& v, tagREFString* o) { return v.GetLine(o, true, L'=', true); }, L"Width", L"10", 0},
        {L"Width", [](CREFString& v, tagREFString* o) { return v.GetLine(o, true, L'=', true); }, L"Width", L"", 1},
        {L"a=", [](CREFString& v, tagREFString* o) { return v.GetLine(o, false, L'=', false); }, L"a=", L"a=", kFail},
        {L"a=b", [](CREFString& v, tagREFString* o) { return v.GetLine(o, false, L'=', false); }, L"a=", L"a=b", 0},
        {L"", [](CREFString& v, tagREFString* o) { return v.GetLine(o, true, L'=', true); }, L"", L"", kFail},
        // GetLineCRLF(line, dropBreak, advance)
        {L"ab\r\ncd", [](CREFString& v, tagREFString* o) { return v.GetLineCRLF(o, true, true); }, L"ab", L"cd", 0},
        {L"ab\r\ncd", [](CREFString& v, tagREFString* o) { return v.GetLineCRLF(o, false, true); }, L"ab\r\n", L"cd", 0},
        {L"ab\n\ncd", [](CREFString& v, tagREFString* o) { return v.GetLineCRLF(o, true, true); }, L"ab", L"\ncd", 0},
        {L"ab\n\r", [](CREFString& v, tagREFString* o) { return v.GetLineCRLF(o, true, true); }, L"ab", L"", 1},
        {L"ab", [](CREFString& v, tagREFString* o) { return v.GetLineCRLF(o, true, false); }, L"ab", L"ab", 0},
        // GetReverseLine(head, separator, advance, skipSeparator)
        {L"a/b/c", [](CREFString& v, tagREFString* o) { return v.GetReverseLine(o, L'/', true, true); }, L"a/b", L"c", 0},
        {L"a/b/c", [](CREFString& v, tagREFString* o) { return v.GetReverseLine(o, L'/', true, false); }, L"a/b", L"/c", 0},
        {L"/c", [](CREFString& v, tagREFString* o) { return v.GetReverseLine(o, L'/', true, true); }, L"", L"/c", kFail},
        {L"abc", [](CREFString& v, tagREFString* o) { return v.GetReverseLine(o, L'/', true, true); }, L"", L"abc", kFail},
        // GetLineRight(tail, separator, advance, skipSeparator, wholeIfAbsent)
        {L"Obj.Sub.Name", [](CREFString& v, tagREFString* o) { return v.GetLineRight(o, L'.', true, true, false); },
         L"Name", L"Obj.Sub", 0},
        {L"Obj.Sub.Name", [](CREFString& v, tagREFString* o) { return v.GetLineRight(o, L'.', true, false, false); },
         L".Name", L"Obj.Sub.", 0},
        {L"Name", [](CREFString& v, tagREFString* o) { return v.GetLineRight(o, L'.', true, true, false); }, L"",
         L"Name", kFail},
        {L"Name", [](CREFString& v, tagREFString* o) { return v.GetLineRight(o, L'.', true, true, true); }, L"Name",
         L"", 0},
        // Crop(tail, separator, advance, skipSeparator)
        {L"a.b", [](CREFString& v, tagREFString* o) { return v.Crop(o, L'.', true, true); }, L"b", L"a", 0},
        {L"ab", [](CREFString& v, tagREFString* o) { return v.Crop(o, L'.', true, true); }, L"", L"ab", kFail},
        // GetWord(word, advance, separators): position of the separator counted from 1, or 0
        {L"abc def", [](CREFString& v, tagREFString* o) { return v.GetWord(o, true, tagREFString{1, L" "}); }, L"abc",
         L" def", 4},
        {L"abc", [](CREFString& v, tagREFString* o) { return v.GetWord(o, true, tagREFString{1, L" "}); }, L"abc", L"",
         0},
        // GetFirstWord(word, advance)
        {L"Width=10", [](CREFString& v, tagREFString* o) { return v.GetFirstWord(o, true); }, L"Width", L"=10", 0},
        {L"-12.5e+3x", [](CREFString& v, tagREFString* o) { return v.GetFirstWord(o, true); }, L"-12.5e+3", L"x", 0},
        {L"1e+5", [](CREFString& v, tagREFString* o) { return v.GetFirstWord(o, true); }, L"1", L"e+5", 0},
        {L"1.5e5", [](CREFString& v, tagREFString* o) { return v.GetFirstWord(o, true); }, L"1.5", L"e5", 0},
        {L"12.x", [](CREFString& v, tagREFString* o) { return v.GetFirstWord(o, true); }, L"12", L".x", 0},
        {L"=10", [](CREFString& v, tagREFString* o) { return v.GetFirstWord(o, true); }, L"=", L"10", 0},
        {L"my_name x", [](CREFString& v, tagREFString* o) { return v.GetFirstWord(o, true); }, L"my_name", L" x", 0},
        {L"\"a b\" c", [](CREFString& v, tagREFString* o) { return v.GetFirstWord(o, true); }, L"a b", L"\" c", 0},
        {L"\"open", [](CREFString& v, tagREFString* o) { return v.GetFirstWord(o, true); }, L"\"open", L"", 0},
        {L"\"\"x", [](CREFString& v, tagREFString* o) { return v.GetFirstWord(o, true); }, L"\"", L"\"x", 0},
        {L" x", [](CREFString& v, tagREFString* o) { return v.GetFirstWord(o, true); }, nullptr, L" x", kFail},
        {L"-x", [](CREFString& v, tagREFString* o) { return v.GetFirstWord(o, true); }, nullptr, L"-x", kFail},
    };
    for (const Cut& row : rows) {
        CREFString view(row.input);
        tagREFString out{-7, L"untouched"};
        const HRESULT result = row.op(view, &out);
        EXPECT_EQ(result, row.result) << Str(CREFString(row.input));
        EXPECT_EQ(Str(view), row.rest) << Str(CREFString(row.input));
        if (row.out) EXPECT_EQ(Str(out), row.out) << Str(CREFString(row.input));
        else EXPECT_EQ(out.length, -7) << "the out view is not touched on failure";
    }
}

TEST(RefString, SplitLeavesTheViewAndKeepsTheSeparatorOnTheRight) {
    CREFString view(L"abc:def");
    tagREFString left{}, right{};
    EXPECT_EQ(view.Split(&left, &right, CREFString(L":"), 0), S_OK);
    EXPECT_EQ(Str(left), L"abc");
    EXPECT_EQ(Str(right), L":def");
    EXPECT_EQ(Str(view), L"abc:def");

    CREFString control(L"ab\tc");
    EXPECT_EQ(control.Split(&left, &right, CREFString(L";"), 1), S_OK);
    EXPECT_EQ(Str(left), L"ab");
    EXPECT_EQ(control.Split(&left, &right, CREFString(), 1), E_FAIL) << "an empty set matches nothing";
    EXPECT_EQ(Str(left), L"ab\tc");
    EXPECT_EQ(right.length, 0);
}

TEST(RefString, SearchAndCompare) {
    struct Row {
        const wchar_t* view;
        const wchar_t* other;
        HRESULT contains, containsChar, compare, prefix;
    };
    const Row rows[] = {
        {L"xxab", L"ab", 2, 2, E_FAIL, E_FAIL},
        {L"ab", L"ab", 0, 0, 0, 0},
        {L"aaab", L"aab", 1, 0, E_FAIL, E_FAIL},
        {L"results", L"ResultsView", E_FAIL, 1, 1, E_FAIL},
        {L"ResultsView", L"results", E_FAIL, 1, 1, 1},
        {L"RESULTSVIEW", L"ResultsView", E_FAIL, 0, 0, 0},
        {L"abc", L"", E_FAIL, E_FAIL, E_FAIL, E_FAIL},
        {L"", L"abc", E_FAIL, E_FAIL, E_FAIL, E_FAIL},
    };
    for (const Row& row : rows) {
        CREFString view(row.view);
        const CREFString other(row.other);
        EXPECT_EQ(view.Contains(other), row.contains) << row.view << " / " << row.other;
        EXPECT_EQ(view.ContainsChar(other), row.containsChar) << row.view << " / " << row.other;
        EXPECT_EQ(view.CompareI(other, 0), row.compare) << row.view << " / " << row.other;
        EXPECT_EQ(view.CompareI(other, 1), row.prefix) << row.view << " / " << row.other;
    }
}

TEST(RefString, TrimLeft) {
    CREFString view(L"  \x01;x");
    EXPECT_EQ(view.TrimLeft(false), 1);
    EXPECT_EQ(Str(view), L";x");
    EXPECT_EQ(view.TrimLeft(false), 0);
    EXPECT_EQ(view.TrimLeft(true), 1);
    EXPECT_EQ(Str(view), L"x");
    CREFString empty;
    EXPECT_EQ(empty.TrimLeft(true), 0);
}

TEST(RefString, ValueLayoutAndVirtualOrder) {
    // (virtual-table pointer, length, text), and the first virtual slot is GetLine.
    EXPECT_EQ(sizeof(CREFString), 3 * sizeof(void*));
    CREFString view(L"k=v");
    using GetLineFn = HRESULT (*)(CREFString*, tagREFString*, bool, wchar_t, bool);
    auto getLine = reinterpret_cast<GetLineFn>((*reinterpret_cast<void***>(&view))[0]);
    tagREFString line{};
    EXPECT_EQ(getLine(&view, &line, true, L'=', true), S_OK);
    EXPECT_EQ(Str(line), L"k");
    using ContainsCharFn = HRESULT (*)(CREFString*, tagREFString);
    auto containsChar = reinterpret_cast<ContainsCharFn>((*reinterpret_cast<void***>(&view))[9]);
    EXPECT_EQ(containsChar(&view, tagREFString{1, L"v"}), 0);
}

}  // namespace
