#include "host/collections/HostString.h"

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cwchar>

#include "host/collections/ComponentList.h"
#include "host/collections/InterfaceMap.h"

namespace {
constexpr HOSTInterfaceEntry<CHostString> kInterfaces[] = {
    HOSTAnswer<CHostString, ICreatableString>(IID_IString),
    HOSTAnswer<CHostString, ICreatableString>(IID_ICreatableString),
};
}  // namespace

HRESULT CHostString::QueryInterface(const IID& iid, void** object) {
    return HOSTQueryInterface<kInterfaces>(this, iid, object);
}

CHostString::~CHostString() {
    if (m_Chars != m_Inline) std::free(m_Chars);
}

bool CHostString::Reserve(int32_t needed) {
    if (needed <= m_Capacity) return true;
    if (needed > INT32_MAX / 2 - 1) return false;
    // Text arrives a character at a time (decoded messages): grow in steps worth having.
    const int32_t capacity = needed < 2 * m_Capacity ? 2 * m_Capacity : needed;
    const size_t bytes = (static_cast<size_t>(capacity) + 1) * sizeof(wchar_t);
    wchar_t* chars;
    if (m_Chars == m_Inline) {
        chars = static_cast<wchar_t*>(std::malloc(bytes));
        if (chars != nullptr) std::wmemcpy(chars, m_Chars, static_cast<size_t>(m_Length) + 1);
    } else {
        chars = static_cast<wchar_t*>(std::realloc(m_Chars, bytes));  // large texts often grow in place
    }
    if (chars == nullptr) return false;
    m_Chars = chars;
    m_Capacity = capacity;
    return true;
}

HRESULT CHostString::GetText(wchar_t** text, int32_t* length) {
    if (text == nullptr || length == nullptr) return E_POINTER;
    *text = m_Chars;
    *length = m_Length;
    return S_OK;
}

HRESULT CHostString::SetText(int32_t length, const wchar_t* text) {
    if (length < 0) return E_INVALIDARG;
    if (length > 0 && text == nullptr) return E_POINTER;
    if (length > m_Capacity) {
        // Fresh storage: the old text is not kept, and `text` may point into it.
        auto* chars = static_cast<wchar_t*>(std::malloc((static_cast<size_t>(length) + 1) * sizeof(wchar_t)));
        if (chars == nullptr) return E_OUTOFMEMORY;
        std::wmemcpy(chars, text, static_cast<size_t>(length));
        if (m_Chars != m_Inline) std::free(m_Chars);
        m_Chars = chars;
        m_Capacity = length;
    } else if (length > 0) {
        std::wmemmove(m_Chars, text, static_cast<size_t>(length));
    }
    m_Length = length;
    m_Chars[m_Length] = 0;
    return S_OK;
}

HRESULT CHostString::AppendText(int32_t count, const wchar_t* chars) {
    // Decoded messages arrive a character at a time: that case goes first and touches nothing else.
    if (count == 1 && chars != nullptr && m_Length < m_Capacity) {
        m_Chars[m_Length++] = *chars;
        m_Chars[m_Length] = 0;
        return S_OK;
    }
    return AppendMore(count, chars);
}

HRESULT CHostString::AppendMore(int32_t count, const wchar_t* chars) {
    if (count < 0) return E_INVALIDARG;
    if (count > 0 && chars == nullptr) return E_POINTER;
    if (count == 0) return S_OK;
    if (count > INT32_MAX - m_Length) return E_OUTOFMEMORY;
    // `chars` may point into this text: remember where, in case the storage moves.
    const bool inside = chars >= m_Chars && chars < m_Chars + m_Length;
    const ptrdiff_t offset = inside ? chars - m_Chars : 0;
    if (!Reserve(m_Length + count)) return E_OUTOFMEMORY;
    if (inside) chars = m_Chars + offset;
    std::wmemmove(m_Chars + m_Length, chars, static_cast<size_t>(count));
    m_Length += count;
    m_Chars[m_Length] = 0;
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
