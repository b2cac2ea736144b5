#include "host/collections/HostString.h"

#include <cwchar>

#include "host/collections/ComponentList.h"

HRESULT CHostString::QueryInterface(const IID& iid, void** object) {
    if (object == nullptr) return E_POINTER;
    if (iid == IID_IUnknown || iid == IID_IString || iid == IID_ICreatableString) {
        *object = static_cast<ICreatableString*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

HRESULT CHostString::GetText(wchar_t** text, int32_t* length) {
    if (text == nullptr || length == nullptr) return E_POINTER;
    *text = const_cast<wchar_t*>(m_Text.c_str());
    *length = static_cast<int32_t>(m_Text.size());
    return S_OK;
}

HRESULT CHostString::SetText(int32_t length, const wchar_t* text) {
    if (length < 0) return E_INVALIDARG;
    if (length > 0 && text == nullptr) return E_POINTER;
    m_Text.assign(text ? text : L"", static_cast<size_t>(length));
    return S_OK;
}

HRESULT CHostString::AppendText(int32_t count, const wchar_t* chars) {
    if (count < 0) return E_INVALIDARG;
    if (count > 0 && chars == nullptr) return E_POINTER;
    if (count == 0) return S_OK;
    // Text arrives a character at a time (decoded messages): grow in steps worth having.
    const size_t needed = m_Text.size() + static_cast<size_t>(count);
    if (needed > m_Text.capacity()) m_Text.reserve(needed < 32 ? 32 : 2 * needed);
    if (count == 1) m_Text.push_back(*chars);
    else m_Text.append(chars, static_cast<size_t>(count));
    return S_OK;
}

IString* HOSTNewString(const wchar_t* text, int32_t length) {
    CHostString* made = new (std::nothrow) CHostString();
    if (made == nullptr) return nullptr;
    made->SetText(length, text);
    return made;
}

IString* HOSTNewString(const wchar_t* text) {
    return HOSTNewString(text, text ? static_cast<int32_t>(std::wcslen(text)) : 0);
}

std::wstring HOSTText(IString* string) {
    wchar_t* text = nullptr;
    int32_t length = 0;
    if (string == nullptr || string->GetText(&text, &length) < 0 || text == nullptr) return std::wstring();
    return std::wstring(text, static_cast<size_t>(length));
}

HRESULT HOSTCreateString(void*, IID* iid, void** object) { return HOSTCreate<CHostString>(iid, object); }
