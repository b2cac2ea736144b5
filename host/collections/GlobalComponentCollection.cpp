// The process-wide global component collection, and CollectionsEx.so's own entry point.
#include <string>
#include <string_view>

#include "host/collections/ComponentList.h"
#include "host/collections/ComponentRegistry.h"
#include "host/collections/HostString.h"
#include "host/collections/InterfaceMap.h"

namespace {

class CGlobalComponentCollection final : public IComponentCollection, public CHostObject<CGlobalComponentCollection> {
public:
    HOST_FORWARD_REFCOUNT

    HRESULT QueryInterface(const IID& iid, void** object) override;

    HRESULT get_Count(int32_t* count) override {
        if (count == nullptr) return E_POINTER;
        *count = HOSTComponentCount();
        return S_OK;
    }

    // A component string that describes the component at `index`.
    HRESULT get_Item(int32_t index, IUnknown** item) override {
        if (item == nullptr) return E_POINTER;
        *item = nullptr;
        const std::wstring name = HOSTComponentName(index);
        if (name.empty()) return E_INVALIDARG;
        SmartPtr<IComponentString> described;
        HRESULT hr = HOSTCreateComponentString(nullptr, &IID_IComponentString, described.OutVoid());
        if (hr < 0) return hr;
        described->put_Field(1, tagREFString{static_cast<int32_t>(name.size()), name.c_str()});
        described->put_Field(4, tagREFString{11, L"Collections"});
        *item = described.Detach();
        return S_OK;
    }

    HRESULT get_Index(IString* name, int32_t* index) override {
        if (index == nullptr) return E_POINTER;
        *index = name ? HOSTComponentIndex(HOSTText(name)) : -1;
        return *index >= 0 ? S_OK : E_FAIL;
    }

    HRESULT get_ItemName(int32_t index, IString** name) override {
        if (name == nullptr) return E_POINTER;
        const std::wstring text = HOSTComponentName(index);
        *name = text.empty() ? nullptr : HOSTNewString(text.c_str());
        return *name ? S_OK : E_INVALIDARG;
    }

    HRESULT CreateComponent(tagREFString name, IID* iid, void** object) override {
        if (object == nullptr) return E_POINTER;
        if (name.length < 0 || (name.length > 0 && name.text == nullptr)) return E_INVALIDARG;
        const std::wstring_view wanted(name.text ? name.text : L"", static_cast<size_t>(name.length));
        if (m_LastVersion != HOSTComponentVersion() || wanted != m_LastName) {
            CREATORFUNCTION creator = HOSTFindComponent(wanted);
            if (creator == nullptr) return E_FAIL;
            m_LastVersion = 0;  // no registry version is 0: the cache is empty until it is whole
            try {
                m_LastName.assign(wanted);
            } catch (...) {
                return creator(nullptr, iid, object);
            }
            m_LastCreator = creator;
            m_LastVersion = HOSTComponentVersion();
        }
        return m_LastCreator(nullptr, iid, object);
    }

private:
    // The component made last and its creator, as of registry version m_LastVersion: a host asks
    // for the same component over and over (a reply stream for every query line).
    std::wstring m_LastName;
    CREATORFUNCTION m_LastCreator = nullptr;
    uint32_t m_LastVersion = 0;
};

constexpr HOSTInterfaceEntry<CGlobalComponentCollection> kInterfaces[] = {
    HOSTAnswer<CGlobalComponentCollection, IComponentCollection>(IID_IComponentCollection),
};

HRESULT CGlobalComponentCollection::QueryInterface(const IID& iid, void** object) {
    return HOSTQueryInterface<kInterfaces>(this, iid, object);
}

// The one instance. Released at unload; every later Release of it by other code that still
// holds a reference (the module's own slot, for one) finds a live object.
SmartPtr<IComponentCollection>& Singleton() {
    static SmartPtr<IComponentCollection> gCollection;
    return gCollection;
}

}  // namespace

HRESULT HOSTCreateGlobalComponentCollection(void*, IID* iid, void** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (iid == nullptr) return E_INVALIDARG;
    SmartPtr<IComponentCollection>& one = Singleton();
    if (!one) one.Attach(new (std::nothrow) CGlobalComponentCollection());
    if (!one) return E_FAIL;
    return one->QueryInterface(*iid, object);
}

// CollectionsEx.so's entry point: the creator of any registered component; `creator` is left as it
// was for an unknown name.
extern "C" HOST_API HRESULT CreateFunction(tagREFString name, void** creator) {
    if (creator == nullptr) return E_POINTER;
    if (name.length < 0 || (name.length > 0 && name.text == nullptr)) return E_INVALIDARG;
    CREATORFUNCTION found = HOSTFindComponent(std::wstring_view(name.text ? name.text : L"", static_cast<size_t>(name.length)));
    if (found == nullptr) return E_FAIL;
    *creator = reinterpret_cast<void*>(found);
    return S_OK;
}
