// QueryInterface of every host class, asked for every interface there is: each answers exactly its
// own, with one object identity and one new reference, and nothing else.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "host/collections/ComponentList.h"
#include "host/workspace/Workspace.h"

namespace {

struct Interface {
    const char* name;
    const IID* iid;
};
#define WKS_TEST_INTERFACE(name) {#name, &IID_##name},
const Interface kEvery[] = {WKS_INTERFACE_LIST(WKS_TEST_INTERFACE)};
#undef WKS_TEST_INTERFACE

int32_t References(IUnknown* object) {
    object->AddRef();
    return object->Release();
}

std::wstring Wide(const char* ascii) { return std::wstring(ascii, ascii + std::strlen(ascii)); }

IUnknown* Identity(IUnknown* object) {
    return QueryAs<IUnknown>(object, IID_IUnknown).get();
}

// Asks `object` for every interface; `answers` names (blank-separated) those it must answer.
void ExpectAnswers(IUnknown* object, const std::string& answers, const std::string& what) {
    std::set<std::string> expected;
    std::istringstream names(answers);
    for (std::string name; names >> name;) expected.insert(name);
    IUnknown* identity = Identity(object);
    ASSERT_NE(identity, nullptr) << what;
    EXPECT_EQ(object->QueryInterface(IID_IUnknown, nullptr), E_POINTER) << what;
    for (const Interface& itf : kEvery) {
        const int32_t before = References(object);
        void* answer = reinterpret_cast<void*>(0xCAFECAFE);
        const HRESULT hr = object->QueryInterface(*itf.iid, &answer);
        if (expected.count(itf.name) == 0) {
            EXPECT_EQ(hr, E_NOINTERFACE) << what << " " << itf.name;
            EXPECT_EQ(answer, nullptr) << what << " " << itf.name;
            continue;
        }
        ASSERT_EQ(hr, S_OK) << what << " " << itf.name;
        SmartPtr<IUnknown> held(static_cast<IUnknown*>(answer));
        EXPECT_EQ(References(object), before + 1) << what << " " << itf.name;
        EXPECT_EQ(Identity(held.get()), identity) << what << " " << itf.name;
    }
}

class QueryInterface : public ::testing::Test {
protected:
    void SetUp() override {
        SmartPtr<IComponentCollection> global;
        HOSTCreateGlobalComponentCollection(nullptr, &IID_IComponentCollection, global.OutVoid());
        m_Live = HOSTLiveObjects();
    }
    void TearDown() override { EXPECT_EQ(HOSTLiveObjects(), m_Live) << "every reference was released"; }
    int32_t m_Live = 0;
};

TEST_F(QueryInterface, ComponentsMadeByNameAnswerTheirInterfaces) {
    const struct { CREATORFUNCTION creator; const char* answers; } rows[] = {
        {HOSTCreateString, "IString ICreatableString"},
        {HOSTCreateVariant, "IVariant"},
        {HOSTCreateSuperCollection, "ISuperCollection INamedCollection ISimpleCollection"},
        {HOSTCreateComponentString, "IComponentString"},
        {HOSTCreateGlobalComponentCollection, "IComponentCollection"},
        {HOSTCreateCSVStream, "ICSVStream IDataStream"},
        {HOSTCreateINIStream, "IINIStream IDataStream"},
        {HOSTCreateStringTable, "IStringTable"},
        {HOSTCreateParameters, "IParametersCreatable IParameters INamedCollection ISimpleCollection"},
        {HOSTCreateInputParameters, "IInputParameters INamedCollection ISimpleCollection IDataPersist"},
        {HOSTCreateInputParameter, "IInputParameter"},
        {HOSTCreateCollectionMoniker, "ICollectionMoniker"},
    };
    for (const auto& row : rows) {
        SmartPtr<IUnknown> object;
        IID unknown = IID_IUnknown;
        ASSERT_EQ(row.creator(nullptr, &unknown, object.OutVoid()), S_OK) << row.answers;
        ExpectAnswers(object.get(), row.answers, row.answers);
    }
}

// A workspace object answers the interfaces of its kind; identifiers that agree in their first
// twelve characters (IFileNameCollection, IFileNameCollectionBase) are still told apart.
TEST_F(QueryInterface, WorkspaceObjectsAnswerTheInterfacesOfTheirKind) {
    Workspace workspace;
    std::string error;
    std::string toml;
    const char* kinds[] = {"container", "step", "io", "result", "toolbar", "button",
                           "manager", "managers", "files", "search", "tabs"};
    for (const char* kind : kinds) toml += std::string("[[object]]\nname = \"") + kind + "\"\nkind = \"" + kind + "\"\n";
    toml += "selector = true\n";  // on the last one, "tabs": a facet that combines with another
    toml += "[[object]]\nname = \"own\"\nparameters = { P = 1 }\n";
    ASSERT_TRUE(WorkspaceLoad(toml, "t.toml", workspace, error)) << error;

    const struct { const char* path; const char* answers; } rows[] = {
        {"container", "INamedCollection"},
        {"step", "IStep"},
        {"io", "IDigitalIO"},
        {"result", "IResultParameter"},
        {"toolbar", "INamedCollection IButtonCollection IToolbarHost"},
        {"button", "IButton"},
        {"tabs", "INamedCollection ITabCollection IUIFolderSelectable"},
        {"manager", "INamedCollection IUIManager _IUIContainerEvents"},
        {"managers", "IUIManagerCollection"},
        {"files", "INamedCollection IFileNameCollection"},
        {"search", "IKQSearch"},
    };
    for (const auto& row : rows) {
        CWorkspaceObject* object = workspace.Find(Wide(row.path));
        ASSERT_NE(object, nullptr) << row.path;
        ExpectAnswers(static_cast<IObjectInfo*>(object), std::string(row.answers) + " IObjectInfo", row.path);
        // IObjectInfo sits away from the object's start: the pointer handed out must be that base.
        SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(static_cast<IStep*>(object), IID_IObjectInfo);
        tagREFString name{0, nullptr};
        ASSERT_EQ(info->GetName(0, &name), S_OK);
        EXPECT_EQ(std::wstring(name.text, name.length), Wide(row.path));
    }
    ExpectAnswers(workspace.table.get(), "INamedCollection IRunningObjectTableEx IObjectInfo", "root");

    // The parameter interfaces of an object with parameters are its parameter collection's.
    CWorkspaceObject* own = workspace.Find(L"own");
    SmartPtr<IParameters> parameters = QueryAs<IParameters>(static_cast<IStep*>(own), IID_IParameters);
    ASSERT_TRUE(parameters);
    int32_t count = 0;
    parameters->get_Count(&count);
    EXPECT_EQ(count, 1);
    EXPECT_NE(Identity(parameters.get()), Identity(static_cast<IStep*>(own)));
    EXPECT_FALSE(QueryAs<IParameters>(static_cast<IStep*>(workspace.Find(L"container")), IID_IParameters));
}

}  // namespace
