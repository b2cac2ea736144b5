// Runs from a folder without CollectionsEx.so: every factory reports the missing module on
// standard output, yields null, and tries again on its next call.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "module/Module.h"
#include "text/RefString.h"

namespace {

TEST(WithoutCollections, FactoriesReportYieldNullAndRetry) {
    char folder[] = "/tmp/wks-nohost-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    ASSERT_EQ(chdir(folder), 0);
    for (int attempt = 0; attempt < 2; ++attempt) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(CREFString::CreateString(), nullptr);
        const std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(out.rfind("Module not available ./CollectionsEx.so, error ", 0), 0u) << out;
        EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1) << "one line per attempt: " << out;
        EXPECT_EQ(out.back(), '\n');
    }
    testing::internal::CaptureStdout();
    EXPECT_EQ(GLOBALComponents(), nullptr);
    EXPECT_EQ(CreateObject(REFLiteral(L"CreatableString"), &IID_IString), nullptr);
    EXPECT_EQ(BASEObject::CreateParameters(), nullptr);
    EXPECT_EQ(CREFString::CreateVariant(), nullptr);
    EXPECT_EQ(CREFString::CreateCollection(), nullptr);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Module not available ./CollectionsEx.so"), std::string::npos);
    EXPECT_EQ(chdir("/"), 0);
    rmdir(folder);
}

}  // namespace
