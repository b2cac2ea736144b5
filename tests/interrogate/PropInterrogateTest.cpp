// The property interrogation table, driven through IUIPropInterrogateEx as a property page drives it.
#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "interrogate/PropInterrogateImpl.h"
#include "module/Object.h"
#include "support/Fakes.h"
#include "text/Conversions.h"

namespace {

class CSettings final : public CObject<CSettings>, public IUIPropInterrogateImpl<CSettings, IUIPropInterrogateEx, 10> {
public:
    HRESULT QueryInterface(const IID& iid, void** object) override {
        *object = iid == IID_IUIPropInterrogateEx ? static_cast<IUIPropInterrogateEx*>(this) : nullptr;
        if (*object == nullptr) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    int32_t AddRef() override { return CObject::AddRef(); }
    int32_t Release() override { return CObject::Release(); }
    HRESULT Lock() override { ++locks; return S_OK; }
    HRESULT Unlock() override { --locks; ++unlocks; return S_OK; }
    ~CSettings() {
        if (text) text->Release();
        if (object) object->Release();
    }
    using IUIPropInterrogateImpl::m_ItemCapacity;

    uint8_t byte = 0;
    int16_t word = 0;
    int32_t integer = 0;
    float single = 0;
    double real = 0;
    IString* text = nullptr;
    IUnknown* object = nullptr;
    int locks = 0, unlocks = 0;
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
        s = static_cast<CSettings*>(m_Table.get());
        m_Fakes = FakeLive();
    }
    void TearDown() override {
        m_Table.Reset();
        EXPECT_EQ(FakeLive(), m_Fakes);
    }
    SmartPtr<IUIPropInterrogateEx> m_Table;
    CSettings* s = nullptr;
    int m_Fakes = 0;
};

TEST_F(PropTable, EmptyTable) {
    int32_t count = -1, low = -1, high = -1;
    EXPECT_EQ(m_Table->Inquire(UIPROP_TABLE_ID, &count), S_OK);
    EXPECT_EQ(m_Table->ParameterRange(UIPROP_TABLE_ID, &low, &high), E_FAIL);
    EXPECT_EQ(count | low | high, 0);
    EXPECT_EQ(m_Table->Inquire(UIPROP_TABLE_ID, nullptr), E_POINTER);
    EXPECT_EQ(m_Table->Control(0, 0), E_INVALIDARG);
    // The persistence slots follow ControlEx and refuse until their formats exist.
    for (int slot = 9; slot <= 12; ++slot)
        EXPECT_EQ(Slot<HRESULT (*)(void*, IDataStream*, int32_t)>(m_Table.get(), slot)(m_Table.get(), nullptr, 0), E_NOTIMPL);
}

// One item of each type, eleven in all, so that the table grows past its first ten places.
TEST_F(PropTable, EveryTypeThroughInquireAndControl) {
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
TEST_F(PropTable, RangesEnumerationsAndTheFirstOfTwoIds) {
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

TEST_F(PropTable, StringsObjectsAndRealsThroughTheExtendedSlots) {
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
    EXPECT_EQ(std::make_pair(s->unlocks, s->locks), std::make_pair(4, 0)) << "each string and object change, locked";
}

}  // namespace
