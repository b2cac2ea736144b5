// A workspace of objects described in TOML, and its running object table.
//
// Schema: every `[[object]]` is an entry of the running object table; `children` (an array of
// tables, `[[object.children]]`) nests objects inside it. Keys of an object, each of one type:
//   name      (required, text) the name commands use
//   kind      (text) container | step | io | result | toolbar | button | tabs | manager |
//             managers | moniker | files | search                      (default: container)
//   state     (integer) step, io: the initial state, 0 or 1; tabs, manager: the active index,
//             0 up to the last child
//   value     (integer or real) result: its value
//   id        (integer, 32 bits) button: its id
//   selector  (boolean) tabs: true gives the tab collection a folder selector (the active tab)
//   busy_ms   (integer, 0..60000) files: how long the collection stays busy after loading
//   target    (text, required) moniker: the top-level object it stands for; top level only
//   parameters  (table) every kind but moniker: name = value, the object's own parameter
//             collection (integers of 32 bits get type 3, booleans type 3 as 0/1, reals type 5,
//             texts type 6)
//   children  (array of tables) container, toolbar, tabs, manager, files: the kinds a path can
//             go through
//
// An optional `[registry]` table holds what the host's "Registry" component reports to components:
//   install_path  (text) the installation directory, absolute, at most 255 characters
//                 (default: the folder of the running program)
//   [registry.mappings]  name = directory, one symbolic name per directory, in the file's order
//                 (a file name under the directory is stored as [name]/rest)
//
// The loader refuses what a command could not reach or the objects could not hold rather than
// guessing: a key of the wrong type, unknown or not taken by the kind; a number out of range
// (never cast); names that repeat among siblings; names a command line cannot spell (empty,
// holding . : = + - or a control character, or with blanks at either end, since the command
// language cuts names at those characters and trims the blanks).
#pragma once

#include <string>
#include <vector>

#include "host/components/Registry.h"
#include "host/workspace/WorkspaceObject.h"

struct Workspace {
    SmartPtr<IRunningObjectTableEx> table;  // also answers INamedCollection
    WorkspaceLog log;
    HostRegistry registry;  // from [registry]; the host hands it to HOSTSetRegistry

    CWorkspaceObject* Root() const { return static_cast<CWorkspaceObject*>(table.get()); }
    // The object at a path of top-level and child names separated by ".", or null.
    CWorkspaceObject* Find(const std::wstring& path) const;
};

// Builds `out` from TOML `text`. On failure returns false, leaves `out` without a table and sets
// `error` to "<source>:<line>: <problem>". On success appends to `warnings` (if given) one
// "<source>:<line>: <problem>" per name that only some command forms reach: a top-level name that
// starts a message ending the session (a beginning of "Break", or a name beginning with "break",
// ignoring case), or a top-level name equal to one of the protocol object's own parameters
// ("Var1", "Var2"), which a path beginning with it addresses instead.
bool WorkspaceLoad(const std::string& text, const std::string& source, Workspace& out, std::string& error,
                   std::vector<std::string>* warnings = nullptr);

// WorkspaceLoad on the contents of the file at `path`, with `path` as the source. A directory
// fails with "<path>: is a directory", a file that cannot be opened or read with
// "<path>: cannot read: <reason>".
bool WorkspaceLoadFile(const std::string& path, Workspace& out, std::string& error,
                       std::vector<std::string>* warnings = nullptr);

// The built-in sample workspace, in the same TOML form (host/workspace/sample.toml holds a copy).
const char* WorkspaceSample();
