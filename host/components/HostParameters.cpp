#include "host/components/HostParameters.h"

#include "host/collections/ComponentList.h"

HRESULT CHostParameters::QueryInterface(const IID& iid, void** object) {
    if (object == nullptr) return E_POINTER;
    if (iid == IID_IUnknown || iid == IID_ISimpleCollection || iid == IID_INamedCollection ||
        iid == IID_IParameters || iid == IID_IParametersCreatable) {
        *object = static_cast<IParametersCreatable*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

IParametersCreatable* HOSTNewParameters() { return new (std::nothrow) CHostParameters(); }

HRESULT HOSTCreateParameters(void*, IID* iid, void** object) { return HOSTCreate<CHostParameters>(iid, object); }
