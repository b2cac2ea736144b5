// The module's boundary: identifier derivation, CreateFunction's name check, the global component
// collection, the lazy factories, the loading of component modules by name.
#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "module/Iid.h"
#include "module/Module.h"
#include "module/Object.h"
#include "protocol/WKSProtocol.h"
#include "support/Fakes.h"
#include "text/RefString.h"

namespace {

IID Bytes(std::initializer_list<int> leading) {
    IID iid{};
    int i = 0;
    for (int b : leading) iid.bytes[i++] = static_cast<unsigned char>(b);
    return iid;
}

TEST(Iid, WorkedExamples) {
    const struct { const char* name; IID expected; } rows[] = {
        {"IString", Bytes({0x69, 0x52, 0x99, 0xDC, 0x01})},
        {"istring", Bytes({0x69, 0x52, 0x99, 0xDC, 0x01})},
        {"IRunningObjectTableEx", Bytes({0x49, 0x56, 0xE7, 0x92, 0x3B, 0x4F, 0xA8, 0x32, 0x28, 0x0D, 0x82, 0x95, 0x82, 0x01})},
        {"IUIPlotScale2", Bytes({0xA9, 0x26, 0xC8, 0x1E, 0x9D, 0x23, 0xB0, 0xE2, 0x01})},
        {"_IWorkspaceEvents", Bytes({0x3B, 0xDD, 0x27, 0xD7, 0x84, 0x61, 0x94, 0x62, 0x8B, 0xA3, 0x13})},
        // Only 25 characters count.
        {"ICreatableSimpleCollection", Bytes({0x69, 0xC8, 0x12, 0x68, 0x10, 0xAC, 0xCC, 0xD4, 0x20, 0x2B, 0xE3, 0x31, 0x56, 0x06, 0x4D, 0x0F})},
        // The code of '4' has six bits: its top bit is the lowest bit of the next field, or bit 125.
        {"A4B", Bytes({0x01, 0x0C})},
        {"", IID{}},
    };
    for (const auto& row : rows) EXPECT_EQ(__IIDOfc(row.name), row.expected) << row.name;
    EXPECT_EQ(__IIDOfc("________________________4").bytes[15], 0x20);
    EXPECT_EQ(__IIDOfc("I5"), __IIDOfc("I9")) << "only the digits 0 to 4 have codes of their own";
}

TEST(Iid, FixedConstants) {
    const IID unknown = {{0, 0, 0, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    EXPECT_EQ(IID_IUnknown, unknown);
    EXPECT_EQ(IID_NULL, IID{});
}

TEST(CreateFunction, AnswersOnlyItsOwnNameExactly) {
    void* creator = nullptr;
    ASSERT_EQ(CreateFunction(tagREFString{11, L"WKSProtocol"}, &creator), S_OK);
    EXPECT_EQ(creator, reinterpret_cast<void*>(&CObject<CWKSProtocol>::_CreateInstance));
    EXPECT_EQ(CreateFunction(tagREFString{11, L"WKSProtocol"}, nullptr), E_POINTER);
    for (const wchar_t* name : {L"wksprotocol", L"WKSProtocolX", L"WKSProto", L""}) {
        void* place = reinterpret_cast<void*>(0xCAFECAFE);
        EXPECT_EQ(CreateFunction(REFLiteral(name), &place), E_FAIL) << name;
        EXPECT_EQ(place, reinterpret_cast<void*>(0xCAFECAFE)) << "untouched on failure";
        EXPECT_EQ(CreateFunction(REFLiteral(name), nullptr), E_FAIL) << name << ": the name decides first";
    }
    EXPECT_EQ(CreateFunction(tagREFString{11, nullptr}, &creator), E_FAIL);
}

// A collection that only counts its references.
class CountedCollection final : public Fake<IComponentCollection> {
public:
    bool Answers(const IID&) override { return false; }
    HRESULT get_Count(int32_t* count) override { *count = 0; return S_OK; }
    HRESULT get_Item(int32_t, IUnknown**) override { return E_INVALIDARG; }
    HRESULT get_Index(IString*, int32_t*) override { return E_FAIL; }
    HRESULT get_ItemName(int32_t, IString**) override { return E_FAIL; }
    HRESULT CreateComponent(tagREFString, IID*, void**) override { return E_FAIL; }
};

// The host's collection is kept with one reference and handed out with one more per call;
// without one, one is made through CollectionsEx.so, once.
TEST(GlobalComponents, InitializeModuleKeepsAndReplacesTheCollection) {
    SmartPtr<CountedCollection> first(new CountedCollection()), second(new CountedCollection());
    EXPECT_EQ(InitializeModule(nullptr, first.get()), S_OK);
    EXPECT_EQ(first->m_Refs, 2);
    SmartPtr<IComponentCollection> a(GLOBALComponents());
    EXPECT_EQ(a.get(), first.get());
    EXPECT_EQ(first->m_Refs, 3);
    a.Reset();
    EXPECT_EQ(InitializeModule(nullptr, second.get()), S_OK);
    EXPECT_EQ(first->m_Refs, 1) << "the first collection is released once";
    EXPECT_EQ(second->m_Refs, 2);
    EXPECT_EQ(InitializeModule(nullptr, nullptr), S_OK);
    EXPECT_EQ(second->m_Refs, 1);

    SmartPtr<IComponentCollection> made(GLOBALComponents()), again(GLOBALComponents());
    ASSERT_TRUE(made);
    EXPECT_EQ(made.get(), again.get());
    InitializeModule(nullptr, nullptr);
}

TEST(Factories, MakeTheirComponentObjectOnceAndANewObjectEachCall) {
    SmartPtr<IString> first(CREFString::CreateString());
    ASSERT_TRUE(first);
    const int32_t before = LiveHostObjects();
    SmartPtr<IString> second(CREFString::CreateString());
    EXPECT_NE(first.get(), second.get());
    EXPECT_EQ(LiveHostObjects(), before + 1) << "only the new string; the component object is kept";
    EXPECT_TRUE(SmartPtr<IVariant>(CREFString::CreateVariant()));
    EXPECT_TRUE(SmartPtr<ISuperCollection>(CREFString::CreateCollection()));
}

// A name is loaded only when it converts whole, character by character, into at most 250 bytes.
TEST(ModuleCreateFunction, LoadsOnlyNamesThatConvertWholeIntoThePath) {
    EXPECT_NE(MODULECreateFunction(REFLiteral(L"CollectionsEx"), REFLiteral(L"ComponentString")), nullptr);
    EXPECT_EQ(MODULECreateFunction(REFLiteral(L"CollectionsEx"), REFLiteral(L"NoSuchComponent")), nullptr);
    // An empty path: refused, so nothing is printed and nothing loaded. Otherwise the path whose
    // loading fails and is reported.
    const struct { const char* locale; std::wstring name; std::string path; } rows[] = {
        {"C", L"Modul\u00e9", ""},
        {"C", std::wstring(L"CollectionsEx\0", 14), ""},
        {"C", std::wstring(250, L'x'), "./" + std::string(250, 'x') + ".so"},
        {"C", std::wstring(251, L'x'), ""},
        {"C.UTF-8", L"CollectionsEx\u00e9", "./CollectionsEx\xc3\xa9.so"},
        {"C.UTF-8", std::wstring(125, L'\u00e9') + L"x", ""},  // 125 characters, 251 bytes
    };
    if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) GTEST_SKIP() << "no C.UTF-8 locale";
    for (const auto& row : rows) {
        std::setlocale(LC_ALL, row.locale);
        testing::internal::CaptureStdout();
        CREATORFUNCTION creator = MODULECreateFunction(
            tagREFString{static_cast<int32_t>(row.name.size()), row.name.c_str()}, REFLiteral(L"ComponentString"));
        const std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_EQ(creator, nullptr) << row.path;
        if (row.path.empty()) EXPECT_EQ(printed, "") << row.locale << " " << row.name.size() << " characters";
        else EXPECT_EQ(printed.rfind("Module not available " + row.path + ", error ", 0), 0u) << printed;
    }
    std::setlocale(LC_ALL, "C");
}

}  // namespace
