// Owning holders of one interface reference.
#pragma once

#include <utility>

#include "module/interfaces/Unknown.h"

// Holds one reference; releases it and becomes null when destroyed or reset. The layout is a
// single pointer, so a module-wide holder can stand where a host expects a plain pointer.
template <class I>
class SmartPtr {
public:
    constexpr SmartPtr() noexcept : m_Ptr(nullptr) {}
    // Takes over a reference the caller already owns (a creator's or a getter's out-parameter).
    explicit SmartPtr(I* owned) noexcept : m_Ptr(owned) {}
    SmartPtr(const SmartPtr& other) noexcept : m_Ptr(other.m_Ptr) { if (m_Ptr) m_Ptr->AddRef(); }
    SmartPtr(SmartPtr&& other) noexcept : m_Ptr(other.m_Ptr) { other.m_Ptr = nullptr; }
    ~SmartPtr() { Reset(); }
    SmartPtr& operator=(SmartPtr other) noexcept { std::swap(m_Ptr, other.m_Ptr); return *this; }

    // Releases the held reference. The pointer is cleared before Release so that a destructor
    // reached through Release never sees a dangling holder.
    void Reset() noexcept {
        I* old = m_Ptr;
        m_Ptr = nullptr;
        if (old) old->Release();
    }
    void Attach(I* owned) noexcept { Reset(); m_Ptr = owned; }
    // Adds a reference of its own.
    void Assign(I* shared) noexcept {
        if (shared) shared->AddRef();
        Attach(shared);
    }
    I* Detach() noexcept { I* p = m_Ptr; m_Ptr = nullptr; return p; }
    // Hands out the pointer with a new reference for the caller.
    I* Copy() const noexcept { if (m_Ptr) m_Ptr->AddRef(); return m_Ptr; }

    // For out-parameters: releases what was held and lets the callee fill in a new reference.
    I** Out() noexcept { Reset(); return &m_Ptr; }
    void** OutVoid() noexcept { Reset(); return reinterpret_cast<void**>(&m_Ptr); }

    // For process-wide slots that several threads may fill at once: stores `owned` only if the
    // holder is still empty, as one atomic step, and says whether it did. The loser keeps (and
    // releases) its own reference. Published() reads what a winner stored.
    bool PublishOnce(I* owned) noexcept {
        I* expected = nullptr;
        return __atomic_compare_exchange_n(&m_Ptr, &expected, owned, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
    }
    I* Published() const noexcept { return __atomic_load_n(&m_Ptr, __ATOMIC_ACQUIRE); }

    I* get() const noexcept { return m_Ptr; }
    I* operator->() const noexcept { return m_Ptr; }
    explicit operator bool() const noexcept { return m_Ptr != nullptr; }

private:
    I* m_Ptr;
};

// Asks `object` for interface `iid`; null when the object is null or lacks the interface.
// Always inline: a command asks some forty of these a line, and the call is most of their cost.
template <class I>
__attribute__((always_inline)) inline SmartPtr<I> QueryAs(IUnknown* object, const IID& iid) {
    SmartPtr<I> result;
    if (object && object->QueryInterface(iid, result.OutVoid()) < 0) result.Reset();
    return result;
}

// A holder that asks whatever it is given for its interface `*Id`: assigning an object keeps a
// new reference to that interface (null when the object is null or lacks it) and releases the
// one held before. The assigning code keeps, and later releases, its own reference.
template <class I, IID* Id>
class SmartPtrIID : public SmartPtr<I> {
public:
    SmartPtrIID& operator=(IUnknown* object) {
        SmartPtr<I> queried = QueryAs<I>(object, *Id);
        this->Attach(queried.Detach());
        return *this;
    }
};
