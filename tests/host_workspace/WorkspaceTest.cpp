// Reading workspace descriptions, and the objects they make.
#include <gtest/gtest.h>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/workspace/Workspace.h"

namespace {

std::string Load(const std::string& text, std::vector<std::string>* warnings = nullptr) {
    Workspace workspace;
    std::string error;
    const bool loaded = WorkspaceLoad(text, "w.toml", workspace, error, warnings);
    EXPECT_EQ(loaded, error.empty()) << error;
    EXPECT_EQ(loaded, static_cast<bool>(workspace.table));
    return error;
}

// A dotted key of `parts` parts.
std::string Dotted(int parts) {
    std::string key = "k";
    for (int i = 1; i < parts; ++i) key += ".k";
    return key;
}

TEST(WorkspaceFile, BadFilesNameTheLineAndTheProblem) {
    const std::string object = "[[object]]\nname = \"A\"\n";
    const struct { std::string text; const char* error; } rows[] = {
        // Keys too deep for the parser, wherever they stand; dots in texts and comments are no keys.
        {object + Dotted(1001) + " = 1\n", "w.toml:3: a key of more than 1000 parts"},
        {"# " + Dotted(2000) + "\n" + object + "t = \"\"\"\n" + Dotted(2000) + "\"\"\"\"\nu = '" + Dotted(2000) + "'\n[" +
             Dotted(1001) + "]\n",
         "w.toml:7: a key of more than 1000 parts"},
        {object + "x = { " + Dotted(1001) + " = 1 }\n", "w.toml:3: a key of more than 1000 parts"},
        // The top level.
        {"", "w.toml:1: no [[object]] tables"},
        {"object = []\n", "w.toml:1: no [[object]] tables"},
        {"object = 5\n", "w.toml:1: 'object' must be an array of tables ([[object]]), not an integer"},
        {"[object]\nname = \"A\"\n", "w.toml:1: 'object' must be an array of tables ([[object]]), not a table"},
        {"object = [1]\n", "w.toml:1: an object must be a table, not an integer"},
        {"[objects]\nname = 1\n", "w.toml:1: unknown top-level key 'objects' (expected [[object]] or [registry])"},
        // The registry table.
        {"registry = 1\n[[object]]\nname = \"A\"\n", "w.toml:1: 'registry' must be a table, not an integer"},
        {"[registry]\ninstal_path = \"/x\"\n", "w.toml:2: unknown key 'instal_path' in [registry]"},
        {"[registry]\ninstall_path = 5\n", "w.toml:2: 'install_path' must be a text, not an integer"},
        {"[registry]\ninstall_path = \"opt/app\"\n", "w.toml:2: 'install_path' must be an absolute directory, not 'opt/app'"},
        {"[registry]\ninstall_path = \"/" + std::string(255, 'a') + "\"\n", "w.toml:2: 'install_path' has 256 characters, more than the 255"},
        {"[registry]\nmappings = 1\n", "w.toml:2: 'mappings' must be a table, not an integer"},
        {"[registry.mappings]\nData = 1\n", "w.toml:2: mapping 'Data' must be a text, not an integer"},
        {"[registry.mappings]\n\"D]\" = \"/d\"\n", "w.toml:2: mapping name 'D]' must be non-empty and without [ ]"},
        {"[registry.mappings]\nData = \"\"\n", "w.toml:2: mapping 'Data' names no directory"},
        {"[registry.mappings]\nData = \"srv\"\n", "w.toml:2: mapping 'Data' must be an absolute directory, not 'srv'"},
        {"[[object]\nname = \"A\"\n", "w.toml:1: "},
        // Keys of the wrong type, unknown, or not taken by the kind.
        {"[[object]]\nkind = \"step\"\n", "w.toml:1: object without a name"},
        {"[[object]]\nname = \"A\"\n\n[[object.children]]\nname = \"\"\n", "w.toml:4: object without a name"},
        {"[[object]]\nname = 3\n", "w.toml:2: 'name' of an object must be a text, not an integer"},
        {"[[object]]\nname = \"A\"\nkind = 1\n", "w.toml:3: 'kind' of object 'A' must be a text, not an integer"},
        {"[[object]]\nname = \"A\"\nkind = \"teapot\"\n", "w.toml:3: unknown kind 'teapot' of object 'A'"},
        {"[[object]]\nname = \"A\"\nstat = 1\n", "w.toml:3: unknown key 'stat' in object 'A'"},
        {"[[object]]\nname = \"A\"\nkind = \"step\"\nstate = \"on\"\n", "w.toml:4: 'state' of object 'A' must be an integer, not a text"},
        {"[[object]]\nname = \"A\"\nkind = \"button\"\nid = 1e300\n", "w.toml:4: 'id' of object 'A' must be an integer, not a real"},
        {"[[object]]\nname = \"A\"\nkind = \"result\"\nvalue = \"x\"\n", "w.toml:4: 'value' of object 'A' must be a number, not a text"},
        {"[[object]]\nname = \"A\"\nkind = \"tabs\"\nselector = 1\n", "w.toml:4: 'selector' of object 'A' must be a boolean, not an integer"},
        {"[[object]]\nname = \"A\"\nparameters = 5\n", "w.toml:3: 'parameters' of object 'A' must be a table, not an integer"},
        {"[[object]]\nname = \"A\"\nchildren = 5\n", "w.toml:3: 'children' of object 'A' must be an array of tables, not an integer"},
        {"[[object]]\nname = \"A\"\nparameters = { P = [1, 2] }\n", "w.toml:3: parameter 'P' must be a number, a boolean or a text"},
        {"[[object]]\nname = \"A\"\nkind = \"step\"\nbusy_ms = 5\n", "w.toml:4: kind 'step' takes no 'busy_ms' (object 'A')"},
        {"[[object]]\nname = \"A\"\nkind = \"step\"\n[[object.children]]\nname = \"B\"\n", "w.toml:4: kind 'step' takes no 'children'"},
        // Numbers beyond what the object holds.
        {"[[object]]\nname = \"A\"\nparameters = { P = 2147483648 }\n", "w.toml:3: parameter 'P' of object 'A' is 2147483648, beyond a 32-bit integer"},
        {"[[object]]\nname = \"A\"\nparameters = { P = -2147483649 }\n", "w.toml:3: parameter 'P' of object 'A' is -2147483649"},
        {"[[object]]\nname = \"A\"\nkind = \"button\"\nid = 2147483648\n", "w.toml:4: 'id' of object 'A' must lie in -2147483648..2147483647, not 2147483648"},
        {"[[object]]\nname = \"A\"\nkind = \"files\"\nbusy_ms = -1\n", "w.toml:4: 'busy_ms' of object 'A' must lie in 0..60000, not -1"},
        {"[[object]]\nname = \"A\"\nkind = \"files\"\nbusy_ms = 60001\n", "w.toml:4: 'busy_ms' of object 'A' must lie in 0..60000, not 60001"},
        {"[[object]]\nname = \"A\"\nkind = \"io\"\nstate = 2\n", "w.toml:4: 'state' of object 'A' must lie in 0..1, not 2"},
        {"[[object]]\nname = \"A\"\nkind = \"step\"\nstate = -1\n", "w.toml:4: 'state' of object 'A' must lie in 0..1, not -1"},
        {"[[object]]\nname = \"T\"\nkind = \"tabs\"\nstate = 2\nchildren = [{ name = \"a\" }, { name = \"b\" }]\n", "w.toml:4: 'state' of object 'T' must lie in 0..1, not 2"},
        {"[[object]]\nname = \"M\"\nkind = \"manager\"\nstate = 1\n", "w.toml:4: 'state' of object 'M' must lie in 0..0, not 1"},
        // Names repeated among siblings, or that no command line can spell.
        {"[[object]]\nname = \"A\"\n[[object]]\nname = \"A\"\n", "w.toml:4: duplicate name 'A' at the top level (first on line 2)"},
        {"[[object]]\nname = \"P\"\nchildren = [{ name = \"A\" },\n{ name = \"A\" }]\n", "w.toml:4: duplicate name 'A' among the children of 'P'"},
        {"[[object]]\nname = \"A\"\n[[object]]\nname = \"A\"\nkind = \"moniker\"\ntarget = \"A\"\n", "w.toml:4: duplicate name 'A' at the top level"},
        {"[[object]]\nname = \"Lamp-2\"\n", "w.toml:2: no command can address the name 'Lamp-2': it holds one of . : = + -"},
        {"[[object]]\nname = \"a.b\"\n", "w.toml:2: no command can address the name 'a.b'"},
        {"[[object]]\nname = \"a:b\"\n", "w.toml:2: no command can address the name 'a:b'"},
        {"[[object]]\nname = \"a=b\"\n", "w.toml:2: no command can address the name 'a=b'"},
        {"[[object]]\nname = \"a+b\"\n", "w.toml:2: no command can address the name 'a+b'"},
        {"[[object]]\nname = \"a\\nb\"\n", "w.toml:2: no command can address the name 'a\\x0Ab': it holds a control character"},
        {"[[object]]\nname = \"a\\u0085b\"\n", "it holds a control character"},
        {"[[object]]\nname = \" a\"\n", "w.toml:2: no command can address the name ' a': it begins or ends with a blank"},
        {"[[object]]\nname = \"a \"\n", "it begins or ends with a blank"},
        {"[[object]]\nname = \"a\\u3000\"\n", "it begins or ends with a blank"},
        // Parameter names that a reply could not show (. and - are fine: parameters are only listed).
        {"[[object]]\nname = \"A\"\nparameters = { \"a.b-c\" = 1, \"\" = 2 }\n", "w.toml:3: parameter '' of object 'A': it is empty"},
        {"[[object]]\nname = \"A\"\nparameters = { \"a=b\" = 1 }\n", "parameter 'a=b' of object 'A': it holds ="},
        {"[[object]]\nname = \"A\"\nparameters = { \"a\\nb\" = 1 }\n", "it holds a control character"},
        {"[[object]]\nname = \"A\"\nparameters = { \"a\\u3000\" = 1 }\n", "it begins or ends with a blank"},
        // Monikers.
        {"[[object]]\nname = \"L\"\nkind = \"moniker\"\ntarget = \"None\"\n", "w.toml:1: moniker 'L' names no top-level object 'None'"},
        {"[[object]]\nname = \"L\"\nkind = \"moniker\"\n", "w.toml:1: moniker 'L' needs a target"},
        {"[[object]]\nname = \"L\"\nkind = \"moniker\"\ntarget = 1\n", "w.toml:4: 'target' of object 'L' must be a text, not an integer"},
        {"[[object]]\nname = \"A\"\n[[object.children]]\nname = \"L\"\nkind = \"moniker\"\ntarget = \"A\"\n", "w.toml:3: moniker 'L' must be a top-level object"},
        {"[[object]]\nname = \"A\"\n[[object]]\nname = \"L\"\nkind = \"moniker\"\ntarget = \"A\"\n[[object]]\nname = \"M\"\nkind = \"moniker\"\ntarget = \"L\"\n",
         "w.toml:7: moniker 'M' names another moniker 'L'"},
    };
    const int32_t live = HOSTLiveObjects();
    for (const auto& row : rows) {
        const std::string error = Load(row.text);
        EXPECT_NE(error.find(row.error), std::string::npos) << "file:\n" << row.text << "\nerror: " << error;
        EXPECT_EQ(HOSTLiveObjects(), live) << "a refused file leaves no object behind: " << row.text;
    }
}

TEST(WorkspaceFile, NamesOnlySomeCommandsReachAreWarnedAbout) {
    std::vector<std::string> warnings;
    EXPECT_EQ(Load("[[object]]\nname = \"b\"\n[[object]]\nname = \"bREA\"\n[[object]]\nname = \"Breakfast\"\n"
                   "[[object]]\nname = \"Var1\"\n[[object]]\nname = \"Var2\"\n"
                   "[[object]]\nname = \"L\"\nkind = \"moniker\"\ntarget = \"Var2\"\n"
                   "[[object]]\nname = \"Br\"\nkind = \"moniker\"\ntarget = \"b\"\n"
                   // Not warned: no beginning of "Break", parameters match case, children never start a path.
                   "[[object]]\nname = \"Brake\"\n[[object]]\nname = \"Bx\"\n[[object]]\nname = \"var1\"\n"
                   "[[object]]\nname = \"Var11\"\nchildren = [{ name = \"Break\" }, { name = \"Var1\" }]\n",
                   &warnings),
              "");
    EXPECT_EQ(warnings, (std::vector<std::string>{
                            "w.toml:2: the name 'b' is a beginning of 'Break': the message 'b' alone ends the session",
                            "w.toml:4: the name 'bREA' is a beginning of 'Break': the message 'bREA' alone ends the session",
                            "w.toml:6: the name 'Breakfast' begins with 'break': a message beginning with it ends the session",
                            "w.toml:8: the top-level name 'Var1' is a parameter of the protocol object, which a path beginning with it reaches instead",
                            "w.toml:10: the top-level name 'Var2' is a parameter of the protocol object, which a path beginning with it reaches instead",
                            "w.toml:16: the name 'Br' is a beginning of 'Break': the message 'Br' alone ends the session",
                        }));
    warnings.clear();
    EXPECT_NE(Load("[[object]]\nname = \"Break\"\n[[object]]\nname = \"Break\"\n", &warnings), "");
    EXPECT_TRUE(warnings.empty()) << "a refused file warns about nothing";
}

// The sample's objects are the end-to-end suite's; here the edges of what a file may say.
TEST(WorkspaceFile, GoodFilesBuildTheirObjects) {
    std::string error;
    // Every bound of every range is accepted, and an integer serves as a result's value.
    Workspace edges;
    ASSERT_TRUE(WorkspaceLoad("[[object]]\nname = \"My Öfen\"\nkind = \"button\"\nid = -2147483648\n"
                              "parameters = { Low = -2147483648, High = 2147483647, On = true, Big = 1e300 }\n"
                              "[[object]]\nname = \"T\"\nkind = \"tabs\"\nstate = 1\nselector = false\n"
                              "children = [{ name = \"a\", kind = \"io\", state = 1 }, { name = \"b\", kind = \"result\", value = 7 }]\n"
                              "[[object]]\nname = \"F\"\nkind = \"files\"\nbusy_ms = 0\n",
                              "w.toml", edges, error))
        << error;
    EXPECT_EQ(edges.Find(L"My \u00D6fen")->m_Id, INT32_MIN);
    EXPECT_EQ(edges.Find(L"T")->m_State, 1);
    EXPECT_EQ(edges.Find(L"T")->Facets() & WS_SELECTOR, 0u);
    EXPECT_EQ(edges.Find(L"T.a")->m_State, 1);
    EXPECT_EQ(edges.Find(L"T.b")->m_Value, 7.0);
    EXPECT_EQ(edges.Find(L"F")->IsBusy(), 0);
    EXPECT_EQ(Load("[[object]]\nname = \"F\"\nkind = \"files\"\nbusy_ms = 60000\n"), "");
}

// The registry keeps the file's order of mappings (the first match wins), not toml++'s sorted one,
// and the "Registry" component reports what the workspace set.
TEST(WorkspaceFile, RegistryTableReachesTheRegistryComponent) {
    Workspace workspace;
    std::string error;
    ASSERT_TRUE(WorkspaceLoad("[registry]\ninstall_path = \"/opt/wks\"\n[registry.mappings]\n"
                              "Zeta = \"/srv/z\"\nAlpha = \"/srv/a\"\nMid = \"/srv/m\"\n[[object]]\nname = \"A\"\n",
                              "w.toml", workspace, error))
        << error;
    const std::vector<std::pair<std::wstring, std::wstring>> order{
        {L"Zeta", L"/srv/z"}, {L"Alpha", L"/srv/a"}, {L"Mid", L"/srv/m"}};
    EXPECT_EQ(workspace.registry.mappings, order);
    EXPECT_EQ(workspace.registry.installPath, L"/opt/wks");

    const int32_t live = HOSTLiveObjects();
    HOSTSetRegistry(workspace.registry);
    {
        SmartPtr<IRegistry> registry;
        ASSERT_EQ(HOSTCreateRegistry(nullptr, &IID_IRegistry, registry.OutVoid()), S_OK);
        SmartPtr<IRegistryEx> direct = QueryAs<IRegistryEx>(registry.get(), IID_IRegistryEx);
        ASSERT_TRUE(direct);
        wchar_t buffer[256] = {};
        EXPECT_EQ(direct->ReadStringValue(L"workspace", L"INSTALLPATH", buffer), S_OK) << "keys ignore case";
        EXPECT_STREQ(buffer, L"/opt/wks");
        EXPECT_LT(direct->ReadStringValue(L"Workspace", L"Other", buffer), 0);

        SmartPtr<IString> key(HOSTNewString(L"Mappings")), name(HOSTNewString(L"alpha")), value;
        ASSERT_EQ(registry->get_StringValue(key.get(), name.get(), value.Out()), S_OK);
        EXPECT_EQ(HOSTText(value.get()), L"/srv/a");
        SmartPtr<INamedCollection> values;
        ASSERT_EQ(registry->get_KeyValues(key.get(), values.Out()), S_OK);
        int32_t count = 0;
        values->get_Count(&count);
        ASSERT_EQ(count, 3);
        for (int32_t i = 0; i < count; ++i) {
            SmartPtr<IString> itemName;
            SmartPtr<IUnknown> item;
            values->get_ItemName(i, itemName.Out());
            values->get_Item(i, item.Out());
            SmartPtr<IString> text = QueryAs<IString>(item.get(), IID_IString);
            EXPECT_EQ(HOSTText(itemName.get()), order[i].first);
            EXPECT_EQ(HOSTText(text.get()), order[i].second);
        }
        SmartPtr<IString> unknown(HOSTNewString(L"Nothing"));
        EXPECT_LT(registry->get_KeyValues(unknown.get(), values.Out()), 0);
    }
    // Without a registry table: no mappings, and the program's own folder as the install path.
    HOSTSetRegistry(HostRegistry());
    EXPECT_EQ(HOSTInstallPath().empty(), false);
    EXPECT_EQ(HOSTInstallPath().back() == L'/', false);
    EXPECT_EQ(HOSTLiveObjects(), live);
}

}  // namespace
