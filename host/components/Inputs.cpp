#include "host/components/Inputs.h"

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/InterfaceMap.h"
#include "host/components/PersistFields.h"

namespace {
constexpr HOSTInterfaceEntry<CInputParameter> kInputInterfaces[] = {
    HOSTAnswer<CInputParameter, IInputParameter>(IID_IInputParameter),
    HOSTAnswer<CInputParameter, IDataPersist>(IID_IDataPersist),
    HOSTAnswer<CInputParameter, IObjectInfo>(IID_IObjectInfo),
};
constexpr HOSTInterfaceEntry<CInputParameters> kInputsInterfaces[] = {
    HOSTAnswer<CInputParameters, IInputParameters>(IID_IInputParameters),
    HOSTAnswer<CInputParameters, IInputParameters>(IID_INamedCollection),
    HOSTAnswer<CInputParameters, IInputParameters>(IID_ISimpleCollection),
    HOSTAnswer<CInputParameters, IDataPersist>(IID_IDataPersist),
    HOSTAnswer<CInputParameters, IObjectInfo>(IID_IObjectInfo),
};
constexpr HOSTInterfaceEntry<CCollectionMoniker> kMonikerInterfaces[] = {
    HOSTAnswer<CCollectionMoniker, ICollectionMoniker>(IID_ICollectionMoniker),
    HOSTAnswer<CCollectionMoniker, IDataPersist>(IID_IDataPersist),
    HOSTAnswer<CCollectionMoniker, IObjectInfo>(IID_IObjectInfo),
};

constexpr wchar_t kInputName[] = L"InputParameter";
constexpr wchar_t kInputsName[] = L"InputParameters";
constexpr wchar_t kMonikerName[] = L"CollectionMoniker";
}  // namespace

// --- InputParameter ------------------------------------------------------------------------------

HRESULT CInputParameter::QueryInterface(const IID& iid, void** object) {
    return HOSTQueryInterface<kInputInterfaces>(this, iid, object);
}

HRESULT CInputParameter::get_Value(IUnknown** value) {
    if (value == nullptr) return E_POINTER;
    *value = nullptr;
    if (m_Reference) {
        *value = m_Reference.Copy();
        return S_OK;
    }
    if (SmartPtr<ICollectionMoniker> moniker = QueryAs<ICollectionMoniker>(m_Moniker.get(), IID_ICollectionMoniker)) {
        IID wanted = m_Interface == IID_NULL ? IID_IUnknown : m_Interface;
        return moniker->BindToObject(&wanted, reinterpret_cast<void**>(value));
    }
    return E_FAIL;
}

HRESULT CInputParameter::get_InterfaceID(IID* iid) {
    if (iid == nullptr) return E_POINTER;
    *iid = m_Interface;
    return S_OK;
}

HRESULT CInputParameter::put_InterfaceID(IID iid) {
    m_Interface = iid;
    return S_OK;
}

HRESULT CInputParameter::get_Reference(IUnknown** object) {
    if (object == nullptr) return E_POINTER;
    *object = m_Reference.Copy();
    return *object ? S_OK : S_FALSE;
}

HRESULT CInputParameter::put_Reference(IUnknown* object) {
    m_Reference.Assign(object);
    return S_OK;
}

HRESULT CInputParameter::get_Moniker(IUnknown** moniker) {
    if (moniker == nullptr) return E_POINTER;
    *moniker = m_Moniker.Copy();
    return *moniker ? S_OK : E_FAIL;
}

HRESULT CInputParameter::put_Moniker(IUnknown* moniker) {
    m_Moniker.Assign(moniker);
    return S_OK;
}

HRESULT CInputParameter::get_InputFlags(int32_t* flags) {
    if (flags == nullptr) return E_POINTER;
    *flags = m_InputFlags;
    return S_OK;
}

HRESULT CInputParameter::put_InputFlags(int32_t flags) {
    m_InputFlags = flags;
    return S_OK;
}

HRESULT CInputParameter::get_BindFlags(int32_t* flags) {
    if (flags == nullptr) return E_POINTER;
    *flags = m_BindFlags;
    return S_OK;
}

