// The host's folder stream through its interfaces, its text form, and the host objects that persist
// themselves into it. Every scenario leaves the live-object count where it found it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/components/FolderStream.h"
#include "host/components/Inputs.h"
#include "support/Fakes.h"

namespace {

struct Name {
    explicit Name(const wchar_t* text) : held(HOSTNewString(text)) {}
    operator IString*() const { return held.get(); }
    SmartPtr<IString> held;
};

SmartPtr<IVariant> NewVariant() {
    SmartPtr<IVariant> made;
    HOSTCreateVariant(nullptr, &IID_IVariant, made.OutVoid());
    return made;
}

std::wstring MonikerName(IUnknown* object) {
    SmartPtr<ICollectionMoniker> moniker = QueryAs<ICollectionMoniker>(object, IID_ICollectionMoniker);
    return moniker ? static_cast<CCollectionMoniker*>(moniker.get())->Name() : L"<none>";
}

std::string ToText(IFolderStream* folder) {
    std::string text;
    EXPECT_TRUE(HOSTFolderStreamToText(folder, text));
    return text;
}

SmartPtr<IFolderStream> FromText(const std::string& text) {
    std::string problem;
    SmartPtr<IFolderStream> folder(HOSTFolderStreamFromText(text, problem));
    EXPECT_TRUE(folder) << problem;
    return folder;
}

class Folder : public ::testing::Test {
protected:
    void SetUp() override {
        m_Live = HOSTLiveObjects();
        m_Folder.Attach(HOSTNewFolderStream());
        ASSERT_TRUE(m_Folder);
    }
    void TearDown() override {
        m_Folder.Reset();
        EXPECT_EQ(HOSTLiveObjects(), m_Live) << "every object was released";
    }
    int32_t Count() {
        int32_t count = -1;
        QueryAs<INamedCollection>(m_Folder.get(), IID_INamedCollection)->get_Count(&count);
        return count;
    }
    SmartPtr<IUnknown> Item(int32_t index) {
        SmartPtr<IUnknown> item;
        QueryAs<INamedCollection>(m_Folder.get(), IID_INamedCollection)->get_Item(index, item.Out());
        return item;
    }

