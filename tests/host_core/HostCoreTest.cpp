// The reference host's core objects, reached through their interfaces. Every scenario leaves the
// live-object count where it found it.
#include <gtest/gtest.h>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/SuperCollection.h"

namespace {

class HostCore : public ::testing::Test {
protected:
    void SetUp() override {
        // The global collection is one object for the life of the process: make it before counting.
        SmartPtr<IComponentCollection> global;
        HOSTCreateGlobalComponentCollection(nullptr, &IID_IComponentCollection, global.OutVoid());
        m_Live = HOSTLiveObjects();
    }
    void TearDown() override { EXPECT_EQ(HOSTLiveObjects(), m_Live) << "every object was released"; }

    template <class I>
    static SmartPtr<I> Make(HRESULT (*creator)(void*, IID*, void**), IID& iid) {
        SmartPtr<I> made;
        EXPECT_EQ(creator(nullptr, &iid, made.OutVoid()), S_OK);
        return made;
    }
    int32_t m_Live = 0;
};

TEST_F(HostCore, VariantSemantics) {
    SmartPtr<IVariant> v = Make<IVariant>(HOSTCreateVariant, IID_IVariant);
    EXPECT_EQ(v->get_NumberType(), 0);
    EXPECT_EQ(v->IsString() | v->IsObject(), 0);

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

    SmartPtr<IVariant> other = Make<IVariant>(HOSTCreateVariant, IID_IVariant);
    other->put_Integer(9);
    v->put_Object(other.get());
    EXPECT_EQ(v->get_NumberType(), 1) << "a variant's value is taken over";
    EXPECT_EQ(v->get_Integer(), 9);
    other->put_Integer(10);
    EXPECT_EQ(v->get_Integer(), 9) << "copied, not shared";

    SmartPtr<ISuperCollection> object(HOSTNewCollection());
    v->put_Object(object.get());
    EXPECT_TRUE(v->IsObject());
    SmartPtr<IUnknown> held;
    EXPECT_EQ(v->get_Object(held.Out()), S_OK);
    EXPECT_TRUE(held);

    v->put_Object(nullptr);
    EXPECT_EQ(v->IsObject() | v->IsString() | v->get_NumberType(), 0) << "null empties";
}

TEST_F(HostCore, CollectionOrderLookupAndInterfaces) {
    SmartPtr<ISuperCollection> c(HOSTNewCollection());
    SmartPtr<IString> a(HOSTNewString(L"A")), b(HOSTNewString(L"B"));
    SmartPtr<IVariant> value = Make<IVariant>(HOSTCreateVariant, IID_IVariant);
    c->Add(a.get(), value.get(), 0, 0);
    c->Add(nullptr, a.get(), 0, 0);
    c->Add(b.get(), b.get(), 0, 0);
    c->Add(a.get(), b.get(), 0, 0);  // a duplicate name: the first one wins

    int32_t count = 0, index = 7;
    c->get_Count(&count);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(c->get_Index(a.get(), &index), S_OK);
    EXPECT_EQ(index, 0);
    EXPECT_EQ(c->get_Index(b.get(), &index), S_OK);
    EXPECT_EQ(index, 2);
    SmartPtr<IString> lower(HOSTNewString(L"a"));
    EXPECT_EQ(c->get_Index(lower.get(), &index), E_FAIL);
    EXPECT_EQ(index, -1);

    SmartPtr<IString> name;
    EXPECT_EQ(c->get_ItemName(1, name.Out()), E_FAIL) << "an unnamed item";
    SmartPtr<IUnknown> item;
    EXPECT_EQ(c->get_Item(4, item.Out()), E_INVALIDARG);
    EXPECT_EQ(c->FindByInterface(&IID_IString, 0, 0, &index), S_OK);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(c->FindByInterface(&IID_IStep, 0, 0, &index), E_FAIL);

    SmartPtr<INamedCollection> named = QueryAs<INamedCollection>(c.get(), IID_INamedCollection);
    EXPECT_EQ(static_cast<void*>(named.get()), static_cast<void*>(c.get()));
}

TEST_F(HostCore, RenameKeepsTheFirstNameFirstAndNumbersAreIndexes) {
    SmartPtr<ISuperCollection> c(HOSTNewCollection());
    SmartPtr<IString> a(HOSTNewString(L"A")), z(HOSTNewString(L"Z"));
    for (int i = 0; i < 3; ++i) c->Add(a.get(), a.get(), 0, 0);
    int32_t index = -1;
    c->Rename(0, z.get());
    EXPECT_EQ(c->get_Index(a.get(), &index), S_OK);
    EXPECT_EQ(index, 1) << "the next item with the old name takes over";
    c->Rename(2, nullptr);
    c->Rename(1, z.get());
    EXPECT_EQ(c->get_Index(a.get(), &index), E_FAIL);
    EXPECT_EQ(c->get_Index(z.get(), &index), S_OK);
    EXPECT_EQ(index, 0);

    SmartPtr<IVariant> key = Make<IVariant>(HOSTCreateVariant, IID_IVariant);
    const struct {
        double number;
        HRESULT result;
        int32_t index;
    } rows[] = {{2, S_OK, 2}, {1.9, S_OK, 1}, {3, E_FAIL, -1}, {-1, E_FAIL, -1}};
    for (const auto& row : rows) {
        key->put_Double(row.number);
        EXPECT_EQ(c->get_Index(key.get(), &index), row.result) << row.number;
        EXPECT_EQ(index, row.index) << row.number;
    }
}

TEST_F(HostCore, StringsCheckTheirArgumentsAndStayTerminated) {
    SmartPtr<IString> s = Make<IString>(HOSTCreateString, IID_IString);
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

TEST_F(HostCore, ComponentStringsMakeANewObjectEachCall) {
    SmartPtr<IComponentString> cs = Make<IComponentString>(HOSTCreateComponentString, IID_IComponentString);
    cs->put_Field(4, tagREFString{11, L"Collections"});
    cs->put_Field(1, tagREFString{7, L"Variant"});
    SmartPtr<IVariant> first, second;
    EXPECT_EQ(cs->CreateInstance(&IID_IVariant, first.OutVoid()), S_OK);
    EXPECT_EQ(cs->CreateInstance(&IID_IVariant, second.OutVoid()), S_OK);
    EXPECT_NE(first.get(), second.get());

    SmartPtr<IString> field;
    cs->get_Field(1, field.Out());
    EXPECT_EQ(HOSTText(field.get()), L"Variant");

    cs->put_Field(1, tagREFString{6, L"NoSuch"});
    void* nothing = nullptr;
    EXPECT_EQ(cs->CreateInstance(&IID_IVariant, &nothing), E_FAIL);
    EXPECT_EQ(nothing, nullptr);
}

TEST_F(HostCore, GlobalCollectionIsOneRegistryOfComponents) {
    SmartPtr<IComponentCollection> g1 = Make<IComponentCollection>(HOSTCreateGlobalComponentCollection,
                                                                   IID_IComponentCollection);
    const int32_t live = HOSTLiveObjects();
    SmartPtr<IComponentCollection> g2 = Make<IComponentCollection>(HOSTCreateGlobalComponentCollection,
                                                                   IID_IComponentCollection);
    EXPECT_EQ(g1.get(), g2.get());
    EXPECT_EQ(HOSTLiveObjects(), live);

    SmartPtr<IString> name(HOSTNewString(L"SuperCollection"));
    int32_t index = -1;
    ASSERT_EQ(g1->get_Index(name.get(), &index), S_OK);
    SmartPtr<IUnknown> item;
    ASSERT_EQ(g1->get_Item(index, item.Out()), S_OK);
    SmartPtr<IComponentString> described = QueryAs<IComponentString>(item.get(), IID_IComponentString);
    ASSERT_TRUE(described);
    SmartPtr<ISuperCollection> made;
    EXPECT_EQ(described->CreateInstance(&IID_ISuperCollection, made.OutVoid()), S_OK);
    EXPECT_TRUE(made);

    SmartPtr<IString> direct;
    EXPECT_EQ(g1->CreateComponent(tagREFString{15, L"CreatableString"}, &IID_IString, direct.OutVoid()), S_OK);
    EXPECT_TRUE(direct);
    void* nothing = nullptr;
    EXPECT_EQ(g1->CreateComponent(tagREFString{4, L"Nope"}, &IID_IString, &nothing), E_FAIL);
    SmartPtr<IString> unknown(HOSTNewString(L"Nope"));
    EXPECT_EQ(g1->get_Index(unknown.get(), &index), E_FAIL);
    EXPECT_EQ(index, -1);
}

}  // namespace
