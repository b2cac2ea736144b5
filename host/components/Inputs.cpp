#include "host/components/Inputs.h"

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/InterfaceMap.h"

namespace {
constexpr HOSTInterfaceEntry<CInputParameter> kInputInterfaces[] = {
    HOSTAnswer<CInputParameter, IInputParameter>(IID_IInputParameter),
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

HRESULT CInputParameters::Save(IDataStream* stream, int32_t) {
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return S_OK;
    SmartPtr<IString> flagsName(HOSTNewString(L"Flags")), iidName(HOSTNewString(L"IID")),
        monikerName(HOSTNewString(L"Moniker"));
    for (size_t i = 0; i < m_Inputs.size(); ++i) {
        CInputParameter* input = Input(static_cast<int32_t>(i));
        SmartPtr<IString> name(HOSTNewString(input->Name().c_str()));
        SmartPtr<IFolderStream> child;
        if (folder->OpenChild(name.get(), 0, child.Out()) < 0 || !child) continue;
        int32_t flags = 0;
        input->get_InputFlags(&flags);
        child->WriteTyped(flagsName.get(), &flags, 3);
        IID iid;
        input->get_InterfaceID(&iid);
        child->WriteBytes(iidName.get(), iid.bytes, 16, 0);
        // Only a moniker proper: binding puts the object it found where the moniker goes, and that
        // object is bound again after loading. The folder refuses a moniker that cannot persist.
        SmartPtr<IUnknown> moniker;
        if (input->get_Moniker(moniker.Out()) >= 0 && QueryAs<ICollectionMoniker>(moniker.get(), IID_ICollectionMoniker))
            child->WriteObject(monikerName.get(), moniker.get(), 0);
    }
    return S_OK;
}

HRESULT CInputParameters::Load(IDataStream* stream, int32_t) {
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    SmartPtr<INamedCollection> entries = QueryAs<INamedCollection>(stream, IID_INamedCollection);
    if (!folder || !entries) return S_OK;
    SmartPtr<IString> flagsName(HOSTNewString(L"Flags")), iidName(HOSTNewString(L"IID")),
        monikerName(HOSTNewString(L"Moniker"));
    for (size_t i = 0; i < m_Inputs.size(); ++i) {
        CInputParameter* input = Input(static_cast<int32_t>(i));
        SmartPtr<IString> name(HOSTNewString(input->Name().c_str()));
        int32_t index = -1;
        if (entries->get_Index(name.get(), &index) < 0) continue;
        SmartPtr<IUnknown> entry;
        entries->get_Item(index, entry.Out());
        SmartPtr<IFolderStream> child = QueryAs<IFolderStream>(entry.get(), IID_IFolderStream);
        if (!child) continue;
        int32_t flags = 0;
        if (child->ReadTyped(flagsName.get(), &flags, 3) >= 0) input->put_InputFlags(flags);
        IID iid;
        if (child->ReadBytes(iidName.get(), iid.bytes, 16, 0) >= 0) input->put_InterfaceID(iid);
        SmartPtr<IUnknown> moniker;  // null: the folder makes the stored moniker anew
        if (child->ReadObject(monikerName.get(), moniker.Out(), 0) >= 0 &&
            QueryAs<ICollectionMoniker>(moniker.get(), IID_ICollectionMoniker))
            input->put_Moniker(moniker.get());
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
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_NOTIMPL;
    SmartPtr<IString> key(HOSTNewString(L"Name")), name(HOSTNewString(m_Name.c_str(), static_cast<int32_t>(m_Name.size())));
    if (!key || !name) return E_FAIL;
    return folder->WriteValue(key.get(), name.get());
}

HRESULT CCollectionMoniker::Load(IDataStream* stream, int32_t) {
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_NOTIMPL;
    SmartPtr<IString> key(HOSTNewString(L"Name")), name(HOSTNewString(L""));
    if (!key || !name) return E_FAIL;
    if (const HRESULT hr = folder->ReadValue(key.get(), name.get()); hr < 0) return hr;
    m_Name = HOSTText(name.get());
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
