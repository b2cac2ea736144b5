// Making the n-th host object creation fail: every way the host makes an object fails as an
// exhausted memory would, once, and leaves nothing behind.
#include <gtest/gtest.h>

#include <functional>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/SuperCollection.h"
#include "host/components/HostParameters.h"
#include "host/components/Inputs.h"

namespace {

class FaultInjection : public ::testing::Test {
protected:
    void SetUp() override {
        HOSTCreateGlobalComponentCollection(nullptr, &IID_IComponentCollection, m_Global.OutVoid());
        m_Live = HOSTLiveObjects();
    }
    void TearDown() override {
        HOSTFailCreation(0);
        EXPECT_EQ(HOSTLiveObjects(), m_Live) << "every object was released";
    }
    SmartPtr<IComponentCollection> m_Global;
    int32_t m_Live = 0;
};

// Each route makes one object and reports the result code it gave and whether an object came out.
struct Made {
    HRESULT result;
    bool object;
};

Made ByCreator(CREATORFUNCTION creator) {
    SmartPtr<IUnknown> made;
    IID unknown = IID_IUnknown;
    void* out = reinterpret_cast<void*>(0xCAFECAFE);
    const HRESULT hr = creator(nullptr, &unknown, &out);
    made.Attach(static_cast<IUnknown*>(out == reinterpret_cast<void*>(0xCAFECAFE) ? nullptr : out));
    return {hr, static_cast<bool>(made)};
}

template <class I>
Made ByFunction(I* made) {
    SmartPtr<I> held(made);
    return {S_OK, static_cast<bool>(held)};
}

TEST_F(FaultInjection, EveryRouteFailsOnceAsOutOfMemory) {
    SmartPtr<IComponentString> described;
    HOSTCreateComponentString(nullptr, &IID_IComponentString, described.OutVoid());
    described->put_Field(1, tagREFString{7, L"Variant"});
    SmartPtr<IInputParameters> inputs;
    HOSTCreateInputParameters(nullptr, &IID_IInputParameters, inputs.OutVoid());
    const int32_t live = HOSTLiveObjects();

    const struct {
        const char* route;
        std::function<Made()> make;
        HRESULT failure;  // what the route reports when its creation fails
    } rows[] = {
        {"HOSTNewString", [] { return ByFunction(HOSTNewString(L"text")); }, S_OK},
        {"HOSTNewCollection", [] { return ByFunction(HOSTNewCollection()); }, S_OK},
        {"HOSTNewParameters", [] { return ByFunction(HOSTNewParameters()); }, S_OK},
        {"HOSTNewCollectionMoniker", [] { return ByFunction(HOSTNewCollectionMoniker(L"m")); }, S_OK},
        {"CreatableString", [] { return ByCreator(HOSTCreateString); }, E_FAIL},
        {"Variant", [] { return ByCreator(HOSTCreateVariant); }, E_FAIL},
        {"SuperCollection", [] { return ByCreator(HOSTCreateSuperCollection); }, E_FAIL},
        {"ComponentString", [] { return ByCreator(HOSTCreateComponentString); }, E_FAIL},
        {"CSVStream", [] { return ByCreator(HOSTCreateCSVStream); }, E_FAIL},
        {"INIStream", [] { return ByCreator(HOSTCreateINIStream); }, E_FAIL},
        {"StringTable", [] { return ByCreator(HOSTCreateStringTable); }, E_FAIL},
        {"ParametersCreatable", [] { return ByCreator(HOSTCreateParameters); }, E_FAIL},
        {"InputParameters", [] { return ByCreator(HOSTCreateInputParameters); }, E_FAIL},
        {"InputParameter", [] { return ByCreator(HOSTCreateInputParameter); }, E_FAIL},
        {"CollectionMoniker", [] { return ByCreator(HOSTCreateCollectionMoniker); }, E_FAIL},
        {"CreateComponent", [&] {
             SmartPtr<IUnknown> made;
             const HRESULT hr = m_Global->CreateComponent(tagREFString{7, L"Variant"}, &IID_IVariant, made.OutVoid());
             return Made{hr, static_cast<bool>(made)};
         }, E_FAIL},
        {"CreateInstance", [&] {
             SmartPtr<IUnknown> made;
             const HRESULT hr = described->CreateInstance(&IID_IVariant, made.OutVoid());
             return Made{hr, static_cast<bool>(made)};
         }, E_FAIL},
        {"AddInput", [&] {
             int32_t before = 0, after = 0;
             inputs->get_Count(&before);
             const HRESULT hr = inputs->AddInput(nullptr, IID_IUnknown, 0);
             inputs->get_Count(&after);
             return Made{hr, after > before};
         }, E_FAIL},
    };
    for (const auto& row : rows) {
        HOSTFailCreation(1);
        const Made failed = row.make();
        EXPECT_EQ(failed.result, row.failure) << row.route;
        EXPECT_FALSE(failed.object) << row.route;
        EXPECT_EQ(HOSTCreationCount(), 1) << row.route;
        EXPECT_EQ(HOSTLiveObjects(), live) << row.route << " left something behind";
        const Made again = row.make();
        EXPECT_EQ(again.result, S_OK) << row.route << ": only the chosen creation fails";
        EXPECT_TRUE(again.object) << row.route;
        EXPECT_EQ(HOSTCreationCount(), 2) << row.route;
    }
}

TEST_F(FaultInjection, CountsFromTheCallAndFailsOnlyTheChosenCreation) {
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
