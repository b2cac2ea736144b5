// File-name mapping against a registry of the test's own, made by name through the global
// component collection exactly as the host's would be.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "module/Module.h"
#include "support/Fakes.h"
#include "text/Conversions.h"
#include "text/FileName.h"

namespace {

// "Workspace"/"InstallPath" and the values of "Mappings", in order.
struct RegistryData {
    std::wstring install;
    std::vector<std::pair<std::wstring, std::wstring>> mappings;
};

class FakeRegistry final : public Fake<IRegistry>, public IRegistryEx {
public:
    explicit FakeRegistry(const RegistryData& data) : m_Data(data) {}
    bool Answers(const IID& iid) override { return iid == IID_IRegistry; }
    HRESULT QueryInterface(const IID& iid, void** object) override {
        if (iid != IID_IRegistryEx) return Fake<IRegistry>::QueryInterface(iid, object);
        *object = static_cast<IRegistryEx*>(this);
        Fake<IRegistry>::AddRef();
        return S_OK;
    }
    int32_t AddRef() override { return Fake<IRegistry>::AddRef(); }
    int32_t Release() override { return Fake<IRegistry>::Release(); }

    HRESULT get_StringValue(IString* key, IString* name, IString** value) override {
        if (TextOf(key) != L"Mappings") return E_FAIL;
        for (const auto& [mapping, directory] : m_Data.mappings)
            if (mapping == TextOf(name)) return *value = ISCreate(directory.c_str()), S_OK;
        return E_FAIL;
    }
    HRESULT get_KeyValues(IString* key, INamedCollection** values) override {
        if (TextOf(key) != L"Mappings") return E_FAIL;
        SmartPtr<ISuperCollection> list(CREFString::CreateCollection());
        for (const auto& [mapping, directory] : m_Data.mappings) {
            SmartPtr<IString> name(ISCreate(mapping.c_str())), value(ISCreate(directory.c_str()));
            list->Add(name.get(), value.get(), 0, 0);
        }
        *values = list.Detach();
        return S_OK;
    }
    HRESULT ReadStringValue(const wchar_t* key, const wchar_t* name, wchar_t* buffer) override {
        if (std::wstring(key) != L"Workspace" || std::wstring(name) != L"InstallPath") return E_FAIL;
        m_Data.install.copy(buffer, 255);
        return S_OK;
    }

private:
    RegistryData m_Data;
};

// Makes "Registry" and nothing else; counts how many it made.
class FakeComponents final : public Fake<IComponentCollection> {
public:
    bool Answers(const IID& iid) override { return iid == IID_IComponentCollection; }
    HRESULT get_Count(int32_t*) override { return E_NOTIMPL; }
    HRESULT get_Item(int32_t, IUnknown**) override { return E_NOTIMPL; }
    HRESULT get_Index(IString*, int32_t*) override { return E_FAIL; }
    HRESULT get_ItemName(int32_t, IString**) override { return E_NOTIMPL; }
    HRESULT CreateComponent(tagREFString name, IID* iid, void** object) override {
        if (!registry || std::wstring(name.text, name.length) != L"Registry") return E_FAIL;
        ++made;
        SmartPtr<FakeRegistry> made(new FakeRegistry(*registry));
        return made->QueryInterface(*iid, object);
    }
    const RegistryData* registry = nullptr;
    int made = 0;
};

class FileNames : public ::testing::Test {
protected:
    void SetUp() override {
        {  // the process-wide factory objects exist from here on
            SmartPtr<IString> warm(ISCreate(L"x"));
            SmartPtr<ISuperCollection> warmList(CREFString::CreateCollection());
        }
        m_Previous.Attach(GLOBALComponents());  // given back when the test is done
        m_Live = LiveHostObjects();
        m_Fakes = FakeLive();
        m_Components.Attach(new FakeComponents());
        InitializeModule(nullptr, m_Components.get());
    }
    void TearDown() override {
        InitializeModule(nullptr, m_Previous.get());
        m_Previous.Reset();
        m_Components.Reset();
        EXPECT_EQ(LiveHostObjects(), m_Live) << "every host object was released";
        EXPECT_EQ(FakeLive(), m_Fakes) << "every registry was released";
    }
    // Runs `call` on `input` with `data` as the registry; "<code>" for a failure, else the text.
    std::wstring Run(const RegistryData* data, HRESULT (*call)(IString*, IString**), const wchar_t* input,
                     SmartPtr<IString>* given = nullptr) {
        m_Components->registry = data;
        SmartPtr<IString> in(input ? ISCreate(input) : nullptr);
        IString* poison = reinterpret_cast<IString*>(0x1);
        IString* out = poison;
        const HRESULT hr = call(in.get(), &out);
        if (given) *given = in;
        if (hr < 0) return out == poison ? L"<" + std::to_wstring(hr) + L">" : L"<written on failure>";
        SmartPtr<IString> result(out);
        if (result && result.get() == in.get()) return L"=" + TextOf(result.get());  // handed back
        return TextOf(result.get());
    }

