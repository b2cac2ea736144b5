// "CSVStream" and "INIStream": streams that write a parameter collection (or any named collection)
// as wide text, which GetBuffer hands out.
//
// CSV: one record, fields separated by ",", each field `name=value` (a field without a name is
// its value alone), no line break and no quoting: Var1=100,Var2=Hello
// INI: one `name=value` line per entry (an entry without a name is its value alone), lines
// separated by "\n", no line break after the last: Var1=100\nVar2=Hello
// Values: a text as it is; a number in decimal with the fewest decimals (at most 9); an object as
// its name, or empty when it has none.
#pragma once

#include <new>
#include <string>

#include "host/collections/HostObject.h"
#include "host/collections/HostRecycled.h"

// Appends the entries of `collection` to `out`, separated by `separator`.
HOST_API void HOSTWriteEntries(IUnknown* collection, wchar_t separator, HOSTRecycledText& out);

template <class I>
class CTextStream : public I {
public:
    HRESULT Seek(int32_t, int32_t, int32_t) override { return S_OK; }  // reading always starts at the front
    HRESULT GetBuffer(void** data, int32_t* bytes) override {
        if (data == nullptr || bytes == nullptr) return E_POINTER;
        *data = const_cast<wchar_t*>(m_Text.c_str());
        *bytes = static_cast<int32_t>(m_Text.size() * sizeof(wchar_t));
        return S_OK;
    }
    // Appends raw bytes as wide characters (whole characters only).
    HRESULT Write(const void* bytes, int32_t byteCount, int32_t) override {
        if (byteCount < 0) return E_INVALIDARG;
        if (byteCount > 0 && bytes == nullptr) return E_POINTER;
        try {
            m_Text.append(static_cast<const wchar_t*>(bytes), static_cast<size_t>(byteCount) / sizeof(wchar_t));
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        return S_OK;
    }

protected:
    HOSTRecycledText m_Text;
};

class HOST_API CCSVStream final : public CTextStream<ICSVStream>, public CHostRecycled<CCSVStream> {
public:
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    HRESULT WriteObject(IUnknown* object, int32_t) override;
    HRESULT Open(int32_t, int32_t) override { m_Text.clear(); return S_OK; }
};

class HOST_API CINIStream final : public CTextStream<IINIStream>, public CHostRecycled<CINIStream> {
public:
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    HRESULT WriteObject(IUnknown* object) override;
    HRESULT Open(int32_t) override { m_Text.clear(); return S_OK; }
};
