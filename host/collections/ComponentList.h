// The creators of the components that CollectionsEx.so makes by name; the global component
// collection registers each under its name.
#pragma once

#include "host/collections/HostObject.h"

#define HOST_CREATOR(fn) HOST_API HRESULT fn(void* outer, IID* iid, void** object);

// Collections, strings, variants, component strings ("CreatableString", "Variant",
// "SuperCollection", "ComponentString", "GlobalComponentCollection").
HOST_CREATOR(HOSTCreateString)
HOST_CREATOR(HOSTCreateVariant)
HOST_CREATOR(HOSTCreateSuperCollection)
HOST_CREATOR(HOSTCreateComponentString)
HOST_CREATOR(HOSTCreateGlobalComponentCollection)
// Streams and the string table ("CSVStream", "INIStream", "XMLStream", "FolderStream", "StringTable").
HOST_CREATOR(HOSTCreateCSVStream)
HOST_CREATOR(HOSTCreateINIStream)
HOST_CREATOR(HOSTCreateXMLStream)
HOST_CREATOR(HOSTCreateFolderStream)
HOST_CREATOR(HOSTCreateStringTable)
// The registry the file-name functions read ("Registry", host/components/Registry.h).
HOST_CREATOR(HOSTCreateRegistry)
// Parameter collections ("ParametersCreatable").
HOST_CREATOR(HOSTCreateParameters)
// Inputs ("InputParameters", "InputParameter", "CollectionMoniker").
HOST_CREATOR(HOSTCreateInputParameters)
HOST_CREATOR(HOSTCreateInputParameter)
HOST_CREATOR(HOSTCreateCollectionMoniker)

#undef HOST_CREATOR
