// The host's standalone parameter collection ("ParametersCreatable"): ordered entries, each with
// a name, a value (always held as a variant), a descriptor and flags. The host's own
// implementation: it shares the interface with the module, not the module's code.
//
// - A value is held as a variant: a variant given to Add or put_Item is shared with the caller;
//   anything else (null included) is wrapped in a new host variant. Add with a null value holds
//   an empty text.
// - get_Item hands out the variant's string or object, or the variant itself for a number.
// - get_Index takes a string (exact name, first match), a variant holding a number (that number
//   is the index, unchecked), or an object (the entry whose value holds it, then the entry whose
//   descriptor is it).
// - A descriptor that is an input (IInputParameter) with a value delivers the entry's value.
// - Storage grows geometrically: building a collection of n entries costs O(n).
#pragma once

#include <vector>

#include "host/collections/HostObject.h"
#include "host/collections/HostRecycled.h"

class HOST_API CHostParameters final : public IParametersCreatable, public CHostRecycled<CHostParameters> {
public:
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    HRESULT get_Count(int32_t* count) override;
    HRESULT get_Item(int32_t index, IUnknown** item) override;
    HRESULT get_Index(IUnknown* key, int32_t* index) override;
    HRESULT get_ItemName(int32_t index, IString** name) override;
    HRESULT Rename(int32_t index, IString* name) override;
    HRESULT CollectionLock() override { m_Locked = 1; return S_OK; }
    HRESULT CollectionUnlock() override { m_Locked = 0; return S_OK; }
    HRESULT IsCollectionLocked() override { return m_Locked; }
    HRESULT Get(int32_t index, IString** name, IVariant** value, IUnknown** descriptor, int32_t* flags) override;
    HRESULT get_ItemVariant(int32_t index, IVariant** value) override;
    HRESULT put_Item(int32_t index, IUnknown* value) override;
    HRESULT get_ItemDescriptor(int32_t index, IUnknown** descriptor) override;
    HRESULT put_ItemDescriptor(int32_t index, IUnknown* descriptor) override;
    HRESULT get_ItemFlags(int32_t index, int32_t* flags) override;
    HRESULT put_ItemFlags(int32_t index, int32_t flags) override;
    HRESULT Add(IString* name, IUnknown* value, IUnknown* descriptor, int32_t flags) override;
    HRESULT Remove(int32_t index) override;
    HRESULT RemoveAll() override;
    HRESULT Copy(IParameters* source) override;
    HRESULT Sort(int32_t) override;  // by name, code point by code point; unnamed entries first

private:
    struct Entry {
        SmartPtr<IString> name;
        SmartPtr<IVariant> value;
        SmartPtr<IUnknown> descriptor;
        int32_t flags = 0;
    };
    bool InRange(int32_t index) const { return index >= 0 && index < static_cast<int32_t>(m_Entries.size()); }
    // The entry's effective value: its input's value when its descriptor delivers one, else the
    // stored variant.
    SmartPtr<IVariant> ValueOf(const Entry& entry) const;

    std::vector<Entry, HOSTRecycling<Entry>> m_Entries;
    int32_t m_Locked = 0;
};

// A new, empty parameter collection with one reference for the caller (null when out of memory).
HOST_API IParametersCreatable* HOSTNewParameters();
