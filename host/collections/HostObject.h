// The base of every reference-host object: its reference count and the process-wide count of live
// host objects, which tests read to prove that every reference was released.
//
// Threading: the reference host is single-threaded. Its objects are made, used and destroyed on
// the thread that runs the host (a single-threaded apartment), and every call into the module
// comes from that thread, so both counts are plain integers. The module's own objects keep their
// atomic counts; they may be shared with hosts that call from several threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

#include "module/Creator.h"
#include "module/SmartPtr.h"
#include "module/interfaces/All.h"

// CollectionsEx.so exports its host API; everything else in it is hidden.
#define HOST_API __attribute__((visibility("default")))

// The counts behind the functions below, shared by every binary of the process through
// CollectionsEx.so; read and changed inline, since every host object made and destroyed touches
// them (single-threaded, as the host is: see above).
struct HOSTCounts {
    int32_t live = 0;       // host objects alive now
    int64_t creations = 0;  // creations tried since the last HOSTFailCreation
    int64_t failing = 0;    // the creation that must fail; 0: none
};
extern HOST_API HOSTCounts gHOSTCounts;

inline void HOSTObjectCreated() { ++gHOSTCounts.live; }
inline void HOSTObjectDestroyed() { --gHOSTCounts.live; }
// Host objects alive now, in this process (all made by CollectionsEx.so and by code linked to it).
extern "C" HOST_API int32_t HOSTLiveObjects();

// Fault injection. Every host object is made through one allocation (CHostObject::operator new and
// CHostRecycled::operator new), which counts it. HOSTFailCreation(n) makes the n-th creation from
// now on (1 is the next one) fail exactly as an exhausted memory would: the allocation yields null,
// so a creator answers E_FAIL and HOSTNewString null; later creations succeed again. 0 turns it off.
// HOSTCreationCount() is the number of creations tried since the last HOSTFailCreation, the failed
// one included.
extern "C" HOST_API void HOSTFailCreation(int64_t n);
extern "C" HOST_API int64_t HOSTCreationCount();
// Counts one creation; false when it is the one that must fail.
inline bool HOSTMayCreate() { return ++gHOSTCounts.creations != gHOSTCounts.failing; }

// Adds or replaces a component that the global component collection creates by name.
HOST_API void HOSTRegisterComponent(const wchar_t* name, CREATORFUNCTION creator);

// T derives from its interfaces and from CHostObject<T>, is final, and answers QueryInterface from
// its interface map (InterfaceMap.h); HOST_FORWARD_REFCOUNT supplies AddRef and Release for every
// interface base.
template <class T>
class CHostObject {
public:
    static void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
        return HOSTMayCreate() ? ::operator new(size, std::nothrow) : nullptr;
    }
    static void* operator new(std::size_t size) {
        if (!HOSTMayCreate()) throw std::bad_alloc();
        return ::operator new(size);
    }
    static void operator delete(void* block) noexcept { ::operator delete(block); }
    static void operator delete(void* block, const std::nothrow_t&) noexcept { ::operator delete(block); }

    int32_t HostAddRef() { return ++m_RefCount; }
    int32_t HostRelease() {
        const int32_t count = --m_RefCount;
        if (count == 0) delete static_cast<T*>(this);
        return count;
    }

protected:
    CHostObject() { HOSTObjectCreated(); }
    ~CHostObject() { HOSTObjectDestroyed(); }

private:
    int32_t m_RefCount = 1;
};

#define HOST_FORWARD_REFCOUNT                             \
    int32_t AddRef() override { return HostAddRef(); }   \
    int32_t Release() override { return HostRelease(); }

// Makes a T and hands out its interface `iid`; the creation reference is dropped, so on success
// the caller holds the only one, and on failure nothing is left behind.
template <class T, class... Args>
HRESULT HOSTCreate(const IID* iid, void** object, Args&&... args) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (iid == nullptr) return E_INVALIDARG;
    T* made = new (std::nothrow) T(static_cast<Args&&>(args)...);
    if (made == nullptr) return E_FAIL;
    const HRESULT hr = made->QueryInterface(*iid, object);
    made->HostRelease();
    return hr;
}
