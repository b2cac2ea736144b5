// The reference host's core objects, reached through their interfaces: variants, collections,
// strings, the component registry, inputs and monikers, the text streams and string table, every
// class's QueryInterface, and failing creations. Every scenario leaves the live-object count where it
// found it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <set>
#include <sstream>
#include <vector>

#include "host/collections/ComponentList.h"
#include "host/collections/InterfaceMap.h"
#include "host/collections/HostString.h"
#include "host/collections/NameIndex.h"
#include "host/collections/SuperCollection.h"
#include "host/components/FolderStream.h"
#include "host/components/HostParameters.h"
#include "host/components/Inputs.h"
#include "host/components/StringTable.h"
#include "host/workspace/Workspace.h"
#include "support/Fakes.h"

extern "C" HRESULT CreateFunction(tagREFString name, void** creator);

namespace {

class HostCore : public ::testing::Test {
protected:
    void SetUp() override {
        // The global collection is one object for the life of the process: make it before counting.
        HOSTCreateGlobalComponentCollection(nullptr, &IID_IComponentCollection, m_Global.OutVoid());
        m_Live = HOSTLiveObjects();
    }
    void TearDown() override {
        HOSTFailCreation(0);
        EXPECT_EQ(HOSTLiveObjects(), m_Live) << "every object was released";
        EXPECT_EQ(FakeLive(), 0);
    }

