// The component templates (parameter collection, input parameters, property interrogation table)
// exercised through the interface slots of one component built from all three, as the protocol
// object is, and as any other module would reach it.
#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "interrogate/PropInterrogateImpl.h"
#include "parameters/InputParametersImpl.h"
#include "support/Fakes.h"
#include "text/Conversions.h"

namespace {

class CTestComponent final : public CObject<CTestComponent>,
                             public InputParametersImpl<CTestComponent, IParametersCreatable>,
                             public IUIPropInterrogateImpl<CTestComponent, IUIPropInterrogateEx, 10> {
public:
    static int s_Live;
    static bool s_Register;
    CTestComponent() { ++s_Live; }
    ~CTestComponent() {
        --s_Live;
        if (text) text->Release();
        if (object) object->Release();
    }

    HRESULT QueryInterface(const IID& iid, void** object) override {
        *object = nullptr;
        if (iid == IID_IUnknown) *object = static_cast<CObject<CTestComponent>*>(this);
        else if (iid == IID_IParametersCreatable || iid == IID_IParameters || iid == IID_INamedCollection)
            *object = static_cast<IParametersCreatable*>(this);
        else if (iid == IID_IBindableObject) *object = static_cast<IBindableObject*>(this);
        else if (iid == IID_IDataPersist) *object = static_cast<IDataPersist*>(this);
        else if (iid == IID_IUIPropInterrogateEx) *object = static_cast<IUIPropInterrogateEx*>(this);
        else if (iid == IID_IInputParameters && m_InputParameters)
            return m_InputParameters->QueryInterface(iid, object);
        if (*object == nullptr) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    int32_t AddRef() override { return CObject::AddRef(); }
    int32_t Release() override { return CObject::Release(); }
    HRESULT Lock() override { ++locks; return S_OK; }
    HRESULT Unlock() override { ++unlocks; return S_OK; }
    // Like a real component, a replica registers its parameters at construction.
    HRESULT FinalConstruct() override {
        if (!s_Register) return S_OK;
        SmartPtr<IString> plain(ISCreate(L"Plain")), bound(ISCreate(L"Bound"));
        Add(plain.get(), nullptr, nullptr, 0);
        Add(bound.get(), nullptr, nullptr, 0x40);
        return S_OK;
    }

    // Recorders for the slots the dispatch calls.
    HRESULT Params_SaveXML(IDataStream*, int32_t mode) override { calls.emplace_back("SaveXML", mode); return S_OK; }
    HRESULT Params_LoadXML(IDataStream*, int32_t mode, int32_t) override { calls.emplace_back("LoadXML", mode); return S_OK; }
    HRESULT Params_SaveFolderStream(IDataStream* s, int32_t mode) override {
        if (!record) return IParametersImpl::Params_SaveFolderStream(s, mode);
        calls.emplace_back(s ? "SaveFolder" : "SaveFolder(null)", mode);
        return S_OK;
    }
    HRESULT Params_LoadFolderStream(IDataStream* s, int32_t mode) override {
        if (!record) return IParametersImpl::Params_LoadFolderStream(s, mode);
        calls.emplace_back("LoadFolder", mode);
        return S_OK;
    }
    bool record = true;  // the folder format's slots record their calls instead of working
    HRESULT getParameter(PARAMETEROBJECT* entry, IUnknown** value) override {
        ++reads;
        return IParametersImpl::getParameter(entry, value);
    }

    using InputParametersImpl::m_InputParameters;
    using InputParametersImpl::m_UseSections;
    using IUIPropInterrogateImpl::m_ItemCapacity;
    std::vector<std::pair<std::string, int32_t>> calls;
    int locks = 0, unlocks = 0, reads = 0;
    // The variables of the property table's items.
    uint8_t byte = 0;
    int16_t word = 0;
    int32_t integer = 0;
    float single = 0;
    double real = 0;
    IString* text = nullptr;
    IUnknown* object = nullptr;
};
int CTestComponent::s_Live = 0;
bool CTestComponent::s_Register = false;

int32_t Bits(float f) {
    int32_t bits;
    std::memcpy(&bits, &f, 4);
    return bits;
}

class Templates : public ::testing::Test {
protected:
    void SetUp() override {
        m_Fakes = FakeLive();
        ASSERT_EQ(CObject<CTestComponent>::_CreateInstance(nullptr, &IID_IParametersCreatable, m_P.OutVoid()), S_OK);
        s = static_cast<CTestComponent*>(m_P.get());
        m_Table = QueryAs<IUIPropInterrogateEx>(m_P.get(), IID_IUIPropInterrogateEx);
    }
    void TearDown() override {
        m_Table.Reset();
        m_P.Reset();
        EXPECT_EQ(CTestComponent::s_Live, 0);
        EXPECT_EQ(FakeLive(), m_Fakes);
    }
    void AddInt(const wchar_t* name, int value, int32_t flags = 0, IUnknown* descriptor = nullptr) {
        SmartPtr<IString> n(name ? ISCreate(name) : nullptr);
        SmartPtr<IVariant> v(IVCreate(value));
        ASSERT_EQ(m_P->Add(n.get(), v.get(), descriptor, flags), S_OK);
    }
    // Every entry as "name=value/flags", blank-separated; an entry without a name shows "<null>".
    static std::wstring Listing(IParameters* p) {
        std::wstring listing;
        int32_t count = 0;
        p->get_Count(&count);
        for (int32_t i = 0; i < count; ++i) {
            SmartPtr<IString> name;
            SmartPtr<IVariant> value;
            int32_t flags = 0;
            p->get_ItemName(i, name.Out());
            p->get_ItemVariant(i, value.Out());
            p->get_ItemFlags(i, &flags);
            listing += (i ? L" " : L"") + TextOf(name.get()) + L"=" + std::to_wstring(value ? value->get_Integer() : -999) +
                       L"/" + std::to_wstring(flags);
        }
        return listing;
    }
    SmartPtr<IParametersCreatable> m_P;
    SmartPtr<IUIPropInterrogateEx> m_Table;
    CTestComponent* s = nullptr;
    int m_Fakes = 0;
};

TEST_F(Templates, GrowthKeepsOrderThroughTheSlots) {
    std::wstring expected;
    for (int i = 0; i < 25; ++i) {
        SmartPtr<IString> name(ISCreate(i));
        SmartPtr<IVariant> value(IVCreate(i * 10));
        auto add = Slot<HRESULT (*)(void*, IString*, IUnknown*, IUnknown*, int32_t)>(m_P.get(), 18);
        ASSERT_EQ(add(m_P.get(), name.get(), value.get(), nullptr, i), S_OK);
        expected += (i ? L" " : L"") + std::to_wstring(i) + L"=" + std::to_wstring(i * 10) + L"/" + std::to_wstring(i);
    }
    int32_t count = 0;
    Slot<HRESULT (*)(void*, int32_t*)>(m_P.get(), 3)(m_P.get(), &count);
    EXPECT_EQ(count, 25);
    EXPECT_EQ(Listing(m_P.get()), expected);
    SmartPtr<IVariant> none;
    EXPECT_EQ(m_P->get_ItemVariant(25, none.Out()), E_INVALIDARG);
    EXPECT_EQ(m_P->Remove(-1), E_INVALIDARG);
}

// Entries are found by index, exact name, a variant's name, the identity of their value object and
// then of their descriptor; every value is a variant, and an input's delivered value wins.
// An object that counts how often it is asked for its identity.
class Stranger final : public Fake<IObjectInfo> {
public:
    HRESULT QueryInterface(const IID& iid, void** object) override {
        identity += iid == IID_IUnknown;
        return Fake::QueryInterface(iid, object);
    }
    bool Answers(const IID&) override { return false; }
    HRESULT GetName(int32_t, tagREFString*) override { return E_FAIL; }
    int identity = 0;
};

TEST_F(Templates, KeysValuesAndInputs) {
    // An object key's identity is asked once for every entry that holds an object or a descriptor
    // to compare it with, and only then.
    SmartPtr<Stranger> stranger(new Stranger());
    int32_t notFound = 12345;
    AddInt(L"Plain", 1);
    EXPECT_EQ(m_P->get_Index(stranger.get(), &notFound), E_FAIL);
    EXPECT_EQ(stranger->identity, 0);
    m_P->RemoveAll();

    m_P->Add(nullptr, nullptr, nullptr, 0);  // no value: an empty text
    AddInt(L"Other", 2);
    SmartPtr<ISuperCollection> object(CREFString::CreateCollection());
    m_P->Add(SmartPtr<IString>(ISCreate(L"Obj")).get(), object.get(), nullptr, 0);
    SmartPtr<FakeInput> input(new FakeInput());
    input->value.Attach(IVCreate(42));
    AddInt(L"Bound", 1, 0, input.get());
    SmartPtr<IString> other(ISCreate(L"Other"));
    const struct { IUnknown* key; HRESULT result; int32_t index; } rows[] = {
        {IVCreate(7), S_OK, 7},  // a number is the index, unchecked
        {ISCreate(L"Other"), S_OK, 1},     {ISCreate(L"other"), E_FAIL, -1},  {ISCreate(L""), E_FAIL, -1},
        {IVCreate(other.get()), S_OK, 1},  {object.Copy(), S_OK, 2},          {input.Copy(), S_OK, 3},
    };
    for (const auto& row : rows) {
        SmartPtr<IUnknown> key(row.key);
        int32_t index = 12345;
        EXPECT_EQ(m_P->get_Index(key.get(), &index), row.result);
        EXPECT_EQ(index, row.index);
    }
    int32_t untouched = 12345;
    EXPECT_EQ(m_P->get_Index(nullptr, &untouched), E_FAIL);
    EXPECT_EQ(m_P->get_Index(stranger.get(), &untouched), E_FAIL);
    EXPECT_EQ(untouched, 12345);
    EXPECT_EQ(stranger->identity, 2) << "one entry holds an object, one a descriptor";

    SmartPtr<IUnknown> item;
    ASSERT_EQ(m_P->get_Item(0, item.Out()), S_OK);
    EXPECT_EQ(TextOf(QueryAs<IString>(item.get(), IID_IString).get()), L"");
    EXPECT_EQ(m_P->get_Item(0, nullptr), E_POINTER);
    SmartPtr<IVariant> shared(IVCreate(5));
    m_P->put_Item(0, shared.get());
    shared->put_Integer(6);
    EXPECT_EQ(Listing(m_P.get()), L"<null>=6/0 Other=2/0 Obj=0/0 Bound=42/0") << "put_Item keeps the caller's variant";
    SmartPtr<IVariant> value;
    EXPECT_EQ(m_P->get_ItemVariant(3, value.Out()), S_FALSE) << "delivered through the input";
    input->value.Reset();
    value.Reset();
    EXPECT_EQ(m_P->get_ItemVariant(3, value.Out()), S_OK) << "the stored value is the fall-back";
    EXPECT_EQ(value->get_Integer(), 1);
    EXPECT_GT(s->reads, 0) << "reads go through the getParameter slot";
    EXPECT_GT(s->locks, 0) << "and lock through the owner";
}

// A removed entry lets go of its name, its value and its descriptor in that order.
TEST_F(Templates, RemoveReleasesNameValueDescriptor) {
    static std::string released;
    struct Name final : Fake<IString> {
        ~Name() override { released += "name "; }
        bool Answers(const IID& iid) override { return iid == IID_IString; }
        HRESULT GetText(wchar_t** text, int32_t* length) override { *text = m_Text; *length = 1; return S_OK; }
        HRESULT SetText(int32_t, const wchar_t*) override { return E_NOTIMPL; }
        HRESULT AppendText(int32_t, const wchar_t*) override { return E_NOTIMPL; }
        wchar_t m_Text[2] = L"n";
    };
    struct Value final : Fake<IUnknown> {
        ~Value() override { released += "value "; }
        bool Answers(const IID&) override { return false; }
    };
    struct Descriptor final : Fake<IInputParameter> {
        ~Descriptor() override { released += "descriptor "; }
        bool Answers(const IID&) override { return false; }
        HRESULT get_InterfaceID(IID*) override { return E_NOTIMPL; }
        HRESULT put_InterfaceID(IID) override { return E_NOTIMPL; }
        HRESULT get_Value(IUnknown**) override { return E_NOTIMPL; }
        HRESULT get_Moniker(IUnknown**) override { return E_NOTIMPL; }
        HRESULT put_Moniker(IUnknown*) override { return E_NOTIMPL; }
        HRESULT get_Reference(IUnknown**) override { return E_NOTIMPL; }
        HRESULT put_Reference(IUnknown*) override { return E_NOTIMPL; }
        HRESULT get_InputFlags(int32_t*) override { return E_NOTIMPL; }
        HRESULT put_InputFlags(int32_t) override { return E_NOTIMPL; }
        HRESULT get_BindFlags(int32_t*) override { return E_NOTIMPL; }
    };
    for (bool all : {false, true}) {
        released.clear();
        {
            SmartPtr<IString> name(new Name());
            SmartPtr<IUnknown> value(new Value());
            SmartPtr<IInputParameter> descriptor(new Descriptor());
            ASSERT_EQ(m_P->Add(name.get(), value.get(), descriptor.get(), 0), S_OK);
        }
        EXPECT_EQ(all ? m_P->RemoveAll() : m_P->Remove(0), S_OK);
        EXPECT_EQ(released, "name value descriptor ") << (all ? "RemoveAll" : "Remove");
    }
}

TEST_F(Templates, CopyRemoveAndSort) {
    AddInt(L"b", 1);
    AddInt(L"B", 2, 7);
    AddInt(nullptr, 3);
    AddInt(L"a", 4);
    EXPECT_EQ(m_P->Copy(QueryAs<IParameters>(m_P.get(), IID_IParameters).get()), S_OK);
    EXPECT_EQ(Listing(m_P.get()), L"b=1/0 B=2/7 <null>=3/0 a=4/0 b=1/0 B=2/7 <null>=3/0 a=4/0") << "the source's count is read once";
    m_P->Remove(0);
    m_P->Sort(0);
    EXPECT_EQ(Listing(m_P.get()), L"<null>=3/0 <null>=3/0 B=2/7 B=2/7 a=4/0 a=4/0 b=1/0");
    m_P->RemoveAll();
    EXPECT_EQ(Listing(m_P.get()), L"");
    AddInt(L"again", 9);
    EXPECT_EQ(Listing(m_P.get()), L"again=9/0");
}

// Inputs that note in the component's record when they are asked for an interface, and answer none.
class NotedInputs final : public FakeNamed<IInputParameters> {
public:
    explicit NotedInputs(std::vector<std::pair<std::string, int32_t>>& calls) : m_Calls(calls) {}
    bool Answers(const IID&) override { return m_Calls.emplace_back("inputs asked", 0), false; }
    HRESULT AddInput(IString*, IID, int32_t) override { return E_FAIL; }
    HRESULT put_InputObject(int32_t, IUnknown*) override { return E_FAIL; }
    HRESULT get_InputObject(int32_t, IUnknown** object) override { return *object = nullptr, E_FAIL; }

private:
    std::vector<std::pair<std::string, int32_t>>& m_Calls;
};

// The inputs have their turn after the parameters, and only in a folder.
TEST_F(Templates, SaveAndLoadDispatchOnTheStreamKind) {
    s->m_InputParameters.Attach(new NotedInputs(s->calls));
    SmartPtr<FakeXML> xml(new FakeXML());
    SmartPtr<FakeFolder> folder(new FakeFolder());
    SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(m_P.get(), IID_IDataPersist);
    SmartPtr<FakeInput> neither(new FakeInput());  // answers no stream interface
    EXPECT_EQ(persist->Save(xml.get(), 0), S_OK);
    EXPECT_EQ(persist->Save(folder.get(), 0x10), S_OK);
    EXPECT_EQ(persist->Load(xml.get(), 0x10), S_OK);
    EXPECT_EQ(persist->Load(folder.get(), 0x10), S_OK);
    EXPECT_EQ(persist->Save(reinterpret_cast<IDataStream*>(neither.get()), 0), S_OK);
    EXPECT_EQ(persist->Load(reinterpret_cast<IDataStream*>(neither.get()), 0), E_NOTIMPL);
    EXPECT_EQ(persist->Load(nullptr, 0), E_NOTIMPL);
    using Calls = std::vector<std::pair<std::string, int32_t>>;
    EXPECT_EQ(s->calls, (Calls{{"SaveXML", 0x800000}, {"SaveFolder", 0x800010}, {"inputs asked", 0}, {"LoadXML", 0x10},
                               {"LoadFolder", 0x800010}, {"inputs asked", 0}}));

    s->calls.clear();
    s->m_UseSections = 1;
    EXPECT_EQ(persist->Save(folder.get(), 0x10), S_OK);
    EXPECT_EQ(persist->Load(xml.get(), 0x10), S_OK);
    EXPECT_EQ(persist->Load(folder.get(), 0), S_OK) << "a folder without named entries loads no section";
    ASSERT_EQ(folder->children.size(), 2u);
    EXPECT_EQ(folder->children[0].first + L"," + folder->children[1].first, L"Parameters,Inputs");
    EXPECT_EQ(s->calls, (Calls{{"SaveFolder", 0x10}, {"inputs asked", 0}, {"LoadXML", 0x1000010}}));
}

// One record of the values, written to the host's CSV stream as whole wide texts.
TEST_F(Templates, CsvRecordOfTheValues) {
    auto saveCsv = Slot<HRESULT (*)(void*, IDataStream*, int32_t)>(m_P.get(), 23);
    auto record = [&](int32_t mode) {
        SmartPtr<ICSVStream> csv(static_cast<ICSVStream*>(CreateObject(tagREFString{9, L"CSVStream"}, &IID_ICSVStream)));
        csv->Open(0, 0x30000);
        EXPECT_EQ(saveCsv(m_P.get(), csv.get(), mode), S_OK);
        void* data = nullptr;
        int32_t bytes = 0;
        csv->GetBuffer(&data, &bytes);
        return std::wstring(static_cast<const wchar_t*>(data), static_cast<size_t>(bytes) / sizeof(wchar_t));
    };
    EXPECT_EQ(record(PERSIST_CSV_NAMES), L"") << "an empty collection writes nothing";
    AddInt(L"A", 1, PARAMETER_NOT_COMPACT);
    SmartPtr<IString> b(ISCreate(L"B")), c(ISCreate(L"C")), abc(ISCreate(L"abc"));
    SmartPtr<IVariant> real(IVCreate(2.5));
    m_P->Add(b.get(), real.get(), nullptr, 0);
    m_P->Add(c.get(), abc.get(), nullptr, 0);
    EXPECT_EQ(record(0), L"1,2.5,abc");
    EXPECT_EQ(record(PERSIST_CSV_NAMES), L"A=1,B=2.5,C=abc");
    EXPECT_EQ(record(PERSIST_CSV_NAMES | PERSIST_COMPACT), L"B=2.5,C=abc") << "no comma before the first field written";
    SmartPtr<IINIStream> ini(static_cast<IINIStream*>(CreateObject(tagREFString{9, L"INIStream"}, &IID_IINIStream)));
    ini->Open(0);
    EXPECT_EQ(saveCsv(m_P.get(), ini.get(), PERSIST_CSV_NAMES), S_OK);
    void* data = nullptr;
    int32_t bytes = -1;
    ini->GetBuffer(&data, &bytes);
    EXPECT_EQ(bytes, 0) << "a stream that is no CSV stream gets nothing";
}

// The folder entries in order: a value as name=text, a child as name(entries), bytes as name#hex.
std::wstring Layout(FakeFolder* folder) {
    std::wstring out;
    for (const auto& [name, kind] : folder->order) {
        out += (out.empty() ? L"" : L" ") + name;
        if (kind == 'v') {
            IUnknown* value = folder->values[name].get();
            SmartPtr<IString> text(QueryAs<IString>(value, IID_IString).Detach());
            if (!text) text.Attach(ISCreate(QueryAs<IVariant>(value, IID_IVariant).get(), -1));
            out += L"=" + TextOf(text.get());
        } else if (kind == 'b') {
            out += L"#";
            for (unsigned char byte : folder->entries[name]) out += L"0123456789ABCDEF"[byte >> 4], out += L"0123456789ABCDEF"[byte & 15];
        } else if (kind == 'c') {
            for (const auto& [childName, child] : folder->children)
                if (childName == name) out += L"(" + Layout(child.get()) + L")";
        }
    }
    return out;
}

// Each parameter one entry: a plain value, or a folder with its flags and value; the compact form
// drops the flags of simple numbers and saves what it would otherwise hide; loading updates by
// name or rebuilds in the folder's order.
// Saving asks a descriptor whether it is an input binding only where that decides something:
// for the value (every time), for the compact form's 0x40 rule, and for a value holding an object.
// The CSV record takes every value, also of the parameters it leaves out.
TEST_F(Templates, SavingAsksABindingWhereItDecides) {
    s->record = false;
    SmartPtr<FakeInput> plain(new FakeInput()), kept(new FakeInput()), left(new FakeInput());
    AddInt(L"A", 1, 0x10, plain.get());
    SmartPtr<ISuperCollection> object(CREFString::CreateCollection());
    m_P->Add(SmartPtr<IString>(ISCreate(L"B")).get(), object.get(), kept.get(), 0x41);
    AddInt(L"C", 3, PARAMETER_NOT_COMPACT | 0x20, left.get());
    auto save = Slot<HRESULT (*)(void*, IDataStream*, int32_t)>(m_P.get(), 26);
    save(m_P.get(), SmartPtr<FakeFolder>(new FakeFolder(true)).get(), PERSIST_COMPACT);
    EXPECT_EQ(std::make_tuple(plain->asked, kept->asked), std::make_tuple(1, 3));
    left->asked = 0;
    SmartPtr<ICSVStream> csv(static_cast<ICSVStream*>(CreateObject(tagREFString{9, L"CSVStream"}, &IID_ICSVStream)));
    csv->Open(0, 0x30000);
    Slot<HRESULT (*)(void*, IDataStream*, int32_t)>(m_P.get(), 23)(m_P.get(), csv.get(), PERSIST_COMPACT);
    EXPECT_EQ(left->asked, 1);
}

TEST_F(Templates, FolderLayoutAndBothLoadingForms) {
    s->record = false;
    SmartPtr<IString> title(ISCreate(L"Title")), abc(ISCreate(L"abc")), source(ISCreate(L"Source")),
        file(ISCreate(L"/srv/data/x.csv"));
    AddInt(L"Gain", 5, 3);
    m_P->Add(title.get(), abc.get(), nullptr, 0);
    m_P->Add(source.get(), file.get(), nullptr, 0x106);
    AddInt(nullptr, 7);
    AddInt(L"Hidden", 1, 0x04000003);
    auto save = Slot<HRESULT (*)(void*, IDataStream*, int32_t)>(m_P.get(), 26);
    auto load = Slot<HRESULT (*)(void*, IDataStream*, int32_t)>(m_P.get(), 27);

    SmartPtr<FakeFolder> full(new FakeFolder(true)), compact(new FakeFolder(true));
    EXPECT_EQ(save(m_P.get(), full.get(), 0), S_OK);
    EXPECT_EQ(Layout(full.get()), L"Gain(Flags#03000000 Value=5) Title=abc Source(Flags#06010000 Value=/srv/data/x.csv) Item4=7");
    EXPECT_EQ(save(m_P.get(), compact.get(), PERSIST_COMPACT), S_OK);
    EXPECT_EQ(Layout(compact.get()), L"Gain=5 Title=abc Source(Flags#06010000 Value=/srv/data/x.csv) Item4=7 Hidden=1");

    // Update form: the parameters the folder names take its values and flags; the rest stay.
    for (int32_t i = 0; i < 5; ++i) m_P->put_ItemFlags(i, 0x20);
    SmartPtr<IVariant> zero(IVCreate(0));
    m_P->put_Item(0, zero.get());
    EXPECT_EQ(load(m_P.get(), full.get(), 0), S_OK);
    EXPECT_EQ(Listing(m_P.get()), L"Gain=5/3 Title=0/32 Source=0/262 <null>=7/32 Hidden=1/32");
    SmartPtr<IVariant> sourceValue;
    m_P->get_ItemVariant(2, sourceValue.Out());
    SmartPtr<IString> sourceText;
    sourceValue->get_String(sourceText.Out());
    EXPECT_EQ(TextOf(sourceText.get()), L"/srv/data/x.csv");

    // Rebuild form: the collection becomes the folder's entries, in its order.
    EXPECT_EQ(load(m_P.get(), full.get(), PERSIST_REBUILD), S_OK);
    EXPECT_EQ(Listing(m_P.get()), L"Gain=5/3 Title=0/0 Source=0/262 Item4=7/0");
    SmartPtr<FakeFolder> plain(new FakeFolder(false));  // no named view: nothing to find
    EXPECT_EQ(load(m_P.get(), plain.get(), PERSIST_REBUILD), S_OK);
    EXPECT_EQ(Listing(m_P.get()), L"");
}

// Each item's value in a child folder named by its caption; loading goes by the stored id and type,
// in any order of the children, and passes transient items over.
TEST_F(Templates, PropertyValuesThroughAFolder) {
    s->integer = 1;
    s->real = 2.5;
    s->text = ISCreate(L"hello");
    s->word = 7;
    s->AddItem(1, 0x13, &s->integer, 0, 1);
    s->AddItem(2, 0x05, &s->real, 0, 0);
    s->AddItem(3, 0x06, &s->text, 0, 0);
    s->AddItem(4, 0x04000002, &s->word, 0, 9);
    SmartPtr<ISuperCollection> captions(CREFString::CreateCollection());
    SmartPtr<IString> one(ISCreate(L"1")), usePrompt(ISCreate(L"Use Prompt"));
    captions->Add(one.get(), usePrompt.get(), 0, 0);
    auto save = Slot<HRESULT (*)(void*, INamedCollection*, IFolderStream*, int32_t)>(m_Table.get(), 9);
    auto load = Slot<HRESULT (*)(void*, IFolderStream*, int32_t)>(m_Table.get(), 10);

    SmartPtr<FakeFolder> folder(new FakeFolder(true));
    EXPECT_EQ(save(m_Table.get(), QueryAs<INamedCollection>(captions.get(), IID_INamedCollection).Detach(), folder.get(), 0), S_OK);
    EXPECT_EQ(Layout(folder.get()), L"Use Prompt(ID#01000000 Flags#13000000 Value#01000000) "
                                    L"2(ID#02000000 Flags#05000000 Value#0000000000000440) 3(ID#03000000 Flags#06000000 Value=hello)");

    s->integer = 0;
    s->real = 0;
    SmartPtr<IString> other(ISCreate(L"other"));
    m_Table->ControlEx(3, other.get());
    std::swap(folder->children[0], folder->children[2]);  // the order of the children does not matter
    EXPECT_EQ(load(m_Table.get(), folder.get(), 0), S_OK);
    EXPECT_EQ(s->integer, 1);
    EXPECT_EQ(s->real, 2.5);
    EXPECT_EQ(TextOf(s->text), L"hello");

    int32_t real = 5;  // a child whose type is not the item's is passed over
    folder->children[2].second->entries[L"Flags"].assign(reinterpret_cast<const char*>(&real), 4);
    s->integer = 0;
    folder->children[0].second->entries.erase(L"ID");  // so is one without an id, its flags read all the same
    EXPECT_EQ(load(m_Table.get(), folder.get(), 0), S_OK);
    EXPECT_EQ(s->integer, 0);
    EXPECT_EQ(folder->children[0].second->read.back(), L"Flags");
}

// The XML form holds types 0 to 6 only: an item of another type matches no element, even when it
// comes first under the same caption.
TEST_F(Templates, PropertyXmlPassesOverTypesItCannotHold) {
    s->AddItem(5, 0x07, &s->object, 0, 0);
    s->AddItem(6, 0x13, &s->integer, 0, 9);
    SmartPtr<ISuperCollection> captions(CREFString::CreateCollection());
    for (const wchar_t* id : {L"5", L"6"})
        captions->Add(SmartPtr<IString>(ISCreate(id)).get(), SmartPtr<IString>(ISCreate(L"Same")).get(), 0, 0);
    auto load = Slot<HRESULT (*)(void*, INamedCollection*, IDataStream*, int32_t)>(m_Table.get(), 12);
    SmartPtr<FakeXML> xml(FakeXML::Parse(L"<Same>4</Same>"));
    EXPECT_EQ(load(m_Table.get(), QueryAs<INamedCollection>(captions.get(), IID_INamedCollection).Detach(), xml.get(), 0), S_OK);
    EXPECT_EQ(s->integer, 4);
}

TEST_F(Templates, ReplicateGivesTheCopyItsOwnInputs) {
    AddInt(L"Plain", 1);
    SmartPtr<IUnknown> made(CreateObject(tagREFString{14, L"InputParameter"}, &IID_IInputParameter));
    SmartPtr<IInputParameter> input = QueryAs<IInputParameter>(made.get(), IID_IInputParameter);
    ASSERT_TRUE(input);
    input->put_InputFlags(5);
    input->put_InterfaceID(IID_IStep);
    AddInt(L"Bound", 2, 0x40, input.get());
    CTestComponent::s_Register = true;
    EXPECT_EQ(static_cast<IReplicableObject*>(s)->Replicate(nullptr), S_OK) << "no place, no copy, no failure";
    SmartPtr<IUnknown> copy;
    ASSERT_EQ(static_cast<IReplicableObject*>(s)->Replicate(copy.Out()), S_OK);
    CTestComponent::s_Register = false;
    SmartPtr<IParameters> target = QueryAs<IParameters>(copy.get(), IID_IParameters);
    ASSERT_TRUE(target);
    EXPECT_EQ(Listing(target.get()), L"Plain=1/0 Bound=2/64") << "values are copied";
    SmartPtr<IUnknown> copied;
    ASSERT_EQ(target->get_ItemDescriptor(1, copied.Out()), S_OK);
    EXPECT_NE(copied.get(), made.get()) << "its own input object";
    SmartPtr<IInputParameter> copiedInput = QueryAs<IInputParameter>(copied.get(), IID_IInputParameter);
    int32_t flags = 0;
    IID iid{};
    copiedInput->get_InterfaceID(&iid);
    copiedInput->get_InputFlags(&flags);
    EXPECT_EQ(flags, 5);
    EXPECT_EQ(iid, IID_IStep);
}

// A collection that counts how often it is asked for its named collection.
class AskedCollection final : public FakeNamed<> {
public:
    bool Answers(const IID& iid) override { return iid == IID_INamedCollection && ++asked > 0; }
    int asked = 0;
};

// Every bind asks the collection for its named collection, and nothing else does.
TEST_F(Templates, BindGoesOnPastAMonikerThatNamesNothing) {
    SmartPtr<AskedCollection> collection(new AskedCollection());
    SmartPtr<IBindableObject> bindable = QueryAs<IBindableObject>(m_P.get(), IID_IBindableObject);
    EXPECT_EQ(bindable->Bind(collection.get(), nullptr), S_OK);
    EXPECT_EQ(collection->asked, 0) << "nothing to bind";
    SmartPtr<FakeMoniker> nothing(new FakeMoniker(false)), something(new FakeMoniker(true));
    SmartPtr<FakeInput> first(new FakeInput()), second(new FakeInput());
    first->moniker.Assign(nothing.get());
    second->moniker.Assign(something.get());
    AddInt(L"A", 1, 0, first.get());
    AddInt(L"B", 2, 0, second.get());
    EXPECT_EQ(bindable->Bind(collection.get(), nullptr), S_OK);
    EXPECT_EQ(std::make_pair(nothing->binds, something->binds), std::make_pair(1, 1));
    EXPECT_EQ(collection->asked, 2);
}

// An entry is released once the collection has let it go: a descriptor that counts the entries
// as its last reference goes finds its own gone, whichever way it goes.
TEST_F(Templates, ReleasesThatReachBackFindTheirEntryGone) {
    struct Witness final : FakeNamed<> {
        Witness(IParameters* p, int32_t& seen) : parameters(p), seen(seen) {}
        ~Witness() override { parameters->get_Count(&seen); }
        bool Answers(const IID&) override { return false; }
        IParameters* parameters;
        int32_t& seen;
    };
    int32_t seen = -1;
    auto witnessed = [&](IParametersCreatable* p) {
        p->Add(SmartPtr<IString>(ISCreate(L"kept")).get(), nullptr, nullptr, 0);
        p->Add(nullptr, nullptr, SmartPtr<Witness>(new Witness(p, seen)).get(), 0);
    };
    witnessed(m_P.get());
    m_P->Remove(1);
    EXPECT_EQ(seen, 1);
    witnessed(m_P.get());
    m_P->RemoveAll();
    EXPECT_EQ(seen, 0);
    m_P->RemoveAll();
    SmartPtr<IParametersCreatable> other;
    ASSERT_EQ(CObject<CTestComponent>::_CreateInstance(nullptr, &IID_IParametersCreatable, other.OutVoid()), S_OK);
    witnessed(other.get());
    seen = -1;
    other.Reset();
    EXPECT_EQ(seen, 0) << "destruction, as RemoveAll";
}

TEST_F(Templates, EmptyPropertyTable) {
    int32_t count = -1, low = -1, high = -1;
    EXPECT_EQ(m_Table->Inquire(UIPROP_TABLE_ID, &count), S_OK);
    EXPECT_EQ(m_Table->ParameterRange(UIPROP_TABLE_ID, &low, &high), E_FAIL);
    EXPECT_EQ(count | low | high, 0);
    EXPECT_EQ(m_Table->Inquire(UIPROP_TABLE_ID, nullptr), E_POINTER);
    EXPECT_EQ(m_Table->Control(0, 0), E_INVALIDARG);
}

// One item of each type, eleven in all, so that the table grows past its first ten places.
TEST_F(Templates, EveryTypeThroughInquireAndControl) {
    const int32_t untouched = 0x5A5A;
    const struct {
        uint32_t flags;
        void* value;
        int32_t control;  // given to Control
        HRESULT inquire;  // Inquire's result: the whole flags word, or E_FAIL
        int32_t read;     // what Inquire then writes
    } rows[] = {
        {0x11, &s->byte, 0x1FF, 0x11, 255},             {0x02, &s->word, 0xFFFF, 0x02, -1},
        {0x13, &s->integer, -5, 0x13, -5},              {0x04, &s->single, Bits(2.5f), 0x04, Bits(2.5f)},
        {0x05, &s->real, Bits(1.5f), 0x05, Bits(1.5f)}, {0x106, &s->text, 7, E_FAIL, untouched},
        {0x48, &s->integer, 7, 0x48, 0},                {0x0F, &s->integer, 7, E_FAIL, untouched},
        {0x00, &s->integer, 7, E_FAIL, untouched},      {0x03, nullptr, 7, 0x03, untouched},
        {0x07, &s->object, 7, E_FAIL, untouched},
    };
    const int32_t first = 104;  // ids 104, 103, ... 94: the table's lowest id comes last
    for (int32_t i = 0; i < 11; ++i) ASSERT_EQ(s->AddItem(first - i, rows[i].flags, rows[i].value, i, i), S_OK);
    EXPECT_EQ(s->m_ItemCapacity, 20);
    for (int32_t i = 0; i < 11; ++i) {
        const auto& row = rows[i];
        EXPECT_EQ(m_Table->Control(first - i, row.control), S_OK) << std::hex << row.flags;
        int32_t read = untouched;
        EXPECT_EQ(m_Table->Inquire(first - i, &read), row.inquire) << std::hex << row.flags;
        EXPECT_EQ(read, row.read) << std::hex << row.flags;
    }
    EXPECT_EQ(s->real, 1.5) << "the single-precision pattern is widened into the double";
    EXPECT_EQ(s->integer, -5) << "types without storage never write the variable they point at";
    EXPECT_EQ(s->text, nullptr);
    int32_t low = 0, high = 0, count = 0;
    EXPECT_EQ(m_Table->Inquire(UIPROP_TABLE_ID, &count), S_OK);
    EXPECT_EQ(m_Table->ParameterRange(UIPROP_TABLE_ID, &low, nullptr), S_OK);
    EXPECT_EQ(m_Table->ParameterRange(UIPROP_TABLE_ID, nullptr, &high), S_OK);
    EXPECT_EQ(count, 11);
    EXPECT_EQ(std::make_pair(low, high), std::make_pair(94, 104));
}

// The items keep their own reference to a choice list; the fixture's count of fakes shows that
// destruction releases it.
TEST_F(Templates, RangesEnumerationsAndTheFirstOfTwoIds) {
    SmartPtr<FakeInput> choices(new FakeInput());  // any object stands for the choice list
    s->AddItem(7, 0x13, &s->integer, -3, 9);
    s->AddItem(7, 0x41, &s->byte, 0, 0, choices.get());
    s->AddItem(8, 0x43, &s->integer, 0, 0, choices.get());
    int32_t low = 1, high = 1;
    EXPECT_EQ(m_Table->ParameterRange(7, &low, &high), S_OK) << "only the first item with an id is seen";
    EXPECT_EQ(std::make_pair(low, high), std::make_pair(-3, 9));
    EXPECT_EQ(m_Table->ParameterRange(8, &low, &high), E_INVALIDARG);
    EXPECT_EQ(low | high, 0);
    IUnknown* out = reinterpret_cast<IUnknown*>(0xCAFE);
    EXPECT_EQ(m_Table->ParameterEnumeration(7, &out), E_INVALIDARG);
    EXPECT_EQ(out, reinterpret_cast<IUnknown*>(0xCAFE));
    EXPECT_EQ(m_Table->ParameterEnumeration(8, nullptr), E_POINTER);
    EXPECT_EQ(m_Table->ParameterEnumeration(8, &out), S_OK);
    EXPECT_EQ(static_cast<void*>(out), static_cast<void*>(choices.get()));
    EXPECT_EQ(out->Release(), 3) << "ours and the two items'";
}

TEST_F(Templates, StringsObjectsAndRealsThroughTheExtendedSlots) {
    s->AddItem(1, 0x106, &s->text, 0, 0);
    s->AddItem(2, 0x07, &s->object, 0, 0);
    s->AddItem(3, 0x05, &s->real, 0, 0);
    s->AddItem(4, 0x03, &s->integer, 0, 0);
    SmartPtr<IString> name(ISCreate(L"file.txt"));
    SmartPtr<IVariant> real(IVCreate(2.25));
    SmartPtr<FakeInput> thing(new FakeInput());
    SmartPtr<IUnknown> out;

    EXPECT_EQ(m_Table->ControlEx(1, name.get()), S_OK);
    EXPECT_EQ(m_Table->InquireEx(1, out.Out()), 0x106);
    EXPECT_EQ(static_cast<void*>(out.get()), static_cast<void*>(name.get()));
    EXPECT_EQ(m_Table->ControlEx(1, real.get()), S_OK);
    EXPECT_EQ(s->text, nullptr) << "a value without IString leaves the string empty";
    EXPECT_EQ(m_Table->ControlEx(2, thing.get()), S_OK);
    EXPECT_EQ(thing->m_Refs, 2);
    EXPECT_EQ(m_Table->ControlEx(2, nullptr), S_OK);
    EXPECT_EQ(thing->m_Refs, 1) << "null clears the object";

    EXPECT_EQ(m_Table->ControlEx(3, real.get()), S_OK);
    EXPECT_EQ(m_Table->ControlEx(3, name.get()), E_FAIL);
    EXPECT_EQ(m_Table->InquireEx(3, out.Out()), 0x05);
    SmartPtr<IVariant> back = QueryAs<IVariant>(out.get(), IID_IVariant);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->get_Double(), 2.25);
    EXPECT_EQ(m_Table->InquireEx(4, out.Out()), E_FAIL);
    EXPECT_EQ(m_Table->ControlEx(4, real.get()), E_FAIL);
    EXPECT_EQ(m_Table->ControlEx(9, real.get()), E_INVALIDARG);
    EXPECT_EQ(std::make_pair(s->locks, s->unlocks), std::make_pair(4, 4)) << "each string and object change, locked";
}

}  // namespace