void CInputParameter::SaveFields(CFields& fields) {
    fields.WriteText(L"Name", m_Name);
    fields.WriteInteger(L"Flags", m_InputFlags);
    fields.WriteBytes(L"IID", m_Interface.bytes, 16);
    // Only a moniker proper: binding puts the object it found where the moniker goes, and that
    // object is bound again after loading.
    if (QueryAs<ICollectionMoniker>(m_Moniker.get(), IID_ICollectionMoniker)) fields.WriteObject(L"Moniker", m_Moniker.get());
}

void CInputParameter::LoadFields(CFields& fields) {
    // A declared input keeps its name: the collection found its fields by that name.
    std::wstring saved;
    fields.ReadText(L"Name", saved);
    if (m_Name.empty()) m_Name = std::move(saved);
    fields.ReadInteger(L"Flags", m_InputFlags);
    fields.ReadBytes(L"IID", m_Interface.bytes, 16);
    SmartPtr<IUnknown> moniker = fields.ReadObject(L"Moniker");
    if (QueryAs<ICollectionMoniker>(moniker.get(), IID_ICollectionMoniker)) m_Moniker = std::move(moniker);
}

HRESULT CInputParameter::Save(IDataStream* stream, int32_t) {
    CFields fields(stream);
    if (!fields.Valid()) return E_NOTIMPL;
    SaveFields(fields);
    return S_OK;
}

HRESULT CInputParameter::Load(IDataStream* stream, int32_t) {
    CFields fields(stream);
    if (!fields.Valid()) return E_NOTIMPL;
    LoadFields(fields);
    return S_OK;
}

HRESULT CInputParameter::GetName(int32_t, tagREFString* name) {
    if (name == nullptr) return E_POINTER;
    *name = tagREFString{static_cast<int32_t>(std::size(kInputName) - 1), kInputName};
    return S_OK;
}

// --- InputParameters -----------------------------------------------------------------------------

HRESULT CInputParameters::QueryInterface(const IID& iid, void** object) {
    return HOSTQueryInterface<kInputsInterfaces>(this, iid, object);
}

CInputParameter* CInputParameters::Input(int32_t index) const {
    return InRange(index) ? static_cast<CInputParameter*>(m_Inputs[index].get()) : nullptr;
}

HRESULT CInputParameters::get_Count(int32_t* count) {
    if (count == nullptr) return E_POINTER;
    *count = static_cast<int32_t>(m_Inputs.size());
    return S_OK;
}

HRESULT CInputParameters::get_Item(int32_t index, IUnknown** input) {
    if (input == nullptr) return E_POINTER;
    *input = nullptr;
    if (!InRange(index)) return E_INVALIDARG;
    *input = m_Inputs[index].Copy();
    return S_OK;
}

HRESULT CInputParameters::get_Index(IUnknown* key, int32_t* index) {
    if (index == nullptr) return E_POINTER;
    *index = -1;
    SmartPtr<IString> name = QueryAs<IString>(key, IID_IString);
    if (!name) return E_FAIL;
    const std::wstring text = HOSTText(name.get());
    for (size_t i = 0; i < m_Inputs.size(); ++i) {
        if (Input(static_cast<int32_t>(i))->Name() == text) {
            *index = static_cast<int32_t>(i);
            return S_OK;
        }
    }
    return E_FAIL;
}

HRESULT CInputParameters::get_ItemName(int32_t index, IString** name) {
    if (name == nullptr) return E_POINTER;
    *name = nullptr;
    if (!InRange(index)) return E_INVALIDARG;
    *name = HOSTNewString(Input(index)->Name().c_str());
    return *name ? S_OK : E_FAIL;
}

HRESULT CInputParameters::Rename(int32_t index, IString* name) {
    if (!InRange(index)) return E_INVALIDARG;
    Input(index)->SetName(HOSTText(name));
    return S_OK;
}

HRESULT CInputParameters::AddInput(IString* name, IID iid, int32_t flags) {
    CInputParameter* input = new (std::nothrow) CInputParameter();
    if (input == nullptr) return E_FAIL;
    SmartPtr<IInputParameter> held(input);
    input->SetName(HOSTText(name));
    input->put_InterfaceID(iid);
    input->put_InputFlags(flags);
    m_Inputs.push_back(std::move(held));
    return S_OK;
}