    int32_t m_Live = 0;
    SmartPtr<IFolderStream> m_Folder;
};

// Bytes, typed numbers of every type, values of every kind, an object and a child; each reads back
// through its own operation only, and a refused read leaves the caller's buffer as it was.
TEST_F(Folder, EveryKindReadsBackAsWrittenAndOnlyAsItsKind) {
    IFolderStream* f = m_Folder.get();
    const unsigned char block[3] = {1, 0, 0xFF};
    const uint8_t u8 = 200;
    const int16_t i16 = -300;
    const int32_t i32 = -7;
    const float f32 = 1.5f;
    const double f64 = -0.25;
    ASSERT_EQ(f->WriteBytes(Name(L"B"), block, 3, 0), S_OK);
    const struct { const wchar_t* name; int32_t type; const void* value; size_t size; } typed[] = {
        {L"T1", 1, &u8, 1}, {L"T2", 2, &i16, 2}, {L"T3", 3, &i32, 4}, {L"T4", 4, &f32, 4}, {L"T5", 5, &f64, 8}};
    for (const auto& row : typed) ASSERT_EQ(f->WriteTyped(Name(row.name), row.value, row.type), S_OK);
    SmartPtr<IVariant> integer = NewVariant(), real = NewVariant(), empty = NewVariant(), text = NewVariant();
    integer->put_Integer(42);
    real->put_Double(2.5);
    text->put_String(Name(L"in a variant"));
    const Name hello(L"Hello");
    for (auto [name, value] : {std::pair<const wchar_t*, IUnknown*>{L"S", hello}, {L"I", integer.get()},
                               {L"R", real.get()}, {L"E", empty.get()}, {L"V", text.get()}})
        ASSERT_EQ(f->WriteValue(Name(name), value), S_OK) << name;
    SmartPtr<ICollectionMoniker> moniker(HOSTNewCollectionMoniker(L"Lamp"));
    ASSERT_EQ(f->WriteObject(Name(L"O"), moniker.get(), 0), S_OK);
    SmartPtr<IFolderStream> child;
    ASSERT_EQ(f->OpenChild(Name(L"C"), 0, child.Out()), S_OK);

    // Refused writes leave nothing behind.
    SmartPtr<IVariant> holdsObject = NewVariant();
    holdsObject->put_Object(moniker.get());
    EXPECT_EQ(f->WriteTyped(Name(L"X"), &i32, 6), E_INVALIDARG);
    EXPECT_EQ(f->WriteValue(Name(L"X"), holdsObject.get()), E_INVALIDARG);
    EXPECT_EQ(f->WriteObject(Name(L"X"), integer.get(), 0), E_INVALIDARG) << "no IDataPersist, no name";
    EXPECT_EQ(Count(), 13);

    for (const auto& row : typed) {
        unsigned char got[9];
        std::memset(got, 0xCA, sizeof got);
        EXPECT_EQ(f->ReadTyped(Name(row.name), got, row.type == 5 ? 1 : row.type + 1), E_INVALIDARG) << "another type";
        EXPECT_EQ(got[0], 0xCA);
        ASSERT_EQ(f->ReadTyped(Name(row.name), got, row.type), S_OK);
        EXPECT_EQ(std::memcmp(got, row.value, row.size), 0);
        EXPECT_EQ(got[row.size], 0xCA) << "no more than the type's size";
    }
    unsigned char got[4] = {9, 9, 9, 9};
    EXPECT_EQ(f->ReadBytes(Name(L"B"), got, 4, 0), E_INVALIDARG) << "another size";
    EXPECT_EQ(f->ReadBytes(Name(L"T3"), got, 4, 0), E_INVALIDARG) << "a typed entry is no block";
    EXPECT_EQ(f->ReadBytes(Name(L"None"), got, 3, 0), E_FAIL);
    EXPECT_EQ(got[0], 9);
    ASSERT_EQ(f->ReadBytes(Name(L"B"), got, 3, 0), S_OK);
    EXPECT_EQ(std::memcmp(got, block, 3), 0);

    const struct { const wchar_t* name; int16_t number; double value; const wchar_t* text; } values[] = {
        {L"S", 0, 0, L"Hello"}, {L"I", 1, 42, nullptr}, {L"R", 2, 2.5, nullptr}, {L"E", 0, 0, nullptr}, {L"V", 0, 0, L"in a variant"}};
    for (const auto& row : values) {
        SmartPtr<IVariant> read = NewVariant();
        read->put_Integer(-1);
        ASSERT_EQ(f->ReadValue(Name(row.name), read.get()), S_OK) << row.name;
        EXPECT_EQ(read->get_NumberType(), row.number) << row.name;
        EXPECT_EQ(read->get_Double(), row.value) << row.name;
        SmartPtr<IString> held;
        read->get_String(held.Out());
        EXPECT_EQ(HOSTText(held.get()), row.text ? row.text : L"") << row.name;
        SmartPtr<IString> into(HOSTNewString(L"before"));
        EXPECT_EQ(f->ReadValue(Name(row.name), into.get()), row.number ? E_INVALIDARG : S_OK) << "a number is no text";
        EXPECT_EQ(HOSTText(into.get()), row.number ? L"before" : row.text ? row.text : L"") << row.name;
    }
    EXPECT_EQ(f->ReadValue(Name(L"B"), empty.get()), E_INVALIDARG);
    EXPECT_EQ(f->ReadValue(Name(L"None"), empty.get()), E_FAIL);

    // The named view: a child and an object's folder answer as folders, a value as a variant,
    // bytes as nothing.
    int32_t index = -1;
    SmartPtr<INamedCollection> entries = QueryAs<INamedCollection>(f, IID_INamedCollection);
    ASSERT_EQ(entries->get_Index(Name(L"C"), &index), S_OK);
    EXPECT_EQ(Item(index).get(), static_cast<IUnknown*>(child.get()));
    EXPECT_EQ(entries->get_Index(Name(L"None"), &index), E_FAIL);
    EXPECT_EQ(index, -1);
    EXPECT_TRUE(QueryAs<IFolderStream>(Item(11).get(), IID_IFolderStream)) << "the object's folder";
    EXPECT_EQ(QueryAs<IVariant>(Item(7).get(), IID_IVariant)->get_Integer(), 42);
    EXPECT_FALSE(Item(0));
    SmartPtr<IString> name;
    entries->get_ItemName(6, name.Out());
    EXPECT_EQ(HOSTText(name.get()), L"S");
}

// A name written again keeps its place whatever its kind becomes; children are numbered in the
// order of the entries that are folders now.
TEST_F(Folder, RewritingANameReplacesItsEntryInPlaceAndChildrenFollowTheEntries) {
    IFolderStream* f = m_Folder.get();
    const int32_t one = 1;
    SmartPtr<IFolderStream> b, d, again;
    f->WriteBytes(Name(L"A"), &one, 4, 0);
    f->OpenChild(Name(L"B"), 0, b.Out());
    f->WriteValue(Name(L"C"), Name(L"c"));
    f->OpenChild(Name(L"D"), 0, d.Out());
    ASSERT_EQ(f->OpenChild(Name(L"D"), 0, again.Out()), S_OK);
    EXPECT_EQ(again.get(), d.get()) << "an existing child is opened, not made again";
    auto childAt = [&](int32_t key, HRESULT expected) {
        SmartPtr<IVariant> k = NewVariant();
        k->put_Integer(key);
        SmartPtr<IFolderStream> child;
        EXPECT_EQ(f->OpenChildAt(k.get(), 0, child.Out()), expected) << key;
        return child;
    };
    EXPECT_EQ(childAt(0, S_OK).get(), b.get());
    EXPECT_EQ(childAt(1, S_OK).get(), d.get());

    f->WriteTyped(Name(L"B"), &one, 3);
    EXPECT_EQ(Count(), 4);
    SmartPtr<IString> name;
    QueryAs<INamedCollection>(f, IID_INamedCollection)->get_ItemName(1, name.Out());
    EXPECT_EQ(HOSTText(name.get()), L"B");
    EXPECT_EQ(childAt(0, S_OK).get(), d.get()) << "B is no folder any more";
    childAt(1, E_FAIL);
    childAt(-1, E_FAIL);
    SmartPtr<IVariant> real = NewVariant();
    real->put_Double(0);
    EXPECT_EQ(f->OpenChildAt(real.get(), 0, again.Out()), E_INVALIDARG);

    SmartPtr<INamedCollection> entries = QueryAs<INamedCollection>(f, IID_INamedCollection);
    EXPECT_EQ(entries->Rename(0, Name(L"C")), E_FAIL) << "C is taken";
    EXPECT_EQ(entries->Rename(0, Name(L"Z")), S_OK);
    int32_t index = -1;
    EXPECT_EQ(entries->get_Index(Name(L"Z"), &index), S_OK);
    EXPECT_EQ(index, 0);
    EXPECT_EQ(entries->get_Index(Name(L"A"), &index), E_FAIL);
}

// ReadObject loads an object that can load itself in place; otherwise it makes the stored
// component by name and releases what the place held. A component nobody makes changes nothing,
// also in place.
TEST_F(Folder, ObjectsAreMadeByTheirComponentNameOrLoadedInPlace) {
    SmartPtr<ICollectionMoniker> saved(HOSTNewCollectionMoniker(L"Lamp"));
    ASSERT_EQ(m_Folder->WriteObject(Name(L"M"), saved.get(), 0), S_OK);

    SmartPtr<IUnknown> made;
    ASSERT_EQ(m_Folder->ReadObject(Name(L"M"), made.Out(), 0), S_OK);
    EXPECT_NE(made.get(), static_cast<IUnknown*>(saved.get()));
    EXPECT_EQ(MonikerName(made.get()), L"Lamp");

    SmartPtr<ICollectionMoniker> place(HOSTNewCollectionMoniker(L"Other"));
    IUnknown* inPlace = place.get();
    ASSERT_EQ(m_Folder->ReadObject(Name(L"M"), &inPlace, 0), S_OK);
    EXPECT_EQ(inPlace, static_cast<IUnknown*>(place.get()));
    EXPECT_EQ(MonikerName(place.get()), L"Lamp");

    IUnknown* replaced = NewVariant().Detach();  // no IDataPersist: released and replaced
    ASSERT_EQ(m_Folder->ReadObject(Name(L"M"), &replaced, 0), S_OK);
    EXPECT_EQ(MonikerName(replaced), L"Lamp");
    replaced->Release();

    std::string text = ToText(m_Folder.get());
    text.replace(text.find("CollectionMoniker"), 17, "Nobody");
    SmartPtr<IFolderStream> unknown = FromText(text);
    IUnknown* untouched = nullptr;
    EXPECT_EQ(unknown->ReadObject(Name(L"M"), &untouched, 0), E_FAIL);
    EXPECT_EQ(untouched, nullptr);
    EXPECT_EQ(unknown->ReadObject(Name(L"M"), &inPlace, 0), E_FAIL) << "not even into an object in place";
    EXPECT_EQ(HOSTFolderStreamUnread(unknown.get()), std::vector<std::wstring>{L"M"});
}

// After loading, what nobody took is listed: entries never asked for, and those whose read was
// refused (another size, a number read as text, an object nobody makes), inside opened folders too.
TEST_F(Folder, EntriesNobodyTookAreListed) {
    SmartPtr<IFolderStream> folder = FromText(
        R"({"format":"wks-folder","version":1,"entries":[{"name":"Typed","typed":3,"value":7},)"
        R"({"name":"Bytes","bytes":"03"},{"name":"Num","integer":5},{"name":"Obj","object":"Nobody","folder":[]},)"
        R"({"name":"Sub","folder":[{"name":"Inner","integer":1},{"name":"Left","integer":2}]},{"name":"Never","integer":3}]})");
    int32_t typed = 0, bytes = 0;
    EXPECT_EQ(folder->ReadTyped(Name(L"Typed"), &typed, 3), S_OK);
    EXPECT_EQ(folder->ReadBytes(Name(L"Bytes"), &bytes, 4, 0), E_INVALIDARG);
    SmartPtr<IString> text(HOSTNewString(L""));
    EXPECT_EQ(folder->ReadValue(Name(L"Num"), text.get()), E_INVALIDARG);
    SmartPtr<IUnknown> object;
    EXPECT_EQ(folder->ReadObject(Name(L"Obj"), object.Out(), 0), E_FAIL);
    SmartPtr<IFolderStream> sub;
    ASSERT_EQ(folder->OpenChild(Name(L"Sub"), 0, sub.Out()), S_OK);
    EXPECT_EQ(sub->ReadValue(Name(L"Inner"), NewVariant().get()), S_OK);
    EXPECT_EQ(HOSTFolderStreamUnread(folder.get()),
              (std::vector<std::wstring>{L"Bytes", L"Num", L"Obj", L"Sub/Left", L"Never"}));
}

TEST_F(Folder, FoldersNestAtMostSixtyFourLevels) {
    SmartPtr<IFolderStream> level = m_Folder;
    for (int depth = 1; depth <= HOST_FOLDER_MAX_DEPTH; ++depth) {
        SmartPtr<IFolderStream> next;
        ASSERT_EQ(level->OpenChild(Name(L"a"), 0, next.Out()), S_OK) << depth;
        level = next;
    }
    SmartPtr<IFolderStream> deeper;
    EXPECT_EQ(level->OpenChild(Name(L"a"), 0, deeper.Out()), E_FAIL);
    SmartPtr<ICollectionMoniker> moniker(HOSTNewCollectionMoniker(L"m"));
    EXPECT_EQ(level->WriteObject(Name(L"m"), moniker.get(), 0), E_FAIL);
    EXPECT_TRUE(FromText(ToText(m_Folder.get()))) << "the deepest folder that can be made can be read";
}

// The exact text of a small folder, and a round trip through text of every kind of value,
// characters beyond the first plane, U+0000 and the reals JSON has no numbers for.
TEST_F(Folder, TextFormIsFixedAndKeepsEveryValue) {
    const int32_t one = 1;
    SmartPtr<IFolderStream> child;
    m_Folder->WriteTyped(Name(L"UsePrompt"), &one, 3);
    m_Folder->OpenChild(Name(L"P"), 0, child.Out());
    child->WriteBytes(Name(L"Flags"), "\x0a\x00\x00\xff", 4, 0);
    EXPECT_EQ(ToText(m_Folder.get()), R"({
  "format": "wks-folder",
  "version": 1,
  "entries": [
    {
      "name": "UsePrompt",
      "typed": 3,
      "value": 1
    },
    {
      "name": "P",
      "folder": [
        {
          "name": "Flags",
          "bytes": "0a0000ff"
        }
      ]
    }
  ]
}
)");

