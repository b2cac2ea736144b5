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

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <mutex>
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

// A map laid out for lookup: an open-addressed table of slots keyed by a hash of the identifier,
// each slot holding a row's identifier, facets, and where its interface lies in the object (a
// static_cast to a base of a final class moves the pointer by the same amount for every object).
// A map's slots are laid out at its class's first QueryInterface: the identifier variables are
// computed when the binary is loaded, so they are not constants here. Rows go in in table order
// and a lookup walks the probe sequence in that order, so the first row that names an identifier
// and fits the facets is still the one that answers.
template <std::size_t Rows>
struct HOSTInterfaceSlots {
    static constexpr std::size_t kSlots = [] {
        std::size_t slots = 8;
        while (slots < 4 * Rows) slots *= 2;  // at most a quarter full: a miss mostly ends at once
        return slots;
    }();

    static std::size_t Hash(uint64_t low, uint64_t high) {
        // Identifiers pack the letters of names: related names share a first half, so both mix in.
        return static_cast<std::size_t>(((low ^ (high * 0x9E3779B97F4A7C15ull)) * 0xC2B2AE3D27D4EB4Full) >> 40) &
               (kSlots - 1);
    }

    struct Slot {
        uint64_t low = 0, high = 0;
        unsigned facets = 0;  // 0: an empty slot
        int32_t offset = 0;   // of the interface from the object's address
        bool last = true;     // no later row names the same identifier
    };
    Slot slot[kSlots];
};

// The slots of one map. Laid out by the first QueryInterface of any object of the class, once even
// when threads race; after that a lookup reads them with one plain load of the flag, so that a
// QueryInterface makes no call and saves no registers.
template <const auto& Table, class T>
class HOSTMapSlots {
public:
    using Slots = HOSTInterfaceSlots<std::size(Table)>;
    static bool Ready() { return gReady.load(std::memory_order_acquire); }
    static const Slots& Get() { return gSlots; }
    __attribute__((noinline)) static void LayOut(T* self) {
        static std::once_flag once;
        std::call_once(once, [self] {
            for (std::size_t r = 0; r < std::size(Table); ++r) {
                const auto& row = Table[r];
                if (row.facets == 0) continue;  // answers for no object
                const uint64_t low = HOSTIIDLow(*row.iid), high = HOSTIIDHigh(*row.iid);
                bool last = true;
                for (std::size_t later = r + 1; later < std::size(Table); ++later)
                    last = last && !(Table[later].facets != 0 && *Table[later].iid == *row.iid);
                std::size_t s = Slots::Hash(low, high);
                while (gSlots.slot[s].facets != 0) s = (s + 1) & (Slots::kSlots - 1);
                const auto offset = static_cast<char*>(row.cast(self)) - reinterpret_cast<char*>(self);
                gSlots.slot[s] = typename Slots::Slot{low, high, row.facets, static_cast<int32_t>(offset), last};
            }
            gReady.store(true, std::memory_order_release);
        });
    }

private:
    static inline Slots gSlots;
    static inline std::atomic<bool> gReady{false};
};

// The interface of the first row that names the identifier (`low`, `high`) and fits the facets
// `have`, or null.
//
// Every path a command names asks each object on it for about a dozen interfaces, most of which it
// lacks, so the miss is the common case and is kept short: one hash of the identifier and a probe
// or two. A hit costs one compare more and no call. Measured on a whole path query, a workspace
// object's QueryInterface (16 rows) took about 47 instructions a call this way against about 65
// for one compare per row; a filter in front of the probe, and a layout per facet set, made it
// slower in time for all their saved instructions, and were dropped.
template <const auto& Table, class T>
inline void* HOSTFindInterface(T* self, uint64_t low, uint64_t high, unsigned have) {
    using Slots = typename HOSTMapSlots<Table, T>::Slots;
    const Slots& slots = HOSTMapSlots<Table, T>::Get();
    for (std::size_t s = Slots::Hash(low, high); slots.slot[s].facets != 0; s = (s + 1) & (Slots::kSlots - 1)) {
        const auto& slot = slots.slot[s];
        if (slot.low == low && slot.high == high) {
            if ((slot.facets & have) != 0) return reinterpret_cast<char*>(self) + slot.offset;
            if (slot.last) return nullptr;  // the object lacks the facets of the one row that names it
        }
    }
    return nullptr;
}

// QueryInterface of `self`, an object with `facets`, from its map `Table`: E_POINTER for a null
// `object`; else the interface of the first row that names `iid` and fits the facets, with one
// reference added, and S_OK; else null and E_NOINTERFACE. IUnknown is asked for often, to compare
// identities: it goes first.
template <const auto& Table, class T>
inline HRESULT HOSTQueryInterface(T* self, const IID& iid, void** object, unsigned facets = 0);

// The first QueryInterface of a class lays its map out, then asks again. Out of line, so that the
// common path saves no registers.
template <const auto& Table, class T>
__attribute__((noinline)) HRESULT HOSTQueryInterfaceFirst(T* self, const IID& iid, void** object, unsigned facets) {
    HOSTMapSlots<Table, T>::LayOut(self);
    return HOSTQueryInterface<Table>(self, iid, object, facets);
}

// Maps of a few rows are not hashed: one compare of each row's first half, unrolled (the table is
// a template argument, so every row's identifier address, cast and facets are constants).
constexpr std::size_t kHOSTScannedRows = 3;

template <const auto& Table, class T, std::size_t... Row>
inline void* HOSTScanInterface(T* self, uint64_t low, uint64_t high, unsigned have, std::index_sequence<Row...>) {
    void* found = nullptr;
    (void)(((HOSTIIDLow(*Table[Row].iid) == low && HOSTIIDHigh(*Table[Row].iid) == high &&
             (Table[Row].facets & have) != 0 && (found = Table[Row].cast(self)) != nullptr)) ||
           ...);
    return found;
}

template <const auto& Table, class T>
inline HRESULT HOSTQueryInterface(T* self, const IID& iid, void** object, unsigned facets) {
    using Row = typename std::remove_reference_t<decltype(Table[0])>;
    static_assert(std::is_same_v<std::remove_const_t<Row>, HOSTInterfaceEntry<T>>, "the map is made for T");
    constexpr bool kHashed = std::size(Table) > kHOSTScannedRows;
    if (object == nullptr) return E_POINTER;
    if constexpr (kHashed) {
        if (!HOSTMapSlots<Table, T>::Ready()) return HOSTQueryInterfaceFirst<Table>(self, iid, object, facets);
    }
    const uint64_t low = HOSTIIDLow(iid), high = HOSTIIDHigh(iid);
    void* found = nullptr;
    if (low == HOSTIIDLow(IID_IUnknown) && high == HOSTIIDHigh(IID_IUnknown))
        found = Table[0].cast(self);
    else if constexpr (kHashed)
        found = HOSTFindInterface<Table>(self, low, high, facets | HOST_FACET_ALWAYS);
    else
        found = HOSTScanInterface<Table>(self, low, high, facets | HOST_FACET_ALWAYS,
                                         std::make_index_sequence<std::size(Table)>());
    *object = found;
    if (found == nullptr) return E_NOINTERFACE;
    self->HostAddRef();
    return S_OK;
}
