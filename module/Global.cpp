// The host's component collection, loading of component modules, creation by name and the
// lazily made factory components.
#include <dlfcn.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <cwchar>

#include "module/Module.h"
#include "text/Conversions.h"
#include "text/RefString.h"

SmartPtr<IComponentCollection> gGlobalComponentCollection;

namespace {
constexpr tagREFString kCollectionsModule = {13, L"CollectionsEx"};
constexpr int32_t kMaxModuleName = 250;  // bytes: "./" + name + ".so" + NUL fit the 256-byte path buffer

typedef HRESULT (*MODULEENTRY)(tagREFString name, void** creator);
}  // namespace

tagREFString REFLiteral(const wchar_t* terminated) {
    return tagREFString{static_cast<int32_t>(std::wcslen(terminated)), terminated};
}

// The collection a host gave stays until the host replaces it; one made here is published once,
// so that threads racing to make it agree on one.
IComponentCollection* GLOBALComponents() {
    if (gGlobalComponentCollection.Published() == nullptr) {
        CREATORFUNCTION creator = MODULECreateFunction(kCollectionsModule, REFLiteral(L"GlobalComponentCollection"));
        if (creator != nullptr) {
            SmartPtr<IComponentCollection> made;
            creator(nullptr, &IID_IComponentCollection, made.OutVoid());
            if (made && gGlobalComponentCollection.PublishOnce(made.get())) made.Detach();  // the global keeps it
        }
    }
    IComponentCollection* collection = gGlobalComponentCollection.Published();
    if (collection) collection->AddRef();
    return collection;
}

// Left to us: a name is refused (null, nothing printed, nothing loaded) unless it converts whole,
// character by character, to multibyte text of at most 250 bytes, so that "./" + name + ".so"
// fits the 256-byte path buffer. A name cut short by a character the locale cannot spell, by a
// zero character or by the buffer's end would load some other file.
CREATORFUNCTION MODULECreateFunction(tagREFString module, tagREFString component) {
    if (module.length < 0 || module.length > kMaxModuleName) return nullptr;
    if (module.length > 0 && module.text == nullptr) return nullptr;
    char path[256] = "./";
    size_t used = 2;
    const size_t end = 2 + kMaxModuleName;
    std::mbstate_t state{};
    char bytes[MB_LEN_MAX];
    for (int32_t i = 0; i < module.length; ++i) {
        if (module.text[i] == L'\0') return nullptr;
        const size_t n = std::wcrtomb(bytes, module.text[i], &state);
        if (n == static_cast<size_t>(-1) || n > end - used) return nullptr;
        std::memcpy(path + used, bytes, n);
        used += n;
    }
    std::memcpy(path + used, ".so", 4);

    void* handle = dlopen(path, RTLD_NOW);  // never closed: a module once loaded stays loaded
    if (handle == nullptr) {
        std::printf("Module not available %s, error %s\n", path, dlerror());
        std::fflush(stdout);
        dlerror();
        return nullptr;
    }
    MODULEENTRY entry = reinterpret_cast<MODULEENTRY>(dlsym(handle, "CreateFunction"));
    if (entry == nullptr) return nullptr;
    void* creator = nullptr;
    entry(component, &creator);
    return reinterpret_cast<CREATORFUNCTION>(creator);
}

IUnknown* CreateObject(tagREFString name, IID* iid) {
    SmartPtr<IComponentCollection> collection(GLOBALComponents());
    if (!collection) return nullptr;
    IUnknown* object = nullptr;
    collection->CreateComponent(name, iid, reinterpret_cast<void**>(&object));
    return object;
}

namespace wksdetail {

// The component object is configured before it is published, so no thread ever sees it
// half-made; of threads racing to make it, the first to publish wins and the others release theirs.
void* CreateFromCollections(SmartPtr<IComponentString>& slot, const wchar_t* component, int32_t length,
                            const IID& iid) {
    if (slot.Published() == nullptr) {
        CREATORFUNCTION creator = MODULECreateFunction(kCollectionsModule, REFLiteral(L"ComponentString"));
        if (creator != nullptr) {
            SmartPtr<IComponentString> made;
            creator(nullptr, &IID_IComponentString, made.OutVoid());
            if (made) {
                made->put_Field(4, tagREFString{11, L"Collections"});
                made->put_Field(1, tagREFString{length, component});
                if (slot.PublishOnce(made.get())) made.Detach();
            }
        }
    }
    IComponentString* factory = slot.Published();
    if (factory == nullptr) return nullptr;
    void* object = nullptr;
    factory->CreateInstance(const_cast<IID*>(&iid), &object);
    return object;
}

IComponentString* FindParametersCreatable() {
    static const char kName[] = "ParametersCreatable";
    SmartPtr<IString> name(ISCreate(kName, static_cast<int>(sizeof kName - 1)));
    if (!name) return nullptr;
    SmartPtr<IComponentCollection> collection(GLOBALComponents());
    if (!collection) return nullptr;
    int32_t index = 0;
    if (collection->get_Index(name.get(), &index) < 0) return nullptr;
    SmartPtr<IUnknown> item;
    collection->get_Item(index, item.Out());
    return QueryAs<IComponentString>(item.get(), IID_IComponentString).Detach();
}

}  // namespace wksdetail
