// The module as a host sees it: loaded with dlopen from the build folder, reached only through
// its exported symbols.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>

#include "module/Iid.h"
#include "text/TagRefString.h"

namespace {

class ModuleExports : public ::testing::Test {
protected:
    static void SetUpTestSuite() { s_Module = dlopen("./WKSProtocol.so", RTLD_NOW | RTLD_LOCAL); }
    void SetUp() override { ASSERT_NE(s_Module, nullptr) << dlerror(); }
    static void* Symbol(const char* name) { return dlsym(s_Module, name); }
    static void* s_Module;
};
void* ModuleExports::s_Module = nullptr;

TEST_F(ModuleExports, EntryPointsAndData) {
    const char* symbols[] = {
        "CreateFunction",
        "_Z16InitializeModulePvP20IComponentCollection",
        "gGlobalComponentCollection",
        "_ZN15IObjectInfoImplI12CWKSProtocolE12m_ObjectNameE",
    };
    for (const char* name : symbols) EXPECT_NE(Symbol(name), nullptr) << name;

    auto* objectName = static_cast<tagREFString*>(Symbol("_ZN15IObjectInfoImplI12CWKSProtocolE12m_ObjectNameE"));
    ASSERT_NE(objectName, nullptr);
    ASSERT_EQ(objectName->length, 11);
    EXPECT_EQ(std::wstring(objectName->text, 11), L"WKSProtocol");
}

TEST_F(ModuleExports, EveryIdentifierOfTheListIsExportedAndComputed) {
#define WKS_NAME_OF(name) #name,
    const char* names[] = {WKS_INTERFACE_LIST(WKS_NAME_OF)};
#undef WKS_NAME_OF
    for (const char* name : names) {
        const auto* iid = static_cast<const IID*>(Symbol(("IID_" + std::string(name)).c_str()));
        ASSERT_NE(iid, nullptr) << name;
        EXPECT_EQ(*iid, __IIDOfc(name)) << name;
    }
}

// The lines a command prints.
std::set<std::string> Lines(const char* command) {
    std::set<std::string> lines;
    FILE* pipe = popen(command, "r");
    char line[512];
    while (pipe && std::fgets(line, sizeof line, pipe)) lines.insert(std::string(line, std::strcspn(line, "\n")));
    if (pipe) pclose(pipe);
    return lines;
}

// Calls from the module to its own functions never go through the loader's table: a host that
// defines and exports a function of the same name does not take them over.
TEST_F(ModuleExports, OwnFunctionsAreCalledInside) {
    const std::set<std::string> defined = Lines("nm -D --defined-only --format=just-symbols ./WKSProtocol.so");
    ASSERT_TRUE(defined.count("CreateFunction"));
    for (const std::string& called : Lines("readelf -W --relocs ./WKSProtocol.so | awk '/JUMP_SLOT/ {print $5}'"))
        EXPECT_FALSE(defined.count(called)) << called;
}

#if !defined(WKS_SANITIZED)
// The module needs nothing but the C++ runtime and libc.
TEST_F(ModuleExports, NeedsOnlyTheCppRuntimeAndLibc) {
    std::set<std::string> needed;
    for (const std::string& text : Lines("readelf -d ./WKSProtocol.so")) {
        const size_t open = text.find("Shared library: [");
        if (open != std::string::npos) needed.insert(text.substr(open + 17, text.find(']', open) - open - 17));
    }
    const std::set<std::string> allowed = {"libstdc++.so.6", "libgcc_s.so.1", "libc.so.6"};
    EXPECT_TRUE(needed.count("libc.so.6"));
    for (const std::string& library : needed) EXPECT_TRUE(allowed.count(library)) << library;
}
#endif

}  // namespace
