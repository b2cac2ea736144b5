// Reading workspace descriptions, and the objects they make.
#include <gtest/gtest.h>

#include "host/collections/HostString.h"
#include "host/workspace/Workspace.h"

namespace {

TEST(WorkspaceFile, BadFilesNameTheLineAndTheProblem) {
    const struct { const char* text; const char* error; } rows[] = {
        {"[[object]]\nname = \"A\"\nkind = \"teapot\"\n", "w.toml:3: unknown kind 'teapot' of object 'A'"},
        {"[[object]]\nkind = \"step\"\n", "w.toml:1: object without a name"},
        {"[[object]]\nname = \"A\"\ncolour = 3\n", "w.toml:3: unknown key 'colour' in object 'A'"},
        {"[[object]]\nname = \"A\"\n\n[[object.children]]\nname = \"\"\n", "w.toml:4: object without a name"},
        {"[[object]]\nname = \"L\"\nkind = \"moniker\"\ntarget = \"None\"\n", "w.toml:1: moniker 'L' names no top-level object 'None'"},
        {"[[object]]\nname = \"A\"\nparameters = { P = [1, 2] }\n", "w.toml:3: parameter 'P' must be a number, a boolean or a text"},
        {"[objects]\nname = 1\n", "w.toml:1: unknown top-level key 'objects' (expected [[object]])"},
    };
    for (const auto& row : rows) {
        Workspace workspace;
        std::string error;
        EXPECT_FALSE(WorkspaceLoad(row.text, "w.toml", workspace, error)) << row.text;
        EXPECT_EQ(error, row.error);
        EXPECT_FALSE(workspace.table);
    }
    Workspace workspace;
    std::string error;
    EXPECT_FALSE(WorkspaceLoad("[[object]\nname = \"A\"\n", "w.toml", workspace, error));
    EXPECT_EQ(error.rfind("w.toml:1: ", 0), 0u) << error;
}

TEST(WorkspaceFile, TheSampleBuildsLiveObjects) {
    const int32_t live = HOSTLiveObjects();
    {
        Workspace workspace;
        std::string error;
        ASSERT_TRUE(WorkspaceLoad(WorkspaceSample(), "sample", workspace, error)) << error;
        CWorkspaceObject* width = workspace.Find(L"Station.ResultsView.Width");
        ASSERT_NE(width, nullptr);
        double value = 0;
        width->get_Value(&value);
        EXPECT_EQ(value, 3.5);
        EXPECT_EQ(workspace.Find(L"Toolbar.Start")->m_Id, 101);
        EXPECT_EQ(workspace.Find(L"Station.Nobody"), nullptr);

        SmartPtr<INamedCollection> root = QueryAs<INamedCollection>(workspace.table.get(), IID_INamedCollection);
        SmartPtr<IString> name(HOSTNewString(L"Links"));
        int32_t index = -1;
        ASSERT_EQ(root->get_Index(name.get(), &index), S_OK);
        SmartPtr<IUnknown> link;
        root->get_Item(index, link.Out());
        SmartPtr<ICollectionMoniker> moniker = QueryAs<ICollectionMoniker>(link.get(), IID_ICollectionMoniker);
        ASSERT_TRUE(moniker);
        SmartPtr<IUIManagerCollection> managers;
        EXPECT_EQ(moniker->BindToObject(&IID_IUIManagerCollection, managers.OutVoid()), S_OK);
        SmartPtr<IString> pick(HOSTNewString(L"x"));
        managers->Select(pick.get(), 0, nullptr);
        EXPECT_EQ(workspace.log.calls, std::vector<std::string>{"Managers.Select(x)"});

        SmartPtr<IStep> feeder = QueryAs<IStep>(static_cast<IObjectInfo*>(workspace.Find(L"Station.Feeder")), IID_IStep);
        feeder->SwitchOn();
        EXPECT_EQ(feeder->get_State(), 1);
        SmartPtr<IParameters> oven = QueryAs<IParameters>(static_cast<IObjectInfo*>(workspace.Find(L"Oven")), IID_IParameters);
        int32_t count = 0, flags = 0;
        oven->get_Count(&count);
        oven->get_ItemFlags(1, &flags);
        EXPECT_EQ(count, 2);
        EXPECT_EQ(flags, 3) << "Temperature is an integer";
    }
    EXPECT_LE(HOSTLiveObjects(), live + 2) << "only the process-wide factory objects may remain";
}

TEST(WorkspaceObjects, FilesAreBusyForAWhile) {
    WorkspaceLog log;
    SmartPtr<IFileNameCollection> files(new CWorkspaceObject(L"Files", WS_FILES, &log));
    static_cast<CWorkspaceObject*>(files.get())->SetBusyFor(60000);
    EXPECT_NE(files->IsBusy(), 0);
    static_cast<CWorkspaceObject*>(files.get())->SetBusyFor(0);
    EXPECT_EQ(files->IsBusy(), 0);
}

}  // namespace
