// The property interrogation table, reached through IUIPropInterrogateEx's slots.
#include <gtest/gtest.h>

#include <cstring>

#include "interrogate/PropInterrogateImpl.h"
#include "module/Object.h"
#include "support/Fakes.h"
#include "text/Conversions.h"

namespace {

class CSettings final : public CObject<CSettings>, public IUIPropInterrogateImpl<CSettings, IUIPropInterrogateEx, 10> {
public:
    HRESULT QueryInterface(const IID& iid, void** object) override {
        *object = nullptr;
        if (iid == IID_IUnknown) *object = static_cast<CObject<CSettings>*>(this);
        else if (iid == IID_IUIPropInterrogate || iid == IID_IUIPropInterrogateEx)
            *object = static_cast<IUIPropInterrogateEx*>(this);
        if (*object == nullptr) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    int32_t AddRef() override { return CObject::AddRef(); }
    int32_t Release() override { return CObject::Release(); }
    HRESULT Lock() override { ++locks; return S_OK; }
    ~CSettings() {
        if (text) text->Release();
        if (object) object->Release();
    }
    int32_t Capacity() const { return m_ItemCapacity; }

    uint8_t byte = 0;
    int16_t word = 0;
    int32_t integer = 0;
    float single = 0;
    double real = 0;
    IString* text = nullptr;
    IUnknown* object = nullptr;
    int locks = 0;
};

int32_t Bits(float f) {
    int32_t bits;
    std::memcpy(&bits, &f, 4);
    return bits;
}

class PropTable : public ::testing::Test {
protected:
    void SetUp() override {
        IID iid = IID_IUIPropInterrogateEx;
        ASSERT_EQ(CObject<CSettings>::_CreateInstance(nullptr, &iid, m_Table.OutVoid()), S_OK);
        m_Self = static_cast<CSettings*>(m_Table.get());
        m_Fakes = FakeLive();
    }
    void TearDown() override {
        m_Table.Reset();
        EXPECT_EQ(FakeLive(), m_Fakes);
    }
    SmartPtr<IUIPropInterrogateEx> m_Table;
    CSettings* m_Self = nullptr;
    int m_Fakes = 0;
};

TEST_F(PropTable, EmptyTable) {
    int32_t count = -1, low = -1, high = -1;
    EXPECT_EQ(m_Table->Inquire(UIPROP_TABLE_ID, &count), S_OK);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(m_Table->ParameterRange(UIPROP_TABLE_ID, &low, &high), E_FAIL);
    EXPECT_EQ(low | high, 0);
    EXPECT_EQ(m_Table->Inquire(1, &count), E_INVALIDARG);
    EXPECT_EQ(m_Table->Control(1, 0), E_INVALIDARG);
    EXPECT_EQ(m_Table->Inquire(UIPROP_TABLE_ID, nullptr), E_POINTER);
}

TEST_F(PropTable, EveryTypeThroughInquireAndControl) {
    struct Row {
        uint32_t flags;
        void* value;
        int32_t control;      // what Control is given
        HRESULT inquire;      // Inquire's result: the flags, or E_FAIL
        int32_t read;         // what Inquire then writes
    };
    CSettings& s = *m_Self;
    const Row rows[] = {
        {0x11, &s.byte, 0x1FF, 0x11, 255},
        {0x02, &s.word, 0xFFFF, 0x02, -1},
        {0x13, &s.integer, -5, 0x13, -5},
        {0x04, &s.single, Bits(2.5f), 0x04, Bits(2.5f)},
        {0x05, &s.real, Bits(1.5f), 0x05, Bits(1.5f)},
        {0x06, &s.text, 7, E_FAIL, 0},
        {0x07, &s.object, 7, E_FAIL, 0},
        {0x08, nullptr, 7, 0x08, 0},
        {0x09, &s.object, 7, E_FAIL, 0},
        {0x0F, &s.integer, 7, E_FAIL, 0},
        {0x00, &s.integer, 7, E_FAIL, 0},
    };
    int id = 100;
    for (const Row& row : rows) {
        ASSERT_EQ(m_Self->AddItem(id, row.flags, row.value, 0, 0), S_OK);
        EXPECT_EQ(m_Table->Control(id, row.control), S_OK) << row.flags;
        int32_t read = 0x5A5A;
        const HRESULT hr = m_Table->Inquire(id, &read);
        EXPECT_EQ(hr, row.inquire) << row.flags;
        if (row.flags == 0x08) {
            // no storage: the flags come back and nothing is read from a variable
        } else if (hr >= 0) {
            EXPECT_EQ(read, row.read) << row.flags;
        } else {
            EXPECT_EQ(read, 0x5A5A) << "a refused type writes nothing";
        }
        ++id;
    }
    EXPECT_EQ(s.real, 1.5);
    EXPECT_EQ(s.byte, 0xFF);
    int32_t count = 0, low = 0, high = 0;
    m_Table->Inquire(UIPROP_TABLE_ID, &count);
    EXPECT_EQ(count, 11);
    EXPECT_EQ(m_Table->ParameterRange(UIPROP_TABLE_ID, &low, &high), S_OK);
    EXPECT_EQ(low, 100);
    EXPECT_EQ(high, 110);
    EXPECT_EQ(m_Self->Capacity(), 20) << "grows by ten";
}

TEST_F(PropTable, RangesEnumerationsAndTheFirstOfTwoIds) {
    SmartPtr<ISuperCollection> choices(CREFString::CreateCollection());
    m_Self->AddItem(7, 0x13, &m_Self->integer, -3, 9);
    m_Self->AddItem(7, 0x43, &m_Self->integer, 0, 0, choices.get());
    m_Self->AddItem(8, 0x43, &m_Self->integer, 0, 0, choices.get());
    int32_t low = 1, high = 1;
    EXPECT_EQ(m_Table->ParameterRange(7, &low, &high), S_OK) << "only the first item with an id is seen";
    EXPECT_EQ(low, -3);
    EXPECT_EQ(high, 9);
    EXPECT_EQ(m_Table->ParameterRange(8, &low, &high), E_INVALIDARG);
    EXPECT_EQ(low | high, 0);
    EXPECT_EQ(m_Table->ParameterRange(UIPROP_TABLE_ID, nullptr, &high), S_OK);
    EXPECT_EQ(high, 8);

    IUnknown* untouched = reinterpret_cast<IUnknown*>(0xCAFE);
    EXPECT_EQ(m_Table->ParameterEnumeration(7, &untouched), E_INVALIDARG);
    EXPECT_EQ(untouched, reinterpret_cast<IUnknown*>(0xCAFE));
    SmartPtr<IUnknown> list;
    EXPECT_EQ(m_Table->ParameterEnumeration(8, list.Out()), S_OK);
    EXPECT_EQ(static_cast<void*>(list.get()), static_cast<void*>(choices.get()));
    EXPECT_EQ(m_Table->ParameterEnumeration(8, nullptr), E_POINTER);
}

TEST_F(PropTable, ObjectsStringsAndRealsThroughTheExtendedSlots) {
    m_Self->AddItem(1, 0x106, &m_Self->text, 0, 0);
    m_Self->AddItem(2, 0x07, &m_Self->object, 0, 0);
    m_Self->AddItem(3, 0x05, &m_Self->real, 0, 0);
    m_Self->AddItem(4, 0x03, &m_Self->integer, 0, 0);

    SmartPtr<IString> name(ISCreate(L"file.txt"));
    SmartPtr<IVariant> notAString(IVCreate(3));
    EXPECT_EQ(m_Table->ControlEx(1, name.get()), S_OK);
    EXPECT_EQ(m_Self->text, name.get());
    SmartPtr<IUnknown> out;
    EXPECT_EQ(m_Table->InquireEx(1, out.Out()), 0x106);
    EXPECT_EQ(static_cast<void*>(out.get()), static_cast<void*>(name.get()));
    EXPECT_EQ(m_Table->ControlEx(1, notAString.get()), S_OK);
    EXPECT_EQ(m_Self->text, nullptr) << "a value without IString leaves the string empty";
    EXPECT_EQ(m_Table->ControlEx(1, nullptr), S_OK);

    SmartPtr<FakeInput> thing(new FakeInput());
    EXPECT_EQ(m_Table->ControlEx(2, thing.get()), S_OK);
    EXPECT_EQ(thing->m_Refs, 2);
    EXPECT_EQ(m_Table->ControlEx(2, nullptr), S_OK) << "null clears the object";
    EXPECT_EQ(thing->m_Refs, 1);
    EXPECT_GE(m_Self->locks, 4) << "string and object items change under the owner's lock";

    SmartPtr<IVariant> real(IVCreate(2.25));
    EXPECT_EQ(m_Table->ControlEx(3, real.get()), S_OK);
    EXPECT_EQ(m_Self->real, 2.25);
    EXPECT_EQ(m_Table->ControlEx(3, nullptr), E_FAIL);
    EXPECT_EQ(m_Table->ControlEx(3, name.get()), E_FAIL);
    out.Reset();
    EXPECT_EQ(m_Table->InquireEx(3, out.Out()), 0x05);
    SmartPtr<IVariant> back = QueryAs<IVariant>(out.get(), IID_IVariant);
    EXPECT_EQ(back->get_Double(), 2.25);

    EXPECT_EQ(m_Table->InquireEx(4, out.Out()), E_FAIL);
    EXPECT_EQ(m_Table->ControlEx(4, real.get()), E_FAIL);
    EXPECT_EQ(m_Table->InquireEx(9, out.Out()), E_INVALIDARG);
}

TEST_F(PropTable, DestructionReleasesEnumerations) {
    SmartPtr<FakeInput> list(new FakeInput());
    m_Self->AddItem(1, 0x43, &m_Self->integer, 0, 0, list.get());
    EXPECT_EQ(list->m_Refs, 2);
    m_Table.Reset();
    EXPECT_EQ(list->m_Refs, 1);
}

}  // namespace