    const std::wstring odd(L"\U0001F600 \u00e9\0z", 5);
    SmartPtr<IString> oddText(HOSTNewString(odd.c_str(), 5));
    const double reals[] = {-0.0, NAN, -HUGE_VAL, 1e-310, 0.1};
    m_Folder->WriteValue(oddText.get(), oddText.get());
    for (size_t i = 0; i < std::size(reals); ++i) {
        SmartPtr<IVariant> value = NewVariant();
        value->put_Double(reals[i]);
        m_Folder->WriteValue(Name(std::to_wstring(i).c_str()), value.get());
    }
    const float inf = HUGE_VALF;
    m_Folder->WriteTyped(Name(L"F"), &inf, 4);
    SmartPtr<ICollectionMoniker> moniker(HOSTNewCollectionMoniker(L"x"));
    child->WriteObject(Name(L"M"), moniker.get(), 0);

    const std::string text = ToText(m_Folder.get());
    SmartPtr<IFolderStream> back = FromText(text);
    ASSERT_TRUE(back);
    EXPECT_EQ(ToText(back.get()), text);
    SmartPtr<IString> read(HOSTNewString(L""));
    ASSERT_EQ(back->ReadValue(oddText.get(), read.get()), S_OK);
    EXPECT_EQ(HOSTText(read.get()), odd);
    for (size_t i = 0; i < std::size(reals); ++i) {
        SmartPtr<IVariant> value = NewVariant();
        back->ReadValue(Name(std::to_wstring(i).c_str()), value.get());
        const double got = value->get_Double();
        EXPECT_TRUE(std::isnan(reals[i]) ? std::isnan(got) : got == reals[i] && std::signbit(got) == std::signbit(reals[i])) << i;
    }

