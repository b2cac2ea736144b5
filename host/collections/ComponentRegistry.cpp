#include "host/collections/ComponentRegistry.h"

#include <utility>
#include <vector>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/NameIndex.h"
#include "host/collections/InterfaceMap.h"

namespace {

// Changes whenever a component is registered. A plain variable rather than a member of the
// registry, so that every CreateInstance reads it without asking for the registry.
uint32_t gVersion = 1;

class Registry {
    struct NameAt {
        const Registry* registry;
        std::wstring_view operator()(int32_t i) const { return registry->m_Entries[i].first; }
    };

public:
    Registry() {
        const std::pair<const wchar_t*, CREATORFUNCTION> builtIn[] = {
            {L"CreatableString", HOSTCreateString},
            {L"Variant", HOSTCreateVariant},
            {L"SuperCollection", HOSTCreateSuperCollection},
            {L"ComponentString", HOSTCreateComponentString},
            {L"GlobalComponentCollection", HOSTCreateGlobalComponentCollection},
            {L"CSVStream", HOSTCreateCSVStream},
            {L"INIStream", HOSTCreateINIStream},
            {L"XMLStream", HOSTCreateXMLStream},
            {L"FolderStream", HOSTCreateFolderStream},
            {L"StringTable", HOSTCreateStringTable},
            {L"Registry", HOSTCreateRegistry},
            {L"ParametersCreatable", HOSTCreateParameters},
            {L"InputParameters", HOSTCreateInputParameters},
            {L"InputParameter", HOSTCreateInputParameter},
            {L"CollectionMoniker", HOSTCreateCollectionMoniker},
        };
        for (const auto& [name, creator] : builtIn) Register(name, creator);
    }

    void Register(const std::wstring& name, CREATORFUNCTION creator) {
        ++gVersion;
        const int32_t found = IndexOf(name);
        if (found >= 0) {
            m_Entries[found].second = creator;
            return;
        }
        m_Entries.emplace_back(name, creator);
        const int32_t count = static_cast<int32_t>(m_Entries.size());
        m_Index.Add(name, count - 1, count, NameAt{this});
    }

    int32_t IndexOf(std::wstring_view name) const {
        return m_Index.Find(name, static_cast<int32_t>(m_Entries.size()), NameAt{this});
    }

    std::vector<std::pair<std::wstring, CREATORFUNCTION>> m_Entries;
    CNameIndex m_Index;
};

Registry& Components() {
    static Registry registry;
    return registry;
}

}  // namespace

void HOSTRegisterComponent(const wchar_t* name, CREATORFUNCTION creator) {
    if (name != nullptr && creator != nullptr) Components().Register(name, creator);
}

CREATORFUNCTION HOSTFindComponent(std::wstring_view name) {
    const int32_t index = Components().IndexOf(name);
    return index < 0 ? nullptr : Components().m_Entries[index].second;
}

int32_t HOSTComponentCount() { return static_cast<int32_t>(Components().m_Entries.size()); }

std::wstring HOSTComponentName(int32_t index) {
    if (index < 0 || index >= HOSTComponentCount()) return std::wstring();
    return Components().m_Entries[index].first;
}

int32_t HOSTComponentIndex(std::wstring_view name) { return Components().IndexOf(name); }

uint32_t HOSTComponentVersion() { return gVersion; }

constexpr HOSTInterfaceEntry<CComponentString> kComponentStringInterfaces[] = {
    HOSTAnswer<CComponentString, IComponentString>(IID_IComponentString),
};

HRESULT CComponentString::QueryInterface(const IID& iid, void** object) {
    return HOSTQueryInterface<kComponentStringInterfaces>(this, iid, object);
}

HRESULT CComponentString::SetObject(IUnknown* object) {
    SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object, IID_IObjectInfo);
    if (!info) return E_FAIL;
    tagREFString name{0, nullptr};
    if (info->GetName(0, &name) < 0) return E_FAIL;
    m_Fields[1].assign(name.text ? name.text : L"", static_cast<size_t>(name.length));
    m_Version = 0;
    return S_OK;
}

HRESULT CComponentString::get_Field(int32_t field, IString** text) {
    if (text == nullptr) return E_POINTER;
    *text = nullptr;
    if (field < 0 || field >= kFields) return E_INVALIDARG;
    *text = HOSTNewString(m_Fields[field].c_str(), static_cast<int32_t>(m_Fields[field].size()));
    return *text ? S_OK : E_FAIL;
}

HRESULT CComponentString::CreateInstance(IID* iid, void** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (m_Version != gVersion) {
        m_Creator = HOSTFindComponent(m_Fields[1]);  // registers the built-in components the first time
        m_Version = gVersion;
    }
    if (m_Creator == nullptr) return E_FAIL;
    return m_Creator(nullptr, iid, object);
}

HRESULT CComponentString::put_Field(int32_t field, tagREFString text) {
    if (field < 0 || field >= kFields) return E_INVALIDARG;
    if (text.length < 0 || (text.length > 0 && text.text == nullptr)) return E_INVALIDARG;
    m_Fields[field].assign(text.text ? text.text : L"", static_cast<size_t>(text.length));
    if (field == 1) m_Version = 0;
    return S_OK;
}

HRESULT HOSTCreateComponentString(void*, IID* iid, void** object) { return HOSTCreate<CComponentString>(iid, object); }
