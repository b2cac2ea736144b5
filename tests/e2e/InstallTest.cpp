// The installed product: `cmake --install` of this build into a fresh prefix gives a wks-host that
// runs from any folder and finds its module and CollectionsEx.so in the installed tree, not here.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>

#include "support/Output.h"

namespace {

namespace fs = std::filesystem;

// For the shell; the paths here hold no quote.
std::string Quoted(const fs::path& path) { return "'" + path.string() + "'"; }

bool HasLine(const std::string& text, const std::string& line) {
    std::istringstream lines(text);
    for (std::string each; std::getline(lines, each);)
        if (each == line) return true;
    return false;
}

TEST(Install, InstalledHostRunsFromAnotherFolder) {
    // The suite starts in the build folder.
    ASSERT_TRUE(fs::exists("CMakeCache.txt")) << "not in the build folder: " << fs::current_path();
    char name[] = "/tmp/wks-install-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    const fs::path prefix = name;
    struct Removed {
        fs::path path;
        ~Removed() {
            std::error_code ignored;
            fs::remove_all(path, ignored);
        }
    } removed{prefix};

    int status = 0;
    const std::string log = Output(Quoted(WKS_CMAKE_COMMAND) + " --install " + Quoted(fs::current_path()) +
                                       " --prefix " + Quoted(prefix) + " 2>&1",
                                   status);
    ASSERT_EQ(status, 0) << log;

    // The programs and libraries and the files for people; nothing built for testing.
    const fs::path modules = WKS_INSTALL_MODULEDIR;
    const std::set<fs::path> expected = {fs::path(WKS_INSTALL_BINDIR) / "wks-host", modules / "wks-host",
                                         modules / "WKSProtocol.so", modules / "CollectionsEx.so",
                                         fs::path(WKS_INSTALL_DATADIR) / "sample.toml",
                                         fs::path(WKS_INSTALL_DOCDIR) / "README.md",
                                         fs::path(WKS_INSTALL_DOCDIR) / "docs" / "console.png"};
    std::set<fs::path> installed;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(prefix))
        if (!entry.is_directory()) installed.insert(entry.path().lexically_relative(prefix));
    EXPECT_EQ(installed, expected);

    // Started from /, where neither the build nor the installed tree lies.
    const std::string host = "cd / && " + Quoted(prefix / WKS_INSTALL_BINDIR / "wks-host");
    EXPECT_EQ(Output(host + " --version", status), "wks-host " WKS_VERSION "\n");
    EXPECT_EQ(status, 0);
    const std::string session = Output("printf 'Lamp=1\\nLamp?\\n' | (" + host + " --no-prompt --workspace " +
                                           Quoted(prefix / WKS_INSTALL_DATADIR / "sample.toml") + ") 2>&1",
                                       status);
    EXPECT_EQ(status, 0) << session;
    EXPECT_TRUE(HasLine(session, "1")) << session;
}

}  // namespace
