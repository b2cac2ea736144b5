#include "text/FileName.h"

#include <cwctype>
#include <initializer_list>

#include "module/Module.h"
#include "module/interfaces/Registry.h"
#include "text/Conversions.h"
#include "text/RefString.h"

namespace {

constexpr int32_t kInstallPathBuffer = 256;
constexpr tagREFString kRegistry = {8, L"Registry"};
constexpr wchar_t kUp[] = L"..\\";  // one level up; "../" is not one

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

bool SameIgnoringCase(wchar_t a, wchar_t b) { return std::towlower(a) == std::towlower(b); }

// Hands `given` back with a new reference for the caller.
HRESULT HandBack(IString* given, IString** out) {
    if (given != nullptr) given->AddRef();
    *out = given;
    return S_OK;
}

// A new string of the pieces in order; null when the factory has none.
IString* Concatenate(std::initializer_list<tagREFString> pieces) {
    IString* made = CREFString::CreateString();
    if (made == nullptr) return nullptr;
    for (const tagREFString& piece : pieces)
        if (piece.length > 0) made->AppendText(piece.length, piece.text);
    return made;
}

tagREFString Rest(const tagREFString& text, int32_t from) {
    if (from >= text.length) return {0, nullptr};
    return {text.length - from, text.text + from};
}

}  // namespace

void FILENAMESlashes(IString* string) {
    wchar_t* text = nullptr;
    int32_t length = 0;
    if (string == nullptr || string->GetText(&text, &length) < 0 || text == nullptr) return;
    for (int32_t i = 0; i < length; ++i)
        if (text[i] == L'\\') text[i] = L'/';
}

HRESULT FILENAMEGetInstallPath(IString** path) {
    if (path == nullptr) return E_POINTER;
    SmartPtr<IRegistryEx> registry(static_cast<IRegistryEx*>(CreateObject(kRegistry, &IID_IRegistryEx)));
    wchar_t buffer[kInstallPathBuffer] = {};
    const HRESULT hr = registry ? registry->ReadStringValue(L"Workspace", L"InstallPath", buffer) : E_FAIL;
    buffer[kInstallPathBuffer - 1] = L'\0';  // a registry that filled the whole buffer is cut, not overrun
    *path = ISCreate(static_cast<const wchar_t*>(buffer));
    return hr;
}

HRESULT FILENAMEMap(IString* path, IString** mapped) {
    if (mapped == nullptr) return E_POINTER;
    SmartPtr<IRegistry> registry(static_cast<IRegistry*>(CreateObject(kRegistry, &IID_IRegistry)));
    if (!registry) return E_REGISTRY_UNAVAILABLE;
    SmartPtr<IString> key(ISCreate(L"Mappings"));
    SmartPtr<INamedCollection> mappings;
    const HRESULT listed = registry->get_KeyValues(key.get(), mappings.Out());
    if (listed < 0) return listed;
    const tagREFString p = CREFString(path);
    int32_t count = 0;
    if (mappings) mappings->get_Count(&count);
    for (int32_t i = 0; i < count; ++i) {  // the first mapping that matches wins, not the longest
        SmartPtr<IUnknown> item;
        mappings->get_Item(i, item.Out());
        SmartPtr<IString> directory = QueryAs<IString>(item.get(), IID_IString);
        if (!directory) continue;
        const tagREFString v = CREFString(directory.get());
        if (v.length == 0 || v.length > p.length) continue;
        int32_t k = 0;
        while (k < v.length && SameIgnoringCase(p.text[k], v.text[k])) ++k;
        if (k < v.length) continue;
        SmartPtr<IString> name;
        mappings->get_ItemName(i, name.Out());
        IString* made = Concatenate({{1, L"["}, CREFString(name.get()), {1, L"]"}, Rest(p, v.length)});
        if (made == nullptr) return E_FAIL;
        *mapped = made;
        return S_OK;
    }
    return E_FAIL;
}

