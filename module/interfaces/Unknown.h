// The root of every interface. Slots 0 to 2 of every interface below.
#pragma once

#include "module/Iid.h"
#include "module/Result.h"

class IUnknown {
public:
    virtual HRESULT QueryInterface(const IID& iid, void** object) = 0;  // slot 0
    virtual int32_t AddRef() = 0;                                       // slot 1, the new count
    virtual int32_t Release() = 0;                                      // slot 2, the new count
};

// A slot that the module never calls still exists; placeholders keep the numbering of the slots
// after them. They answer "not implemented" unless an implementation gives them a meaning.
#define WKS_PLACEHOLDER(n) \
    virtual HRESULT Placeholder##n() { return E_NOTIMPL; }
