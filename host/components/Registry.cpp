#include "host/components/Registry.h"

#include <unistd.h>

#include <climits>
#include <cwctype>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/InterfaceMap.h"
#include "host/collections/SuperCollection.h"
#include "host/collections/Utf8.h"

namespace {

HostRegistry& Settings() {
    static HostRegistry settings;
    return settings;
}

bool SameKey(const std::wstring& a, const wchar_t* b) {
    size_t i = 0;
    for (; i < a.size() && b[i] != 0; ++i)
        if (std::towlower(a[i]) != std::towlower(b[i])) return false;
    return i == a.size() && b[i] == 0;
}

std::wstring ProgramFolder() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0) return std::wstring();
    const std::wstring program = HOSTWidenUtf8(std::string_view(path, static_cast<size_t>(length)));
    return program.substr(0, program.rfind(L'/'));
}

// The value `name` of `key`, or null.
const std::wstring* Find(const std::wstring& key, const std::wstring& name, std::wstring& scratch) {
    if (SameKey(key, L"Workspace") && SameKey(name, L"InstallPath")) {
        scratch = HOSTInstallPath();
        return &scratch;
    }
    if (SameKey(key, L"Mappings"))
        for (const auto& [mapping, folder] : Settings().mappings)
            if (SameKey(name, mapping.c_str())) return &folder;
    return nullptr;
}

class CRegistry final : public IRegistry, public IRegistryEx, public CHostObject<CRegistry> {
public:
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;

    HRESULT get_StringValue(IString* key, IString* name, IString** value) override {
        if (value == nullptr) return E_POINTER;
        *value = nullptr;
        std::wstring scratch;
        const std::wstring* found = Find(HOSTText(key), HOSTText(name), scratch);
        if (found == nullptr) return E_FAIL;
        *value = HOSTNewString(found->c_str(), static_cast<int32_t>(found->size()));
        return *value != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT get_KeyValues(IString* key, INamedCollection** values) override {
        if (values == nullptr) return E_POINTER;
        *values = nullptr;
        const std::wstring wanted = HOSTText(key);
        SmartPtr<ISuperCollection> list(HOSTNewCollection());
        if (!list) return E_OUTOFMEMORY;
        if (SameKey(wanted, L"Mappings")) {
            for (const auto& [mapping, folder] : Settings().mappings) {
                SmartPtr<IString> name(HOSTNewString(mapping.c_str()));
                SmartPtr<IString> text(HOSTNewString(folder.c_str()));
                if (!name || !text || list->Add(name.get(), text.get(), 0, 0) < 0) return E_OUTOFMEMORY;
            }
        } else if (!SameKey(wanted, L"Workspace")) {
            return E_FAIL;
        }
        *values = list.Detach();
        return S_OK;
    }

    // The caller's buffer holds 256 characters: a longer value is refused rather than cut, since
    // a cut directory names another one.
    HRESULT ReadStringValue(const wchar_t* key, const wchar_t* name, wchar_t* buffer) override {
        if (key == nullptr || name == nullptr || buffer == nullptr) return E_POINTER;
        std::wstring scratch;
        const std::wstring* found = Find(key, name, scratch);
        if (found == nullptr || found->size() > 255) return E_FAIL;
        found->copy(buffer, found->size());
        buffer[found->size()] = 0;
        return S_OK;
    }
};

constexpr HOSTInterfaceEntry<CRegistry> kInterfaces[] = {
    HOSTAnswer<CRegistry, IRegistry>(IID_IRegistry),
    HOSTAnswer<CRegistry, IRegistryEx>(IID_IRegistryEx),
};

HRESULT CRegistry::QueryInterface(const IID& iid, void** object) {
    return HOSTQueryInterface<kInterfaces>(this, iid, object);
}

}  // namespace

void HOSTSetRegistry(HostRegistry registry) { Settings() = std::move(registry); }

std::wstring HOSTInstallPath() {
    return Settings().installPath.empty() ? ProgramFolder() : Settings().installPath;
}

HRESULT HOSTCreateRegistry(void*, IID* iid, void** object) { return HOSTCreate<CRegistry>(iid, object); }
