// CWKSProtocol: provisional shape until the protocol object is built on the framework templates.
#pragma once

#include "module/Object.h"

class WKS_EXPORT CWKSProtocol final : public CObject<CWKSProtocol>, public IObjectInfoImpl<CWKSProtocol> {
public:
    HRESULT QueryInterface(const IID& iid, void** object) override;
    int32_t AddRef() override { return CObject::AddRef(); }
    int32_t Release() override { return CObject::Release(); }
    HRESULT FinalConstruct() override { return E_NOTIMPL; }
};
