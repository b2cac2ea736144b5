#include "host/components/HostParameters.h"

#include <algorithm>
#include <cwchar>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/InterfaceMap.h"

namespace {

// `value` as a variant with one reference: a variant itself, anything else wrapped. Null only
// when no variant can be made.
SmartPtr<IVariant> AsVariant(IUnknown* value) {
    if (SmartPtr<IVariant> variant = QueryAs<IVariant>(value, IID_IVariant)) return variant;
    SmartPtr<IVariant> wrapped;
    HOSTCreateVariant(nullptr, &IID_IVariant, wrapped.OutVoid());
    if (wrapped) wrapped->put_Object(value);
    return wrapped;
}

bool SameIdentity(IUnknown* a, IUnknown* b) {
    if (a == nullptr || b == nullptr) return false;
    return QueryAs<IUnknown>(a, IID_IUnknown).get() == QueryAs<IUnknown>(b, IID_IUnknown).get();
}


constexpr HOSTInterfaceEntry<CHostParameters> kInterfaces[] = {
    HOSTAnswer<CHostParameters, IParametersCreatable>(IID_IParameters),
    HOSTAnswer<CHostParameters, IParametersCreatable>(IID_INamedCollection),
    HOSTAnswer<CHostParameters, IParametersCreatable>(IID_IParametersCreatable),
    HOSTAnswer<CHostParameters, IParametersCreatable>(IID_ISimpleCollection),
};

}  // namespace

HRESULT CHostParameters::QueryInterface(const IID& iid, void** object) {
    return HOSTQueryInterface<kInterfaces>(this, iid, object);
}

SmartPtr<IVariant> CHostParameters::ValueOf(const Entry& entry) const {
    if (SmartPtr<IInputParameter> input = QueryAs<IInputParameter>(entry.descriptor.get(), IID_IInputParameter)) {
        SmartPtr<IUnknown> delivered;
        if (input->get_Value(delivered.Out()) >= 0) return AsVariant(delivered.get());
    }
    return entry.value;
}

HRESULT CHostParameters::get_Count(int32_t* count) {
    if (count == nullptr) return E_POINTER;
    *count = static_cast<int32_t>(m_Entries.size());
    return S_OK;
}

HRESULT CHostParameters::get_Item(int32_t index, IUnknown** item) {
    if (item == nullptr) return E_POINTER;
    *item = nullptr;
    if (!InRange(index)) return E_INVALIDARG;
    SmartPtr<IVariant> value = ValueOf(m_Entries[index]);
    if (!value) return E_FAIL;
    if (value->IsObject()) return value->get_Object(item);
    if (value->IsString()) return value->get_String(reinterpret_cast<IString**>(item));
    *item = value.Detach();  // a number is handed out as its variant
    return S_OK;
}

HRESULT CHostParameters::get_Index(IUnknown* key, int32_t* index) {
    if (index == nullptr) return E_POINTER;
    *index = -1;
    SmartPtr<IString> name = QueryAs<IString>(key, IID_IString);
    SmartPtr<IUnknown> object;
    if (!name) {
        if (SmartPtr<IVariant> variant = QueryAs<IVariant>(key, IID_IVariant)) {
            if (variant->get_NumberType() != 0) {
                *index = variant->get_Integer();
                return S_OK;
            }
            if (variant->IsString()) variant->get_String(name.Out());
            else if (variant->IsObject()) variant->get_Object(object.Out());
        } else {
            object.Assign(key);
        }
    }
    const int32_t count = static_cast<int32_t>(m_Entries.size());
    if (name) {
        wchar_t* text = nullptr;
        int32_t length = 0;
        name->GetText(&text, &length);
        for (int32_t i = 0; i < count && length > 0; ++i) {
            IString* candidate = m_Entries[i].name.get();
            if (candidate == nullptr) continue;
            wchar_t* other = nullptr;
            int32_t otherLength = 0;
            candidate->GetText(&other, &otherLength);
            if (otherLength == length && std::wmemcmp(other, text, static_cast<size_t>(length)) == 0) {
                *index = i;
                return S_OK;
            }
        }
        return E_FAIL;
    }
    if (!object) return E_FAIL;
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IUnknown> held;
        if (m_Entries[i].value && m_Entries[i].value->IsObject()) m_Entries[i].value->get_Object(held.Out());
        if (SameIdentity(held.get(), object.get())) {
            *index = i;
            return S_OK;
        }
    }
    for (int32_t i = 0; i < count; ++i) {
        if (SameIdentity(m_Entries[i].descriptor.get(), object.get())) {
            *index = i;
            return S_OK;
        }
    }
    return E_FAIL;
}

HRESULT CHostParameters::get_ItemName(int32_t index, IString** name) {
    if (name == nullptr) return E_POINTER;
    *name = nullptr;
    if (!InRange(index)) return E_INVALIDARG;
    *name = m_Entries[index].name.Copy();
    return *name ? S_OK : E_FAIL;
}

HRESULT CHostParameters::Rename(int32_t index, IString* name) {
    if (!InRange(index)) return E_INVALIDARG;
    m_Entries[index].name.Assign(name);
    return S_OK;
}

