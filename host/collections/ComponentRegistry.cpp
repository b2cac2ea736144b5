#include "host/collections/ComponentRegistry.h"

#include <unordered_map>
#include <utility>
#include <vector>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/InterfaceMap.h"

namespace {

class Registry {
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
        ++m_Version;
        auto found = m_Index.find(name);
        if (found != m_Index.end()) {
            m_Entries[found->second].second = creator;
            return;
        }
        m_Index.emplace(name, static_cast<int32_t>(m_Entries.size()));
        m_Entries.emplace_back(name, creator);
    }

    int32_t IndexOf(const std::wstring& name) const {
        auto found = m_Index.find(name);
        return found == m_Index.end() ? -1 : found->second;
    }

    std::vector<std::pair<std::wstring, CREATORFUNCTION>> m_Entries;
    std::unordered_map<std::wstring, int32_t> m_Index;
    uint32_t m_Version = 1;
};

Registry& Components() {
    static Registry registry;
    return registry;
}

}  // namespace

void HOSTRegisterComponent(const wchar_t* name, CREATORFUNCTION creator) {
    if (name != nullptr && creator != nullptr) Components().Register(name, creator);
}

CREATORFUNCTION HOSTFindComponent(const std::wstring& name) {
    const int32_t index = Components().IndexOf(name);
    return index < 0 ? nullptr : Components().m_Entries[index].second;
}

int32_t HOSTComponentCount() { return static_cast<int32_t>(Components().m_Entries.size()); }

std::wstring HOSTComponentName(int32_t index) {
    if (index < 0 || index >= HOSTComponentCount()) return std::wstring();
    return Components().m_Entries[index].first;
}

int32_t HOSTComponentIndex(const std::wstring& name) { return Components().IndexOf(name); }

uint32_t HOSTComponentVersion() { return Components().m_Version; }

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
    if (m_Version != HOSTComponentVersion()) {
        m_Creator = HOSTFindComponent(m_Fields[1]);
        m_Version = HOSTComponentVersion();
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
