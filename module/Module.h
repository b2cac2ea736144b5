// The module's boundary: entry points, the host's component collection, and creation of
// components by name and by module.
#pragma once

#include "module/Creator.h"
#include "module/SmartPtr.h"
#include "module/interfaces/Collections.h"
#include "module/interfaces/Parameters.h"
#include "text/TagRefString.h"

// The host's component collection; null until InitializeModule or the first GLOBALComponents.
extern WKS_EXPORT SmartPtr<IComponentCollection> gGlobalComponentCollection;

// Keeps `collection` (null empties the global). Returns 0.
WKS_EXPORT HRESULT InitializeModule(void* host, IComponentCollection* collection);

// Hands out the creator of the one component this module answers to; 0x80004005 for any other
// name, and then `creator` is left as it was.
extern "C" WKS_EXPORT HRESULT CreateFunction(tagREFString name, void** creator);

// The collection with a new reference for the caller, made through ./CollectionsEx.so when the
// host gave none; null if it cannot be had.
IComponentCollection* GLOBALComponents();

// Loads "./" + module + ".so" and asks its CreateFunction for `component`'s creator. Prints
// "Module not available %s, error %s\n" on standard output when the file cannot be loaded.
// Module names over 250 characters are refused (null). A loaded module stays loaded.
CREATORFUNCTION MODULECreateFunction(tagREFString module, tagREFString component);

// A new object of the named component through the global collection, or null.
IUnknown* CreateObject(tagREFString name, IID* iid);

// Convenience for literal names.
tagREFString REFLiteral(const wchar_t* terminated);

class BASEObject {
public:
    // A new standalone parameter collection from the host's "ParametersCreatable" component,
    // found by name in the global collection once per process; null when there is none.
    static WKS_SHARED IParametersCreatable* CreateParameters();
};

namespace wksdetail {
// Finds "ParametersCreatable" in the global collection (see CreateParameters); null if absent.
IComponentString* FindParametersCreatable();
}  // namespace wksdetail

inline IParametersCreatable* BASEObject::CreateParameters() {
    static SmartPtr<IComponentString> gParametersCreatable;
    if (gParametersCreatable.Published() == nullptr) {
        SmartPtr<IComponentString> found(wksdetail::FindParametersCreatable());
        if (found && gParametersCreatable.PublishOnce(found.get())) found.Detach();
    }
    IComponentString* factory = gParametersCreatable.Published();
    if (factory == nullptr) return nullptr;
    IParametersCreatable* parameters = nullptr;
    factory->CreateInstance(&IID_IParametersCreatable, reinterpret_cast<void**>(&parameters));
    return parameters;
}
