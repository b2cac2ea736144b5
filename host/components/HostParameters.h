// The host's standalone parameter collection ("ParametersCreatable"), built on the framework's
// parameter collection template.
#pragma once

#include "host/collections/HostObject.h"
#include "parameters/ParametersImpl.h"

class HOST_API CHostParameters final : public IParametersImpl<CHostParameters, IParametersCreatable>,
                                       public CHostObject<CHostParameters> {
public:
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    // The collection lock calls these; host objects are used from one thread at a time.
    void Lock() {}
    void Unlock() {}
};

// A new, empty parameter collection with one reference for the caller.
HOST_API IParametersCreatable* HOSTNewParameters();