    std::string unchanged = "kept";
    const wchar_t surrogate[] = {0xD800, 0};
    m_Folder->WriteValue(Name(L"bad"), Name(surrogate));
    EXPECT_FALSE(HOSTFolderStreamToText(m_Folder.get(), unchanged)) << "a surrogate has no UTF-8";
    EXPECT_EQ(unchanged, "kept");
    SmartPtr<FakeFolder> foreign(new FakeFolder(true));
    EXPECT_FALSE(HOSTFolderStreamToText(foreign.get(), unchanged));
}

std::string File(const std::string& entries) { return R"({"format": "wks-folder", "version": 1, "entries": )" + entries + "}"; }

// Each text is refused as a whole with one line naming where and what.
TEST_F(Folder, MalformedTextsAreRefusedWithTheirProblem) {
    std::string deep = R"([{"name": "a", "folder": []}])";
    for (int depth = 1; depth <= HOST_FOLDER_MAX_DEPTH; ++depth) deep = R"([{"name": "a", "folder": )" + deep + "}]";
    const struct { std::string text; const char* problem; } rows[] = {
        {" \n", "the text is empty"},
        {"\x89PNG", "the text is not a JSON object: it begins with byte 0x89"},
        {"\xEF\xBB\xBF[]", "the text is not a JSON object: it begins with '['"},
        {"{", "line 1, column 2: syntax error"},
        {File("[]") + " x", "line 1, column 55: syntax error"},
        {"[]", "the text is not a JSON object: it begins with '['"},
        {R"({"format": "other", "version": 1, "entries": []})", "\"format\" is not \"wks-folder\""},
        {R"({"format": "wks-folder", "version": 2, "entries": []})", "version 2 is not known"},
        {R"({"format": "wks-folder", "version": 1.0, "entries": []})", "version 1.0 is not known"},
        {R"({"format": "wks-folder", "version": 1})", "\"entries\" is missing"},
        {R"({"format": "wks-folder", "version": 1, "entries": [], "more": 0})", "unknown key \"more\""},
        {R"({"format": "wks-folder", "format": "wks-folder", "version": 1, "entries": []})", "key \"format\" is repeated"},
        {File("{}"), "\"entries\" is not an array"},
        {File("[1]"), "entry #0: not an object"},
        {File(R"([{"integer": 1}])"), "entry #0: \"name\" is missing"},
        {File(R"([{"name": 1, "integer": 1}])"), "entry #0: \"name\" is not a string"},
        {File(R"([{"name": "A", "integer": 1}, {"name": "A", "integer": 2}])"), "entry A: the name is repeated"},
        {File(R"([{"name": "A", "size": 1}])"), "entry #0: unknown key \"size\""},
        {File(R"([{"name": "A"}])"), "entry A: no kind of entry"},
        {File(R"([{"name": "A", "integer": 1, "string": "1"}])"), "entry A: keys of more than one kind"},
        {File(R"([{"name": "A", "typed": 3}])"), "entry A: \"typed\" needs \"value\""},
        {File(R"([{"name": "A", "typed": 6, "value": 1}])"), "\"typed\" is not a value type from 1 to 5"},
        {File(R"([{"name": "A", "typed": 1, "value": 256}])"), "entry A: \"value\" is out of range"},
        {File(R"([{"name": "A", "typed": 3, "value": 2147483648}])"), "entry A: \"value\" is out of range"},
        {File(R"([{"name": "A", "typed": 4, "value": 1e39}])"), "entry A: \"value\" is out of range"},
        {File(R"([{"name": "A", "typed": 5, "value": "NaN"}])"), "entry A: \"value\" is out of range"},
        {File(R"([{"name": "A", "bytes": "0A"}])"), "entry A: \"bytes\" is not lowercase hexadecimal"},
        {File(R"([{"name": "A", "integer": 1.0}])"), "entry A: \"integer\" is not a 32-bit integer"},
        {File(R"([{"name": "A", "real": "1.5"}])"), "entry A: \"real\" is not a number"},
        {File(R"([{"name": "A", "string": 1}])"), "entry A: \"string\" is not a string"},
        {File(R"([{"name": "A", "empty": false}])"), "entry A: \"empty\" is not true"},
        {File(R"([{"name": "A", "object": "", "folder": []}])"), "entry A: \"object\" is empty"},
        {File(R"([{"name": "A", "object": "CollectionMoniker"}])"), "entry A: \"object\" needs \"folder\""},
        {File(R"([{"name": "A", "folder": {}}])"), "entry A: \"folder\" is not an array"},
        {File(R"([{"name": "P", "folder": [{"name": "X", "integer": "5"}]}])"), "entry P/X: \"integer\" is not a 32-bit integer"},
        {File("[{\"name\": \"\xff\", \"empty\": true}]"), "line 1, column 62: syntax error while parsing value - invalid string: ill-formed UTF-8 byte; last read: '\"?'"},
        {File(deep), "folders nest deeper than 64 levels"},
        {"{\"entries\": " + std::string(200, '['), "values nest deeper than the format allows"},
    };
    for (const auto& row : rows) {
        std::string problem;
        SmartPtr<IFolderStream> folder(HOSTFolderStreamFromText(row.text, problem));
        EXPECT_FALSE(folder) << row.text;
        EXPECT_NE(problem.find(row.problem), std::string::npos) << row.text << "\nproblem: " << problem;
        EXPECT_EQ(problem.find('\n'), std::string::npos) << problem;
    }
    std::string problem;
    SmartPtr<IFolderStream> marked(HOSTFolderStreamFromText("\xEF\xBB\xBF" + File("[]"), problem));
    EXPECT_TRUE(marked) << "an editor's byte order mark is passed over: " << problem;
}

