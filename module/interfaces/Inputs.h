// Declared inputs of a component and the monikers that bind them.
#pragma once

#include "module/interfaces/Collections.h"

class IInputParameters : public INamedCollection {
public:
    WKS_PLACEHOLDER(11)
    virtual HRESULT AddInput(IString* name, IID iid, int32_t flags) = 0;      // slot 12: declares an input
    virtual HRESULT put_InputObject(int32_t index, IUnknown* object) = 0;    // slot 13: binds an object
    virtual HRESULT get_InputObject(int32_t index, IUnknown** object) = 0;   // slot 14: bound object or null
};

class IInputParameter : public IUnknown {
public:
    virtual HRESULT get_Value(IUnknown** value) = 0;        // slot 3
    virtual HRESULT get_InterfaceID(IID* iid) = 0;          // slot 4
    virtual HRESULT put_InterfaceID(IID iid) = 0;           // slot 5
    WKS_PLACEHOLDER(6)
    virtual HRESULT get_Reference(IUnknown** object) = 0;   // slot 7
    virtual HRESULT put_Reference(IUnknown* object) = 0;    // slot 8
    virtual HRESULT get_Moniker(IUnknown** moniker) = 0;    // slot 9, not negative when there is one
    virtual HRESULT put_Moniker(IUnknown* moniker) = 0;     // slot 10
    virtual HRESULT get_InputFlags(int32_t* flags) = 0;     // slot 11
    virtual HRESULT put_InputFlags(int32_t flags) = 0;      // slot 12
    virtual HRESULT get_BindFlags(int32_t* flags) = 0;      // slot 13: bit 0, never look up in a collection
};

class ICollectionMoniker : public IUnknown {
public:
    virtual HRESULT BindToCollection(INamedCollection* collection, int32_t) = 0;  // slot 3
    virtual HRESULT BindToObject(IID* iid, void** object) = 0;                    // slot 4
};
