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

// A map laid out for lookup: a direct-mapped table of slots, one for every identifier the map
// names and one for IUnknown, each slot holding its identifier, the facets of the first row that
// names it, and where that row's interface lies in the object (a static_cast to a base of a final
// class moves the pointer by the same amount for every object). The slot of an identifier is a
// multiplicative hash whose multiplier is chosen when the map is laid out, so that no two
// identifiers of the map share a slot: a lookup reads one slot and either finds the identifier
// there or knows that the map does not name it. Maps are laid out at their class's first
// QueryInterface: the identifier variables are computed when the binary is loaded, so they are not
// constants here.
template <std::size_t Rows>
struct HOSTInterfaceSlots {
    // At least four slots for every identifier: a multiplier that spreads them is found in a few tries.
    static constexpr unsigned kBits = [] {
        unsigned bits = 3;
        while ((std::size_t{1} << bits) < 4 * (Rows + 1)) ++bits;
        return bits;
    }();
    static constexpr std::size_t kSlots = std::size_t{1} << kBits;

    std::size_t Index(uint64_t low, uint64_t high) const {
        // Identifiers pack the letters of names: related names share a first half, so both mix in.
        return static_cast<std::size_t>(((low + high * 0x9E3779B97F4A7C15ull) * multiplier) >> (64 - kBits));
    }

    struct Slot {
        uint64_t low = 0, high = 0;
        unsigned facets = 0;  // 0: no row names the identifier (an empty slot)
        int32_t offset = 0;   // of the interface from the object's address
        bool last = true;     // no later row names the same identifier
    };
    Slot slot[kSlots];
    uint64_t multiplier = 0;  // after the slots, which thus start on a boundary of their size
};

// How a map answers: not laid out yet; from its slots; or, when no multiplier kept the map's
// identifiers apart, by a scan of its rows.
enum HOSTMapMode : unsigned char { HOST_MAP_NEW, HOST_MAP_SLOTS, HOST_MAP_ROWS };

// The interface of the first row of `Table` that names the identifier (`low`, `high`) and fits the
// facets `have`, or null: rows in table order, for the rare identifier that several rows name.
template <const auto& Table, class T>
inline void* HOSTScanRows(T* self, uint64_t low, uint64_t high, unsigned have) {
    for (const auto& row : Table)
        if (HOSTIIDLow(*row.iid) == low && HOSTIIDHigh(*row.iid) == high && (row.facets & have) != 0)
            return row.cast(self);
    return nullptr;
}

// The slots of one map. Laid out by the first QueryInterface of any object of the class, once even
// when threads race; after that a lookup reads them with one plain load of the mode, so that a
// QueryInterface makes no call and saves no registers.
template <const auto& Table, class T>
class HOSTMapSlots {
public:
    using Slots = HOSTInterfaceSlots<std::size(Table)>;
    static HOSTMapMode Mode() { return gMode.load(std::memory_order_acquire); }
    static const Slots& Get() { return gSlots; }
    __attribute__((noinline)) static void LayOut(T* self) {
        static std::once_flag once;
        std::call_once(once, [self] {
            gMode.store(Fill(self) ? HOST_MAP_SLOTS : HOST_MAP_ROWS, std::memory_order_release);
        });
    }

private:
    // Tries multipliers until every identifier of the map has a slot of its own. IUnknown answers
    // as the first row's interface, whatever that row's facets.
    static bool Fill(T* self) {
        const auto offsetOf = [self](const auto& row) {
            return static_cast<int32_t>(static_cast<char*>(row.cast(self)) - reinterpret_cast<char*>(self));
        };
        uint64_t seed = 0x2545F4914F6CDD1Dull;
        for (int attempt = 0; attempt < 4096; ++attempt) {
            seed += 0x9E3779B97F4A7C15ull;  // splitmix64: odd multipliers spread over the whole range
            uint64_t z = (seed ^ (seed >> 30)) * 0xBF58476D1CE4E5B9ull;
            z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
            gSlots = Slots{};
            gSlots.multiplier = (z ^ (z >> 31)) | 1;
            bool apart = Place(IID_IUnknown, HOST_FACET_ALWAYS, offsetOf(Table[0]), true);
            for (std::size_t r = 0; r < std::size(Table) && apart; ++r) {
                const auto& row = Table[r];
                // A row of no facets answers for no object; IUnknown has its slot already.
                if (row.facets == 0 || *row.iid == IID_IUnknown) continue;
                const auto names = [&row](const auto& other) { return other.facets != 0 && *other.iid == *row.iid; };
                bool earlier = false, last = true;
                for (std::size_t e = 0; e < r; ++e) earlier = earlier || names(Table[e]);
                for (std::size_t l = r + 1; l < std::size(Table); ++l) last = last && !names(Table[l]);
                if (!earlier) apart = Place(*row.iid, row.facets, offsetOf(row), last);  // a later row: a scan
            }
            if (apart) return true;
        }
        return false;
    }

