#include "protocol/WKSProtocol.h"

HRESULT CWKSProtocol::QueryInterface(const IID& iid, void** object) {
    *object = nullptr;
    return E_NOINTERFACE;
}
