// The host's registry component.
#pragma once

#include "module/interfaces/Collections.h"

class IRegistry : public IUnknown {
public:
    WKS_PLACEHOLDER(3)
    WKS_PLACEHOLDER(4)
    virtual HRESULT get_StringValue(IString* key, IString* valueName, IString** value) = 0;  // slot 5
    WKS_PLACEHOLDER(6)
    WKS_PLACEHOLDER(7)
    WKS_PLACEHOLDER(8)
    // slot 9: item name = value name, item = IString
    virtual HRESULT get_KeyValues(IString* key, INamedCollection** values) = 0;
};

class IRegistryEx : public IUnknown {
public:
    WKS_PLACEHOLDER(3)
    WKS_PLACEHOLDER(4)
    // slot 5: the caller's buffer holds 256 wide characters and is zero-filled
    virtual HRESULT ReadStringValue(const wchar_t* key, const wchar_t* valueName, wchar_t* buffer) = 0;
};
