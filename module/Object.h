// CObject<T>: the primary interface of a component class, its reference count and its creator.
#pragma once

#include <atomic>
#include <new>

#include "module/interfaces/Component.h"

// The concrete class T derives from CObject<T> first, then from its Impl bases, and forwards the
// IUnknown operations of every base to its own QueryInterface, AddRef and Release. T provides
// QueryInterface and a default constructor that gives every field its initial value.
template <class T>
class CObject : public IUnknown {
public:
    virtual HRESULT FinalConstruct() { return S_OK; }  // slot 3
    virtual HRESULT FinalRelease() { return S_OK; }    // slot 4
    virtual HRESULT Lock() { return S_OK; }            // slot 5: calls arrive on the host's thread
    virtual HRESULT Unlock() { return S_OK; }          // slot 6

    int32_t AddRef() override {
        // Relaxed is enough: a new reference is made from an existing one, which keeps the object alive.
        return m_RefCount.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    int32_t Release() override {
        // Acquire-release: the call that reaches zero must see every write made through the other
        // references before it destroys the object.
        const int32_t count = m_RefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (count == 0) Destroy();
        return count;
    }

    // The creator handed out by CreateFunction. `outer` is not used (no aggregation).
    static HRESULT _CreateInstance(void* outer, IID* iid, void** object);

protected:
    CObject() = default;
    ~CObject() = default;

    void Destroy() {
        T* self = static_cast<T*>(this);
        self->FinalRelease();
        delete self;
    }

    std::atomic<int32_t> m_RefCount{1};  // 1 during creation
};

template <class T>
HRESULT CObject<T>::_CreateInstance(void*, IID* iid, void** object) {
    if (object == nullptr) return E_POINTER;
    if (iid == nullptr) return E_INVALIDARG;
    T* created = new (std::nothrow) T();
    if (created == nullptr) return E_FAIL;
    HRESULT hr = created->FinalConstruct();
    if (hr != S_OK) {
        created->Destroy();
        return hr;
    }
    *object = nullptr;
    hr = created->QueryInterface(*iid, object);
    if (hr != S_OK) {
        created->Destroy();
        *object = nullptr;
        return hr;
    }
    created->Release();  // the creation reference; the caller now holds the only one
    return S_OK;
}

// IObjectInfo for T: the component's name, fixed in the module's data.
template <class T>
class WKS_EXPORT IObjectInfoImpl : public IObjectInfo {
public:
    static tagREFString m_ObjectName;

    HRESULT GetName(int32_t, tagREFString* name) override {
        if (name == nullptr) return E_POINTER;
        *name = m_ObjectName;
        return S_OK;
    }
};
