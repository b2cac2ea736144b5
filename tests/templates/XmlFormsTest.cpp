// The XML forms of a parameter collection (value form, object form) and of a property table,
// written into and read from an in-memory XML stream through the components' slots.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "interrogate/PropInterrogateImpl.h"
#include "module/Object.h"
#include "parameters/ParametersImpl.h"
#include "support/Fakes.h"
#include "text/Conversions.h"

namespace {

class CXmlComponent final : public CObject<CXmlComponent>,
                            public IParametersImpl<CXmlComponent, IParametersCreatable>,
                            public IUIPropInterrogateImpl<CXmlComponent, IUIPropInterrogateEx, 10> {
public:
    HRESULT QueryInterface(const IID& iid, void** object) override {
        *object = nullptr;
        if (iid == IID_IUnknown) *object = static_cast<CObject<CXmlComponent>*>(this);
        else if (iid == IID_IParametersCreatable || iid == IID_IParameters) *object = static_cast<IParametersCreatable*>(this);
        else if (iid == IID_IUIPropInterrogateEx) *object = static_cast<IUIPropInterrogateEx*>(this);
        if (*object == nullptr) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    int32_t AddRef() override { return CObject::AddRef(); }
    int32_t Release() override { return CObject::Release(); }
    ~CXmlComponent() {
        if (text) text->Release();
    }
    int32_t usePrompt = 0, returnStyle = 0, colour = 0, transient = 0;
    float single = 0;
    IString* text = nullptr;
    IUnknown* object = nullptr;
};

// An object that persists itself as one "Data" element; named by IObjectInfo when `kind` is given.
class FakeThing final : public Fake<IDataPersist>, public IObjectInfo {
public:
    explicit FakeThing(const wchar_t* kind, std::wstring value = L"") : kind(kind), data(std::move(value)) {}
    bool Answers(const IID& iid) override { return iid == IID_IDataPersist; }
    HRESULT QueryInterface(const IID& iid, void** object) override {
        if (iid != IID_IObjectInfo || kind == nullptr) return Fake::QueryInterface(iid, object);
        *object = static_cast<IObjectInfo*>(this);
        AddRef();
        return S_OK;
    }
    int32_t AddRef() override { return Fake::AddRef(); }
    int32_t Release() override { return Fake::Release(); }
    HRESULT GetName(int32_t, tagREFString* name) override {
        *name = CREFString(kind);
        return S_OK;
    }
    HRESULT Save(IDataStream* stream, int32_t) override {
        SmartPtr<IString> name(ISCreate(L"Data")), text(ISCreate(data.c_str()));
        return QueryAs<IXMLStream>(stream, IID_IXMLStream)->WriteElement(name.get(), 0, text.get(), 0);
    }
    HRESULT Load(IDataStream* stream, int32_t) override {
        ++loads;
        SmartPtr<IXMLStream> xml = QueryAs<IXMLStream>(stream, IID_IXMLStream);
        tagREFString name, text;
        SmartPtr<IXMLStream> child;
        while (xml->NextElement(&name) >= 0)
            if (xml->OpenElement(name.length, name.text, &text, child.Out(), 1) >= 0) data.assign(text.text, text.length);
        return S_OK;
    }
    const wchar_t* kind;
    std::wstring data;
    int loads = 0;
};

using Save = HRESULT (*)(void*, IDataStream*, int32_t);
using Load = HRESULT (*)(void*, IDataStream*, int32_t);

class XmlForms : public ::testing::Test {
protected:
    void SetUp() override {
        m_Fakes = FakeLive();
        ASSERT_EQ(CObject<CXmlComponent>::_CreateInstance(nullptr, &IID_IParametersCreatable, m_P.OutVoid()), S_OK);
        c = static_cast<CXmlComponent*>(m_P.get());
        m_Table = QueryAs<IUIPropInterrogateEx>(m_P.get(), IID_IUIPropInterrogateEx);
    }
    void TearDown() override {
        m_Table.Reset();
        m_P.Reset();
        EXPECT_EQ(FakeLive(), m_Fakes) << "every fake released";
    }
    void Add(const wchar_t* name, IUnknown* value, int32_t flags = 0, IUnknown* descriptor = nullptr) {
        SmartPtr<IString> n(name ? ISCreate(name) : nullptr);
        ASSERT_EQ(m_P->Add(n.get(), value, descriptor, flags), S_OK);
    }
    // The slots as a host calls them: 24 and 25 the value form, 28 and 29 the object form.
    std::wstring Saved(int slot, int32_t mode) {
        SmartPtr<FakeXML> xml(new FakeXML());
        EXPECT_EQ(Slot<Save>(m_P.get(), slot)(m_P.get(), xml.get(), mode), S_OK);
        return xml->Markup();
    }
    void Loaded(int slot, FakeXML* xml, int32_t mode) {
        if (slot == 25) EXPECT_EQ(Slot<HRESULT (*)(void*, IDataStream*, int32_t, int32_t)>(m_P.get(), 25)(m_P.get(), xml, mode, 0), S_OK);
        else EXPECT_EQ(Slot<Load>(m_P.get(), slot)(m_P.get(), xml, mode), S_OK);
    }
    // Every parameter as name=value/flags: a number as ISCreate(value, -1) writes it, a text quoted,
    // an object as obj.
    std::wstring Listing() {
        std::wstring out;
        int32_t count = 0;
        m_P->get_Count(&count);
        for (int32_t i = 0; i < count; ++i) {
            SmartPtr<IString> name;
            SmartPtr<IVariant> value;
            int32_t flags = 0;
            m_P->get_ItemName(i, name.Out());
            m_P->get_ItemVariant(i, value.Out());
            m_P->get_ItemFlags(i, &flags);
            SmartPtr<IString> text(ISCreate(value.get(), -1));
            std::wstring shown = value && value->IsString() ? L"'" + TextOf(text.get()) + L"'" : TextOf(text.get());
            if (value && value->IsObject()) shown = L"obj";
            out += (i ? L" " : L"") + TextOf(name.get()) + L"=" + shown + L"/" + std::to_wstring(flags);
        }
        return out;
    }
    FakeThing* Held(int32_t index) {  // the FakeThing a parameter's value or descriptor holds
        SmartPtr<IUnknown> item;
        m_P->get_Item(index, item.Out());
        return static_cast<FakeThing*>(QueryAs<IDataPersist>(item.get(), IID_IDataPersist).get());
    }
    static void Things(FakeXML* xml) {
        for (const wchar_t* kind : {L"Thing", L"Desc"})
            xml->m_Tree->factories[kind] = [kind] { return static_cast<IDataPersist*>(new FakeThing(kind)); };
    }

    SmartPtr<IParametersCreatable> m_P;
    SmartPtr<IUIPropInterrogateEx> m_Table;
    CXmlComponent* c = nullptr;
    int m_Fakes = 0;
};

TEST_F(XmlForms, ValueFormShapes) {
    const struct {
        std::function<IUnknown*()> value;
        int32_t flags;
        const wchar_t* descriptor;  // a FakeThing of that kind, "input" an input delivering 8, or none
        int32_t mode;
        const wchar_t* markup;
    } rows[] = {
        {[] { return IVCreate(5); }, 0, nullptr, 0, L"<P>5</P>"},
        {[] { return IVCreate(5); }, 0x10, nullptr, 0, L"<P><Value>5</Value><Flags>#000010</Flags></P>"},
        {[] { return IVCreate(5); }, 0x8000010, nullptr, 0, L"<P><Value>5</Value><Flags>#000010</Flags></P>"},
        {[] { return IVCreate(5); }, 0x8000010, nullptr, PERSIST_COMPACT, L"<P><Value>5</Value><Flags>#000010</Flags></P>"},
        {[] { return IVCreate(0xFF8000); }, 0x23, nullptr, PERSIST_COMPACT, L"<P>#FF8000</P>"},
        {[] { return ISCreate(L"red"); }, 0x23, nullptr, PERSIST_COMPACT, L"<P>red</P>"},
        {[] { return IVCreate(5); }, 0x23, L"Thing", PERSIST_COMPACT, L"<P><Value>5</Value><Thing><Data>d</Data></Thing></P>"},
        {[] { return IVCreate(5); }, 0x13, nullptr, PERSIST_COMPACT, L"<P>5</P>"},
        {[] { return IVCreate(5); }, 0x09, nullptr, PERSIST_COMPACT, L"<P>5</P>"},
        {[] { return IVCreate(5); }, 0x19, nullptr, PERSIST_COMPACT, L"<P><Value>5</Value><Flags>#000019</Flags></P>"},
        {[] { return IVCreate(5); }, 0x40, L"Thing", PERSIST_COMPACT, L"<P>5</P>"},
        {[] { return IVCreate(5); }, 0x40, L"Thing", 0, L"<P><Value>5</Value><Flags>#000040</Flags><Thing><Data>d</Data></Thing></P>"},
        {[] { return IVCreate(5); }, 0x40010, L"Thing", PERSIST_COMPACT, L"<P><Value>5</Value><Flags>#040010</Flags></P>"},
        {[] { return IVCreate(5); }, 0, L"input", 0, L"<P>8</P>"},
        {[] { return static_cast<IDataPersist*>(new FakeThing(L"Named")); }, 0, nullptr, 0, L"<P>Named</P>"},
    };
    for (const auto& row : rows) {
        m_P->RemoveAll();
        SmartPtr<IUnknown> value(row.value()), descriptor;
        if (row.descriptor && std::wcscmp(row.descriptor, L"input") == 0) {
            SmartPtr<FakeInput> input(new FakeInput());
            input->value.Attach(IVCreate(8));
            descriptor.Assign(input.get());
        } else if (row.descriptor) {
            descriptor.Attach(static_cast<IDataPersist*>(new FakeThing(row.descriptor, L"d")));
        }
        Add(L"P", value.get(), row.flags, descriptor.get());
        EXPECT_EQ(Saved(24, row.mode), row.markup) << std::hex << row.flags << " mode " << row.mode;
    }
}

// A "Value" child's text and an element's own text are typed alike, reals with up to 18 fraction
// digits.
TEST_F(XmlForms, ValueTextTyping) {
    const struct {
        const wchar_t* text;
        const wchar_t* listing;
    } rows[] = {
        {L" 42", L"P=42/0"},      {L"4.50", L"P=4.5/0"},   {L"-", L"P=0/0"},
        {L"+5", L"P='+5'/0"},     {L"12a", L"P='12a'/0"},  {L"1234567890", L"P='1234567890'/0"},
        {L"123456789", L"P=123456789/0"}, {L"", L"P=''/0"},
    };
    Add(L"P", nullptr);
    for (const auto& row : rows) {
        SmartPtr<FakeXML> xml(FakeXML::Parse(std::wstring(L"<P><Value>") + row.text + L"</Value></P>"));
        Loaded(25, xml.get(), 0);
        EXPECT_EQ(Listing(), row.listing) << row.text;
    }
    const wchar_t* tiny = L"0.000000000000000009";
    SmartPtr<FakeXML> typed(FakeXML::Parse(std::wstring(L"<P><Value>") + tiny + L"</Value></P>"));
    Loaded(25, typed.get(), 0);
    SmartPtr<IVariant> value;
    m_P->get_ItemVariant(0, value.Out());
    EXPECT_DOUBLE_EQ(value->get_Double(), 9e-18);
    SmartPtr<FakeXML> plain(FakeXML::Parse(std::wstring(L"<P>") + tiny + L"</P>"));
    Loaded(25, plain.get(), 0);
    m_P->get_ItemVariant(0, value.Out());
    EXPECT_DOUBLE_EQ(value->get_Double(), 9e-18);
}

TEST_F(XmlForms, ValueFormUpdatesByNameOrRebuilds) {
    Add(L"A", SmartPtr<IVariant>(IVCreate(1)).get());
    Add(L"B", SmartPtr<IVariant>(IVCreate(2)).get(), 4);
    SmartPtr<FakeXML> update(FakeXML::Parse(L"<B><Value>7</Value><flags>#10</flags><Flagship>3</Flagship></B><Z>9</Z><a>5</a><A>#0000FF</A>"));
    Loaded(25, update.get(), 0);
    EXPECT_EQ(Listing(), L"A='#0000FF'/0 B=7/16") << "unknown and differently cased names are skipped";
    for (const auto& [shut, listing] : {std::pair{L"Value", L"A='#0000FF'/0 B=7/32"}, std::pair{L"Flags", L"A='#0000FF'/0 B=8/32"}}) {
        SmartPtr<FakeXML> partly(FakeXML::Parse(L"<B><Value>8</Value><Flags>#20</Flags></B>"));
        partly->Shut(shut);
        Loaded(25, partly.get(), 0);
        EXPECT_EQ(Listing(), listing) << "a child named but not opened leaves its field as it was";
    }

    SmartPtr<FakeXML> rebuild(FakeXML::Parse(L"<Z>9</Z><Only><Flags>5</Flags></Only><A><Value>x</Value><Thing><Data>d</Data></Thing></A>"));
    Things(rebuild.get());
    Loaded(25, rebuild.get(), PERSIST_REBUILD);
    EXPECT_EQ(Listing(), L"Z=9/0 Only=1/5 A='x'/0") << "document order; an index stands in for a missing value";
    SmartPtr<IUnknown> descriptor;
    ASSERT_EQ(m_P->get_ItemDescriptor(2, descriptor.Out()), S_OK);
    EXPECT_EQ(static_cast<FakeThing*>(QueryAs<IDataPersist>(descriptor.get(), IID_IDataPersist).get())->data, L"d");

    // Long forms and descriptors read back as written; the colour's flags are not restored.
    m_P->put_ItemFlags(0, 0x23);
    m_P->put_ItemFlags(2, 0x10);
    SmartPtr<FakeXML> copy(FakeXML::Parse(Saved(24, PERSIST_COMPACT)));
    Things(copy.get());
    Loaded(25, copy.get(), PERSIST_REBUILD);
    EXPECT_EQ(Listing(), L"Z='#000009'/0 Only=1/0 A='x'/16");
    ASSERT_EQ(m_P->get_ItemDescriptor(2, descriptor.Out()), S_OK);
}

TEST_F(XmlForms, ObjectFormRoundTrip) {
    SmartPtr<IDataPersist> one(new FakeThing(L"Thing", L"one")), two(new FakeThing(L"Thing", L"two")),
        desc(new FakeThing(L"Desc", L"dd"));
    Add(L"First", one.get(), 0x10, desc.get());
    Add(L"Plain", SmartPtr<IVariant>(IVCreate(5)).get());
    Add(nullptr, two.get());
    const std::wstring saved = Saved(28, 0);
    EXPECT_EQ(saved, L"<First><Flags>#000010</Flags><Thing><Data>one</Data></Thing><ItemDescriptor><Desc><Data>dd</Data>"
                     L"</Desc></ItemDescriptor></First><Item3><Thing><Data>two</Data></Thing></Item3>");

    SmartPtr<FakeXML> rebuild(FakeXML::Parse(saved));
    Things(rebuild.get());
    Loaded(29, rebuild.get(), PERSIST_REBUILD);
    ASSERT_EQ(Listing(), L"First=obj/16 Item3=obj/0");
    EXPECT_NE(Held(0), one.get()) << "made anew";
    EXPECT_EQ(Held(0)->data + L"," + Held(1)->data, L"one,two");
    SmartPtr<IUnknown> descriptor;
    m_P->get_ItemDescriptor(0, descriptor.Out());
    EXPECT_EQ(static_cast<FakeThing*>(QueryAs<IDataPersist>(descriptor.get(), IID_IDataPersist).get())->data, L"dd");

    // Updating: known names take the element's object, flags and descriptor; others are skipped.
    m_P->RemoveAll();
    Add(L"Item3", SmartPtr<IVariant>(IVCreate(1)).get(), 7, desc.get());
    SmartPtr<FakeXML> update(FakeXML::Parse(saved));
    Things(update.get());
    Loaded(29, update.get(), 0);
    ASSERT_EQ(Listing(), L"Item3=obj/0");
    EXPECT_EQ(Held(0)->data, L"two");
    EXPECT_EQ(m_P->get_ItemDescriptor(0, descriptor.Out()), E_FAIL) << "no descriptor read: none stored";
}

// In place, the object a parameter holds loads the child whose name agrees with its own over the
// shorter length; an object without a name loads any child.
TEST_F(XmlForms, ObjectFormLoadsInPlace) {
    const struct {
        const wchar_t* kind;
        const wchar_t* markup;
        const wchar_t* data;
    } rows[] = {
        {L"Thing", L"<P><THINGS><Data>new</Data></THINGS></P>", L"new"},
        {L"Thing", L"<P><th><Data>new</Data></th></P>", L"new"},
        {L"Thing", L"<P><Other><Data>new</Data></Other></P>", L"old"},
        {L"", L"<P><Thing><Data>new</Data></Thing></P>", L"old"},
        {nullptr, L"<P><Other><Data>new</Data></Other></P>", L"new"},
        {L"Thing", L"<Q><Thing><Data>new</Data></Thing></Q>", L"old"},
    };
    for (const auto& row : rows) {
        m_P->RemoveAll();
        SmartPtr<FakeThing> held(new FakeThing(row.kind, L"old"));
        Add(L"P", static_cast<IDataPersist*>(held.get()), 3);
        SmartPtr<FakeXML> xml(FakeXML::Parse(row.markup));
        Things(xml.get());
        Loaded(29, xml.get(), PERSIST_IN_PLACE);
        EXPECT_EQ(held->data, row.data) << row.markup;
        EXPECT_EQ(Held(0), held.get()) << row.markup;
        EXPECT_EQ(held->loads, held->data == L"new" ? 1 : 0) << row.markup;
    }
}

TEST_F(XmlForms, OtherStreamsAreIgnored) {
    Add(L"P", SmartPtr<IDataPersist>(new FakeThing(L"Thing")).get(), 0x10);
    SmartPtr<FakeFolder> folder(new FakeFolder(true));
    for (int slot : {24, 28, 29}) EXPECT_EQ(Slot<Save>(m_P.get(), slot)(m_P.get(), folder.get(), PERSIST_REBUILD), S_OK);
    EXPECT_EQ(Slot<HRESULT (*)(void*, IDataStream*, int32_t, int32_t)>(m_P.get(), 25)(m_P.get(), folder.get(), PERSIST_REBUILD, 0), S_OK);
    EXPECT_TRUE(folder->order.empty());
    EXPECT_EQ(Listing(), L"P=obj/16");
}

class PropertyXml : public XmlForms {
protected:
    void SetUp() override {
        XmlForms::SetUp();
        c->AddItem(1, 0x13, &c->usePrompt, 0, 1);
        c->AddItem(2, 0x03, &c->returnStyle, 0, 2);
        c->AddItem(3, 0x23, &c->colour, 0, 0xFFFFFF);
        c->AddItem(4, 0x04, &c->single, 0, 0);
        c->AddItem(5, 0x06, &c->text, 0, 0);
        c->AddItem(6, 0x04000003, &c->transient, 0, 9);
        c->AddItem(7, 0x07, &c->object, 0, 0);
        captions.Attach(CREFString::CreateCollection());
        for (const auto& [id, caption] : {std::make_pair(L"1", L"Use Prompt"), std::make_pair(L"2", L"Return Style")})
            captions->Add(SmartPtr<IString>(ISCreate(id)).get(), SmartPtr<IString>(ISCreate(caption)).get(), 0, 0);
    }
    INamedCollection* Captions() { return QueryAs<INamedCollection>(captions.get(), IID_INamedCollection).Detach(); }
    HRESULT SaveXml(INamedCollection* table, IDataStream* stream) {
        return Slot<HRESULT (*)(void*, INamedCollection*, IDataStream*, int32_t)>(m_Table.get(), 11)(m_Table.get(), table, stream, 0);
    }
    HRESULT LoadXml(INamedCollection* table, IDataStream* stream) {
        return Slot<HRESULT (*)(void*, INamedCollection*, IDataStream*, int32_t)>(m_Table.get(), 12)(m_Table.get(), table, stream, 0);
    }
    std::wstring Values() {
        return std::to_wstring(c->usePrompt) + L"," + std::to_wstring(c->returnStyle) + L"," + std::to_wstring(c->colour) + L"," +
               std::to_wstring(c->single) + L"," + TextOf(c->text) + L"," + std::to_wstring(c->transient);
    }
    SmartPtr<ISuperCollection> captions;
};

TEST_F(PropertyXml, SaveNamesItemsByCaption) {
    c->usePrompt = 1;
    c->colour = 0xFF8000;
    c->single = 2.5f;
    c->text = ISCreate(L"hello");
    SmartPtr<FakeXML> xml(new FakeXML());
    EXPECT_EQ(SaveXml(Captions(), xml.get()), S_OK);
    EXPECT_EQ(xml->Markup(), L"<Use_Prompt>1</Use_Prompt><Return_Style>0</Return_Style><3>#FF8000</3><4>2.500000</4><5>hello</5>")
        << "transient and object items are left out";

    // The same text read back restores every value; the colour's bytes are not exchanged.
    SmartPtr<FakeXML> back(new FakeXML());
    back->m_Tree->root.text = xml->Markup();
    c->usePrompt = c->colour = 0;
    c->single = 0;
    EXPECT_EQ(LoadXml(Captions(), back.get()), S_OK);
    EXPECT_EQ(Values(), L"1,0,16744448,2.500000,hello,0");
    EXPECT_TRUE(back->m_Tree->root.children.empty()) << "the loader writes nothing into what it reads";

    SmartPtr<FakeXML> none(new FakeXML());
    EXPECT_EQ(SaveXml(nullptr, none.get()), S_OK);
    EXPECT_EQ(none->Markup(), L"") << "no caption table: nothing written";
    c->usePrompt = 0;
    EXPECT_EQ(LoadXml(nullptr, back.get()), S_OK);
    EXPECT_EQ(c->usePrompt, 0) << "no caption table: nothing read";
}

TEST_F(PropertyXml, LoadScansTagsAsText) {
    const struct {
        const wchar_t* text;
        const wchar_t* values;  // usePrompt, returnStyle, colour, single, text, transient
    } rows[] = {
        {L"<USE_PROMPT>1</USE_PROMPT>", L"1,-7,-7,-7.000000,-,-7"},
        {L"<?xml version=\"1.0\"?>\n<r><use_prompt>1</use_prompt></r><Return_Style>2</Return_Style>", L"-7,2,-7,-7.000000,-,-7"},
        {L"<Use_Prompt kind=\"x\">1</Use_Prompt><r a=\"1\"><Use_Prompt>1</Use_Prompt></r>", L"-7,-7,-7,-7.000000,-,-7"},
        {L"<Use_Prompt\t>1</Use_Prompt>", L"1,-7,-7,-7.000000,-,-7"},
        {L"<Use_Prompt>1", L"0,-7,-7,-7.000000,-,-7"},
        {L"<Use_Prompt>1</Use_Prompt><X>2</X><Use_Prompt>3</Use_Prompt><Use_Prompt>4</Use_Prompt>", L"4,-7,-7,-7.000000,-,-7"},
        {L"<Use_Prompt><3>5</3></Use_Prompt>", L"0,-7,-7,-7.000000,-,-7"},
        {L"<Use_Prompt>1<3>5</3>", L"0,-7,5,-7.000000,-,-7"},
        {L"<3>#123456</3><4> 1.5</4><5>a b</5><6>9</6><7>x</7>", L"-7,-7,1193046,0.000000,a b,-7"},
        {L"<4>1.5</4><5></5><Use_Prompt>-3</Use_Prompt >", L"0,-7,-7,1.500000,,-7"},
        {L"</5><5>x</5x>", L"-7,-7,-7,-7.000000,,-7"},
        // Blanks after "<": the element is the next "<" name, and what lies before it is passed over.
        {L"< Use_Prompt>0</Use_Prompt><Return_Style>2</Return_Style><Use_Prompt a>1</Use_Prompt>", L"1,-7,-7,-7.000000,-,-7"},
        {L"< Use_Prompt>0</Use_Prompt><Return_Style>2</Return_Style>", L"0,2,-7,-7.000000,-,-7"},
    };
    for (const auto& row : rows) {
        c->usePrompt = c->returnStyle = c->colour = c->transient = -7;
        c->single = -7;
        m_Table->ControlEx(5, SmartPtr<IString>(ISCreate(L"-")).get());
        SmartPtr<FakeXML> xml(new FakeXML());
        xml->m_Tree->root.text = row.text;
        EXPECT_EQ(LoadXml(Captions(), xml.get()), S_OK);
        EXPECT_EQ(Values(), row.values) << row.text;
    }
}

}  // namespace
