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

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <new>

#include "host/collections/HostObject.h"
#include "host/collections/HostRecycled.h"

// A stream's wide text. A reply is mostly one short entry: its first characters live in the stream
// object itself (made and dropped on every line, so that the text costs no allocation of its own);
// a longer text moves to the heap and grows geometrically.
class HOSTStreamText {
public:
    HOSTStreamText() = default;
    HOSTStreamText(const HOSTStreamText&) = delete;
    HOSTStreamText& operator=(const HOSTStreamText&) = delete;
    ~HOSTStreamText() {
        if (m_Chars != m_Inline) std::free(m_Chars);
    }

    // Throws std::bad_alloc when the text cannot grow; what was there stays.
    void Append(const wchar_t* text, size_t count) {
        if (count > m_Capacity - m_Size) {
            // The text may be this very text (a stream's buffer written back into it).
            const auto at = reinterpret_cast<uintptr_t>(text), from = reinterpret_cast<uintptr_t>(m_Chars);
            const bool inside = at >= from && at < from + m_Size * sizeof(wchar_t);
            Grow(count);
            if (inside) text = m_Chars + (at - from) / sizeof(wchar_t);
        }
        wchar_t* to = m_Chars + m_Size;
        // Most pieces are a name, a sign or a few digits: a loop, where wmemcpy would be a call.
        if (count <= 8)
            for (size_t i = 0; i < count; ++i) to[i] = text[i];
        else
            std::wmemcpy(to, text, count);
        m_Size += count;
    }
    void Clear() { m_Size = 0; }
    size_t Size() const { return m_Size; }
    // The text, followed by a zero character.
    const wchar_t* Terminated() {
        m_Chars[m_Size] = 0;
        return m_Chars;
    }

private:
    void Grow(size_t count);

    static constexpr size_t kInline = 40;  // with the stream around it, one recycled block of 256 bytes
    wchar_t* m_Chars = m_Inline;
    size_t m_Size = 0;
    size_t m_Capacity = kInline - 1;  // characters that fit before the terminator
    wchar_t m_Inline[kInline];
};

// Appends the entries of `collection` to `out`, separated by `separator`.
HOST_API void HOSTWriteEntries(IUnknown* collection, wchar_t separator, HOSTStreamText& out);

template <class I>
class CTextStream : public I {
public:
    HRESULT Seek(int32_t, int32_t, int32_t) override { return S_OK; }  // reading always starts at the front
    HRESULT GetBuffer(void** data, int32_t* bytes) override {
        if (data == nullptr || bytes == nullptr) return E_POINTER;
        *data = const_cast<wchar_t*>(m_Text.Terminated());
        *bytes = static_cast<int32_t>(m_Text.Size() * sizeof(wchar_t));
        return S_OK;
    }
    // Appends raw bytes as wide characters (whole characters only).
    HRESULT Write(const void* bytes, int32_t byteCount, int32_t) override {
        if (byteCount < 0) return E_INVALIDARG;
        if (byteCount > 0 && bytes == nullptr) return E_POINTER;
        try {
            m_Text.Append(static_cast<const wchar_t*>(bytes), static_cast<size_t>(byteCount) / sizeof(wchar_t));
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        return S_OK;
    }

protected:
    HOSTStreamText m_Text;
};

class HOST_API CCSVStream final : public CTextStream<ICSVStream>, public CHostRecycled<CCSVStream> {
public:
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    HRESULT WriteObject(IUnknown* object, int32_t) override;
    HRESULT Open(int32_t, int32_t) override { m_Text.Clear(); return S_OK; }
};

class HOST_API CINIStream final : public CTextStream<IINIStream>, public CHostRecycled<CINIStream> {
public:
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    HRESULT WriteObject(IUnknown* object) override;
    HRESULT Open(int32_t) override { m_Text.Clear(); return S_OK; }
};
