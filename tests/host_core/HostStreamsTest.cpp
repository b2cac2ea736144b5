// The host's text streams and string table, and the run-time side of the component registry.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/SuperCollection.h"
#include "host/components/StringTable.h"

extern "C" HRESULT CreateFunction(tagREFString name, void** creator);

namespace {

class HostStreams : public ::testing::Test {
protected:
    void SetUp() override {
        m_Live = HOSTLiveObjects();
    }
    void TearDown() override { EXPECT_EQ(HOSTLiveObjects(), m_Live) << "every object was released"; }

    static std::wstring Content(IDataStream* stream) {
        void* data = nullptr;
        int32_t bytes = -1;
        EXPECT_EQ(stream->GetBuffer(&data, &bytes), S_OK);
        return std::wstring(static_cast<const wchar_t*>(data), bytes / sizeof(wchar_t));
    }
    int32_t m_Live = 0;
};

// Items of every kind the streams know, in one named collection: an integer, a text in a variant,
// a bare string without a name, a real, an object without a name of its own, an empty variant.
SmartPtr<ISuperCollection> Sample() {
    SmartPtr<ISuperCollection> c(HOSTNewCollection());
    SmartPtr<IString> var1(HOSTNewString(L"Var1")), var2(HOSTNewString(L"Var2")), real(HOSTNewString(L"R")),
        obj(HOSTNewString(L"Obj")), empty(HOSTNewString(L"E")), hello(HOSTNewString(L"Hello")),
        bare(HOSTNewString(L"bare"));
    SmartPtr<IVariant> v1, v2, r, e;
    for (SmartPtr<IVariant>* v : {&v1, &v2, &r, &e}) HOSTCreateVariant(nullptr, &IID_IVariant, v->OutVoid());
    v1->put_Integer(100);
    v2->put_String(hello.get());
    r->put_Double(-2.5);
    SmartPtr<ISuperCollection> nameless(HOSTNewCollection());
    c->Add(var1.get(), v1.get(), 0, 0);
    c->Add(var2.get(), v2.get(), 0, 0);
    c->Add(nullptr, bare.get(), 0, 0);
    c->Add(real.get(), r.get(), 0, 0);
    c->Add(obj.get(), nameless.get(), 0, 0);
    c->Add(empty.get(), e.get(), 0, 0);
    return c;
}

TEST_F(HostStreams, CSVAndINIWriteOneEntryPerItem) {
    struct Row {
        HRESULT (*creator)(void*, IID*, void**);
        const wchar_t* expected;
    };
    const Row rows[] = {
        {HOSTCreateCSVStream, L"Var1=100,Var2=Hello,bare,R=-2.5,Obj=,E="},
        {HOSTCreateINIStream, L"Var1=100\nVar2=Hello\nbare\nR=-2.5\nObj=\nE="},
    };
    SmartPtr<ISuperCollection> sample = Sample();
    for (const Row& row : rows) {
        SmartPtr<IDataStream> stream;
        ASSERT_EQ(row.creator(nullptr, &IID_IDataStream, stream.OutVoid()), S_OK);
        const bool csv = row.creator == HOSTCreateCSVStream;
        SmartPtr<ICSVStream> asCsv = QueryAs<ICSVStream>(stream.get(), IID_ICSVStream);
        SmartPtr<IINIStream> asIni = QueryAs<IINIStream>(stream.get(), IID_IINIStream);
        ASSERT_TRUE(csv ? bool(asCsv) : bool(asIni));

        // Writing twice after Open shows that Open starts over.
        for (int pass = 0; pass < 2; ++pass) {
            if (csv) {
                asCsv->Open(0, 0x30000);
                asCsv->WriteObject(sample.get(), 0);
            } else {
                asIni->Open(0);
                asIni->WriteObject(sample.get());
            }
        }
        stream->Seek(0, 0, 0);
        EXPECT_EQ(Content(stream.get()), row.expected);

        const wchar_t tail[] = L"|x";
        EXPECT_EQ(stream->Write(tail, 2 * sizeof(wchar_t), 0), S_OK);
        EXPECT_EQ(Content(stream.get()), std::wstring(row.expected) + L"|x") << "raw bytes are appended";
    }
}

// Reals print in fixed point with the fewest decimals, or in exponent notation where the fixed
// text would not fit 255 characters.
TEST_F(HostStreams, NumbersAsText) {
    const struct { double value; const wchar_t* text; } rows[] = {
        {3.0, L"3"}, {2.5, L"2.5"}, {-0.125, L"-0.125"}, {1.0 / 3, L"0.333333333"},
        {7766279631452241920.0, L"7766279631452241920"}, {1e300, L"1e+300"}, {-2.5e300, L"-2.5e+300"},
        {1.234567891e290, L"1.234567891e+290"}, {1e20, L"100000000000000000000"},
        {HUGE_VAL, L"inf"}, {-HUGE_VAL, L"-inf"},
    };
    for (const auto& row : rows) {
        SmartPtr<ISuperCollection> one(HOSTNewCollection());
        SmartPtr<IVariant> number;
        HOSTCreateVariant(nullptr, &IID_IVariant, number.OutVoid());
        number->put_Double(row.value);
        one->Add(nullptr, number.get(), 0, 0);
        SmartPtr<IINIStream> ini;
        HOSTCreateINIStream(nullptr, &IID_IINIStream, ini.OutVoid());
        ini->WriteObject(one.get());
        EXPECT_EQ(Content(ini.get()), row.text) << row.value;
    }
}

TEST_F(HostStreams, StringTableKeepsEntriesByComponentAndNumber) {
    SmartPtr<IStringTable> table;
    ASSERT_EQ(HOSTCreateStringTable(nullptr, &IID_IStringTable, table.OutVoid()), S_OK);
    SmartPtr<IString> component(HOSTNewString(L"WKSProtocol")), key(HOSTNewString(L"102"));
    auto entry = [&](std::wstring* text) {
        SmartPtr<INamedCollection> strings;
        HRESULT hr = table->get_ComponentStrings(component.get(), strings.Out());
        if (hr < 0) return hr;
        int32_t index = -1;
        if ((hr = strings->get_Index(key.get(), &index)) < 0) return hr;
        SmartPtr<IUnknown> item;
        strings->get_Item(index, item.Out());
        *text = HOSTText(QueryAs<IString>(item.get(), IID_IString).get());
        return S_OK;
    };

    std::wstring text;
    ASSERT_EQ(entry(&text), S_OK);
    EXPECT_EQ(text, L"Comma separated|INI lines");

    HOSTSetComponentString(L"WKSProtocol", 102, L"A|B|C");
    ASSERT_EQ(entry(&text), S_OK);
    EXPECT_EQ(text, L"A|B|C");
    HOSTSetComponentString(L"WKSProtocol", 102, nullptr);
    EXPECT_EQ(entry(&text), E_FAIL) << "a removed entry is gone";
    HOSTSetComponentString(L"WKSProtocol", 102, L"Comma separated|INI lines");

    HOSTSetComponentString(L"NoSuchComponent", 1, nullptr);
    SmartPtr<IString> unknown(HOSTNewString(L"NoSuchComponent"));
    SmartPtr<INamedCollection> none;
    EXPECT_EQ(table->get_ComponentStrings(unknown.get(), none.Out()), E_FAIL)
        << "removing an entry does not make a component known";
    EXPECT_FALSE(none);
}

HRESULT MakeAnotherString(void* outer, IID* iid, void** object) { return HOSTCreateString(outer, iid, object); }

TEST_F(HostStreams, ComponentsRegisteredAtRunTimeAreMadeByName) {
    SmartPtr<IComponentCollection> global;
    HOSTCreateGlobalComponentCollection(nullptr, &IID_IComponentCollection, global.OutVoid());
    SmartPtr<IComponentString> described;
    HOSTCreateComponentString(nullptr, &IID_IComponentString, described.OutVoid());
    described->put_Field(1, tagREFString{10, L"LateString"});
    void* nothing = nullptr;
    EXPECT_EQ(described->CreateInstance(&IID_IString, &nothing), E_FAIL);

    int32_t before = 0, after = 0;
    global->get_Count(&before);
    HOSTRegisterComponent(L"LateString", MakeAnotherString);
    global->get_Count(&after);
    EXPECT_EQ(after, before + 1);

    SmartPtr<IString> made;
    EXPECT_EQ(described->CreateInstance(&IID_IString, made.OutVoid()), S_OK)
        << "a component string sees components registered after its first attempt";
    void* creator = nullptr;
    EXPECT_EQ(CreateFunction(tagREFString{10, L"LateString"}, &creator), S_OK);
    EXPECT_EQ(creator, reinterpret_cast<void*>(&MakeAnotherString));
    void* untouched = &creator;
    EXPECT_EQ(CreateFunction(tagREFString{4, L"Nope"}, &untouched), E_FAIL);
    EXPECT_EQ(untouched, &creator);
}

}  // namespace