HRESULT FILENAMEUnmap(IString* mapped, IString** path) {
    if (path == nullptr) return E_POINTER;
    const tagREFString t = CREFString(mapped);
    if (t.length == 0 || t.text[0] != L'[') return E_FAIL;
    int32_t close = 1;
    while (close < t.length && t.text[close] != L']') ++close;
    if (close == t.length) return E_FAIL;
    SmartPtr<IRegistry> registry(static_cast<IRegistry*>(CreateObject(kRegistry, &IID_IRegistry)));
    if (!registry) return E_FAIL;
    SmartPtr<IString> key(ISCreate(L"Mappings"));
    SmartPtr<IString> name(ISCreate(tagREFString{close - 1, t.text + 1}));
    SmartPtr<IString> directory;
    if (registry->get_StringValue(key.get(), name.get(), directory.Out()) < 0 || !directory) return E_FAIL;
    IString* made = Concatenate({CREFString(directory.get()), Rest(t, close + 1)});
    if (made == nullptr) return E_FAIL;
    FILENAMESlashes(made);
    *path = made;
    return S_OK;
}

HRESULT FILENAMECreateRelative(IString* path, IString** relative) {
    if (relative == nullptr) return E_POINTER;
    SmartPtr<IString> install;
    FILENAMEGetInstallPath(install.Out());
    const tagREFString i = CREFString(install.get()), p = CREFString(path);
    const int32_t m = i.length < p.length ? i.length : p.length;
    if (m == 0) return HandBack(path, relative);
    int32_t k = 0;
    while (k < m && SameIgnoringCase(i.text[k], p.text[k])) ++k;
    if (k < m) --k;  // a difference at position k: the shared part ends before it
    if (k <= 0) return HandBack(path, relative);
    // The last separator of the shared part; the root's (position 0) never counts.
    int32_t separators = 0, last = 0;
    for (int32_t at = 1; at <= k && at < p.length; ++at)
        if (IsSeparator(p.text[at])) ++separators, last = at;
    if (separators < 2) return HandBack(path, relative);  // shares no more than its root
    int32_t ups = last < i.length ? 1 : 0;
    for (int32_t at = last + 1; at < i.length; ++at)
        if (IsSeparator(i.text[at])) ++ups;
    IString* made = CREFString::CreateString();
    if (made == nullptr) return HandBack(path, relative);
    for (int32_t u = 0; u < ups; ++u) made->AppendText(3, kUp);
    const tagREFString rest = Rest(p, last + 1);
    if (rest.length > 0) made->AppendText(rest.length, rest.text);
    *relative = made;
    return S_OK;
}

// Left to us: the installation directory is cut only at slashes, as written, so one written with
// backslashes is kept whole for every "..\" step; on this system directories are written with
// slashes.
HRESULT FILENAMECreateAbsolute(IString* relative, IString** path) {
    if (path == nullptr) return E_POINTER;
    const tagREFString r = CREFString(relative);
    if (r.length == 0) return HandBack(relative, path);
    bool colon = false;
    for (int32_t at = 0; at < r.length && !colon; ++at) colon = r.text[at] == L':';
    if (colon || r.text[0] == L'/') {  // already absolute
        FILENAMESlashes(relative);
        return HandBack(relative, path);
    }
    int32_t ups = 0;
    while (3 * ups + 2 < r.length && r.text[3 * ups] == L'.' && r.text[3 * ups + 1] == L'.' && r.text[3 * ups + 2] == L'\\')
        ++ups;
    if (ups == 0 && (r.length < 3 || r.text[1] == L'/')) {
        FILENAMESlashes(relative);
        return HandBack(relative, path);
    }
    SmartPtr<IString> install;
    FILENAMEGetInstallPath(install.Out());
    const tagREFString i = CREFString(install.get());
    int32_t kept = i.length;
    if (ups >= 1 && i.length >= 2) {
        int32_t found = 0;
        for (int32_t q = i.length - 1; q >= 1; --q) {
            if (i.text[q] != L'/' || ++found < ups) continue;
            if (q > 2) kept = q;
            break;
        }
    }
    FILENAMESlashes(relative);  // the given string's own text, as the rest is copied from it
    const int32_t skip = 3 * ups < r.length ? 3 * ups : r.length;
    IString* made = Concatenate({{kept, i.text}, {1, L"/"}, Rest(r, skip)});
    if (made == nullptr) return HandBack(relative, path);
    *path = made;
    return S_OK;
}
