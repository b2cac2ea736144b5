#include "host/collections/HostVariant.h"

#include <cstdint>

#include "host/collections/ComponentList.h"
#include "host/collections/InterfaceMap.h"

namespace {
constexpr HOSTInterfaceEntry<CHostVariant> kInterfaces[] = {
    HOSTAnswer<CHostVariant, IVariant>(IID_IVariant),
};
}  // namespace

HRESULT CHostVariant::QueryInterface(const IID& iid, void** object) {
    return HOSTQueryInterface<kInterfaces>(this, iid, object);
}

void CHostVariant::Clear() {
    IUnknown* old = m_Object;
    m_Object = nullptr;
    m_Kind = kEmpty;
    if (old) old->Release();
}

double CHostVariant::get_Double() {
    return m_Kind == kReal ? m_Real : m_Kind == kInteger ? static_cast<double>(m_Integer) : 0.0;
}

int32_t CHostVariant::get_Integer() {
    if (m_Kind == kInteger) return m_Integer;
    if (m_Kind != kReal) return 0;
    // Reals beyond the integer range (and NaN) saturate instead of converting out of range.
    if (!(m_Real > -2147483649.0 && m_Real < 2147483648.0)) return m_Real < 0 ? INT32_MIN : INT32_MAX;
    return static_cast<int32_t>(m_Real);
}

HRESULT CHostVariant::put_Integer(int32_t value) {
    Clear();
    m_Kind = kInteger;
    m_Integer = value;
    return S_OK;
}

HRESULT CHostVariant::put_Double(double value) {
    Clear();
    m_Kind = kReal;
    m_Real = value;
    return S_OK;
}

HRESULT CHostVariant::get_Object(IUnknown** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (m_Kind != kObject || m_Object == nullptr) return E_FAIL;
    m_Object->AddRef();
    *object = m_Object;
    return S_OK;
}

HRESULT CHostVariant::put_Object(IUnknown* object) {
    if (object == nullptr) {
        Clear();
        return S_OK;
    }
    if (SmartPtr<IVariant> other = QueryAs<IVariant>(object, IID_IVariant)) {
        if (other.get() == static_cast<IVariant*>(this)) return S_OK;
        if (other->IsString()) {
            SmartPtr<IString> text;
            other->get_String(text.Out());
            return put_String(text.get());
        }
        if (other->IsObject()) {
            SmartPtr<IUnknown> held;
            other->get_Object(held.Out());
            return put_Object(held.get());
        }
        const int16_t type = other->get_NumberType();
        if (type == 1) return put_Integer(other->get_Integer());
        if (type != 0) return put_Double(other->get_Double());
        Clear();
        return S_OK;
    }
    if (SmartPtr<IString> text = QueryAs<IString>(object, IID_IString)) return put_String(text.get());
    object->AddRef();
    Clear();
    m_Kind = kObject;
    m_Object = object;
    return S_OK;
}

HRESULT CHostVariant::get_String(IString** text) {
    if (text == nullptr) return E_POINTER;
    *text = nullptr;
    if (m_Kind != kString || m_Object == nullptr) return E_FAIL;
    m_Object->AddRef();
    *text = static_cast<IString*>(m_Object);
    return S_OK;
}

HRESULT CHostVariant::put_String(IString* text) {
    if (text) text->AddRef();
    Clear();
    if (text) {
        m_Kind = kString;
        m_Object = text;
    }
    return S_OK;
}

HRESULT HOSTCreateVariant(void*, IID* iid, void** object) { return HOSTCreate<CHostVariant>(iid, object); }
