// The two entry points a host calls, and the one component name this module answers to.
#include "module/Module.h"
#include "module/Object.h"
#include "protocol/WKSProtocol.h"

template <>
WKS_EXPORT tagREFString IObjectInfoImpl<CWKSProtocol>::m_ObjectName = {11, L"WKSProtocol"};

HRESULT InitializeModule(void*, IComponentCollection* collection) {
    if (collection != nullptr) collection->AddRef();
    gGlobalComponentCollection.Reset();
    gGlobalComponentCollection.Attach(collection);
    return S_OK;
}

extern "C" HRESULT CreateFunction(tagREFString name, void** creator) {
    const tagREFString& own = IObjectInfoImpl<CWKSProtocol>::m_ObjectName;
    if (name.length != own.length || name.text == nullptr) return E_FAIL;
    for (int32_t i = 0; i < own.length; ++i)
        if (name.text[i] != own.text[i]) return E_FAIL;  // exact: case matters
    // The name decides first: any other name is E_FAIL whatever the place. Left to us: our own
    // name with no place to store the creator in is the caller's error, E_POINTER.
    if (creator == nullptr) return E_POINTER;
    *creator = reinterpret_cast<void*>(&CObject<CWKSProtocol>::_CreateInstance);
    return S_OK;
}
