// The host's inputs and collection monikers, made by name through the global component collection.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/SuperCollection.h"
#include "host/components/Inputs.h"
#include "support/Fakes.h"

namespace {

class HostInputs : public ::testing::Test {
protected:
    void SetUp() override {
        HOSTCreateGlobalComponentCollection(nullptr, &IID_IComponentCollection, m_Global.OutVoid());
        m_Live = HOSTLiveObjects();
    }
    void TearDown() override {
        EXPECT_EQ(HOSTLiveObjects(), m_Live);
        EXPECT_EQ(FakeLive(), 0);
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

// An input is bound through its collection's slots 13 and 14 and found by its name.
TEST_F(HostInputs, DeclaredInputsBindObjectsAndHaveNames) {
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

TEST_F(HostInputs, MonikersResolveNamesInACollection) {
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
TEST_F(HostInputs, InputsPersistFlagsAndIdentifiersByName) {
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

}  // namespace
