// CREFString: a view of wide text that cuts in place.
#pragma once

#include <cwchar>

#include "module/SmartPtr.h"
#include "module/interfaces/Collections.h"
#include "module/interfaces/Streams.h"
#include "text/TagRefString.h"

// A non-owning view: a count of wide characters and a pointer to them. It does not own its
// text, frees nothing and is copied freely; the text must outlive every view onto it. Cutting
// operations move the view's start forward and shrink its length; they never copy. An object is
// (virtual-table pointer, length, text); there is no virtual destructor.
//
// Results: 0 success; 1 success and the view is used up; E_FAIL (0x80004005) failure. GetWord,
// Contains and ContainsChar return a position instead of 0 on success. Every out view may be null.
class CREFString : public tagREFString {
public:
    CREFString() { length = 0; text = nullptr; }
    CREFString(const wchar_t* terminated);
    CREFString(const wchar_t* chars, int32_t count) { length = count; text = chars; }
    CREFString(const tagREFString& view) { length = view.length; text = view.text; }
    // The text of `source`'s IString; empty when it has none. The view borrows the string's
    // buffer, which stays valid only while the caller keeps its own reference to `source`.
    explicit CREFString(IDataStream* source);
    // The text of `string`; empty for null. The same borrowing rule holds.
    explicit CREFString(IString* string);

    // The first line up to and including `separator` (without it when `dropSeparator`).
    virtual HRESULT GetLine(tagREFString* line, bool advance, wchar_t separator, bool dropSeparator);
    // The first line up to a line break (LF, CR, or a CR LF / LF CR pair).
    virtual HRESULT GetLineCRLF(tagREFString* line, bool dropBreak, bool advance);
    // Everything before the last `separator`.
    virtual HRESULT GetReverseLine(tagREFString* head, wchar_t separator, bool advance, bool skipSeparator);
    // Everything from the last `separator` on.
    virtual HRESULT GetLineRight(tagREFString* tail, wchar_t separator, bool advance, bool skipSeparator,
                                 bool wholeIfAbsent);
    // GetLineRight without the whole-if-absent choice.
    virtual HRESULT Crop(tagREFString* tail, wchar_t separator, bool advance, bool skipSeparator);
    // Splits at the first character in `separators` (or below 32 with `stopAtControl`); the view stays.
    virtual HRESULT Split(tagREFString* left, tagREFString* right, CREFString separators, int32_t stopAtControl);
    // One lexical token: a quoted text, a number, a punctuation character or a name.
    virtual HRESULT GetFirstWord(tagREFString* word, bool advance);
    // The characters before the first of `separators`; result 0 if none occurs, else its position + 1.
    virtual HRESULT GetWord(tagREFString* word, bool advance, tagREFString separators);
    // Index of the first occurrence of `needle`.
    virtual HRESULT Contains(tagREFString needle);
    // Index of the first character that occurs in `set`.
    virtual HRESULT ContainsChar(tagREFString set);

    // Drops white space and control characters (and punctuation with `alsoPunctuation`) from the
    // front. 1 if anything was dropped, else 0.
    HRESULT TrimLeft(bool alsoPunctuation);
    // Case-insensitive comparison (towlower). With prefixOnly: `other` must be a prefix of the
    // view. Otherwise the shorter decides. 0 equal, 1 equal over the shorter length only.
    HRESULT CompareI(tagREFString other, int16_t prefixOnly);

    // The lazy, process-wide string, variant and collection factories; null when the host's
    // collections module cannot be loaded. Each call makes a new object for the caller.
    static WKS_SHARED IString* CreateString();
    static WKS_SHARED IVariant* CreateVariant();
    static WKS_SHARED ISuperCollection* CreateCollection();
};

namespace wksdetail {
// One call of a lazy factory: on the first use (or after a failed one) makes the host's
// "ComponentString" component from module "CollectionsEx", configures field 4 "Collections" and
// field 1 `component`, and keeps it in `slot`; then asks it for a new object with `iid`.
void* CreateFromCollections(SmartPtr<IComponentString>& slot, const wchar_t* component, int32_t length,
                            const IID& iid);
}  // namespace wksdetail

// The slots are function-local statics of inline functions with default visibility, so the
// dynamic linker gives every module of the process that carries these factories the same slot.
// The guarded initialisation is thread-safe and registers the slot's release at unload.
inline IString* CREFString::CreateString() {
    static SmartPtr<IComponentString> gStringComponent;
    return static_cast<ICreatableString*>(
        wksdetail::CreateFromCollections(gStringComponent, L"CreatableString", 15, IID_ICreatableString));
}

inline IVariant* CREFString::CreateVariant() {
    static SmartPtr<IComponentString> gVariantComponent;
    return static_cast<IVariant*>(wksdetail::CreateFromCollections(gVariantComponent, L"Variant", 7, IID_IVariant));
}

inline ISuperCollection* CREFString::CreateCollection() {
    static SmartPtr<IComponentString> gCollectionComponent;
    return static_cast<ISuperCollection*>(
        wksdetail::CreateFromCollections(gCollectionComponent, L"SuperCollection", 15, IID_ISuperCollection));
}
