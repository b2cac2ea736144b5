// The host's inputs, moniker and parameter collection made by name through the global collection.
#include <gtest/gtest.h>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/SuperCollection.h"
#include "host/components/Inputs.h"

namespace {

class HostInputs : public ::testing::Test {
protected:
    void SetUp() override {
        HOSTCreateGlobalComponentCollection(nullptr, &IID_IComponentCollection, m_Global.OutVoid());
        // Parameter collections make variants and strings through the lazy factories, whose
        // component objects live as long as the process: make them before counting.
        SmartPtr<IParametersCreatable> warm = Create<IParametersCreatable>(L"ParametersCreatable", IID_IParametersCreatable);
        warm->Add(nullptr, nullptr, nullptr, 0);
        warm.Reset();
        m_Live = HOSTLiveObjects();
    }
    void TearDown() override {
        EXPECT_EQ(HOSTLiveObjects(), m_Live);
        m_Global.Reset();
    }
    template <class I>
    SmartPtr<I> Create(const wchar_t* name, IID& iid) {
        SmartPtr<I> made;
        m_Global->CreateComponent(tagREFString{static_cast<int32_t>(wcslen(name)), name}, &iid, made.OutVoid());
        return made;
    }
    SmartPtr<IComponentCollection> m_Global;
    int32_t m_Live = 0;
};

TEST_F(HostInputs, DeclaredInputsBindObjects) {
    SmartPtr<IInputParameters> inputs = Create<IInputParameters>(L"InputParameters", IID_IInputParameters);
    ASSERT_TRUE(inputs);
    SmartPtr<IString> rot(HOSTNewString(L"RunningObjectTable")), step(HOSTNewString(L"Step"));
    inputs->AddInput(rot.get(), IID_IRunningObjectTableEx, 0);
    inputs->AddInput(step.get(), IID_IStep, 3);

    SmartPtr<IUnknown> none;
    EXPECT_EQ(inputs->get_InputObject(0, none.Out()), S_FALSE);
    EXPECT_FALSE(none);
    SmartPtr<ISuperCollection> table(HOSTNewCollection());
    inputs->put_InputObject(0, table.get());
    SmartPtr<IUnknown> bound;
    EXPECT_EQ(inputs->get_InputObject(0, bound.Out()), S_OK);
    EXPECT_EQ(static_cast<void*>(bound.get()), static_cast<void*>(table.get()));

    int32_t index = -1;
    EXPECT_EQ(inputs->get_Index(step.get(), &index), S_OK);
    EXPECT_EQ(index, 1);
    SmartPtr<IUnknown> item;
    inputs->get_Item(1, item.Out());
    SmartPtr<IInputParameter> input = QueryAs<IInputParameter>(item.get(), IID_IInputParameter);
    IID iid{};
    int32_t flags = 0;
    input->get_InterfaceID(&iid);
    input->get_InputFlags(&flags);
    EXPECT_EQ(iid, IID_IStep);
    EXPECT_EQ(flags, 3);
    SmartPtr<IUnknown> value;
    EXPECT_EQ(input->get_Value(value.Out()), E_FAIL) << "nothing bound, no moniker";
    EXPECT_EQ(inputs->put_InputObject(2, table.get()), E_INVALIDARG);
}

TEST_F(HostInputs, MonikersResolveNamesInACollection) {
    SmartPtr<ISuperCollection> collection(HOSTNewCollection());
    SmartPtr<IString> name(HOSTNewString(L"Target"));
    SmartPtr<ISuperCollection> target(HOSTNewCollection());
    collection->Add(name.get(), target.get(), 0, 0);

    SmartPtr<ICollectionMoniker> missing(HOSTNewCollectionMoniker(L"Nobody"));
    EXPECT_EQ(missing->BindToCollection(collection.get(), 0), E_FAIL);
    void* object = nullptr;
    EXPECT_EQ(missing->BindToObject(&IID_INamedCollection, &object), E_FAIL);

    SmartPtr<ICollectionMoniker> moniker(HOSTNewCollectionMoniker(L"Target"));
    EXPECT_EQ(moniker->BindToCollection(collection.get(), 0), S_OK);
    SmartPtr<INamedCollection> found;
    EXPECT_EQ(moniker->BindToObject(&IID_INamedCollection, found.OutVoid()), S_OK);
    EXPECT_EQ(static_cast<void*>(found.get()), static_cast<void*>(target.get()));

    // An input whose moniker is bound delivers the named object as its value.
    SmartPtr<IInputParameter> input = Create<IInputParameter>(L"InputParameter", IID_IInputParameter);
    input->put_InterfaceID(IID_INamedCollection);
    input->put_Moniker(moniker.get());
    SmartPtr<IUnknown> value;
    EXPECT_EQ(input->get_Value(value.Out()), S_OK);
    EXPECT_EQ(static_cast<void*>(value.get()), static_cast<void*>(target.get()));
}

TEST_F(HostInputs, ParametersCreatableIsFoundByName) {
    SmartPtr<IString> name(HOSTNewString(L"ParametersCreatable"));
    int32_t index = -1;
    ASSERT_EQ(m_Global->get_Index(name.get(), &index), S_OK);
    SmartPtr<IUnknown> item;
    m_Global->get_Item(index, item.Out());
    SmartPtr<IComponentString> described = QueryAs<IComponentString>(item.get(), IID_IComponentString);
    ASSERT_TRUE(described);
    SmartPtr<IParametersCreatable> a, b;
    ASSERT_EQ(described->CreateInstance(&IID_IParametersCreatable, a.OutVoid()), S_OK);
    ASSERT_EQ(described->CreateInstance(&IID_IParametersCreatable, b.OutVoid()), S_OK);
    EXPECT_NE(a.get(), b.get());
    SmartPtr<IString> key(HOSTNewString(L"Speed"));
    a->Add(key.get(), nullptr, nullptr, 3);
    int32_t count = 0, at = -1;
    a->get_Count(&count);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(a->get_Index(key.get(), &at), S_OK);
    EXPECT_EQ(at, 0);
}

}  // namespace
