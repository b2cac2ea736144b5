// Finds an entry of a list by its name without copying the name: a table of positions into the
// owner's list, open-addressed and hashed by the name's characters. Lists of a few entries are
// scanned instead and cost no table at all.
//
// The index owns no names: `nameAt(position)` yields the owner's name of an entry as a
// std::wstring_view, so the owner's list must not change behind the index's back (entries are only
// appended, through Add).
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

class CNameIndex {
public:
    // The position of the first entry named `name` among the first `count`, or -1.
    template <class NameAt>
    int32_t Find(std::wstring_view name, int32_t count, NameAt&& nameAt) const {
        if (m_Slots.empty()) {
            for (int32_t i = 0; i < count; ++i)
                if (nameAt(i) == name) return i;
            return -1;
        }
        const uint32_t hash = Hash(name);
        for (size_t s = hash & Mask();; s = (s + 1) & Mask()) {
            const Slot& slot = m_Slots[s];
            if (slot.position < 0) return -1;
            if (slot.hash == hash && nameAt(slot.position) == name) return slot.position;
        }
    }

    // Indexes the entry at `position` (the next one, `count - 1`), named `name`. An entry whose
    // name is already indexed stays unreachable by name: the first of a name wins.
    template <class NameAt>
    void Add(std::wstring_view name, int32_t position, int32_t count, NameAt&& nameAt) {
        if (count <= kScanned) return;
        if (m_Slots.empty() || 2 * static_cast<size_t>(count) > m_Slots.size()) {
            size_t slots = 16;
            while (slots < 4 * static_cast<size_t>(count)) slots *= 2;  // a quarter to half full
            m_Slots.assign(slots, Slot{});
            for (int32_t i = 0; i < count; ++i) Insert(nameAt(i), i, nameAt);
            return;
        }
        Insert(name, position, nameAt);
    }

private:
    static constexpr int32_t kScanned = 8;  // lists up to this long are scanned
    struct Slot {
        uint32_t hash = 0;
        int32_t position = -1;  // -1: empty
    };

    // FNV-1a over the characters.
    static uint32_t Hash(std::wstring_view name) {
        uint32_t hash = 2166136261u;
        for (wchar_t c : name) hash = (hash ^ static_cast<uint32_t>(c)) * 16777619u;
        return hash;
    }
    size_t Mask() const { return m_Slots.size() - 1; }

    template <class NameAt>
    void Insert(std::wstring_view name, int32_t position, NameAt& nameAt) {
        const uint32_t hash = Hash(name);
        size_t s = hash & Mask();
        for (; m_Slots[s].position >= 0; s = (s + 1) & Mask())
            if (m_Slots[s].hash == hash && nameAt(m_Slots[s].position) == name) return;  // first one wins
        m_Slots[s] = Slot{hash, position};
    }

    std::vector<Slot> m_Slots;
};
