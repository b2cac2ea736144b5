// The host's variant. Semantics where the module leaves them to the host:
// - A new variant is empty: not a number, no string, no object.
// - put_Integer / put_Double hold a number (get_NumberType 1 / 2). get_Integer of a real truncates
//   toward zero; get_Double of an integer widens; both read 0 when no number is held.
// - put_String holds the caller's string object itself (shared, one reference).
// - put_Object: a string (anything answering IString) is held as a string; a variant's value is
//   taken over (number, string or object); any other object is held as an object; null empties.
// - get_String yields the held string; a number does not turn into text (E_FAIL, null).
// - get_Object yields the held object; E_FAIL and null when none is held.
#pragma once

#include "host/collections/HostObject.h"
#include "host/collections/HostRecycled.h"

class HOST_API CHostVariant final : public IVariant, public CHostRecycled<CHostVariant> {
public:
    ~CHostVariant() { Clear(); }
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    int16_t get_NumberType() override { return m_Kind == kInteger ? 1 : m_Kind == kReal ? 2 : 0; }
    double get_Double() override;
    int32_t get_Integer() override;
    HRESULT put_Integer(int32_t value) override;
    HRESULT put_Double(double value) override;
    int16_t IsObject() override { return m_Kind == kObject; }
    HRESULT get_Object(IUnknown** object) override;
    HRESULT put_Object(IUnknown* object) override;
    int16_t IsString() override { return m_Kind == kString; }
    HRESULT get_String(IString** text) override;
    HRESULT put_String(IString* text) override;

private:
    enum Kind { kEmpty, kInteger, kReal, kString, kObject };
    void Clear();

    Kind m_Kind = kEmpty;
    int32_t m_Integer = 0;
    double m_Real = 0.0;
    IUnknown* m_Object = nullptr;  // the string or the object, one reference
};
