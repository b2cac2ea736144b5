// Declared inputs of a component ("InputParameters", "InputParameter") and the moniker that
// names an object in a collection ("CollectionMoniker").
//
// Persisted content (IDataPersist), the same in a folder stream and in an XML stream
// (host/components/PersistFields.h says how each kind of field is stored):
//   "InputParameters"      one group per input, named by the input, in input order, holding the
//                          input's own fields
//   "InputParameter"       "Name" (text), "Flags" (integer: the input flags), "IID" (16 bytes: the
//                          interface identifier the input expects), "Moniker" (object, only when
//                          the input's moniker is a moniker proper, answering ICollectionMoniker)
//   "CollectionMoniker"    "Name" (text): the name it looks up
// Bound objects are not persisted, and neither is an object that stands in for a moniker (binding
// puts the object it found there): binding happens again after loading. Loading fills the declared
// inputs of the same names; saved inputs that are not declared are skipped, and so are inputs
// missing from the stream; a field missing from an input leaves that part of the input as it is.
// A restored moniker is a new, unbound one. A stream of another kind is left alone: the result is
// then E_NOTIMPL for an input or a moniker, and 0 for the collection.
#pragma once

#include <string>
#include <vector>

#include "host/collections/HostObject.h"

class CFields;

class HOST_API CInputParameter final : public IInputParameter, public IDataPersist, public IObjectInfo,
                                        public CHostObject<CInputParameter> {
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
    // Its fields, in the layout at the top of this file; `mode` is not used.
    HRESULT Save(IDataStream* stream, int32_t mode) override;
    HRESULT Load(IDataStream* stream, int32_t mode) override;
    // "InputParameter".
    HRESULT GetName(int32_t, tagREFString* name) override;

    // The name the input is declared and persisted under; the interfaces only reach it through the
    // owning collection's get_ItemName and get_Index.
    const std::wstring& Name() const { return m_Name; }
    void SetName(std::wstring name) { m_Name = std::move(name); }
    // Bit 0: never look the input up in a collection. 0 for a new input.
    void SetBindFlags(int32_t flags) { m_BindFlags = flags; }
    // Its fields into and out of a group of a stream (the collection saves one group per input).
    void SaveFields(CFields& fields);
    void LoadFields(CFields& fields);

private:
    std::wstring m_Name;
    int32_t m_BindFlags = 0;
    IID m_Interface = IID_NULL;
    SmartPtr<IUnknown> m_Reference;
    SmartPtr<IUnknown> m_Moniker;
    int32_t m_InputFlags = 0;
};

class HOST_API CInputParameters final : public IInputParameters, public IDataPersist, public IObjectInfo,
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
    // Saving and loading in the layout at the top of this file; `mode` is not used.
    HRESULT Save(IDataStream* stream, int32_t mode) override;
    HRESULT Load(IDataStream* stream, int32_t mode) override;
    // "InputParameters", the component name a folder stream stores it under.
    HRESULT GetName(int32_t, tagREFString* name) override;

    // The input at `index`, or null; every input is made by AddInput.
    CInputParameter* Input(int32_t index) const;

private:
    bool InRange(int32_t index) const { return index >= 0 && index < static_cast<int32_t>(m_Inputs.size()); }
    std::vector<SmartPtr<IInputParameter>> m_Inputs;
};

// Names one object of a collection. The name is set by the host, not through an interface: with
// HOSTNewCollectionMoniker, with SetName on a moniker made by name ("CollectionMoniker"), or by
// loading it.
class HOST_API CCollectionMoniker final : public ICollectionMoniker, public IDataPersist, public IObjectInfo,
                                          public CHostObject<CCollectionMoniker> {
public:
    explicit CCollectionMoniker(std::wstring name = std::wstring()) : m_Name(std::move(name)) {}
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    // Looks the name up in `collection` (get_Index with a string key, then get_Item) and keeps the
    // object found. A name the collection does not know gives E_FAIL and leaves the moniker unbound,
    // also when it was bound before: it names nothing in that collection.
    HRESULT BindToCollection(INamedCollection* collection, int32_t) override;
    // The bound object asked for `iid`; E_FAIL when unbound.
    HRESULT BindToObject(IID* iid, void** object) override;
    // The name into a folder or XML stream; E_NOTIMPL for any other stream. `mode` is not used.
    HRESULT Save(IDataStream* stream, int32_t mode) override;
    // The name from a folder or XML stream, which leaves the moniker unbound; a stream without
    // "Name" gives E_FAIL and changes nothing; E_NOTIMPL for a stream of another kind.
    HRESULT Load(IDataStream* stream, int32_t mode) override;
    // "CollectionMoniker".
    HRESULT GetName(int32_t, tagREFString* name) override;

    // Binds directly to a known object (a host wiring its own objects); null unbinds.
    void BindTo(IUnknown* object) { m_Bound.Assign(object); }
    const std::wstring& Name() const { return m_Name; }
    void SetName(std::wstring name) { m_Name = std::move(name); }

private:
    std::wstring m_Name;
    SmartPtr<IUnknown> m_Bound;
};

// A moniker naming `name`, already bound to `bound` when that is given; one reference for the caller.
HOST_API ICollectionMoniker* HOSTNewCollectionMoniker(const wchar_t* name, IUnknown* bound = nullptr);
