// "Registry": the host's settings that components read, never write. Two keys are known:
//   "Workspace"  value "InstallPath": the installation directory (default: the folder of the
//                running program)
//   "Mappings"   one value per mapping, in the order they were set: name -> directory
// Keys and value names are compared without regard to case, as a registry does.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/collections/HostObject.h"

struct HostRegistry {
    std::wstring installPath;  // empty: the folder of the running program
    std::vector<std::pair<std::wstring, std::wstring>> mappings;
};

// Replaces what every "Registry" made from now on reads.
HOST_API void HOSTSetRegistry(HostRegistry registry);
// The install path the registry reports: the one set, else the running program's folder.
HOST_API std::wstring HOSTInstallPath();
