// The host's XML stream through its interfaces: the current-element model of writing, the cursor
// of reading, objects re-created by name, the text of a stream, names and texts that XML cannot
// hold as they are, and documents that are refused. Every scenario leaves the live-object count
// where it found it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/components/Inputs.h"
#include "host/components/XmlStream.h"
#include "support/Fakes.h"

namespace {

SmartPtr<IString> Str(const std::wstring& text) {
    return SmartPtr<IString>(HOSTNewString(text.data(), static_cast<int32_t>(text.size())));
}
std::wstring View(const tagREFString& view) { return std::wstring(view.text ? view.text : L"", view.length); }
std::wstring TextOfStream(IUnknown* stream) { return TextOf(QueryAs<IString>(stream, IID_IString).get()); }

void Write(IXMLStream* stream, const std::wstring& name, const std::wstring& text) {
    EXPECT_EQ(stream->WriteElement(Str(name).get(), 0, Str(text).get(), 0), S_OK);
}
void Begin(IXMLStream* stream, const std::wstring& name) { EXPECT_EQ(stream->BeginElement(Str(name).get(), 0, 0), S_OK); }

std::string ToText(IXMLStream* stream) {
    std::string text;
    EXPECT_TRUE(HOSTXMLStreamToText(stream, text));
    return text;
}
SmartPtr<IXMLStream> FromText(const std::string& text) {
    std::string problem;
    SmartPtr<IXMLStream> stream(HOSTXMLStreamFromText(text, problem));
    EXPECT_TRUE(stream) << problem;
    return stream;
}
SmartPtr<IXMLStream> Open(IXMLStream* stream, const std::wstring& name, std::wstring* text = nullptr) {
    SmartPtr<IXMLStream> child;
    tagREFString content{-1, nullptr};
    stream->OpenElement(static_cast<int32_t>(name.size()), name.data(), &content, child.Out(), 1);
    if (text) *text = View(content);
    return child;
}
// The names NextElement gives, each with the text OpenElement gives for it.
std::vector<std::pair<std::wstring, std::wstring>> Children(IXMLStream* stream) {
    std::vector<std::pair<std::wstring, std::wstring>> found;
    tagREFString name{-1, nullptr};
    while (stream->NextElement(&name) >= 0) {
        const std::wstring n = View(name);
        std::wstring text;
        EXPECT_TRUE(Open(stream, n, &text)) << "the element NextElement named opens";
        found.emplace_back(n, text);
    }
    EXPECT_EQ(name.length, 0) << "no name past the last";
    return found;
}

// A component that persists one text in a "Value" element; its Load fails on the text "fail".
class Thing final : public Fake<IDataPersist>, public IObjectInfo {
public:
    bool Answers(const IID& iid) override { return iid == IID_IDataPersist; }
    HRESULT QueryInterface(const IID& iid, void** object) override {
        if (iid != IID_IObjectInfo) return Fake::QueryInterface(iid, object);
        *object = static_cast<IObjectInfo*>(this);
        AddRef();
        return S_OK;
    }
    int32_t AddRef() override { return Fake::AddRef(); }
    int32_t Release() override { return Fake::Release(); }
    HRESULT GetName(int32_t, tagREFString* name) override {
        *name = tagREFString{10, L"Test Thing"};
        return S_OK;
    }
    HRESULT Save(IDataStream* stream, int32_t) override {
        SmartPtr<IXMLStream> xml = QueryAs<IXMLStream>(stream, IID_IXMLStream);
        return xml->WriteElement(Str(L"Value").get(), 0, Str(value).get(), 0);
    }
    HRESULT Load(IDataStream* stream, int32_t) override {
        SmartPtr<IXMLStream> xml = QueryAs<IXMLStream>(stream, IID_IXMLStream);
        tagREFString text{0, nullptr};
        if (!xml || xml->OpenElement(5, L"Value", &text, nullptr, 1) < 0) return E_FAIL;
        value = View(text);
        return value == L"fail" ? E_FAIL : S_OK;
    }
    std::wstring value;
};

HRESULT CreateThing(void*, IID* iid, void** object) {
    Thing* made = new Thing;
    const HRESULT hr = made->QueryInterface(*iid, object);
    made->Release();
    return hr;
}

class XmlStream : public ::testing::Test {
protected:
    void SetUp() override {
        HOSTRegisterComponent(L"Test Thing", CreateThing);
        m_Live = HOSTLiveObjects();
        m_Stream.Attach(HOSTNewXMLStream());
        ASSERT_TRUE(m_Stream);
    }
    void TearDown() override {
        m_Stream.Reset();
        HOSTFailCreation(0);
        EXPECT_EQ(HOSTLiveObjects(), m_Live) << "every object was released";
        EXPECT_EQ(FakeLive(), 0);
    }
    SmartPtr<IXMLStream> m_Stream;
    int32_t m_Live = 0;
};

TEST_F(XmlStream, NestedElementsAreWrittenIndentedAndReadBackInOrder) {
    Write(m_Stream.get(), L"Speed", L"5");
    Begin(m_Stream.get(), L"Colour");
    Write(m_Stream.get(), L"Value", L"#FF8000");
    Begin(m_Stream.get(), L"Empty");
    EXPECT_EQ(m_Stream->EndElement(), S_OK);
    EXPECT_EQ(m_Stream->EndElement(), S_OK);
    EXPECT_EQ(m_Stream->EndElement(), E_FAIL) << "the stream's own element stays open";
    Write(m_Stream.get(), L"Last", L"");
    EXPECT_EQ(ToText(m_Stream.get()),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<wks version=\"1\">\n  <Speed>5</Speed>\n  <Colour>\n"
              "    <Value>#FF8000</Value>\n    <Empty />\n  </Colour>\n  <Last />\n</wks>\n");

    SmartPtr<IXMLStream> read = FromText(ToText(m_Stream.get()));
    const std::vector<std::pair<std::wstring, std::wstring>> top = {
        {L"Speed", L"5"}, {L"Colour", L"<Value>#FF8000</Value><Empty/>"}, {L"Last", L""}};
    EXPECT_EQ(Children(read.get()), top);
    SmartPtr<IXMLStream> colour = Open(read.get(), L"Colour");
    ASSERT_TRUE(colour);
    const std::vector<std::pair<std::wstring, std::wstring>> inside = {{L"Value", L"#FF8000"}, {L"Empty", L""}};
    EXPECT_EQ(Children(colour.get()), inside);
}

TEST_F(XmlStream, OpenElementTakesTheCursorsElementThenTheFirstOfThatName) {
    Write(m_Stream.get(), L"P", L"first");
    Write(m_Stream.get(), L"Q", L"");
    Write(m_Stream.get(), L"P", L"second");
    tagREFString name{0, nullptr};
    for (int i = 0; i < 3; ++i) ASSERT_EQ(m_Stream->NextElement(&name), S_OK);
    std::wstring text;
    EXPECT_TRUE(Open(m_Stream.get(), L"P", &text));
    EXPECT_EQ(text, L"second");
    m_Stream->Seek(0, 0, 0);
    EXPECT_TRUE(Open(m_Stream.get(), L"P", &text));
    EXPECT_EQ(text, L"first") << "after Seek no element is at the cursor";

    SmartPtr<IXMLStream> none;
    tagREFString poisoned{99, L"x"};
    EXPECT_EQ(m_Stream->OpenElement(1, L"R", &poisoned, none.Out(), 1), E_FAIL);
    EXPECT_FALSE(none);
    EXPECT_EQ(poisoned.length, 0);
}

TEST_F(XmlStream, ObjectElementsAreNamedAfterTheirComponentAndRecreatedByName) {
    {
        SmartPtr<Thing> thing(new Thing);
        thing->value = L"kept";
        Begin(m_Stream.get(), L"Item");
        EXPECT_EQ(m_Stream->BeginObjectElement(static_cast<IDataPersist*>(thing.get()), 0, 0), S_OK);
        EXPECT_EQ(thing->Save(m_Stream.get(), 0), S_OK);
        m_Stream->EndElement();
        m_Stream->EndElement();
        SmartPtr<Thing> failing(new Thing);
        failing->value = L"fail";
        m_Stream->BeginObjectElement(static_cast<IDataPersist*>(failing.get()), 0, 0);
        failing->Save(m_Stream.get(), 0);
        m_Stream->EndElement();
    }
    const std::string text = ToText(m_Stream.get());
    EXPECT_NE(text.find("<Test_x0020_Thing>"), std::string::npos) << text;

    SmartPtr<IXMLStream> read = FromText(text);
    SmartPtr<IXMLStream> item = Open(read.get(), L"Item");
    ASSERT_TRUE(item);
    for (int route = 0; route < 2; ++route) {
        SmartPtr<IUnknown> object;
        EXPECT_EQ(route == 0 ? item->ReadContainedObject(object.Out()) : item->ReadObject(10, L"Test Thing", object.Out()), S_OK);
        SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(object.get(), IID_IDataPersist);
        ASSERT_TRUE(persist) << route;
        EXPECT_EQ(static_cast<Thing*>(persist.get())->value, L"kept");
    }

    Write(m_Stream.get(), L"Variant", L"");
    SmartPtr<IXMLStream> leaf = Open(Open(item.get(), L"Test Thing").get(), L"Value");
    const struct {
        const char* why;
        IXMLStream* stream;
        std::wstring name;  // empty: ReadContainedObject
    } failures[] = {
        {"its Load failed", read.get(), L"Test Thing"},
        {"no such component", read.get(), L"Item"},
        {"no such element", read.get(), L"Nothing"},
        {"it does not persist itself", m_Stream.get(), L"Variant"},
        {"no element inside", leaf.get(), L""},
    };
    for (const auto& row : failures) {
        IUnknown* object = reinterpret_cast<IUnknown*>(0xCAFECAFE);
        const HRESULT hr = row.name.empty() ? row.stream->ReadContainedObject(&object)
                                            : row.stream->ReadObject(static_cast<int32_t>(row.name.size()), row.name.data(), &object);
        EXPECT_EQ(hr, E_FAIL) << row.why;
        EXPECT_EQ(object, nullptr) << row.why;
    }
}

TEST_F(XmlStream, AnObjectWithoutANameStillOpensAnElementForItsEndElement) {
    SmartPtr<IString> nameless(HOSTNewString(L"x"));
    EXPECT_EQ(m_Stream->BeginObjectElement(nameless.get(), 0, 0), S_FALSE);
    EXPECT_EQ(m_Stream->EndElement(), S_OK);
    EXPECT_EQ(m_Stream->BeginObjectElement(nullptr, 0, 0), E_POINTER);
    EXPECT_EQ(m_Stream->EndElement(), E_FAIL);
    EXPECT_EQ(TextOfStream(m_Stream.get()), L"<_/>");
}

TEST_F(XmlStream, NamesAndTextsReadBackExactly) {
    const struct {
        std::wstring name, text;
        const char* written;  // the element as the document holds it, where it matters
    } rows[] = {
        {L"Markup", L"a & b < c > d \"e\" 'f'", "<Markup>a &amp; b &lt; c &gt; d \"e\" 'f'</Markup>"},
        {L"Unicode", L"Grüße, 日本, 😀", "<Unicode>Grüße, 日本, 😀</Unicode>"},
        {L"Lines", L"one\r\ntwo\rthree\n\tfour\x01", "<Lines>one\r\ntwo\rthree\n\tfour&#01;</Lines>"},
        {L"Blanks", L"   ", "<Blanks>   </Blanks>"},
        {L"Padded", L"  x  ", nullptr},
        {L"Max speed", L"12.5", "<Max_x0020_speed>"},
        {L"1st", L"", "<_x0031_st />"},
        {L"a:b", L"", "<a_x003A_b />"},
        {L"", L"empty name", "<_>empty name</_>"},
        {L"_", L"", "<_x005F_ />"},
        {L"_x0041_", L"", "<_x005F_x0041_ />"},
        {L"Use_Prompt", L"1", "<Use_Prompt>1</Use_Prompt>"},
        {L"Ωmega", L"", "<Ωmega />"},
        {std::wstring(L"nul\0here", 8), L"", "<nul_x0000_here />"},
        {L"wide\xD800\x7FFFFFFF", L"", "<wide_xD800__x7FFFFFFF_ />"},
    };
    for (const auto& row : rows) Write(m_Stream.get(), row.name, row.text);
    const std::string text = ToText(m_Stream.get());
    for (const auto& row : rows)
        if (row.written) {
            EXPECT_NE(text.find(row.written), std::string::npos) << row.written << " in\n" << text;
        }
    SmartPtr<IXMLStream> read = FromText(text);
    const auto children = Children(read.get());
    ASSERT_EQ(children.size(), std::size(rows));
    for (size_t i = 0; i < children.size(); ++i) {
        EXPECT_EQ(children[i].first, rows[i].name) << i;
        EXPECT_EQ(children[i].second, rows[i].text) << i;
    }
}

TEST_F(XmlStream, TextsXmlCannotHoldBecomeReplacementCharacters) {
    Write(m_Stream.get(), L"T", std::wstring(L"a\0b\xDC00" L"c\x110000", 6));
    std::wstring text;
    Open(FromText(ToText(m_Stream.get())).get(), L"T", &text);
    EXPECT_EQ(text, L"a\xFFFD" L"b\xFFFD" L"c\xFFFD");
}

TEST_F(XmlStream, StringTextIsTheLeafsTextOrTheInnerMarkup) {
    Begin(m_Stream.get(), L"Parent");
    Write(m_Stream.get(), L"Leaf", L"x < y");
    m_Stream->EndElement();
    EXPECT_EQ(TextOfStream(m_Stream.get()), L"<Parent><Leaf>x &lt; y</Leaf></Parent>");
    SmartPtr<IXMLStream> parent = Open(m_Stream.get(), L"Parent");
    SmartPtr<IXMLStream> leaf = Open(parent.get(), L"Leaf");
    EXPECT_EQ(TextOfStream(parent.get()), L"<Leaf>x &lt; y</Leaf>");
    EXPECT_EQ(TextOfStream(leaf.get()), L"x < y");

    SmartPtr<IString> leafText = QueryAs<IString>(leaf.get(), IID_IString);
    SmartPtr<IString> parentText = QueryAs<IString>(parent.get(), IID_IString);
    EXPECT_EQ(leafText->SetText(3, L"new"), S_OK);
    EXPECT_EQ(leafText->AppendText(2, L"er"), S_OK);
    EXPECT_EQ(leaf->Write(L"!", sizeof(wchar_t), 0), S_OK);
    EXPECT_EQ(TextOfStream(parent.get()), L"<Leaf>newer!</Leaf>") << "every view sees the change";
    EXPECT_EQ(parentText->SetText(1, L"z"), E_FAIL) << "child elements are never removed";
    SmartPtr<IXMLStream> empty(HOSTNewXMLStream());
    EXPECT_EQ(TextOfStream(empty.get()), L"");
}

TEST_F(XmlStream, SlotsSitWhereTheModuleCallsThem) {
    void* itf = m_Stream.get();
    auto writeElement = Slot<HRESULT (*)(void*, IString*, int32_t, IString*, int32_t)>(itf, 12);
    auto nextElement = Slot<HRESULT (*)(void*, tagREFString*)>(itf, 14);
    auto getBuffer = Slot<HRESULT (*)(void*, void**, int32_t*)>(itf, 6);
    EXPECT_EQ(writeElement(itf, Str(L"A").get(), 0, Str(L"1").get(), 0), S_OK);
    tagREFString name{0, nullptr};
    EXPECT_EQ(nextElement(itf, &name), S_OK);
    EXPECT_EQ(View(name), L"A");
    void* data = nullptr;
    int32_t bytes = 0;
    EXPECT_EQ(getBuffer(itf, &data, &bytes), S_OK);
    EXPECT_EQ(bytes, static_cast<int32_t>(sizeof(L"<A>1</A>") - sizeof(wchar_t)));
    SmartPtr<IString> text = QueryAs<IString>(m_Stream.get(), IID_IString);
    auto getText = Slot<HRESULT (*)(void*, wchar_t**, int32_t*)>(text.get(), 3);
    wchar_t* chars = nullptr;
    int32_t length = 0;
    EXPECT_EQ(getText(text.get(), &chars, &length), S_OK);
    EXPECT_EQ(std::wstring(chars, length), L"<A>1</A>");
}

// Its creation by name and the interfaces it answers are the host-core suite's route table.
TEST_F(XmlStream, FailingCreationsLeaveNothingBehind) {
    HOSTFailCreation(1);
    EXPECT_EQ(HOSTNewXMLStream(), nullptr);
    Write(m_Stream.get(), L"A", L"1");
    HOSTFailCreation(1);
    IXMLStream* child = reinterpret_cast<IXMLStream*>(0xCAFECAFE);
    EXPECT_EQ(m_Stream->OpenElement(1, L"A", nullptr, &child, 1), E_OUTOFMEMORY);
    EXPECT_EQ(child, nullptr);
    std::string text;
    EXPECT_FALSE(HOSTXMLStreamToText(nullptr, text));
    SmartPtr<ICSVStream> csv;
    HOSTCreateCSVStream(nullptr, &IID_ICSVStream, csv.OutVoid());
    EXPECT_FALSE(HOSTXMLStreamToText(reinterpret_cast<IXMLStream*>(csv.get()), text)) << "not an XML stream";
}

TEST_F(XmlStream, MalformedDocumentsAreRefusedWithWhereAndWhy) {
    const struct {
        const char* name;
        std::string text;
        const char* problem;  // a part of the problem's text
    } rows[] = {
        {"Empty", "", "no root element"},
        {"Only blanks", " \n ", "no root element"},
        {"Unclosed root", "<wks version=\"1\">\n  <A>", "line 2"},
        {"Mismatched tags", "<wks version=\"1\"><A></B></wks>", "Start-end tags mismatch"},
        {"Other root", "<other version=\"1\"/>", "not <wks version=\"1\"> at offset 1"},
        {"No version", "<wks/>", "lacks version=\"1\""},
        {"Wrong version", "<wks version=\"2\"/>", "a document of version \"2\", not \"1\" at offset 1"},
        {"Two roots", "<wks version=\"1\"/><wks version=\"1\"/>", "2 top-level elements: a document holds one, <wks version=\"1\"> at offset 19"},
        {"Text outside", "<wks version=\"1\"/>tail", "text outside the root element at offset 18"},
        {"Document type", "<!DOCTYPE wks [<!ENTITY a \"x\">]><wks version=\"1\"><A>&a;</A></wks>", "document type declaration"},
        {"Malformed UTF-8", "<wks version=\"1\">\xC3\x28</wks>", "malformed UTF-8 at offset 17 (line 1, column 18)"},
        {"Surrogate in UTF-8", "<wks version=\"1\">\xED\xA0\x80</wks>", "malformed UTF-8"},
        {"NUL byte", std::string("<wks version=\"1\">\0</wks>", 24), "a NUL byte"},
        {"Surrogate reference", "<wks version=\"1\"><A>&#xD800;</A></wks>", "character reference"},
        {"Reference beyond Unicode", "<wks version=\"1\"><A k=\"&#x110000;\"/></wks>", "character reference"},
        {"Reference to NUL", "<wks version=\"1\"><A>a&#0;b</A></wks>", "character reference"},
        {"Reference wrapping to NUL", "<wks version=\"1\"><A>&#4294967296;</A></wks>", "character reference"},
    };
    for (const auto& row : rows) {
        std::string problem;
        SmartPtr<IXMLStream> stream(HOSTXMLStreamFromText(row.text, problem));
        EXPECT_FALSE(stream) << row.name;
        EXPECT_NE(problem.find(row.problem), std::string::npos) << row.name << ": " << problem;
    }
    std::wstring text;
    Open(FromText("<wks version=\"1\"><A><![CDATA[&#0;]]></A></wks>").get(), L"A", &text);
    EXPECT_EQ(text, L"&#0;") << "character data holds no references";
}

// Inputs keep their flags, interface and moniker through an XML document, as they do in a folder;
// a lone input saved as an object element comes back by name with its own name.
TEST(XmlInputs, InputsAndMonikersReadBackThroughText) {
    const int32_t live = HOSTLiveObjects();
    {
        SmartPtr<IInputParameters> saved, loaded;
        HOSTCreateInputParameters(nullptr, &IID_IInputParameters, saved.OutVoid());
        HOSTCreateInputParameters(nullptr, &IID_IInputParameters, loaded.OutVoid());
        for (IInputParameters* inputs : {saved.get(), loaded.get()}) {
            inputs->AddInput(Str(L"A b").get(), IID_NULL, 0);
            inputs->AddInput(Str(L"C").get(), IID_NULL, 0);
        }
        CInputParameter* first = static_cast<CInputParameters*>(saved.get())->Input(0);
        first->put_InputFlags(-5);
        first->put_InterfaceID(IID_IStep);
        SmartPtr<ICollectionMoniker> moniker(HOSTNewCollectionMoniker(L"Lamp"));
        first->put_Moniker(moniker.get());
        static_cast<CInputParameters*>(saved.get())->Input(1)->put_InputFlags(7);

        SmartPtr<IXMLStream> out(HOSTNewXMLStream());
        ASSERT_EQ(QueryAs<IDataPersist>(saved.get(), IID_IDataPersist)->Save(out.get(), 0), S_OK);
        ASSERT_EQ(out->BeginObjectElement(static_cast<IInputParameter*>(first), 0, 0), S_OK);
        first->Save(out.get(), 0);
        out->EndElement();
        const std::string text = ToText(out.get());
        EXPECT_NE(text.find("<CollectionMoniker>"), std::string::npos) << text;

        SmartPtr<IXMLStream> in = FromText(text);
        ASSERT_EQ(QueryAs<IDataPersist>(loaded.get(), IID_IDataPersist)->Load(in.get(), 0), S_OK);
        for (int32_t i = 0; i < 2; ++i) {
            CInputParameter* a = static_cast<CInputParameters*>(saved.get())->Input(i);
            CInputParameter* b = static_cast<CInputParameters*>(loaded.get())->Input(i);
            int32_t flagsA = 0, flagsB = 0;
            IID iidA, iidB;
            a->get_InputFlags(&flagsA), b->get_InputFlags(&flagsB);
            a->get_InterfaceID(&iidA), b->get_InterfaceID(&iidB);
            EXPECT_EQ(flagsA, flagsB) << i;
            EXPECT_TRUE(iidA == iidB) << i;
        }
        SmartPtr<IUnknown> restored;
        ASSERT_EQ(static_cast<CInputParameters*>(loaded.get())->Input(0)->get_Moniker(restored.Out()), S_OK);
        EXPECT_NE(restored.get(), static_cast<IUnknown*>(moniker.get()));
        EXPECT_EQ(static_cast<CCollectionMoniker*>(static_cast<ICollectionMoniker*>(restored.get()))->Name(), L"Lamp");

        SmartPtr<IUnknown> lone;
        ASSERT_EQ(in->ReadObject(14, L"InputParameter", lone.Out()), S_OK);
        SmartPtr<IInputParameter> input = QueryAs<IInputParameter>(lone.get(), IID_IInputParameter);
        ASSERT_TRUE(input);
        EXPECT_EQ(static_cast<CInputParameter*>(input.get())->Name(), L"A b");
    }
    EXPECT_EQ(HOSTLiveObjects(), live);
}

}  // namespace
