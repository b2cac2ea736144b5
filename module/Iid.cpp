#include "module/Iid.h"


IID __IIDOfc(const char* name) {
    unsigned __int128 value = 0;
    for (int k = 0; k < 25 && name[k] != '\0'; ++k) {
        const signed char c = static_cast<signed char>(name[k]);
        unsigned code = 27;
        if (c >= 'A' && c <= 'Z') code = static_cast<unsigned>(c - 64);
        else if (c >= 'a' && c <= 'z') code = static_cast<unsigned>(c - 96);
        else if (c >= '0' && c <= '4') code = static_cast<unsigned>(c - 20);
        value |= static_cast<unsigned __int128>(code) << (5 * k);
    }
    IID iid;
    std::memcpy(iid.bytes, &value, 16);  // x86-64 is little-endian: byte 0 is the least significant
    return iid;
}

const IID IID_IUnknown = {{0, 0, 0, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const IID IID_NULL = {{0}};

// Zero until the load-time initialisation below has run.
#define WKS_DEFINE_IID(name) IID IID_##name;
WKS_INTERFACE_LIST(WKS_DEFINE_IID)
#undef WKS_DEFINE_IID

namespace {
// Runs before every other static initialiser of this shared object (priority 101 is the first
// that is not reserved), so no code of the module ever sees an identifier that is still zero.
__attribute__((constructor(101))) void ComputeInterfaceIdentifiers() {
#define WKS_COMPUTE_IID(name) IID_##name = __IIDOfc(#name);
    WKS_INTERFACE_LIST(WKS_COMPUTE_IID)
#undef WKS_COMPUTE_IID
}
}  // namespace