// An input's moniker goes into its folder when it is a moniker proper; an object standing in for
// one does not. Loaded, the moniker is made anew under its name.
TEST_F(Folder, InputsKeepTheirMonikersThroughText) {
    SmartPtr<IInputParameters> saved, loaded;
    HOSTCreateInputParameters(nullptr, &IID_IInputParameters, saved.OutVoid());
    HOSTCreateInputParameters(nullptr, &IID_IInputParameters, loaded.OutVoid());
    for (IInputParameters* inputs : {saved.get(), loaded.get()}) {
        inputs->AddInput(Name(L"A"), IID_IStep, 0);
        inputs->AddInput(Name(L"B"), IID_IStep, 0);
    }
    SmartPtr<ICollectionMoniker> moniker(HOSTNewCollectionMoniker(L"Lamp"));
    static_cast<CInputParameters*>(saved.get())->Input(0)->put_Moniker(moniker.get());
    static_cast<CInputParameters*>(saved.get())->Input(1)->put_Moniker(Name(L"found"));
    ASSERT_EQ(m_Folder->WriteObject(Name(L"Inputs"), saved.get(), 0), S_OK);
    const std::string text = ToText(m_Folder.get());
    EXPECT_NE(text.find(R"("object": "InputParameters")"), std::string::npos) << text;

    IUnknown* place = loaded.get();
    ASSERT_EQ(FromText(text)->ReadObject(Name(L"Inputs"), &place, 0), S_OK);
    SmartPtr<IUnknown> restored, none;
    ASSERT_EQ(static_cast<CInputParameters*>(loaded.get())->Input(0)->get_Moniker(restored.Out()), S_OK);
    EXPECT_NE(restored.get(), static_cast<IUnknown*>(moniker.get()));
    EXPECT_EQ(MonikerName(restored.get()), L"Lamp");
    EXPECT_EQ(static_cast<CInputParameters*>(loaded.get())->Input(1)->get_Moniker(none.Out()), E_FAIL);
}

}  // namespace
