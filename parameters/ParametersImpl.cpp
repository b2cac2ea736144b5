#include "parameters/ParametersImpl.h"

// Entries without a name sort before every named entry; names compare by code point.
int PARAMETERSCompareByName(const void* a, const void* b) {
    const PARAMETEROBJECT* left = *static_cast<PARAMETEROBJECT* const*>(a);
    const PARAMETEROBJECT* right = *static_cast<PARAMETEROBJECT* const*>(b);
    if (!left->Name || !right->Name) return (left->Name ? 1 : 0) - (right->Name ? 1 : 0);
    wchar_t* leftText = nullptr;
    wchar_t* rightText = nullptr;
    int32_t length = 0;
    left->Name->GetText(&leftText, &length);
    right->Name->GetText(&rightText, &length);
    return std::wcscmp(leftText ? leftText : L"", rightText ? rightText : L"");
}
