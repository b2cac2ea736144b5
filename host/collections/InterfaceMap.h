// Interface maps: every host class lists the interfaces it answers in one constant table, and one
// function answers QueryInterface from it.
//
//   constexpr HOSTInterfaceEntry<CHostString> kInterfaces[] = {
//       HOSTAnswer<CHostString, ICreatableString>(IID_IString),
//       HOSTAnswer<CHostString, ICreatableString>(IID_ICreatableString),
//   };
//   HRESULT CHostString::QueryInterface(const IID& iid, void** object) {
//       return HOSTQueryInterface<kInterfaces>(this, iid, object);
//   }
//
// A row holds the identifier's address, not its value: the identifier variables are computed when
// the binary is loaded. IUnknown is never listed: it answers as the first row's interface (whatever
// that row's facets), so that every IUnknown of one object is the same pointer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <type_traits>
#include <utility>

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

// The interface of the first row that names the identifier (`low`, `high`) and fits the facets
// `have`, or null. One expression per row: the table is a template argument, so every row's
// identifier address, cast and facets are constants, and the rows unroll into straight-line code.
template <const auto& Table, class T, std::size_t... Row>
inline void* HOSTFindInterface(T* self, uint64_t low, uint64_t high, unsigned have, std::index_sequence<Row...>) {
    void* found = nullptr;
    (void)(((HOSTIIDLow(*Table[Row].iid) == low && HOSTIIDHigh(*Table[Row].iid) == high &&
             (Table[Row].facets & have) != 0 && (found = Table[Row].cast(self)) != nullptr)) ||
           ...);
    return found;
}

// QueryInterface of `self`, an object with `facets`, from its map `Table`: E_POINTER for a null
// `object`; else the interface of the first row that names `iid` and fits the facets, with one
// reference added, and S_OK; else null and E_NOINTERFACE.
//
// Every path a command names asks each object on it for about a dozen interfaces, most of which it
// lacks, so the miss is the common case and is kept short: one compare per row of the identifier's
// first half against the row's identifier, read from its own address, with a branch that is almost
// never taken; the second half and the facets are looked at only when the first half matches, and
// the cast is the compiler's own. Measured on a whole path query: a loop over the table in one
// out-of-line function cost about a quarter more than the hand-written comparisons this replaces;
// a cast called through the row's function pointer about 3% more than this; testing the facets
// before the identifier (they differ from object to object, so that branch mispredicts) about 5%.
// IUnknown is asked for often, to compare identities: it goes first.
template <const auto& Table, class T>
inline HRESULT HOSTQueryInterface(T* self, const IID& iid, void** object, unsigned facets = 0) {
    using Row = typename std::remove_reference_t<decltype(Table[0])>;
    static_assert(std::is_same_v<std::remove_const_t<Row>, HOSTInterfaceEntry<T>>, "the map is made for T");
    if (object == nullptr) return E_POINTER;
    const uint64_t low = HOSTIIDLow(iid), high = HOSTIIDHigh(iid);
    void* found = low == HOSTIIDLow(IID_IUnknown) && high == HOSTIIDHigh(IID_IUnknown)
                      ? Table[0].cast(self)
                      : HOSTFindInterface<Table>(self, low, high, facets | HOST_FACET_ALWAYS,
                                                 std::make_index_sequence<std::size(Table)>());
    *object = found;
    if (found == nullptr) return E_NOINTERFACE;
    self->HostAddRef();
    return S_OK;
}
