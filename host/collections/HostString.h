// The host's string object: wide text, always zero-terminated.
#pragma once

#include <string>

#include "host/collections/HostObject.h"

class HOST_API CHostString final : public ICreatableString, public CHostObject<CHostString> {
public:
    CHostString() = default;
    explicit CHostString(std::wstring text) : m_Text(std::move(text)) {}
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    HRESULT GetText(wchar_t** text, int32_t* length) override;
    HRESULT SetText(int32_t length, const wchar_t* text) override;
    HRESULT AppendText(int32_t count, const wchar_t* chars) override;

    const std::wstring& Text() const { return m_Text; }

private:
    std::wstring m_Text;
};

// A new host string holding `text`, with one reference for the caller (null when out of memory).
HOST_API IString* HOSTNewString(const wchar_t* text, int32_t length);
HOST_API IString* HOSTNewString(const wchar_t* text);
// The text of any IString (empty for null).
HOST_API std::wstring HOSTText(IString* string);