HRESULT CInputParameters::put_InputObject(int32_t index, IUnknown* object) {
    if (!InRange(index)) return E_INVALIDARG;
    return m_Inputs[index]->put_Reference(object);
}

HRESULT CInputParameters::get_InputObject(int32_t index, IUnknown** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (!InRange(index)) return E_INVALIDARG;
    return m_Inputs[index]->get_Reference(object);
}

HRESULT CInputParameters::Save(IDataStream* stream, int32_t mode) {
    CFields fields(stream);
    for (size_t i = 0; i < m_Inputs.size(); ++i) {
        CInputParameter* input = Input(static_cast<int32_t>(i));
        CFields group = fields.WriteGroup(input->Name());
        if (group.Valid()) input->SaveFields(group);
    }
    return S_OK;
}

HRESULT CInputParameters::Load(IDataStream* stream, int32_t mode) {
    CFields fields(stream);
    for (size_t i = 0; i < m_Inputs.size() && fields.Valid(); ++i) {
        CInputParameter* input = Input(static_cast<int32_t>(i));
        CFields group = fields.ReadGroup(input->Name());
        if (group.Valid()) input->LoadFields(group);
    }
    return S_OK;
}

HRESULT CInputParameters::GetName(int32_t, tagREFString* name) {
    if (name == nullptr) return E_POINTER;
    *name = tagREFString{static_cast<int32_t>(std::size(kInputsName) - 1), kInputsName};
    return S_OK;
}

// --- CollectionMoniker ---------------------------------------------------------------------------

HRESULT CCollectionMoniker::QueryInterface(const IID& iid, void** object) {
    return HOSTQueryInterface<kMonikerInterfaces>(this, iid, object);
}

HRESULT CCollectionMoniker::BindToCollection(INamedCollection* collection, int32_t) {
    if (collection == nullptr) return E_POINTER;
    m_Bound.Reset();
    SmartPtr<IString> name(HOSTNewString(m_Name.c_str()));
    int32_t index = -1;
    if (!name || collection->get_Index(name.get(), &index) < 0) return E_FAIL;
    SmartPtr<IUnknown> found;
    if (collection->get_Item(index, found.Out()) < 0 || !found) return E_FAIL;
    m_Bound = found;
    return S_OK;
}

HRESULT CCollectionMoniker::BindToObject(IID* iid, void** object) {
    if (object == nullptr || iid == nullptr) return E_POINTER;
    *object = nullptr;
    if (!m_Bound) return E_FAIL;
    return m_Bound->QueryInterface(*iid, object);
}

HRESULT CCollectionMoniker::Save(IDataStream* stream, int32_t) {
    CFields fields(stream);
    if (!fields.Valid()) return E_NOTIMPL;
    fields.WriteText(L"Name", m_Name);
    return S_OK;
}

HRESULT CCollectionMoniker::Load(IDataStream* stream, int32_t) {
    CFields fields(stream);
    if (!fields.Valid()) return E_NOTIMPL;
    if (!fields.ReadText(L"Name", m_Name)) return E_FAIL;
    m_Bound.Reset();
    return S_OK;
}

HRESULT CCollectionMoniker::GetName(int32_t, tagREFString* name) {
    if (name == nullptr) return E_POINTER;
    *name = tagREFString{static_cast<int32_t>(std::size(kMonikerName) - 1), kMonikerName};
    return S_OK;
}

ICollectionMoniker* HOSTNewCollectionMoniker(const wchar_t* name, IUnknown* bound) {
    CCollectionMoniker* made = new (std::nothrow) CCollectionMoniker(name ? name : L"");
    if (made != nullptr) made->BindTo(bound);
    return made;
}

HRESULT HOSTCreateInputParameter(void*, IID* iid, void** object) { return HOSTCreate<CInputParameter>(iid, object); }
HRESULT HOSTCreateInputParameters(void*, IID* iid, void** object) { return HOSTCreate<CInputParameters>(iid, object); }
HRESULT HOSTCreateCollectionMoniker(void*, IID* iid, void** object) { return HOSTCreate<CCollectionMoniker>(iid, object); }
