// Reading workspace descriptions, and the objects they make.
#include <gtest/gtest.h>

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

// An integer key given a real: a whole real in range is taken, one beyond 64 bits is no integer
// (converting it would be undefined).
TEST(WorkspaceFile, RealsWhereIntegersBelong) {
    Workspace workspace;
    std::string error;
    ASSERT_TRUE(WorkspaceLoad("[[object]]\nname = \"A\"\nkind = \"io\"\nstate = 1e300\nid = -1e19\n"
                              "[[object]]\nname = \"B\"\nkind = \"button\"\nid = 7.0\nparameters = { P = 1e300 }\n",
                              "w.toml", workspace, error))
        << error;
    EXPECT_EQ(workspace.Find(L"A")->m_State, 0);
    EXPECT_EQ(workspace.Find(L"A")->m_Id, 0);
    EXPECT_EQ(workspace.Find(L"B")->m_Id, 7);
}

}  // namespace