HRESULT CHostParameters::Get(int32_t index, IString** name, IVariant** value, IUnknown** descriptor, int32_t* flags) {
    if (!InRange(index)) return E_INVALIDARG;
    const Entry& entry = m_Entries[index];
    if (name != nullptr) *name = entry.name.Copy();
    if (value != nullptr) *value = ValueOf(entry).Detach();
    if (descriptor != nullptr) *descriptor = entry.descriptor.Copy();
    if (flags != nullptr) *flags = entry.flags;
    return S_OK;
}

HRESULT CHostParameters::get_ItemVariant(int32_t index, IVariant** value) {
    if (value == nullptr) return E_POINTER;
    *value = nullptr;
    if (!InRange(index)) return E_INVALIDARG;
    *value = ValueOf(m_Entries[index]).Detach();
    return *value ? S_OK : E_FAIL;
}

HRESULT CHostParameters::put_Item(int32_t index, IUnknown* value) {
    if (!InRange(index)) return E_INVALIDARG;
    SmartPtr<IVariant> held = AsVariant(value);
    if (!held) return E_FAIL;
    m_Entries[index].value = std::move(held);
    return S_OK;
}

HRESULT CHostParameters::get_ItemDescriptor(int32_t index, IUnknown** descriptor) {
    if (descriptor == nullptr) return E_POINTER;
    *descriptor = nullptr;
    if (!InRange(index)) return E_INVALIDARG;
    *descriptor = m_Entries[index].descriptor.Copy();
    return *descriptor ? S_OK : E_FAIL;
}

HRESULT CHostParameters::put_ItemDescriptor(int32_t index, IUnknown* descriptor) {
    if (!InRange(index)) return E_INVALIDARG;
    m_Entries[index].descriptor.Assign(descriptor);
    return S_OK;
}

HRESULT CHostParameters::get_ItemFlags(int32_t index, int32_t* flags) {
    if (flags == nullptr) return E_POINTER;
    if (!InRange(index)) return E_INVALIDARG;
    *flags = m_Entries[index].flags;
    return S_OK;
}

HRESULT CHostParameters::put_ItemFlags(int32_t index, int32_t flags) {
    if (!InRange(index)) return E_INVALIDARG;
    m_Entries[index].flags = flags;
    return S_OK;
}

HRESULT CHostParameters::Add(IString* name, IUnknown* value, IUnknown* descriptor, int32_t flags) {
    Entry entry;
    if (value == nullptr) {
        SmartPtr<IString> empty(HOSTNewString(L"", 0));
        if (!empty) return E_FAIL;
        entry.value = AsVariant(empty.get());
    } else {
        entry.value = AsVariant(value);
    }
    if (!entry.value) return E_FAIL;
    entry.name.Assign(name);
    entry.descriptor.Assign(descriptor);
    entry.flags = flags;
    try {
        if (m_Entries.capacity() == 0) m_Entries.reserve(4);  // most collections made per line hold a few
        m_Entries.push_back(std::move(entry));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT CHostParameters::Remove(int32_t index) {
    if (!InRange(index)) return E_INVALIDARG;
    Entry removed = std::move(m_Entries[index]);  // released after the collection is consistent
    m_Entries.erase(m_Entries.begin() + index);
    return S_OK;
}

HRESULT CHostParameters::RemoveAll() {
    decltype(m_Entries) removed;
    removed.swap(m_Entries);  // a release that reaches back finds an empty collection
    return S_OK;
}

HRESULT CHostParameters::Copy(IParameters* source) {
    if (source == nullptr) return S_OK;
    int32_t count = 0;
    source->get_Count(&count);  // read once: copying a collection into itself appends one copy
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IString> name;
        SmartPtr<IVariant> value;
        SmartPtr<IUnknown> descriptor;
        int32_t flags = 0;
        source->Get(i, name.Out(), value.Out(), descriptor.Out(), &flags);
        SmartPtr<IVariant> copy;
        HOSTCreateVariant(nullptr, &IID_IVariant, copy.OutVoid());
        if (copy) copy->put_Object(value.get());
        const HRESULT added = Add(name.get(), copy.get(), descriptor.get(), flags);
        if (added < 0) return added;
    }
    return S_OK;
}

HRESULT CHostParameters::Sort(int32_t) {
    auto text = [](const Entry& entry) -> const wchar_t* {
        wchar_t* chars = nullptr;
        int32_t length = 0;
        if (entry.name) entry.name->GetText(&chars, &length);
        return chars ? chars : L"";
    };
    std::stable_sort(m_Entries.begin(), m_Entries.end(), [&](const Entry& a, const Entry& b) {
        if (!a.name || !b.name) return !a.name && b.name;
        return std::wcscmp(text(a), text(b)) < 0;
    });
    return S_OK;
}

IParametersCreatable* HOSTNewParameters() {
    IParametersCreatable* made = nullptr;
    HOSTCreateParameters(nullptr, &IID_IParametersCreatable, reinterpret_cast<void**>(&made));
    return made;
}

HRESULT HOSTCreateParameters(void*, IID* iid, void** object) { return HOSTCreate<CHostParameters>(iid, object); }
