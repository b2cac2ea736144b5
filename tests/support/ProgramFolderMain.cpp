// The main of the suites that load ./CollectionsEx.so through the module's own loader: the
// module resolves that file against the current directory, as a host's module does, so the suite
// moves into its own folder first, exactly as wks-host does. Started from any folder, it runs
// the same.
#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    char path[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    char* slash = n > 0 ? (path[n] = '\0', std::strrchr(path, '/')) : nullptr;
    if (slash != nullptr) *slash = '\0';
    if (slash == nullptr || chdir(path[0] ? path : "/") != 0) {
        std::fprintf(stderr, "cannot move into the test program's folder\n");
        return 1;
    }
    if (access("./CollectionsEx.so", R_OK) != 0) {
        std::fprintf(stderr, "CollectionsEx.so is not beside the test program in %s: run the suite from its build\n", path);
        return 1;
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
