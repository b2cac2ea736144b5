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

class WithoutCollections : public ::testing::Test {
protected:
    void SetUp() override {
        char folder[] = "/tmp/wks-nohost-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        m_Folder = folder;
        ASSERT_EQ(chdir(folder), 0);
    }
    void TearDown() override {
        chdir("/");
        rmdir(m_Folder.c_str());
    }
    std::string m_Folder;
};

TEST_F(WithoutCollections, FactoriesReportAndRetry) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(CREFString::CreateString(), nullptr);
        const std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(out.rfind("Module not available ./CollectionsEx.so, error ", 0), 0u) << out;
        EXPECT_NE(out.find("CollectionsEx.so"), std::string::npos);
        EXPECT_EQ(out.back(), '\n');
        EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1) << "one line per attempt";
    }
}

TEST_F(WithoutCollections, NoCollectionMeansNothingMade) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(GLOBALComponents(), nullptr);
    EXPECT_EQ(CreateObject(REFLiteral(L"CreatableString"), &IID_IString), nullptr);
    EXPECT_EQ(BASEObject::CreateParameters(), nullptr);
    EXPECT_EQ(CREFString::CreateVariant(), nullptr);
    EXPECT_EQ(CREFString::CreateCollection(), nullptr);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("Module not available ./CollectionsEx.so"), std::string::npos);
}

}  // namespace
