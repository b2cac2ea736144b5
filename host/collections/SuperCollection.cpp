#include "host/collections/SuperCollection.h"

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/InterfaceMap.h"

namespace {
constexpr HOSTInterfaceEntry<CSuperCollection> kInterfaces[] = {
    HOSTAnswer<CSuperCollection, ISuperCollection>(IID_INamedCollection),
    HOSTAnswer<CSuperCollection, ISuperCollection>(IID_ISuperCollection),
    HOSTAnswer<CSuperCollection, ISuperCollection>(IID_ISimpleCollection),
};
}  // namespace

HRESULT CSuperCollection::QueryInterface(const IID& iid, void** object) {
    return HOSTQueryInterface<kInterfaces>(this, iid, object);
}

HRESULT CSuperCollection::get_Count(int32_t* count) {
    if (count == nullptr) return E_POINTER;
    *count = static_cast<int32_t>(m_Items.size());
    return S_OK;
}

HRESULT CSuperCollection::get_Item(int32_t index, IUnknown** item) {
    if (item == nullptr) return E_POINTER;
    *item = nullptr;
    if (index < 0 || index >= static_cast<int32_t>(m_Items.size())) return E_INVALIDARG;
    *item = m_Items[index].value.Copy();
    return S_OK;
}

int32_t CSuperCollection::IndexOf(const std::wstring& name) const {
    auto found = m_Index.find(name);
    return found == m_Index.end() ? -1 : found->second;
}

HRESULT CSuperCollection::get_Index(IUnknown* key, int32_t* index) {
    if (index == nullptr) return E_POINTER;
    if (SmartPtr<IString> name = QueryAs<IString>(key, IID_IString)) {
        *index = IndexOf(HOSTText(name.get()));
        return *index >= 0 ? S_OK : E_FAIL;
    }
    if (SmartPtr<IVariant> number = QueryAs<IVariant>(key, IID_IVariant)) {
        if (number->get_NumberType() != 0) {
            // A number is an index; one past either end finds nothing, like an unknown name.
            const int32_t at = number->get_Integer();
            *index = at >= 0 && at < static_cast<int32_t>(m_Items.size()) ? at : -1;
            return *index >= 0 ? S_OK : E_FAIL;
        }
        if (number->IsString()) {
            SmartPtr<IString> name;
            number->get_String(name.Out());
            *index = IndexOf(HOSTText(name.get()));
            return *index >= 0 ? S_OK : E_FAIL;
        }
    }
    *index = -1;
    return E_FAIL;
}

HRESULT CSuperCollection::get_ItemName(int32_t index, IString** name) {
    if (name == nullptr) return E_POINTER;
    *name = nullptr;
    if (index < 0 || index >= static_cast<int32_t>(m_Items.size())) return E_INVALIDARG;
    *name = m_Items[index].name.Copy();
    return *name ? S_OK : E_FAIL;
}

HRESULT CSuperCollection::Rename(int32_t index, IString* name) {
    if (index < 0 || index >= static_cast<int32_t>(m_Items.size())) return E_INVALIDARG;
    m_Items[index].name.Assign(name);
    Reindex();
    return S_OK;
}

HRESULT CSuperCollection::Add(IString* name, IUnknown* value, int32_t, int32_t) {
    Item item;
    item.name.Assign(name);
    item.value.Assign(value);
    m_Items.push_back(std::move(item));
    if (name) m_Index.emplace(HOSTText(name), static_cast<int32_t>(m_Items.size() - 1));  // first one wins
    return S_OK;
}

HRESULT CSuperCollection::FindByInterface(IID* iid, int32_t, int32_t, int32_t* index) {
    if (iid == nullptr || index == nullptr) return E_POINTER;
    for (size_t i = 0; i < m_Items.size(); ++i) {
        if (QueryAs<IUnknown>(m_Items[i].value.get(), *iid)) {
            *index = static_cast<int32_t>(i);
            return S_OK;
        }
    }
    *index = -1;
    return E_FAIL;
}

void CSuperCollection::Reindex() {
    m_Index.clear();
    for (size_t i = 0; i < m_Items.size(); ++i)
        if (m_Items[i].name) m_Index.emplace(HOSTText(m_Items[i].name.get()), static_cast<int32_t>(i));
}

ISuperCollection* HOSTNewCollection() { return new (std::nothrow) CSuperCollection(); }

HRESULT HOSTCreateSuperCollection(void*, IID* iid, void** object) { return HOSTCreate<CSuperCollection>(iid, object); }
