// File names made portable before they are persisted, and concrete again after they are read:
// a leading directory the host's registry lists under "Mappings" becomes "[name]" (FILENAMEMap,
// FILENAMEUnmap), and a path that shares at least two levels with the installation directory is
// written relative to it with one "..\" per level to climb (FILENAMECreateRelative,
// FILENAMECreateAbsolute). Every call makes the host's "Registry" component afresh and releases
// it. The caller owns the reference in every output.
#pragma once

#include "module/interfaces/Strings.h"

// The installation directory (registry key "Workspace", value "InstallPath"). Always stores a new
// string, empty when nothing could be read; the result is the registry's, or E_FAIL without one.
HRESULT FILENAMEGetInstallPath(IString** path);

// "[name]" + the rest, for the first mapping whose directory begins `path` (case-insensitively).
// S_OK; E_FAIL when none applies; 0x80040010 without a registry. The output is set on S_OK only.
HRESULT FILENAMEMap(IString* path, IString** mapped);

// The mapping's directory + the rest of "[name]rest", with every backslash turned into a slash.
// S_OK, or E_FAIL (not "[...]", no such mapping, no registry) with the output untouched.
HRESULT FILENAMEUnmap(IString* mapped, IString** path);

// Always S_OK: a new relative string, or `path` itself with a new reference when it shares no
// more than its root with the installation directory.
HRESULT FILENAMECreateRelative(IString* path, IString** relative);

// Turns every backslash of `string` into a slash, in the string's own text (null: nothing).
void FILENAMESlashes(IString* string);

// Always S_OK: a new absolute string, or `relative` itself with a new reference when it already is
// absolute (or too short to be relative). Backslashes of `relative` become slashes in place.
HRESULT FILENAMECreateAbsolute(IString* relative, IString** path);
