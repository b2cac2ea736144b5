#include "host/components/TextStreams.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cwchar>
#include <new>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/InterfaceMap.h"

namespace {

constexpr int kNumberBuffer = 256;

// An integer in decimal; a real in fixed point with the fewest decimals (at most 9) that show it,
// or, when that text would not fit 255 characters (magnitudes from about 1e246 on), in exponent
// notation with nine mantissa decimals less their trailing zeros ("1e+300", "-2.5e+300"). NaN
// and infinities print as libc writes them: "nan", "-nan", "inf", "-inf".
// A whole number as decimal digits, exactly as "%d" (or "%.0f" of a whole real) writes it.
void AppendWhole(int64_t value, HOSTStreamText& out) {
    wchar_t digits[24];
    wchar_t* end = digits + 24;
    wchar_t* p = end;
    uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    do {
        *--p = static_cast<wchar_t>(L'0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (value < 0) *--p = L'-';
    out.Append(p, static_cast<size_t>(end - p));
}

void AppendNumber(IVariant* variant, HOSTStreamText& out) {
    if (variant->get_NumberType() == 1) {
        AppendWhole(variant->get_Integer(), out);
        return;
    }
    const double real = variant->get_Double();
    // A whole real prints without decimals: as its integer, save -0, which "%.0f" writes as "-0".
    if (real == std::trunc(real) && std::fabs(real) < 1e15 && !(real == 0 && std::signbit(real))) {
        AppendWhole(static_cast<int64_t>(real), out);
        return;
    }
    wchar_t buffer[kNumberBuffer];
    // The fewest decimals, at most 9, that show the value: N decimals do when the number they
    // write reads back as this very value (0.29 and 12345.6789 as typed, though neither times a
    // power of ten is whole in binary), or when the value times 10^N lies less than 1e-8 above a
    // whole number (0.1 + 0.2 as 0.3). An integer divided by an exact power of ten is rounded once,
    // as reading the text would round it, so the comparison is exact.
    static constexpr double kPowers[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
    const double magnitude = std::fabs(real);
    int decimals = 0;
    for (double whole = 0; decimals < 9 && std::isfinite(real); ++decimals) {
        const double scaled = magnitude * kPowers[decimals];
        if (scaled >= 9007199254740992.0 || std::modf(scaled, &whole) < 1e-8 ||
            std::round(scaled) / kPowers[decimals] == magnitude)
            break;
    }
    int n = std::swprintf(buffer, kNumberBuffer, L"%.*f", decimals, real);
    if (n < 0) {
        n = std::swprintf(buffer, kNumberBuffer, L"%.9e", real);
        if (n < 0) return;
        const wchar_t* e = std::wcschr(buffer, L'e');
        int end = static_cast<int>(e - buffer);  // drop the mantissa's trailing zeros and a bare point
        int keep = end;
        while (keep > 0 && buffer[keep - 1] == L'0') --keep;
        if (keep > 0 && buffer[keep - 1] == L'.') --keep;
        out.Append(buffer, static_cast<size_t>(keep));
        out.Append(buffer + end, static_cast<size_t>(n - end));
        return;
    }
    // Nine decimals that still do not show the value may round up to zeros (9.999999999999 as
    // "10.000000000"): those say nothing, and go.
    if (decimals == 9) {
        while (n > 0 && buffer[n - 1] == L'0') --n;
        if (n > 0 && buffer[n - 1] == L'.') --n;
    }
    out.Append(buffer, static_cast<size_t>(n));
}

void AppendText(IString* text, HOSTStreamText& out) {
    wchar_t* chars = nullptr;
    int32_t length = 0;
    if (text != nullptr && text->GetText(&chars, &length) >= 0 && chars != nullptr && length > 0)
        out.Append(chars, static_cast<size_t>(length));
}

void AppendValue(IUnknown* value, HOSTStreamText& out) {
    if (SmartPtr<IVariant> variant = QueryAs<IVariant>(value, IID_IVariant)) {
        if (variant->IsString()) {
            SmartPtr<IString> text;
            variant->get_String(text.Out());
            AppendText(text.get(), out);
        } else if (variant->get_NumberType() != 0) {
            AppendNumber(variant.get(), out);
        } else if (variant->IsObject()) {
            SmartPtr<IUnknown> object;
            variant->get_Object(object.Out());
            AppendValue(object.get(), out);
        }
        return;
    }
    if (SmartPtr<IString> text = QueryAs<IString>(value, IID_IString)) {
        AppendText(text.get(), out);
        return;
    }
    if (SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(value, IID_IObjectInfo)) {
        tagREFString name{0, nullptr};
        if (info->GetName(0, &name) >= 0 && name.text) out.Append(name.text, static_cast<size_t>(name.length));
    }
}

void AppendEntry(IString* name, IUnknown* value, bool first, wchar_t separator, HOSTStreamText& out) {
    if (!first) out.Append(&separator, 1);
    if (name) {
        AppendText(name, out);
        out.Append(L"=", 1);
    }
    AppendValue(value, out);
}

}  // namespace

void HOSTWriteEntries(IUnknown* collection, wchar_t separator, HOSTStreamText& out) {
    // A parameter collection is read through its variants (values delivered by input bindings
    // included); any other named collection through its items.
    SmartPtr<IParameters> parameters = QueryAs<IParameters>(collection, IID_IParameters);
    SmartPtr<INamedCollection> named = parameters ? SmartPtr<INamedCollection>()
                                                  : QueryAs<INamedCollection>(collection, IID_INamedCollection);
    INamedCollection* list = parameters ? parameters.get() : named.get();
    if (list == nullptr) return;
    int32_t count = 0;
    list->get_Count(&count);
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IString> name;
        SmartPtr<IUnknown> value;
        list->get_ItemName(i, name.Out());
        if (parameters) {
            SmartPtr<IVariant> variant;
            parameters->get_ItemVariant(i, variant.Out());
            value.Attach(variant.Detach());
        } else {
            list->get_Item(i, value.Out());
        }
        AppendEntry(name.get(), value.get(), i == 0, separator, out);
    }
}

namespace {
constexpr HOSTInterfaceEntry<CCSVStream> kCSVInterfaces[] = {
    HOSTAnswer<CCSVStream, ICSVStream>(IID_ICSVStream),
    HOSTAnswer<CCSVStream, ICSVStream>(IID_IDataStream),
};
constexpr HOSTInterfaceEntry<CINIStream> kINIInterfaces[] = {
    HOSTAnswer<CINIStream, IINIStream>(IID_IINIStream),
    HOSTAnswer<CINIStream, IINIStream>(IID_IDataStream),
};
}  // namespace

HRESULT CCSVStream::QueryInterface(const IID& iid, void** object) {
    return HOSTQueryInterface<kCSVInterfaces>(this, iid, object);
}

// Out of memory, the text written so far stays and the call fails.
HRESULT CCSVStream::WriteObject(IUnknown* object, int32_t) {
    try {
        HOSTWriteEntries(object, L',', m_Text);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT CINIStream::QueryInterface(const IID& iid, void** object) {
    return HOSTQueryInterface<kINIInterfaces>(this, iid, object);
}

HRESULT CINIStream::WriteObject(IUnknown* object) {
    try {
        HOSTWriteEntries(object, L'\n', m_Text);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

void HOSTStreamText::Grow(size_t count) {
    // GetBuffer counts the text's bytes in 32 bits: neither the text nor its room grows past that.
    constexpr size_t kLimit = static_cast<size_t>(INT32_MAX) / sizeof(wchar_t);
    if (count > kLimit - m_Size) throw std::bad_alloc();
    const size_t capacity = std::min(std::max(m_Size + count, 2 * m_Capacity), kLimit);
    auto* chars = static_cast<wchar_t*>(std::malloc((capacity + 1) * sizeof(wchar_t)));
    if (chars == nullptr) throw std::bad_alloc();
    std::wmemcpy(chars, m_Chars, m_Size);
    if (m_Chars != m_Inline) std::free(m_Chars);
    m_Chars = chars;
    m_Capacity = capacity;
}

HRESULT HOSTCreateCSVStream(void*, IID* iid, void** object) { return HOSTCreate<CCSVStream>(iid, object); }
HRESULT HOSTCreateINIStream(void*, IID* iid, void** object) { return HOSTCreate<CINIStream>(iid, object); }