    // Puts the identifier into its slot; false when another identifier holds it.
    static bool Place(const IID& iid, unsigned facets, int32_t offset, bool last) {
        const uint64_t low = HOSTIIDLow(iid), high = HOSTIIDHigh(iid);
        auto& slot = gSlots.slot[gSlots.Index(low, high)];
        if (slot.facets != 0) return false;
        slot = typename Slots::Slot{low, high, facets, offset, last};
        return true;
    }

    static inline Slots gSlots;
    static inline std::atomic<HOSTMapMode> gMode{HOST_MAP_NEW};
};

// QueryInterface of `self`, an object with `facets`, from its map `Table`: E_POINTER for a null
// `object`; else the interface of the first row that names `iid` and fits the facets, with one
// reference added, and S_OK; else null and E_NOINTERFACE.
template <const auto& Table, class T>
inline HRESULT HOSTQueryInterface(T* self, const IID& iid, void** object, unsigned facets = 0);

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

// A hashed map's QueryInterface before its slots are laid out, when its rows are scanned, or for an
// identifier that several rows name. Out of line, so that the common path saves no registers.
template <const auto& Table, class T>
__attribute__((noinline)) HRESULT HOSTQueryInterfaceSlow(T* self, const IID& iid, void** object, unsigned facets) {
    using Map = HOSTMapSlots<Table, T>;
    if (Map::Mode() == HOST_MAP_NEW) {
        Map::LayOut(self);
        if (Map::Mode() == HOST_MAP_SLOTS) return HOSTQueryInterface<Table>(self, iid, object, facets);
    }
    void* found = iid == IID_IUnknown ? Table[0].cast(self)
                                      : HOSTScanRows<Table>(self, HOSTIIDLow(iid), HOSTIIDHigh(iid), facets | HOST_FACET_ALWAYS);
    *object = found;
    if (found == nullptr) return E_NOINTERFACE;
    self->HostAddRef();
    return S_OK;
}

template <const auto& Table, class T>
inline HRESULT HOSTQueryInterface(T* self, const IID& iid, void** object, unsigned facets) {
    using Row = typename std::remove_reference_t<decltype(Table[0])>;
    static_assert(std::is_same_v<std::remove_const_t<Row>, HOSTInterfaceEntry<T>>, "the map is made for T");
    if (object == nullptr) return E_POINTER;
    const uint64_t low = HOSTIIDLow(iid), high = HOSTIIDHigh(iid);
    void* found = nullptr;
    if constexpr (std::size(Table) > kHOSTScannedRows) {
        using Map = HOSTMapSlots<Table, T>;
        if (Map::Mode() != HOST_MAP_SLOTS) return HOSTQueryInterfaceSlow<Table>(self, iid, object, facets);
        // Most questions are misses (every path asks each object on it for about a dozen interfaces,
        // most of which it lacks): they end at the slot's identifier.
        const auto& slots = Map::Get();
        const auto& slot = slots.slot[slots.Index(low, high)];
        if (slot.low == low && slot.high == high) {
            if ((slot.facets & (facets | HOST_FACET_ALWAYS)) != 0) found = reinterpret_cast<char*>(self) + slot.offset;
            else if (!slot.last) return HOSTQueryInterfaceSlow<Table>(self, iid, object, facets);
        }
    } else if (low == HOSTIIDLow(IID_IUnknown) && high == HOSTIIDHigh(IID_IUnknown)) {
        found = Table[0].cast(self);
    } else {
        found = HOSTScanInterface<Table>(self, low, high, facets | HOST_FACET_ALWAYS,
                                         std::make_index_sequence<std::size(Table)>());
    }
    *object = found;
    if (found == nullptr) return E_NOINTERFACE;
    self->HostAddRef();
    return S_OK;
}
