// Declared inputs of a component ("InputParameters", "InputParameter") and the moniker that
// names an object in a collection ("CollectionMoniker").
//
// Persisted layout of an "InputParameters" object in a folder stream (IDataPersist): one child
// folder per input, named after the input, holding "Flags" (typed value, type 3: the input flags)
// and "IID" (16 bytes: the interface identifier). Loading fills the inputs of the same names;
// unknown names are skipped.
#pragma once

#include <string>
#include <vector>

#include "host/collections/HostObject.h"

class HOST_API CInputParameter final : public IInputParameter, public CHostObject<CInputParameter> {
public:
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    // The bound reference; else the object the moniker names; else E_FAIL.
    HRESULT get_Value(IUnknown** value) override;
    HRESULT get_InterfaceID(IID* iid) override;
    HRESULT put_InterfaceID(IID iid) override;
    HRESULT get_Reference(IUnknown** object) override;
    HRESULT put_Reference(IUnknown* object) override;
    HRESULT get_Moniker(IUnknown** moniker) override;  // E_FAIL and null when there is none
    HRESULT put_Moniker(IUnknown* moniker) override;
    HRESULT get_InputFlags(int32_t* flags) override;
    HRESULT put_InputFlags(int32_t flags) override;
    HRESULT get_BindFlags(int32_t* flags) override;

    std::wstring m_Name;
    int32_t m_BindFlags = 0;  // bit 0: never look the input up in a collection

private:
    IID m_Interface = IID_NULL;
    SmartPtr<IUnknown> m_Reference;
    SmartPtr<IUnknown> m_Moniker;
    int32_t m_InputFlags = 0;
};

class HOST_API CInputParameters final : public IInputParameters, public IDataPersist,
                                        public CHostObject<CInputParameters> {
public:
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    HRESULT get_Count(int32_t* count) override;
    HRESULT get_Item(int32_t index, IUnknown** input) override;
    HRESULT get_Index(IUnknown* key, int32_t* index) override;  // by name (IString)
    HRESULT get_ItemName(int32_t index, IString** name) override;
    HRESULT Rename(int32_t index, IString* name) override;
    HRESULT CollectionLock() override { return S_OK; }
    HRESULT CollectionUnlock() override { return S_OK; }
    HRESULT IsCollectionLocked() override { return 0; }
    HRESULT AddInput(IString* name, IID iid, int32_t flags) override;
    HRESULT put_InputObject(int32_t index, IUnknown* object) override;
    HRESULT get_InputObject(int32_t index, IUnknown** object) override;  // S_FALSE and null when unbound
    HRESULT Save(IDataStream* stream, int32_t mode) override;
    HRESULT Load(IDataStream* stream, int32_t mode) override;

    CInputParameter* Input(int32_t index) const;

private:
    bool InRange(int32_t index) const { return index >= 0 && index < static_cast<int32_t>(m_Inputs.size()); }
    std::vector<SmartPtr<IInputParameter>> m_Inputs;
};

class HOST_API CCollectionMoniker final : public ICollectionMoniker, public CHostObject<CCollectionMoniker> {
public:
    explicit CCollectionMoniker(std::wstring name = std::wstring()) : m_Name(std::move(name)) {}
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    // Looks the name up in `collection` and keeps the object found; E_FAIL leaves it unbound.
    HRESULT BindToCollection(INamedCollection* collection, int32_t) override;
    // The bound object asked for `iid`; E_FAIL when unbound.
    HRESULT BindToObject(IID* iid, void** object) override;

    // Binds directly to a known object (a host wiring its own objects); null unbinds.
    void BindTo(IUnknown* object) { m_Bound.Assign(object); }

    std::wstring m_Name;

private:
    SmartPtr<IUnknown> m_Bound;
};

// A moniker naming `name`, already bound to `bound` when that is given; one reference for the caller.
HOST_API ICollectionMoniker* HOSTNewCollectionMoniker(const wchar_t* name, IUnknown* bound = nullptr);
