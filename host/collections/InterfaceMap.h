// Interface maps: every host class lists the interfaces it answers in one constant table, and one
// function answers QueryInterface from it.
//
//   constexpr HOSTInterfaceEntry<CHostString> kInterfaces[] = {
//       HOSTAnswer<CHostString, ICreatableString>(IID_IString),
//       HOSTAnswer<CHostString, ICreatableString>(IID_ICreatableString),
//   };
//   HRESULT CHostString::QueryInterface(const IID& iid, void** object) {
//       return HOSTQueryInterface(this, kInterfaces, iid, object);
//   }
//
// A row holds the identifier's address, not its value: the identifier variables are computed when
// the binary is loaded. IUnknown is never listed: it answers as the first row's interface (whatever
// that row's facets), so that every IUnknown of one object is the same pointer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "host/collections/HostObject.h"

// Facets are bits of an object's own choosing (a workspace object's kind); a row answers only when
// the object has at least one of the row's facets. HOST_FACET_ALWAYS is reserved: a row holding it
// answers for every object.
constexpr unsigned HOST_FACET_ALWAYS = 1u << 31;

template <class T>
struct HOSTInterfaceEntry {
    const IID* iid;
    void* (*cast)(T* self);  // the interface the row hands out
    unsigned facets;
};

template <class T, class I>
void* HOSTCastTo(T* self) {
    return static_cast<I*>(self);
}

// The row "T answers `iid` with its base I, when it has one of `facets`". I is the interface `iid`
// names, or a base that derives from it when T reaches that interface along several paths.
template <class T, class I>
constexpr HOSTInterfaceEntry<T> HOSTAnswer(const IID& iid, unsigned facets = HOST_FACET_ALWAYS) {
    return HOSTInterfaceEntry<T>{&iid, &HOSTCastTo<T, I>, facets};
}

// The two halves of an identifier, each one 64-bit load.
inline uint64_t HOSTIIDLow(const IID& iid) {
    uint64_t word;
    std::memcpy(&word, iid.bytes, 8);
    return word;
}
inline uint64_t HOSTIIDHigh(const IID& iid) {
    uint64_t word;
    std::memcpy(&word, iid.bytes + 8, 8);
    return word;
}

// QueryInterface of `self`, an object with `facets`: E_POINTER for a null `object`; else the
// interface of the first row that names `iid` and fits the facets, with one reference added, and
// S_OK; else null and E_NOINTERFACE.
//
// Every path a command names asks each object on it for about a dozen interfaces, most of which it
// lacks, so the miss is the common case and is kept short. The function is inline and the table a
// constant of known size, so the walk unrolls into one compare per row against the identifier's
// first half, read from the identifier's own address, with a branch that is almost never taken;
// the second half and the facets are looked at only when the first half matches. (A loop over the
// table through one out-of-line function cost a path query about a quarter more than the
// hand-written comparisons it replaces; testing the facets first mispredicts, as they differ from
// object to object.) IUnknown is asked for often, to compare identities: it goes first.
template <class T, std::size_t N>
inline HRESULT HOSTQueryInterface(T* self, const HOSTInterfaceEntry<T> (&table)[N], const IID& iid, void** object,
                                  unsigned facets = 0) {
    if (object == nullptr) return E_POINTER;
    const uint64_t low = HOSTIIDLow(iid), high = HOSTIIDHigh(iid);
    const unsigned have = facets | HOST_FACET_ALWAYS;
    std::size_t row = 0;
    if (low != HOSTIIDLow(IID_IUnknown) || high != HOSTIIDHigh(IID_IUnknown)) {
#pragma GCC unroll 32
        for (; row < N; ++row)
            if (HOSTIIDLow(*table[row].iid) == low && HOSTIIDHigh(*table[row].iid) == high &&
                (table[row].facets & have) != 0)
                break;
        if (row == N) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
    }
    self->HostAddRef();
    *object = table[row].cast(self);
    return S_OK;
}
