// The host's collection: ordered items, each with an optional name, found by name through a hash
// index (the first item with a name wins), so a running object table of thousands of objects
// costs the same per lookup as one of ten.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "host/collections/HostObject.h"

class HOST_API CSuperCollection final : public ISuperCollection, public CHostObject<CSuperCollection> {
public:
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    HRESULT get_Count(int32_t* count) override;
    HRESULT get_Item(int32_t index, IUnknown** item) override;
    // Key: an IString (exact, case-sensitive name) or a variant holding a number (the index).
    HRESULT get_Index(IUnknown* key, int32_t* index) override;
    HRESULT get_ItemName(int32_t index, IString** name) override;
    HRESULT Rename(int32_t index, IString* name) override;
    HRESULT CollectionLock() override { m_Locked = 1; return S_OK; }
    HRESULT CollectionUnlock() override { m_Locked = 0; return S_OK; }
    HRESULT IsCollectionLocked() override { return m_Locked; }
    HRESULT Add(IString* name, IUnknown* value, int32_t, int32_t) override;
    HRESULT FindByInterface(IID* iid, int32_t, int32_t, int32_t* index) override;

    // For host code: the index of `name`, or -1.
    int32_t IndexOf(const std::wstring& name) const;

private:
    struct Item {
        SmartPtr<IString> name;
        SmartPtr<IUnknown> value;
    };
    void Reindex();

    std::vector<Item> m_Items;
    std::unordered_map<std::wstring, int32_t> m_Index;
    int32_t m_Locked = 0;
};

// A new, empty host collection with one reference for the caller.
HOST_API ISuperCollection* HOSTNewCollection();
