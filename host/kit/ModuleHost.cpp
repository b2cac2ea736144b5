#include "host/kit/ModuleHost.h"

#include <dlfcn.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cwchar>

#include "host/collections/ComponentList.h"

std::string HOSTProgramFolder() {
    char path[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0) return std::string();
    const std::string program(path, static_cast<size_t>(n));
    const size_t slash = program.rfind('/');
    return slash == std::string::npos ? std::string() : program.substr(0, slash == 0 ? 1 : slash);
}

bool HOSTChangeToFolderOf(const std::string& file) {
    struct stat info {};
    if (stat(file.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) return chdir(file.c_str()) == 0;
    const size_t slash = file.rfind('/');
    if (slash == std::string::npos) return true;  // already relative to the current directory
    const std::string folder = slash == 0 ? std::string("/") : file.substr(0, slash);
    return chdir(folder.c_str()) == 0;
}

CModuleHost::~CModuleHost() {
    if (m_Initialize != nullptr) m_Initialize(nullptr, nullptr);
}

bool CModuleHost::Load(const std::string& path, std::string& error) {
    if (Loaded()) {
        error = "a module is already loaded";
        return false;
    }
    // dlopen searches the library path for a bare name; a host names its module file exactly.
    const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
    void* handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);  // never closed: see the destructor
    if (handle == nullptr) {
        const char* why = dlerror();
        error = why ? why : ("cannot load " + file);
        return false;
    }
    auto initialize = reinterpret_cast<InitializeFn>(dlsym(handle, "_Z16InitializeModulePvP20IComponentCollection"));
    auto entry = reinterpret_cast<EntryFn>(dlsym(handle, "CreateFunction"));
    if (initialize == nullptr || entry == nullptr) {
        error = file + " is not a component module (InitializeModule or CreateFunction is missing)";
        return false;
    }
    SmartPtr<IComponentCollection> components;
    const HRESULT made = HOSTCreateGlobalComponentCollection(nullptr, &IID_IComponentCollection, components.OutVoid());
    if (made < 0 || !components) {
        error = "the host's component collection could not be made";
        return false;
    }
    if (initialize(nullptr, components.get()) != S_OK) {
        error = file + ": InitializeModule failed";
        return false;
    }
    m_Initialize = initialize;
    m_Entry = entry;
    m_Components = std::move(components);
    return true;
}

HRESULT CModuleHost::Create(const wchar_t* component, const IID& iid, void** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (!Loaded() || component == nullptr) return E_FAIL;
    void* creator = nullptr;
    const HRESULT found = m_Entry(tagREFString{static_cast<int32_t>(std::wcslen(component)), component}, &creator);
    if (found < 0) return found;
    if (creator == nullptr) return E_FAIL;
    IID wanted = iid;
    return reinterpret_cast<CREATORFUNCTION>(creator)(nullptr, &wanted, object);
}

HRESULT CProtocolSession::Open(CModuleHost& host, INamedCollection* names,
                               const std::function<HRESULT(IProtocolManager*)>& prepare) {
    Close();
    SmartPtr<IProtocolManager> manager;
    const HRESULT made = host.Create(L"WKSProtocol", IID_IProtocolManager, manager.OutVoid());
    if (made < 0) return made;
    if (!manager) return E_FAIL;
    if (prepare)
        if (const HRESULT prepared = prepare(manager.get()); prepared < 0) return prepared;
    SmartPtr<IBindableObject> bindable = QueryAs<IBindableObject>(manager.get(), IID_IBindableObject);
    if (!bindable) return E_NOINTERFACE;
    const HRESULT bound = bindable->Bind(names, nullptr);
    if (bound < 0) return bound;
    m_Manager = std::move(manager);
    return S_OK;
}
