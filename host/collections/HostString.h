// The host's string object: wide text, always zero-terminated. Short texts (names, command lines)
// live inside the object; longer ones on the heap.
#pragma once

#include <cstdint>
#include <string>

#include "host/collections/HostObject.h"
#include "host/collections/HostRecycled.h"

class HOST_API CHostString final : public ICreatableString, public CHostRecycled<CHostString> {
public:
    CHostString() { m_Inline[0] = 0; }
    ~CHostString();
    CHostString(const CHostString&) = delete;
    CHostString& operator=(const CHostString&) = delete;
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    HRESULT GetText(wchar_t** text, int32_t* length) override;
    HRESULT SetText(int32_t length, const wchar_t* text) override;
    HRESULT AppendText(int32_t count, const wchar_t* chars) override;

private:
    static constexpr int32_t kInline = 24;
    // Makes room for `needed` characters and the terminator, keeping the text.
    bool Reserve(int32_t needed);
    __attribute__((noinline)) HRESULT AppendMore(int32_t count, const wchar_t* chars);

    wchar_t* m_Chars = m_Inline;
    int32_t m_Length = 0;
    int32_t m_Capacity = kInline - 1;  // characters, not counting the terminator
    wchar_t m_Inline[kInline];  // only the terminator is set at first
};

// A new host string holding `text`, with one reference for the caller (null when out of memory).
HOST_API IString* HOSTNewString(const wchar_t* text, int32_t length);
HOST_API IString* HOSTNewString(const wchar_t* text);
// The text of any IString (empty for null).
HOST_API std::wstring HOSTText(IString* string);