    SmartPtr<FakeComponents> m_Components;
    SmartPtr<IComponentCollection> m_Previous;
    int32_t m_Live = 0;
    int m_Fakes = 0;
};

const std::wstring kFail = L"<" + std::to_wstring(E_FAIL) + L">";

TEST_F(FileNames, MapAndUnmapByTheFirstMatchingDirectory) {
    const RegistryData data{L"/opt/app", {{L"Data", L"/srv/data"}, {L"Media", L"/mnt/media"}, {L"Long", L"/srv/data/run1"}}};
    const struct { HRESULT (*call)(IString*, IString**); const wchar_t* input; std::wstring expected; } rows[] = {
        {FILENAMEMap, L"/srv/data/run1/a.xml", L"[Data]/run1/a.xml"},  // the first match wins, not the longest
        {FILENAMEMap, L"/SRV/DATA/x", L"[Data]/x"},
        {FILENAMEMap, L"/srv/database/x", L"[Data]base/x"},
        {FILENAMEMap, L"/mnt/media\\y", L"[Media]\\y"},
        {FILENAMEMap, L"/home/x", kFail},
        {FILENAMEMap, L"/srv/dat", kFail},
        {FILENAMEMap, nullptr, kFail},
        {FILENAMEUnmap, L"[Data]\\run1\\a.xml", L"/srv/data/run1/a.xml"},
        {FILENAMEUnmap, L"[Data]base/x", L"/srv/database/x"},
        {FILENAMEUnmap, L"Data/x", kFail},
        {FILENAMEUnmap, L"[Data", kFail},
        {FILENAMEUnmap, L"[Nothing]/x", kFail},
        {FILENAMEUnmap, L"", kFail},
    };
    for (const auto& row : rows) EXPECT_EQ(Run(&data, row.call, row.input), row.expected) << (row.input ? row.input : L"null");
    EXPECT_EQ(m_Components->made, 10) << "a registry per call that gets as far as the registry";

    const RegistryData none{L"/opt/app", {}};
    EXPECT_EQ(Run(&none, FILENAMEMap, L"/srv/data/x"), kFail);
    EXPECT_EQ(Run(nullptr, FILENAMEMap, L"/srv/data/x"), L"<" + std::to_wstring(E_REGISTRY_UNAVAILABLE) + L">");
    EXPECT_EQ(Run(nullptr, FILENAMEUnmap, L"[Data]/x"), kFail);
}

TEST_F(FileNames, RelativeToTheInstallationAndBack) {
    const struct { const wchar_t* install; HRESULT (*call)(IString*, IString**); const wchar_t* input; const wchar_t* expected; } rows[] = {
        {L"/opt/app", FILENAMECreateRelative, L"/opt/app/data/x.txt", L"data/x.txt"},
        {L"/opt/app", FILENAMECreateRelative, L"/OPT/APP/x", L"x"},
        {L"/opt/app", FILENAMECreateRelative, L"/opt/other/x.txt", L"=/opt/other/x.txt"},
        {L"/opt/app", FILENAMECreateRelative, L"/usr/x", L"=/usr/x"},
        {L"/opt/app/bin", FILENAMECreateRelative, L"/opt/app/data/x", L"..\\data/x"},
        {L"/opt/app/bin", FILENAMECreateAbsolute, L"..\\data/x", L"/opt/app/data/x"},
        {L"C:\\App\\bin", FILENAMECreateRelative, L"C:\\App\\data\\x", L"..\\data\\x"},
        {L"C:\\App\\bin", FILENAMECreateRelative, L"C:\\Other\\x", L"=C:\\Other\\x"},
        {L"/opt/app", FILENAMECreateAbsolute, L"data\\x.txt", L"/opt/app/data/x.txt"},
        {L"/opt/app", FILENAMECreateAbsolute, L"C:\\x", L"=C:/x"},
        {L"/opt/app", FILENAMECreateAbsolute, L"/abs/x", L"=/abs/x"},
        {L"/opt/app", FILENAMECreateAbsolute, L"ab", L"=ab"},
        {L"/opt/app", FILENAMECreateAbsolute, L"a/b\\c", L"=a/b/c"},
        {L"/opt/app", FILENAMECreateAbsolute, L"..\\..\\..\\..\\x", L"/opt/app/x"},
        {L"/opt/app/", FILENAMECreateRelative, L"/opt/app/x.txt", L"..\\x.txt"},
        {L"/opt/app/", FILENAMECreateAbsolute, L"..\\x.txt", L"/opt/app/x.txt"},
        {L"/a/b/c/d", FILENAMECreateRelative, L"/a/b/x/y", L"..\\..\\x/y"},
        {L"/a/b/c/d", FILENAMECreateAbsolute, L"..\\..\\x/y", L"/a/b/x/y"},
        {L"/opt/appx", FILENAMECreateRelative, L"/opt/app/z", L"=/opt/app/z"},  // shared up to "/opt/app" only
        {L"/a/b", FILENAMECreateAbsolute, L"..\\x", L"/a/b/x"},  // a cut would leave only the root's first level
        {L"", FILENAMECreateRelative, L"/opt/app/x", L"=/opt/app/x"},
        {L"", FILENAMECreateAbsolute, L"x\\y", L"/x/y"},
    };
    for (const auto& row : rows) {
        const RegistryData data{row.install, {}};
        EXPECT_EQ(Run(&data, row.call, row.input), row.expected) << row.install << " " << row.input;
    }
    EXPECT_EQ(Run(nullptr, FILENAMECreateRelative, nullptr), L"<null>") << "null stays null";
    SmartPtr<IString> given;
    const RegistryData data{L"/opt/app", {}};
    EXPECT_EQ(Run(&data, FILENAMECreateAbsolute, L"data\\x", &given), L"/opt/app/data/x");
    EXPECT_EQ(TextOf(given.get()), L"data/x") << "the given string's own backslashes became slashes";
}

TEST_F(FileNames, InstallPathIsReadIntoABoundedBuffer) {
    const RegistryData data{std::wstring(300, L'a'), {}};
    m_Components->registry = &data;
    SmartPtr<IString> path;
    EXPECT_EQ(FILENAMEGetInstallPath(path.Out()), S_OK);
    EXPECT_EQ(TextOf(path.get()), std::wstring(255, L'a'));
    m_Components->registry = nullptr;
    EXPECT_EQ(FILENAMEGetInstallPath(path.Out()), E_FAIL);
    EXPECT_EQ(TextOf(path.get()), L"") << "an empty string all the same";
}

}  // namespace
