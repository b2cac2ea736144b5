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
    if (creator == nullptr) return E_POINTER;
    const tagREFString& own = IObjectInfoImpl<CWKSProtocol>::m_ObjectName;
    if (name.length != own.length) return E_FAIL;
    for (int32_t i = 0; i < own.length; ++i)
        if (name.text[i] != own.text[i]) return E_FAIL;  // exact: case matters
    *creator = reinterpret_cast<void*>(&CObject<CWKSProtocol>::_CreateInstance);
    return S_OK;
}