    static SmartPtr<IVariant> NewVariant() {
        SmartPtr<IVariant> made;
        EXPECT_EQ(HOSTCreateVariant(nullptr, &IID_IVariant, made.OutVoid()), S_OK);
        return made;
    }
    static std::wstring Content(IDataStream* stream) {
        void* data = nullptr;
        int32_t bytes = -1;
        EXPECT_EQ(stream->GetBuffer(&data, &bytes), S_OK);
        return std::wstring(static_cast<const wchar_t*>(data), bytes / sizeof(wchar_t));
    }
    template <class I>
    SmartPtr<I> Create(const wchar_t* name, IID& iid) {
        SmartPtr<I> made;
        m_Global->CreateComponent(tagREFString{static_cast<int32_t>(wcslen(name)), name}, &iid, made.OutVoid());
        return made;
    }
    // The inputs `declared` (name and flags; flags 0 expect no interface, others IStep), made by name.
    SmartPtr<IInputParameters> Declare(std::vector<std::pair<const wchar_t*, int32_t>> declared) {
        SmartPtr<IInputParameters> inputs = Create<IInputParameters>(L"InputParameters", IID_IInputParameters);
        for (const auto& [name, flags] : declared)
            inputs->AddInput(SmartPtr<IString>(HOSTNewString(name)).get(), flags == 0 ? IID_NULL : IID_IStep, flags);
        return inputs;
    }
    static SmartPtr<IInputParameter> InputAt(IInputParameters* inputs, int32_t index) {
        SmartPtr<IUnknown> item;
        inputs->get_Item(index, item.Out());
        return QueryAs<IInputParameter>(item.get(), IID_IInputParameter);
    }
    SmartPtr<IComponentCollection> m_Global;
    int32_t m_Live = 0;
};

TEST_F(HostCore, VariantSemantics) {
    SmartPtr<IVariant> v = NewVariant();
    EXPECT_EQ(v->get_NumberType() | v->IsString() | v->IsObject(), 0);
    v->put_Double(-2.75);
    EXPECT_EQ(v->get_NumberType(), 2);
    EXPECT_EQ(v->get_Integer(), -2) << "a real reads as an integer truncated toward zero";
    SmartPtr<IString> none;
    EXPECT_EQ(v->get_String(none.Out()), E_FAIL) << "numbers do not turn into text";
    EXPECT_FALSE(none);

    SmartPtr<IString> text(HOSTNewString(L"abc"));
    v->put_Object(text.get());
    EXPECT_TRUE(v->IsString()) << "a string given as an object is held as a string";
    SmartPtr<IString> back;
    ASSERT_EQ(v->get_String(back.Out()), S_OK);
    EXPECT_EQ(back.get(), text.get()) << "the caller's string is shared";

    SmartPtr<IVariant> other = NewVariant();
    other->put_Integer(9);
    v->put_Object(other.get());
    other->put_Integer(10);
    EXPECT_EQ(v->get_NumberType(), 1) << "a variant's value is taken over";
    EXPECT_EQ(v->get_Integer(), 9) << "copied, not shared";

    SmartPtr<ISuperCollection> object(HOSTNewCollection());
    v->put_Object(object.get());
    SmartPtr<IUnknown> held;
    EXPECT_EQ(v->get_Object(held.Out()), S_OK);
    EXPECT_EQ(held.get(), static_cast<IUnknown*>(object.get()));
    v->put_Object(nullptr);
    EXPECT_EQ(v->IsObject() | v->IsString() | v->get_NumberType(), 0) << "null empties";
    EXPECT_EQ(v->get_Object(held.Out()), E_FAIL);
    EXPECT_FALSE(held);
}

TEST_F(HostCore, CollectionOrderLookupAndRenames) {
    SmartPtr<ISuperCollection> c(HOSTNewCollection());
    SmartPtr<IString> a(HOSTNewString(L"A")), b(HOSTNewString(L"B")), z(HOSTNewString(L"Z")), lower(HOSTNewString(L"b"));
    SmartPtr<IVariant> key = NewVariant();
    c->Add(a.get(), key.get(), 0, 0);
    c->Add(nullptr, a.get(), 0, 0);
    c->Add(b.get(), b.get(), 0, 0);
    c->Add(a.get(), b.get(), 0, 0);  // a duplicate name: the first one wins
    // The index found for `key`; -1 when the lookup fails as it should, -2 for any other answer.
    auto at = [&](IUnknown* key) {
        int32_t index = 7;
        const HRESULT hr = c->get_Index(key, &index);
        return (hr == S_OK && index >= 0) || (hr == E_FAIL && index == -1) ? index : -2;
    };
    int32_t count = 0, index = -1;
    c->get_Count(&count);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(at(a.get()), 0);
    EXPECT_EQ(at(b.get()), 2);
    EXPECT_EQ(at(lower.get()), -1);
    SmartPtr<IString> name;
    EXPECT_EQ(c->get_ItemName(1, name.Out()), E_FAIL) << "an unnamed item";
    SmartPtr<IUnknown> item;
    EXPECT_EQ(c->get_Item(4, item.Out()), E_INVALIDARG);
    EXPECT_EQ(c->FindByInterface(&IID_IString, 0, 0, &index), S_OK);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(c->FindByInterface(&IID_IStep, 0, 0, &index), E_FAIL);

    c->Rename(0, z.get());
    EXPECT_EQ(at(a.get()), 3) << "the next item with the old name takes over";
    c->Rename(3, nullptr);
    c->Rename(2, z.get());
    EXPECT_EQ(at(a.get()), -1);
    EXPECT_EQ(at(z.get()), 0);
    // A number is an index; one past either end finds nothing.
    for (const auto& [number, expected] : {std::pair{3.0, 3}, {1.9, 1}, {4.0, -1}, {-1.0, -1}}) {
        key->put_Double(number);
        EXPECT_EQ(at(key.get()), expected) << number;
    }
}

TEST_F(HostCore, StringsCheckTheirArgumentsAndStayTerminated) {
    SmartPtr<IString> s;
    ASSERT_EQ(HOSTCreateString(nullptr, &IID_IString, s.OutVoid()), S_OK);
    EXPECT_EQ(s->SetText(3, nullptr), E_POINTER);
    EXPECT_EQ(s->AppendText(-2, L"x"), E_INVALIDARG);
    s->SetText(5, L"abcdefgh");
    for (wchar_t c = L'0'; c <= L'9'; ++c) s->AppendText(1, &c);
    s->AppendText(2, L"xyz");
    wchar_t* text = nullptr;
    int32_t length = 0;
    ASSERT_EQ(s->GetText(&text, &length), S_OK);
    EXPECT_EQ(length, 17);
    EXPECT_EQ(std::wstring(text), L"abcde0123456789xy") << "terminated right after the text";
    // Past the characters kept inside the object, from text of the string itself.
    EXPECT_EQ(s->AppendText(length, text), S_OK);
    s->GetText(&text, &length);
    EXPECT_EQ(std::wstring(text, length), L"abcde0123456789xyabcde0123456789xy");
    EXPECT_EQ(s->SetText(3, text + 5), S_OK);
    s->GetText(&text, &length);
    EXPECT_EQ(std::wstring(text), L"012");
}

HRESULT MakeAnotherString(void* outer, IID* iid, void** object) { return HOSTCreateString(outer, iid, object); }

// The global collection is one object; a component string finds its component by name on each
// call, so it also makes components registered after its first attempt, whose creators
// CollectionsEx.so's entry point then hands out.
TEST_F(HostCore, ComponentsRegisteredAtRunTimeAreMadeByName) {
    SmartPtr<IComponentCollection> again;
    HOSTCreateGlobalComponentCollection(nullptr, &IID_IComponentCollection, again.OutVoid());
    EXPECT_EQ(again.get(), m_Global.get());
    SmartPtr<IComponentString> described;
    HOSTCreateComponentString(nullptr, &IID_IComponentString, described.OutVoid());
    described->put_Field(1, tagREFString{10, L"LateString"});
    SmartPtr<IString> late;
    void* creator = &described;
    EXPECT_EQ(described->CreateInstance(&IID_IString, late.OutVoid()), E_FAIL);
    EXPECT_EQ(CreateFunction(tagREFString{10, L"LateString"}, &creator), E_FAIL);
    EXPECT_EQ(creator, &described) << "an unknown name leaves the place as it was";
    HOSTRegisterComponent(L"LateString", MakeAnotherString);
    EXPECT_EQ(described->CreateInstance(&IID_IString, late.OutVoid()), S_OK);
    EXPECT_TRUE(late);
    EXPECT_EQ(CreateFunction(tagREFString{10, L"LateString"}, &creator), S_OK);
    EXPECT_EQ(creator, reinterpret_cast<void*>(&MakeAnotherString));
}

// An input is bound through its collection's slots 13 and 14 and found by its name.
TEST_F(HostCore, DeclaredInputsBindObjectsAndHaveNames) {
    SmartPtr<IInputParameters> inputs = Declare({{L"RunningObjectTable", 0}, {L"Step", 3}});
    ASSERT_TRUE(inputs);
    void* itf = inputs.get();
    auto putObject = Slot<HRESULT (*)(void*, int32_t, IUnknown*)>(itf, 13);
    auto getObject = Slot<HRESULT (*)(void*, int32_t, IUnknown**)>(itf, 14);
    IUnknown* poisoned = reinterpret_cast<IUnknown*>(0xCAFE);
    EXPECT_EQ(getObject(itf, 0, &poisoned), S_FALSE);
    EXPECT_EQ(poisoned, nullptr);
    SmartPtr<ISuperCollection> table(HOSTNewCollection());
    EXPECT_EQ(putObject(itf, 0, table.get()), S_OK);
    EXPECT_EQ(putObject(itf, 2, table.get()), E_INVALIDARG);
    SmartPtr<IUnknown> bound;
    EXPECT_EQ(getObject(itf, 0, bound.Out()), S_OK);
    EXPECT_EQ(static_cast<void*>(bound.get()), static_cast<void*>(table.get()));
    SmartPtr<IString> step(HOSTNewString(L"Step")), name;
    int32_t index = -1;
    EXPECT_EQ(inputs->get_Index(step.get(), &index), S_OK);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(inputs->get_ItemName(0, name.Out()), S_OK);
    EXPECT_EQ(HOSTText(name.get()), L"RunningObjectTable");
}

TEST_F(HostCore, MonikersResolveNamesInACollection) {
    SmartPtr<ISuperCollection> collection(HOSTNewCollection()), target(HOSTNewCollection()), other(HOSTNewCollection());
    collection->Add(SmartPtr<IString>(HOSTNewString(L"Target")).get(), target.get(), 0, 0);
    SmartPtr<ICollectionMoniker> moniker = Create<ICollectionMoniker>(L"CollectionMoniker", IID_ICollectionMoniker);
    ASSERT_TRUE(moniker);
    static_cast<CCollectionMoniker*>(moniker.get())->SetName(L"Target");
    SmartPtr<INamedCollection> found;
    EXPECT_EQ(moniker->BindToObject(&IID_INamedCollection, found.OutVoid()), E_FAIL) << "not bound yet";
    EXPECT_EQ(moniker->BindToCollection(collection.get(), 0), S_OK);

    // An input with a moniker delivers the named object; a bound reference takes precedence.
    SmartPtr<IInputParameter> input = Create<IInputParameter>(L"InputParameter", IID_IInputParameter);
    input->put_InterfaceID(IID_INamedCollection);
    input->put_Moniker(moniker.get());
    SmartPtr<IUnknown> value;
    EXPECT_EQ(input->get_Value(value.Out()), S_OK);
    EXPECT_EQ(static_cast<void*>(value.get()), static_cast<void*>(target.get()));
    input->put_Reference(other.get());
    EXPECT_EQ(input->get_Value(value.Out()), S_OK);
    EXPECT_EQ(static_cast<void*>(value.get()), static_cast<void*>(other.get()));
    input->put_Reference(nullptr);

    // Bound again to a collection that lacks the name, the moniker names nothing.
    EXPECT_EQ(moniker->BindToCollection(other.get(), 0), E_FAIL);
    EXPECT_EQ(input->get_Value(value.Out()), E_FAIL);
    EXPECT_FALSE(value);
}

// Saved: one child folder per input with its flags and identifier. Loaded: into the declared
// inputs of the same names only, and only from a folder that lists its children.
TEST_F(HostCore, InputsPersistFlagsAndIdentifiersByName) {
    SmartPtr<FakeFolder> folder(new FakeFolder(true)), unlisted(new FakeFolder(false));
    SmartPtr<IDataPersist> saved = QueryAs<IDataPersist>(Declare({{L"A", 5}, {L"B", 6}}).get(), IID_IDataPersist);
    EXPECT_EQ(saved->Save(folder.get(), 0), S_OK);
    ASSERT_EQ(folder->children.size(), 2u);
    EXPECT_EQ(folder->children[0].first + folder->children[1].first, L"AB");
    EXPECT_EQ(folder->children[1].second->entries[L"IID"], std::string(reinterpret_cast<const char*>(IID_IStep.bytes), 16));
    EXPECT_EQ(saved->Save(nullptr, 0), S_OK);

    SmartPtr<IInputParameters> loaded = Declare({{L"C", 9}, {L"B", 0}});
    SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(loaded.get(), IID_IDataPersist);
    EXPECT_EQ(persist->Load(unlisted.get(), 0), S_OK);
    EXPECT_EQ(persist->Load(folder.get(), 0), S_OK);
    const struct { int32_t flags; IID iid; } expected[] = {{9, IID_IStep}, {6, IID_IStep}};
    for (int32_t index = 0; index < 2; ++index) {
        int32_t flags = -1;
        IID iid{};
        InputAt(loaded.get(), index)->get_InputFlags(&flags);
        InputAt(loaded.get(), index)->get_InterfaceID(&iid);
        EXPECT_EQ(flags, expected[index].flags) << index;
        EXPECT_EQ(iid, expected[index].iid) << index;
    }
}

// QueryInterface of every host class, asked for every interface there is: each answers exactly its
// own, with one object identity and one new reference, and nothing else.
struct Interface {
    const char* name;
    const IID* iid;
};
#define WKS_TEST_INTERFACE(name) {#name, &IID_##name},
const Interface kEvery[] = {WKS_INTERFACE_LIST(WKS_TEST_INTERFACE)};
#undef WKS_TEST_INTERFACE

int32_t References(IUnknown* object) {
    object->AddRef();
    return object->Release();
}

IUnknown* Identity(IUnknown* object) { return QueryAs<IUnknown>(object, IID_IUnknown).get(); }

// Asks `object` for every interface; `answers` names (blank-separated) those it must answer.
void ExpectAnswers(IUnknown* object, const std::string& answers, const std::string& what) {
    std::set<std::string> expected;
    std::istringstream names(answers);
    for (std::string name; names >> name;) expected.insert(name);
    IUnknown* identity = Identity(object);
    ASSERT_NE(identity, nullptr) << what;
    EXPECT_EQ(object->QueryInterface(IID_IUnknown, nullptr), E_POINTER) << what;
    for (const Interface& itf : kEvery) {
        const int32_t before = References(object);
        void* answer = reinterpret_cast<void*>(0xCAFECAFE);
        const HRESULT hr = object->QueryInterface(*itf.iid, &answer);
        if (expected.count(itf.name) == 0) {
            EXPECT_EQ(hr, E_NOINTERFACE) << what << " " << itf.name;
            EXPECT_EQ(answer, nullptr) << what << " " << itf.name;
            continue;
        }
        ASSERT_EQ(hr, S_OK) << what << " " << itf.name;
        SmartPtr<IUnknown> held(static_cast<IUnknown*>(answer));
        EXPECT_EQ(References(object), before + 1) << what << " " << itf.name;
        EXPECT_EQ(Identity(held.get()), identity) << what << " " << itf.name;
    }
}

// A workspace object answers the interfaces of its kind; identifiers that agree in their first
// twelve characters (IFileNameCollection, IFileNameCollectionBase) are still told apart.
TEST_F(HostCore, WorkspaceObjectsAnswerTheInterfacesOfTheirKind) {
    const struct { const char* kind; const char* answers; } rows[] = {
        {"container", "INamedCollection"},
        {"step", "IStep"},
        {"io", "IDigitalIO"},
        {"result", "IResultParameter"},
        {"toolbar", "INamedCollection IButtonCollection IToolbarHost"},
        {"button", "IButton"},
        {"manager", "INamedCollection IUIManager _IUIContainerEvents"},
        {"managers", "IUIManagerCollection"},
        {"files", "INamedCollection IFileNameCollection"},
        {"search", "IKQSearch"},
        {"tabs", "INamedCollection ITabCollection IUIFolderSelectable"},
    };
    std::string toml;
    for (const auto& row : rows) toml += std::string("[[object]]\nname = \"") + row.kind + "\"\nkind = \"" + row.kind + "\"\n";
    toml += "selector = true\n";  // on the last one, "tabs": a facet that combines with another
    Workspace workspace;
    std::string error;
    ASSERT_TRUE(WorkspaceLoad(toml, "t.toml", workspace, error)) << error;
    for (const auto& row : rows) {
        const std::wstring name(row.kind, row.kind + std::strlen(row.kind));
        CWorkspaceObject* object = workspace.Find(name);
        ASSERT_NE(object, nullptr) << row.kind;
        ExpectAnswers(static_cast<IObjectInfo*>(object), std::string(row.answers) + " IObjectInfo", row.kind);
        // IObjectInfo sits away from the object's start: the pointer handed out must be that base.
        SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(static_cast<IStep*>(object), IID_IObjectInfo);
        tagREFString got{0, nullptr};
        ASSERT_EQ(info->GetName(0, &got), S_OK);
        EXPECT_EQ(std::wstring(got.text, got.length), name);
    }
    ExpectAnswers(workspace.table.get(), "INamedCollection IRunningObjectTableEx IObjectInfo", "root");
}

// Items of every kind the streams know: an integer, a text in a variant, a bare string without a
// name, an object without a name of its own, an empty variant, and reals without names, which print
// in fixed point with the fewest decimals that read back as the value (0.29 and 12345.6789 as
// typed, though neither times a power of ten is whole in binary; 0.999999999 not rounded up) or
// come within 1e-8 of it from above (0.1 + 0.2 as 0.3), without the zeros nine decimals may round
// up to (9.999999999999 as 10), or in exponent notation where the fixed text would not fit 255
// characters.
TEST_F(HostCore, CSVAndINIWriteOneEntryPerItem) {
    SmartPtr<ISuperCollection> sample(HOSTNewCollection()), nameless(HOSTNewCollection());
    SmartPtr<IVariant> integer = NewVariant(), text = NewVariant(), empty = NewVariant();
    SmartPtr<IString> hello(HOSTNewString(L"Hello")), bare(HOSTNewString(L"bare"));
    integer->put_Integer(100);
    text->put_String(hello.get());
    const std::pair<const wchar_t*, IUnknown*> items[] = {{L"Var1", integer.get()}, {L"Var2", text.get()}, {nullptr, bare.get()},
                                                          {L"Obj", nameless.get()}, {L"E", empty.get()}};
    for (const auto& [name, value] : items) sample->Add(SmartPtr<IString>(name ? HOSTNewString(name) : nullptr).get(), value, 0, 0);
    for (double value : {-0.125, 1.0 / 3, 7766279631452241920.0, 1e300, -2.5e300, 1.234567891e290, 1e20, -HUGE_VAL,
                         -0.0, -7.0, 999999999999999.0, 1e15, 0.29, 12345.6789,
                         0.999999999, 1e15 + 0.5, 0.1 + 0.2, 9.999999999999}) {
        SmartPtr<IVariant> number = NewVariant();
        number->put_Double(value);
        sample->Add(nullptr, number.get(), 0, 0);
    }
    SmartPtr<IVariant> lowest = NewVariant();
    lowest->put_Integer(INT32_MIN);
    sample->Add(nullptr, lowest.get(), 0, 0);
    SmartPtr<ICSVStream> csv;
    SmartPtr<IINIStream> ini;
    ASSERT_EQ(HOSTCreateCSVStream(nullptr, &IID_ICSVStream, csv.OutVoid()), S_OK);
    ASSERT_EQ(HOSTCreateINIStream(nullptr, &IID_IINIStream, ini.OutVoid()), S_OK);
    for (int pass = 0; pass < 2; ++pass) {  // writing twice after Open shows that Open starts over
        csv->Open(0, 0x30000);
        csv->WriteObject(sample.get(), 0);
        ini->Open(0);
        ini->WriteObject(sample.get());
    }
    std::wstring csvText, iniText;
    for (const wchar_t* entry : {L"Var1=100", L"Var2=Hello", L"bare", L"Obj=", L"E=", L"-0.125", L"0.333333333", L"7766279631452241920",
                                 L"1e+300", L"-2.5e+300", L"1.234567891e+290", L"100000000000000000000", L"-inf",
                                 L"-0", L"-7", L"999999999999999", L"1000000000000000", L"0.29", L"12345.6789",
                                 L"0.999999999", L"1000000000000000.5", L"0.3", L"10", L"-2147483648"}) {
        csvText += (csvText.empty() ? L"" : L",") + std::wstring(entry);
        iniText += (iniText.empty() ? L"" : L"\n") + std::wstring(entry);
    }
    EXPECT_EQ(Content(csv.get()), csvText);
    EXPECT_EQ(Content(ini.get()), iniText);
    EXPECT_EQ(ini->Write(L"|x", 2 * sizeof(wchar_t), 0), S_OK);
    EXPECT_EQ(Content(ini.get()), iniText + L"|x") << "raw bytes are appended";
    std::wstring doubled = Content(ini.get());
    for (int round = 0; round < 3; ++round) {  // the stream's own text, written back as it grows
        void* data = nullptr;
        int32_t bytes = 0;
        ini->GetBuffer(&data, &bytes);
        EXPECT_EQ(ini->Write(data, bytes, 0), S_OK);
        doubled += doubled;
    }
    EXPECT_EQ(Content(ini.get()), doubled);
}

// A name is found without copying it, in lists short enough to scan and in hashed ones, across
// the growth from one to the other; the first entry of a repeated name is the one found.
// Two rows of an interface map may name one identifier for objects of different facets: the
// first row that fits answers, in a map large enough to be hashed.
struct InfoA : IObjectInfo {};
struct InfoB : IObjectInfo {};
class Faceted final : public InfoA, public InfoB, public CHostObject<Faceted> {
public:
    explicit Faceted(unsigned facets) : m_Facets(facets) {}
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    HRESULT GetName(int32_t, tagREFString*) override { return E_NOTIMPL; }
    unsigned m_Facets;
};
constexpr HOSTInterfaceEntry<Faceted> kFacetedRows[] = {
    HOSTAnswer<Faceted, InfoA>(IID_IString, 8),       HOSTAnswer<Faceted, InfoA>(IID_IObjectInfo, 1),
    HOSTAnswer<Faceted, InfoB>(IID_IObjectInfo, 2 | 1), HOSTAnswer<Faceted, InfoB>(IID_IVariant, 8),
};
HRESULT Faceted::QueryInterface(const IID& iid, void** object) { return HOSTQueryInterface<kFacetedRows>(this, iid, object, m_Facets); }

// Asks `object` through the map `Table` for `iid`: `want` (null: no answer), with the result code
// that goes with it; the reference an answer holds is released.
template <const auto& Table>
void ExpectAnswer(Faceted* object, const IID& iid, void* want, int label) {
    void* found = reinterpret_cast<void*>(0x1);
    const HRESULT hr = HOSTQueryInterface<Table>(object, iid, &found, object->m_Facets);
    EXPECT_EQ(found, want) << label;
    EXPECT_EQ(hr, want ? S_OK : E_NOINTERFACE) << label;
    if (found) static_cast<IUnknown*>(found)->Release();
}

TEST(InterfaceMap, TheFirstRowThatFitsTheFacetsAnswers) {
    const struct { unsigned facets; int row; } rows[] = {{1, 1}, {2, 2}, {3, 1}, {4, 0}};  // 0: none answers
    for (const auto& row : rows) {
        Faceted* object = new Faceted(row.facets);
        void* const want = row.row == 1 ? static_cast<void*>(static_cast<InfoA*>(object))
                           : row.row == 2 ? static_cast<void*>(static_cast<InfoB*>(object)) : nullptr;
        ExpectAnswer<kFacetedRows>(object, IID_IObjectInfo, want, static_cast<int>(row.facets));
        object->HostRelease();
    }
}

// A hashed map reads one slot an identifier: every identifier the framework knows, the null one
// (which an empty slot would hold) and IUnknown (the first row's interface) are answered exactly
// as the rows say.
TEST(InterfaceMap, AnswersOnlyTheIdentifiersItNames) {
    static const IID* const known[] = {
#define WKS_IID_ADDRESS(name) &IID_##name,
        WKS_INTERFACE_LIST(WKS_IID_ADDRESS)
#undef WKS_IID_ADDRESS
        &IID_NULL, &IID_IUnknown,
    };
    Faceted* object = new Faceted(8 | 2);
    void* const a = static_cast<InfoA*>(object);
    void* const b = static_cast<InfoB*>(object);
    for (size_t k = 0; k < std::size(known); ++k) {
        const IID& iid = *known[k];
        void* const want = iid == IID_IString || iid == IID_IUnknown ? a
                           : iid == IID_IObjectInfo || iid == IID_IVariant ? b : nullptr;
        ExpectAnswer<kFacetedRows>(object, iid, want, static_cast<int>(k));
    }
    object->HostRelease();
}

// Two identifiers whose halves mix to one key share a slot whatever the multiplier: such a map
// answers by scanning its rows, as the slots would have answered.
IID IIDOfHalves(uint64_t low, uint64_t high) {
    IID iid;
    std::memcpy(iid.bytes, &low, 8);
    std::memcpy(iid.bytes + 8, &high, 8);
    return iid;
}
const IID kMixedA = IIDOfHalves(1, 0), kMixedB = IIDOfHalves(1 - 0x9E3779B97F4A7C15ull, 1);
constexpr HOSTInterfaceEntry<Faceted> kCollidingRows[] = {
    HOSTAnswer<Faceted, InfoA>(kMixedA), HOSTAnswer<Faceted, InfoB>(kMixedB),
    HOSTAnswer<Faceted, InfoA>(IID_IObjectInfo, 2), HOSTAnswer<Faceted, InfoB>(IID_IObjectInfo, 1),
};

TEST(InterfaceMap, IdentifiersNoMultiplierPartsAreScanned) {
    Faceted* object = new Faceted(1);
    void* const a = static_cast<InfoA*>(object);
    void* const b = static_cast<InfoB*>(object);
    const struct { const IID* iid; void* want; } rows[] = {
        {&kMixedA, a}, {&kMixedB, b}, {&IID_IObjectInfo, b}, {&IID_IVariant, nullptr}, {&IID_NULL, nullptr}, {&IID_IUnknown, a}};
    for (const auto& row : rows) ExpectAnswer<kCollidingRows>(object, *row.iid, row.want, static_cast<int>(&row - rows));
    EXPECT_EQ((HOSTMapSlots<kCollidingRows, Faceted>::Mode()), HOST_MAP_ROWS) << "no multiplier parts them";
    object->HostRelease();
}

TEST(NameIndex, FindsTheFirstEntryOfEveryName) {
    for (int count : {1, 8, 9, 40, 1000}) {
        std::vector<std::wstring> names;
        CNameIndex index;
        auto nameAt = [&](int32_t i) { return std::wstring_view(names[static_cast<size_t>(i)]); };
        auto add = [&](const std::wstring& name) {
            names.push_back(name);
            index.Add(name, static_cast<int32_t>(names.size()) - 1, static_cast<int32_t>(names.size()), nameAt);
        };
        for (int i = 0; i < count; ++i) add(L"n" + std::to_wstring(i));
        add(L"n0");  // a repeat, after every other
        const int32_t size = static_cast<int32_t>(names.size());
        for (int i = 0; i < count; ++i) EXPECT_EQ(index.Find(L"n" + std::to_wstring(i), size, nameAt), i) << count;
        EXPECT_EQ(index.Find(L"n" + std::to_wstring(count), size, nameAt), -1) << count;
        EXPECT_EQ(index.Find(L"N0", size, nameAt), -1) << "names are compared exactly";
        EXPECT_EQ(index.Find(L"", size, nameAt), -1) << count;
    }
}

// Removing a string table entry never makes its component known.
TEST_F(HostCore, StringTableRemovalMakesNoComponentKnown) {
    SmartPtr<IStringTable> table;
    ASSERT_EQ(HOSTCreateStringTable(nullptr, &IID_IStringTable, table.OutVoid()), S_OK);
    HOSTSetComponentString(L"NoSuchComponent", 1, nullptr);
    SmartPtr<INamedCollection> strings;
    EXPECT_EQ(table->get_ComponentStrings(SmartPtr<IString>(HOSTNewString(L"NoSuchComponent")).get(), strings.Out()), E_FAIL);
}

using Route = std::function<HRESULT(void** made)>;

Route Creator(CREATORFUNCTION creator) {
    return [creator](void** made) {
        IID unknown = IID_IUnknown;
        return creator(nullptr, &unknown, made);
    };
}

template <class Make>
Route New(Make make) {
    return [make](void** made) {
        *made = static_cast<IUnknown*>(make());
        return S_OK;
    };
}

// Every way the host makes an object: what it makes answers exactly its interfaces (where the row
// names them); when its creation fails as an exhausted memory would, it reports `failure` with no
// object and leaves nothing behind, and the creation after it succeeds.
TEST_F(HostCore, EveryCreationRouteAnswersItsInterfacesAndFailsOnceAsOutOfMemory) {
    ExpectAnswers(m_Global.get(), "IComponentCollection", "GlobalComponentCollection");
    SmartPtr<IComponentString> described;
    HOSTCreateComponentString(nullptr, &IID_IComponentString, described.OutVoid());
    described->put_Field(1, tagREFString{7, L"Variant"});
    SmartPtr<IInputParameters> inputs;
    HOSTCreateInputParameters(nullptr, &IID_IInputParameters, inputs.OutVoid());
    const int32_t live = HOSTLiveObjects();
    const char* const parameters = "IParametersCreatable IParameters INamedCollection ISimpleCollection";
    const char* const moniker = "ICollectionMoniker IDataPersist IObjectInfo";
    const char* const folder = "IFolderStream IDataStream INamedCollection ISimpleCollection";
    const struct {
        const char* route;
        Route make;
        HRESULT failure;      // what the route reports when its creation fails
        const char* answers;  // the interfaces of what it makes, blank-separated
    } rows[] = {
        {"HOSTNewString", New([] { return HOSTNewString(L"text"); }), S_OK, "IString ICreatableString"},
        {"HOSTNewCollection", New(HOSTNewCollection), S_OK, "ISuperCollection INamedCollection ISimpleCollection"},
        {"HOSTNewParameters", New(HOSTNewParameters), S_OK, parameters},
        {"HOSTNewCollectionMoniker", New([] { return HOSTNewCollectionMoniker(L"m"); }), S_OK, moniker},
        {"HOSTNewFolderStream", New(HOSTNewFolderStream), S_OK, folder},
        {"CreatableString", Creator(HOSTCreateString), E_FAIL, "IString ICreatableString"},
        {"Variant", Creator(HOSTCreateVariant), E_FAIL, "IVariant"},
        {"SuperCollection", Creator(HOSTCreateSuperCollection), E_FAIL, "ISuperCollection INamedCollection ISimpleCollection"},
        {"ComponentString", Creator(HOSTCreateComponentString), E_FAIL, "IComponentString"},
        {"CSVStream", Creator(HOSTCreateCSVStream), E_FAIL, "ICSVStream IDataStream"},
        {"INIStream", Creator(HOSTCreateINIStream), E_FAIL, "IINIStream IDataStream"},
        {"FolderStream", Creator(HOSTCreateFolderStream), E_FAIL, folder},
        {"StringTable", Creator(HOSTCreateStringTable), E_FAIL, "IStringTable"},
        {"ParametersCreatable", Creator(HOSTCreateParameters), E_FAIL, parameters},
        {"InputParameters", Creator(HOSTCreateInputParameters), E_FAIL,
         "IInputParameters INamedCollection ISimpleCollection IDataPersist IObjectInfo"},
        {"InputParameter", Creator(HOSTCreateInputParameter), E_FAIL, "IInputParameter IDataPersist IObjectInfo"},
        {"XMLStream", Creator(HOSTCreateXMLStream), E_FAIL, "IXMLStream IDataStream IString"},
        {"Registry", Creator(HOSTCreateRegistry), E_FAIL, "IRegistry IRegistryEx"},
        {"CollectionMoniker", Creator(HOSTCreateCollectionMoniker), E_FAIL, moniker},
        {"CreateComponent", [&](void** made) { return m_Global->CreateComponent(tagREFString{7, L"Variant"}, &IID_IVariant, made); }, E_FAIL, nullptr},
        {"CreateInstance", [&](void** made) { return described->CreateInstance(&IID_IVariant, made); }, E_FAIL, nullptr},
        // An input belongs to its collection: the one added, if any, is what came out.
        {"AddInput", [&](void** made) {
             int32_t before = 0, after = 0;
             inputs->get_Count(&before);
             const HRESULT hr = inputs->AddInput(nullptr, IID_IUnknown, 0);
             inputs->get_Count(&after);
             if (after > before) inputs->get_Item(before, reinterpret_cast<IUnknown**>(made));
             return hr;
         }, E_FAIL, nullptr},
    };
    for (const auto& row : rows) {
        HOSTFailCreation(1);
        for (int attempt = 1; attempt <= 2; ++attempt) {
            void* out = reinterpret_cast<void*>(0xCAFECAFE);
            const HRESULT hr = row.make(&out);
            SmartPtr<IUnknown> made(static_cast<IUnknown*>(out == reinterpret_cast<void*>(0xCAFECAFE) ? nullptr : out));
            EXPECT_EQ(hr, attempt == 1 ? row.failure : S_OK) << row.route << ", attempt " << attempt;
            EXPECT_EQ(static_cast<bool>(made), attempt == 2) << row.route << ": only the chosen creation fails";
            EXPECT_EQ(HOSTCreationCount(), attempt) << row.route;
            if (attempt == 1) {
                EXPECT_EQ(HOSTLiveObjects(), live) << row.route << " left something behind";
            } else if (made && row.answers) {
                ExpectAnswers(made.get(), row.answers, row.route);
            }
        }
    }
}

TEST_F(HostCore, FailCreationCountsFromTheCallAndFailsOnlyTheChosenCreation) {
    HOSTFailCreation(3);
    SmartPtr<IString> first(HOSTNewString(L"1")), second(HOSTNewString(L"2")), third(HOSTNewString(L"3")),
        fourth(HOSTNewString(L"4"));
    EXPECT_TRUE(first && second && fourth);
    EXPECT_FALSE(third);
    EXPECT_EQ(HOSTCreationCount(), 4);
    HOSTFailCreation(0);
    EXPECT_EQ(HOSTCreationCount(), 0) << "the count starts again";
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(SmartPtr<IString>(HOSTNewString(L"x"))) << "0 fails nothing";
    EXPECT_EQ(HOSTCreationCount(), 3);
}

}  // namespace
