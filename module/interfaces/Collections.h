// Collections: the simple and named views, the host's super collection, the component collection
// and component strings, and the string table.
#pragma once

#include "module/interfaces/Strings.h"
#include "text/TagRefString.h"

class ISimpleCollection : public IUnknown {
public:
    virtual HRESULT get_Count(int32_t* count) = 0;                 // slot 3
    virtual HRESULT get_Item(int32_t index, IUnknown** item) = 0;  // slot 4
};

class INamedCollection : public ISimpleCollection {
public:
    virtual HRESULT get_Index(IUnknown* key, int32_t* index) = 0;      // slot 5, negative when absent
    virtual HRESULT get_ItemName(int32_t index, IString** name) = 0;   // slot 6
    virtual HRESULT Rename(int32_t index, IString* name) = 0;          // slot 7
    virtual HRESULT CollectionLock() = 0;                              // slot 8
    virtual HRESULT CollectionUnlock() = 0;                            // slot 9
    virtual HRESULT IsCollectionLocked() = 0;                          // slot 10
};

class ISuperCollection : public INamedCollection {
public:
    WKS_PLACEHOLDER(11)
    WKS_PLACEHOLDER(12)
    WKS_PLACEHOLDER(13)
    WKS_PLACEHOLDER(14)
    WKS_PLACEHOLDER(15)
    virtual HRESULT Add(IString* name, IUnknown* value, int32_t, int32_t) = 0;  // slot 16, appends
    WKS_PLACEHOLDER(17)
    WKS_PLACEHOLDER(18)
    // slot 19: the index of the first item that answers `iid`
    virtual HRESULT FindByInterface(IID* iid, int32_t, int32_t, int32_t* index) = 0;
};

class IComponentCollection : public IUnknown {
public:
    virtual HRESULT get_Count(int32_t* count) = 0;                 // slot 3
    virtual HRESULT get_Item(int32_t index, IUnknown** item) = 0;  // slot 4
    virtual HRESULT get_Index(IString* name, int32_t* index) = 0;  // slot 5, negative when unknown
    virtual HRESULT get_ItemName(int32_t index, IString** name) = 0;  // slot 6
    WKS_PLACEHOLDER(7)
    WKS_PLACEHOLDER(8)
    WKS_PLACEHOLDER(9)
    WKS_PLACEHOLDER(10)
    WKS_PLACEHOLDER(11)
    WKS_PLACEHOLDER(12)
    WKS_PLACEHOLDER(13)
    WKS_PLACEHOLDER(14)
    WKS_PLACEHOLDER(15)
    // slot 16: a new object of the named component
    virtual HRESULT CreateComponent(tagREFString name, IID* iid, void** object) = 0;
};

class IComponentString : public IUnknown {
public:
    virtual HRESULT SetObject(IUnknown* object) = 0;               // slot 3: describe that object
    virtual HRESULT get_Field(int32_t field, IString** text) = 0;  // slot 4
    virtual HRESULT CreateInstance(IID* iid, void** object) = 0;   // slot 5
    virtual HRESULT put_Field(int32_t field, tagREFString text) = 0;  // slot 6
};

class IStringTable : public IUnknown {
public:
    WKS_PLACEHOLDER(3)
    WKS_PLACEHOLDER(4)
    WKS_PLACEHOLDER(5)
    // slot 6: the strings kept under a component name, keyed by their number as text
    virtual HRESULT get_ComponentStrings(IString* name, INamedCollection** strings) = 0;
};
